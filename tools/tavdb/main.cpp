// SPDX-License-Identifier: Apache-2.0
// The command tavdb: reads the arguments, runs one command, answers with an exit
// code. What each command does stands in a file of its own.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "command.h"

namespace tavdb::command {

namespace {

constexpr const char *kAbout =
    "Builds, reads and writes configuration databases.\n"
    "Exit codes: 0 done, 1 failed, 2 usage, 3 not found, 4 value refused, 5 locked or timed out,\n"
    "6 permission, 7 medium or I/O, 8 damaged, 9 another format or byte order, 10 refused by a hook";

const CLI::App *findCommand(const CLI::App &app, const std::string &name) {
    for (const auto *command : app.get_subcommands([](const CLI::App *) { return true; }))
        if (command->get_name() == name)
            return command;
    return nullptr;
}

/// The parser's own way would show the command that was called, which is "help".
std::string helpOf(const CLI::App &app, const std::string &name) {
    return app.get_formatter()->make_help(&app, name, CLI::AppFormatMode::Normal);
}

void addHelp(CLI::App &app, Action &action) {
    auto name = std::make_shared<std::string>();
    auto *command = app.add_subcommand("help", "Print how to use tavdb or one of its commands");
    command->add_option("COMMAND", *name, "the command");
    command->callback([name, &app, &action] {
        action = [name, &app](const Common &, Console &console) {
            const auto *found = name->empty() ? &app : findCommand(app, *name);
            if (found == nullptr)
                console.report("help", {image::FaultKind::usage, "there is no command " + *name, 0, 0});
            else
                console.print(helpOf(*found, found == &app ? app.get_name() : app.get_name() + " " + *name));
        };
    });
}

/// The library complains over several lines; a fault has one.
void reportUsage(Console &console, std::string sentence) {
    std::replace(sentence.begin(), sentence.end(), '\n', ' ');
    console.report("", {image::FaultKind::usage, sentence + " (see 'tavdb help')", 0, 0});
}

class Program {
public:
    int run(int argumentCount, char **argumentValues) {
        setUp();
        try {
            app.parse(argumentCount, argumentValues);
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
    void setUp() {
        app.name("tavdb");
        app.option_defaults()->always_capture_default(false);
        addCommonOptions(app);
        app.set_version_flag("--version", "tavdb " TAVDB_VERSION);
        app.require_subcommand(0, 1);
        for (const auto add : {addBuild,  addConvert, addGet,      addSet,        addList, addTree,   addDescribe,
                               addInfo,   addFind,    addReset,    addSave,       addMove, addRemove, addLock,
                               addUnlock, addLocks,   addSessions, addServeMedia, addDump, addDebug,  addHelp})
            add(app, action);
        // A command that takes whatever follows would hand its own arguments on.
        for (auto *command : app.get_subcommands({}))
            if (command->get_prefix_command())
                addCommonOptions(*command);
            else
                command->fallthrough();
    }

    void addCommonOptions(CLI::App &place) {
        place.add_option("-d,--directory", common.directory, "the database directory; else TAVDB_DIR names it")
            ->type_name("DIR");
        place.add_flag("--json", common.json, "print JSON");
        place.add_flag("--no-hooks", common.noHooks, "read and write without the database's hooks");
    }

    CLI::App app{kAbout};
    Common common;
    Action action;
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
        return Program().run(argumentCount, argumentValues);
    } catch (const std::bad_alloc &) {
        fputs("tavdb: out of memory\n", stderr);
        return static_cast<int>(tavdb::image::FaultKind::failed);
    } catch (const std::exception &problem) {
        fprintf(stderr, "tavdb: an error inside the command: %s\n", problem.what());
        return static_cast<int>(tavdb::image::FaultKind::failed);
    }
}
