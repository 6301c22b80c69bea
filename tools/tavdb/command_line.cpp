// SPDX-License-Identifier: Apache-2.0
#include "command_line.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <array>
#include <string_view>

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

struct Command {
    std::string_view name;
    void (*add)(CLI::App &app, Action &action);
};
constexpr std::array kCommands = {
    Command{"build", addBuild},
    Command{"convert", addConvert},
    Command{"get", addGet},
    Command{"set", addSet},
    Command{"list", addList},
    Command{"tree", addTree},
    Command{"describe", addDescribe},
    Command{"info", addInfo},
    Command{"find", addFind},
    Command{"reset", addReset},
    Command{"save", addSave},
    Command{"mv", addMove},
    Command{"rm", addRemove},
    Command{"lock", addLock},
    Command{"unlock", addUnlock},
    Command{"locks", addLocks},
    Command{"sessions", addSessions},
    Command{"serve-media", addServeMedia},
    Command{"check", addCheck},
    Command{"repair", addRepair},
    Command{"dump", addDump},
    Command{"debug", addDebug},
    Command{"completion", addCompletion},
    Command{"help", addHelp},
};

bool occurs(std::string_view word, std::span<const char *const> arguments) {
    return std::find(arguments.begin(), arguments.end(), word) != arguments.end();
}

/// Declaring all commands takes longer than reading a value. A command whose name does not occur cannot be meant;
/// whoever asks for help, or names no command, is shown all of them.
bool needsAll(std::span<const char *const> arguments) {
    const auto occursHere = [&](std::string_view word) { return occurs(word, arguments); };
    constexpr std::array kShowAll = {"help", "--help", "-h", "completion"};
    return std::any_of(kShowAll.begin(), kShowAll.end(), occursHere) ||
           std::none_of(kCommands.begin(), kCommands.end(),
                        [&](const Command &command) { return occursHere(command.name); });
}

}  // namespace

CommandLine::CommandLine(std::span<const char *const> arguments) : app(kAbout) {
    app.name("tavdb");
    app.option_defaults()->always_capture_default(false);
    addCommonOptions(app);
    app.set_version_flag("--version", "tavdb " TAVDB_VERSION, "Print the version and exit");
    app.require_subcommand(0, 1);
    const bool all = needsAll(arguments);
    for (const Command &command : kCommands)
        if (all || occurs(command.name, arguments))
            command.add(app, action);
    // A command that takes whatever follows would hand its own arguments on.
    for (auto *command : app.get_subcommands({}))
        if (command->get_prefix_command())
            addCommonOptions(*command);
        else
            command->fallthrough();
}

void CommandLine::addCommonOptions(CLI::App &place) {
    place.add_option("-d,--directory", common.directory, "the database directory; else TAVDB_DIR names it")
        ->type_name("DIR");
    place.add_flag("--json", common.json, "print JSON");
    place.add_flag("--no-hooks", common.noHooks, "read and write without the database's hooks");
}

}  // namespace tavdb::command
