// SPDX-License-Identifier: Apache-2.0
// tavdb completion: prints a completion script. Here is the command and what the
// scripts of all shells have in common.
#include "completion.h"

#include <array>

#include "command.h"

namespace tavdb::command {

namespace {

struct Shell {
    const char *name;
    std::string (*script)(const Declarations &);
};

constexpr std::array kShells = {Shell{"bash", bashCompletion}, Shell{"fish", fishCompletion},
                                Shell{"zsh", zshCompletion}};

std::vector<std::string> shellNames() {
    std::vector<std::string> names;
    for (const auto &shell : kShells)
        names.emplace_back(shell.name);
    return names;
}

}  // namespace

std::string replaced(std::string text, std::string_view from, std::string_view to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::vector<std::string> commandNames(const Declarations &declarations) {
    std::vector<std::string> names;
    for (const auto &command : declarations.commands)
        names.push_back(command.name);
    return names;
}

std::vector<std::string> optionsFirstNames(const Declarations &declarations) {
    std::vector<std::string> names;
    for (const auto &command : declarations.commands)
        if (command.optionsStandFirst)
            names.push_back(command.name);
    return names;
}

void addCompletion(Declarations &place) {
    auto name = std::make_shared<std::string>();
    auto &command = place.add("completion", "Print a script that completes command lines in a shell");
    command.add("SHELL", name.get(), "the shell", {.isRequired = true, .values = shellNames()});
    command.action = [name, &place](const Common &, Console &console) {
        for (const auto &shell : kShells)
            if (*name == shell.name)
                console.print(shell.script(place));
    };
}

}  // namespace tavdb::command
