// SPDX-License-Identifier: Apache-2.0
// The command line of tavdb: what all commands declare, the options that they have
// in common, and one call from the arguments to the end of the command. What is made
// from the declarations (help, completions, manual pages) follows them by itself.
#pragma once

#include <span>

#include "command.h"
#include "parser.h"

namespace tavdb::command {

class CommandLine {
public:
    /// @param arguments what will be run: commands that do not occur there are left out; none: all are declared
    explicit CommandLine(std::span<const char *const> arguments = {});
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;
    ~CommandLine();

    /// Does what the arguments say, or reports what is wrong with them.
    void run(std::span<const char *const> arguments, Console &console);

    const Declarations &declarations() const {
        return declared;
    }

private:
    void addHelp();

    Common common;
    Declarations declared;
    std::optional<Parser> parser;
};

}  // namespace tavdb::command
