// SPDX-License-Identifier: Apache-2.0
#include "declarations.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace tavdb::command {

namespace {

/// A placeholder tells what stands in its place, in every command alike.
constexpr std::pair<std::string_view, WordKind> kPlaceholders[] = {
    {"PATH", WordKind::component},    {"NEWPARENT", WordKind::component}, {"SIBLING", WordKind::component},
    {"PATTERN", WordKind::component}, {"FILE", WordKind::file},           {"DIR", WordKind::directory},
    {"PROGRAM", WordKind::program},   {"COMMAND", WordKind::command},
};

WordKind kindOf(const std::string &placeholder) {
    for (const auto &[name, kind] : kPlaceholders)
        if (name == placeholder)
            return kind;
    return WordKind::other;
}

/// A check describes the values that it admits: "{a,b}", or "{a->0,b->1}" when they stand for others.
std::vector<std::string> listedValues(const std::string &typeName) {
    const size_t start = typeName.find('{');
    const size_t end = typeName.find('}', start);
    if (start == std::string::npos || end == std::string::npos)
        return {};
    std::vector<std::string> values;
    std::istringstream items(typeName.substr(start + 1, end - start - 1));
    for (std::string item; std::getline(items, item, ',');)
        values.push_back(item.substr(0, item.find("->")));
    return values;
}

std::vector<std::string> namesOf(const CLI::Option &option) {
    if (option.get_positional())
        return {option.get_name(true)};
    std::vector<std::string> names;
    for (const auto &name : option.get_snames())
        names.push_back("-" + name);
    for (const auto &name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

Argument argumentOf(const CLI::Option &option) {
    Argument argument{namesOf(option), "", option.get_description(), {}, option.get_default_str()};
    const auto typeName = option.get_type_name();
    if (option.get_type_size() != 0)
        argument.placeholder = option.get_positional() ? argument.names[0] : typeName.substr(0, typeName.find(':'));
    argument.values = listedValues(typeName);
    argument.kind = argument.values.empty() ? kindOf(argument.placeholder) : WordKind::listed;
    argument.isRepeated = option.get_expected_max() == CLI::detail::expected_max_vector_size;
    return argument;
}

bool isIn(const std::vector<Argument> &arguments, const Argument &argument) {
    return std::any_of(arguments.begin(), arguments.end(),
                       [&](const Argument &other) { return other.names == argument.names; });
}

Command commandOf(const CLI::App &app, const std::vector<Argument> &common) {
    Command command{app.get_name(), app.get_description(), {}, {}, app.get_prefix_command()};
    for (const auto *option : app.get_options()) {
        auto argument = argumentOf(*option);
        if (option->get_positional())
            command.operands.push_back(std::move(argument));
        else if (!isIn(common, argument))
            command.options.push_back(std::move(argument));
    }
    // The parser is told nothing about the operands of such a command.
    if (command.optionsStandFirst && command.operands.empty())
        command.operands.push_back(
            {{"PATH"}, "PATH", "a leaf; its value stands behind it, or behind a =", {}, "", WordKind::component, true});
    return command;
}

}  // namespace

Declarations declarationsOf(const CLI::App &app) {
    const auto about = app.get_description();
    Declarations declarations{app.get_name(), about.substr(0, about.find('\n')), {}, {}, {}};
    for (const auto *option : app.get_options()) {
        const bool isOfProgram = option == app.get_version_ptr();
        (isOfProgram ? declarations.options : declarations.common).push_back(argumentOf(*option));
    }
    for (const auto *command : app.get_subcommands([](const CLI::App *) { return true; }))
        declarations.commands.push_back(commandOf(*command, declarations.common));
    return declarations;
}

}  // namespace tavdb::command
