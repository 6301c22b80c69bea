// SPDX-License-Identifier: Apache-2.0
#include "command_line.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

namespace tavdb::command {

namespace {

struct Entry {
    std::string_view name;
    void (*add)(Declarations &place);
};
constexpr std::array kCommands = {
    Entry{"build", addBuild},
    Entry{"convert", addConvert},
    Entry{"get", addGet},
    Entry{"set", addSet},
    Entry{"list", addList},
    Entry{"tree", addTree},
    Entry{"describe", addDescribe},
    Entry{"info", addInfo},
    Entry{"find", addFind},
    Entry{"reset", addReset},
    Entry{"save", addSave},
    Entry{"mv", addMove},
    Entry{"rm", addRemove},
    Entry{"lock", addLock},
    Entry{"unlock", addUnlock},
    Entry{"locks", addLocks},
    Entry{"sessions", addSessions},
    Entry{"serve-media", addServeMedia},
    Entry{"check", addCheck},
    Entry{"repair", addRepair},
    Entry{"dump", addDump},
    Entry{"debug", addDebug},
    Entry{"completion", addCompletion},
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
           std::none_of(kCommands.begin(), kCommands.end(), [&](const Entry &entry) { return occursHere(entry.name); });
}

}  // namespace

CommandLine::CommandLine(std::span<const char *const> arguments)
    : declared{"tavdb", "Builds, reads and writes configuration databases.",
               "Exit codes: 0 done, 1 failed, 2 usage, 3 not found, 4 value refused, 5 locked or timed out,\n"
               "6 permission, 7 medium or I/O, 8 damaged, 9 another format or byte order, 10 refused by a hook"} {
    declared.common = {
        {"-h,--help", {}, "Print this help message and exit"},
        {"-d,--directory DIR", &common.directory, "the database directory; else TAVDB_DIR names it"},
        {"--json", &common.json, "print JSON"},
        {"--no-hooks", &common.noHooks, "read and write without the database's hooks"},
    };
    declared.options = {{"--version", "tavdb " TAVDB_VERSION, "Print the version and exit"}};
    const bool all = needsAll(arguments);
    for (const Entry &entry : kCommands)
        if (all || occurs(entry.name, arguments))
            entry.add(declared);
    if (all)
        addHelp();
    parser.emplace(declared);
}

// Here, next to what else every run goes through.
CommandLine::~CommandLine() = default;

void CommandLine::addHelp() {
    auto name = std::make_shared<std::string>();
    auto &command = declared.add("help", "Print how to use tavdb or one of its commands");
    command.add("COMMAND", name.get(), "the command");
    command.action = [name, this](const Common &, Console &console) {
        if (const auto help = parser->helpOf(*name))
            console.print(*help);
        else
            console.report("help", {image::FaultKind::usage, "there is no command " + *name});
    };
}

void CommandLine::run(std::span<const char *const> arguments, Console &console) {
    const auto [command, text, mistake] = parser->parse(arguments);
    const char *const directory = getenv("TAVDB_DIR");
    if (common.directory.empty() && directory != nullptr)
        common.directory = directory;
    if (!text.empty())
        console.print(text);
    else if (command != nullptr)
        command->action(common, console);
    else
        console.report("", {image::FaultKind::usage,
                            (mistake.empty() ? "a command is expected" : mistake) + " (see 'tavdb help')"});
}

}  // namespace tavdb::command
