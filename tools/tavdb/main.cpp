// SPDX-License-Identifier: Apache-2.0
// The command tavdb: reads the arguments, runs one command, answers with an exit
// code. What each command does stands in a file of its own.
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>

#include "command_line.h"

int main(int argumentCount, char **argumentValues) {
    using namespace tavdb::command;
    occupyStandardDescriptors();
    // A reader that goes away and a limit on file sizes are errors of a write, not the end of the program.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    try {
        const std::span<const char *const> arguments(argumentValues, static_cast<size_t>(argumentCount));
        Console console;
        CommandLine(arguments).run(arguments, console);
        return console.finish();
    } catch (const std::bad_alloc &) {
        fputs("tavdb: out of memory\n", stderr);
        return static_cast<int>(tavdb::image::FaultKind::failed);
    } catch (const std::exception &problem) {
        fprintf(stderr, "tavdb: an error inside the command: %s\n", problem.what());
        return static_cast<int>(tavdb::image::FaultKind::failed);
    }
}
