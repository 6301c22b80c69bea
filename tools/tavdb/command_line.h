// SPDX-License-Identifier: Apache-2.0
// The command line of tavdb: the parser with all commands and the options that
// they have in common. What is made from its declarations (help, completions,
// manual pages) follows them by itself.
#pragma once

#include <span>

#include "command.h"

namespace tavdb::command {

struct CommandLine {
    /// @param arguments what will be parsed: commands that do not occur there are left out; none: all are declared
    explicit CommandLine(std::span<const char *const> arguments = {});
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;

    CLI::App app;
    Common common;
    Action action;  ///< set by parsing

private:
    void addCommonOptions(CLI::App &place);
};

}  // namespace tavdb::command
