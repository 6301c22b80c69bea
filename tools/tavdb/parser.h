// SPDX-License-Identifier: Apache-2.0
// Parses the command line as it was declared, and prints help. The only part that
// knows the library that does so: everything else has declarations.h.
#pragma once

#include <memory>
#include <span>

#include "declarations.h"

namespace CLI {
class App;
}

namespace tavdb::command {

/// What the arguments ask for: one of these, or nothing at all.
struct Parsed {
    const Command *command = nullptr;  ///< the one that was called; its targets are set
    std::string text = {};             ///< to be printed: help or version
    std::string mistake = {};          ///< in one line
};

class Parser {
public:
    /// @param place outlives the parser and changes no more
    explicit Parser(const Declarations &place);
    ~Parser();

    Parsed parse(std::span<const char *const> arguments);

    /// @param name of a command; empty for the program. @return nothing when there is none of this name
    std::optional<std::string> helpOf(const std::string &name) const;

private:
    Parsed called() const;

    const Declarations &declared;
    std::unique_ptr<CLI::App> app;
};

}  // namespace tavdb::command
