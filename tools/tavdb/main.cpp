// SPDX-License-Identifier: Apache-2.0
// The command tavdb: reads the arguments, runs one command, answers with an exit
// code. What each command does stands in a file of its own.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "command_line.h"

namespace tavdb::command {

namespace {

/// The library complains over several lines; a fault has one.
void reportUsage(Console &console, std::string sentence) {
    std::replace(sentence.begin(), sentence.end(), '\n', ' ');
    console.report("", {image::FaultKind::usage, sentence + " (see 'tavdb help')", 0, 0});
}

class Program {
public:
    explicit Program(std::span<const char *const> given) : arguments(given), line(given) {}

    int run() {
        auto &[app, common, action] = line;
        try {
            app.parse(static_cast<int>(arguments.size()), arguments.data());
            const char *const directory = getenv("TAVDB_DIR");
            if (common.directory.empty() && directory != nullptr)
                common.directory = directory;
            if (action)
                action(common, console);
            else
                console.report("", {image::FaultKind::usage, "a command is expected (see 'tavdb help')", 0, 0});
        } catch (const CLI::CallForHelp &) {
            console.print(app.help());
        } catch (const CLI::CallForVersion &version) {
            console.print(std::string(version.what()) + "\n");
        } catch (const CLI::ParseError &problem) {
            const bool isUnknown = app.get_subcommands().empty() && app.remaining_size() != 0;
            reportUsage(console,
                        isUnknown ? "there is no command or option " + app.remaining().front() : problem.what());
        }
        return console.finish();
    }

private:
    std::span<const char *const> arguments;
    CommandLine line;
    Console console;
};

}  // namespace

}  // namespace tavdb::command

int main(int argumentCount, char **argumentValues) {
    using namespace tavdb::command;
    occupyStandardDescriptors();
    // A reader that goes away and a limit on file sizes are errors of a write, not the end of the program.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    try {
        return Program({argumentValues, static_cast<size_t>(argumentCount)}).run();
    } catch (const std::bad_alloc &) {
        fputs("tavdb: out of memory\n", stderr);
        return static_cast<int>(tavdb::image::FaultKind::failed);
    } catch (const std::exception &problem) {
        fprintf(stderr, "tavdb: an error inside the command: %s\n", problem.what());
        return static_cast<int>(tavdb::image::FaultKind::failed);
    }
}
