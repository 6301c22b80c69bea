// SPDX-License-Identifier: Apache-2.0
// What the command line may hold, as plain records: commands, their options and
// their operands, and what kind of word each of them takes. The commands declare
// themselves with them; the parser, the completions and the manual pages read them.
// Nothing is parsed here, and no record knows how it is.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tavdb::command {

class Console;
struct Common;

/// What a command does once its arguments are read.
using Action = std::function<void(const Common &, Console &)>;

/// Where the parser puts what was given; a bool is that of a flag. A text is printed
/// instead of any work; nothing stands for the help, which the parser prints by itself.
using Target = std::variant<std::monostate, const char *, bool *, std::string *, std::optional<std::string> *,
                            std::vector<std::string> *, uint32_t *, int32_t *, double *>;

/// What an argument asks for beyond the type of its target.
struct Rules {
    bool isRequired = false;
    bool takesOneEach = false;  ///< of several values, each stands behind the name of the option
    bool isNotNegative = false;
    std::optional<std::pair<double, double>> range = {};             ///< least and most
    std::vector<std::string> values = {};                            ///< all that are admitted
    std::function<std::string(const std::string &)> complaint = {};  ///< about a value; it may admit more than `values`
    std::vector<std::string> excludes = {};  ///< what was declared before and cannot be given together with it
    std::string standard = {};               ///< what is taken when it is not given, to be shown
};

/// What a word on the command line is.
enum class WordKind { other, component, file, directory, program, command, listed };

/// An option, or an operand, which has its placeholder for a name.
struct Argument {
    /// @param head "-d,--directory DIR", "--json" or "PATH"
    Argument(const std::string &head, Target place, std::string description, Rules given = {});

    std::vector<std::string> names;  ///< "-d", "--directory"
    std::string placeholder;         ///< of an option's value; empty for a flag
    std::string about;
    Target target;
    Rules rules;
    WordKind kind = WordKind::other;
    bool isRepeated = false;

    bool takesValue() const {
        return !placeholder.empty();
    }
    bool isOperand() const {
        return names[0] == placeholder;
    }
};

struct Command {
    std::string name;
    std::string about;
    std::string footer = {};
    std::vector<Argument> options = {};  ///< those of all commands are not repeated here
    std::vector<Argument> operands = {};
    bool optionsStandFirst = false;  ///< nothing behind the first operand is an option
    Action action = {};

    void add(const std::string &head, Target target, std::string description, Rules rules = {});
};

struct Declarations {
    std::string name;
    std::string about;                   ///< one line
    std::string details;                 ///< the lines behind it
    std::vector<Argument> options = {};  ///< of the program alone: they stand in front of a command
    std::vector<Argument> common = {};   ///< of the program and of all commands
    std::vector<Command> commands = {};

    /// @return valid until the next one is added
    Command &add(std::string command, std::string description);
};

}  // namespace tavdb::command
