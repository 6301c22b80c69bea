// SPDX-License-Identifier: Apache-2.0
// What the parser of the command line was told, as plain records: commands, their
// options and their operands, and what kind of word each of them takes. Completions
// and manual pages are made from it. It parses nothing itself.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace tavdb::command {

/// What a word on the command line is.
enum class WordKind { other, component, file, directory, program, command, listed };

/// An option, or an operand, which has its placeholder for a name.
struct Argument {
    std::vector<std::string> names;  ///< "-d", "--directory"
    std::string placeholder;         ///< of an option's value; empty for a flag
    std::string about;
    std::vector<std::string> values;  ///< all that are admitted, when kind is listed
    std::string standard;             ///< what is taken when the option is not given; may be empty
    WordKind kind = WordKind::other;
    bool isRepeated = false;

    bool takesValue() const {
        return !placeholder.empty();
    }
};

struct Command {
    std::string name;
    std::string about;
    std::vector<Argument> options;  ///< those of all commands are not repeated here
    std::vector<Argument> operands;
    bool optionsStandFirst = false;  ///< nothing behind the first operand is an option
};

struct Declarations {
    std::string name;
    std::string about;              ///< one line
    std::vector<Argument> options;  ///< of the program alone: they stand in front of a command
    std::vector<Argument> common;   ///< of the program and of all commands
    std::vector<Command> commands;
};

Declarations declarationsOf(const CLI::App &app);

}  // namespace tavdb::command
