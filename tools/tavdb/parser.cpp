// SPDX-License-Identifier: Apache-2.0
#include "parser.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>

#include "image/text_util.h"

namespace tavdb::command {

namespace {

/// Adds an argument as the type of its target wants it.
struct Adder {
    CLI::App &place;
    const std::string names;
    const std::string about;

    CLI::Option *operator()(std::monostate) const {
        return place.get_help_ptr()->description(about);
    }
    CLI::Option *operator()(const char *text) const {
        return place.set_version_flag(names, text, about);
    }
    CLI::Option *operator()(bool *target) const {
        return place.add_flag(names, *target, about);
    }
    template <typename Value>
    CLI::Option *operator()(Value *target) const {
        return place.add_option(names, *target, about);
    }
};

void limit(CLI::Option &option, const Argument &argument) {
    const auto &rules = argument.rules;
    if (rules.complaint)
        option.check(CLI::Validator(rules.complaint, "{" + image::join(rules.values, ",") + "}"));
    else if (!rules.values.empty())
        option.check(CLI::IsMember(rules.values));
    if (rules.isNotNegative)
        option.check(CLI::NonNegativeNumber);
    if (!rules.range)
        return;
    const auto [least, most] = *rules.range;
    const bool isWhole = std::holds_alternative<uint32_t *>(argument.target);
    option.check(isWhole ? CLI::Range(static_cast<uint32_t>(least), static_cast<uint32_t>(most))
                         : CLI::Range(least, most));
}

void add(CLI::App &place, const Argument &argument) {
    const auto &rules = argument.rules;
    auto &option = *std::visit(Adder{place, image::join(argument.names, ","), argument.about}, argument.target);
    if (argument.takesValue() && !argument.isOperand())
        option.type_name(argument.placeholder);
    if (rules.isRequired)
        option.required();
    if (rules.takesOneEach)
        option.allow_extra_args(false);
    if (!rules.standard.empty())
        option.default_str(rules.standard);
    for (const auto &other : rules.excludes)
        option.excludes(other);
    limit(option, argument);
}

void add(CLI::App &place, const std::vector<Argument> &arguments) {
    for (const auto &argument : arguments)
        add(place, argument);
}

void add(CLI::App &app, const Command &command, const std::vector<Argument> &common) {
    auto &place = *app.add_subcommand(command.name, command.about);
    place.footer(command.footer);
    // What takes whatever follows its options would hand those of all commands on; its operands are what remains.
    if (command.optionsStandFirst)
        place.prefix_command();
    else
        add(place, command.operands);
    add(place, command.options);
    if (command.optionsStandFirst)
        add(place, common);
    else
        place.fallthrough();
}

/// What stands behind options that stand first.
std::vector<std::string> restOf(const CLI::App &place) {
    auto rest = place.remaining();
    if (rest.empty() || rest[0].size() < 2 || !rest[0].starts_with('-'))
        return rest;
    if (rest[0] != "--")
        throw CLI::ExtrasError({rest[0]});
    rest.erase(rest.begin());
    return rest;
}

Parsed call(const Command &command, const CLI::App &place) {
    if (command.optionsStandFirst)
        *std::get<std::vector<std::string> *>(command.operands.at(0).target) = restOf(place);
    return {.command = &command};
}

/// The library complains over several lines; a fault has one.
std::string inOneLine(std::string sentence) {
    std::replace(sentence.begin(), sentence.end(), '\n', ' ');
    return sentence;
}

}  // namespace

Parser::Parser(const Declarations &place)
    : declared(place), app(std::make_unique<CLI::App>(place.about + "\n" + place.details, place.name)) {
    add(*app, declared.common);
    add(*app, declared.options);
    app->require_subcommand(0, 1);
    for (const auto &command : declared.commands)
        add(*app, command, declared.common);
}

Parser::~Parser() = default;

Parsed Parser::parse(std::span<const char *const> arguments) {
    try {
        app->parse(static_cast<int>(arguments.size()), arguments.data());
        return called();
    } catch (const CLI::CallForHelp &) {
        return {.text = app->help()};
    } catch (const CLI::CallForVersion &version) {
        return {.text = std::string(version.what()) + "\n"};
    } catch (const CLI::ParseError &problem) {
        const bool isUnknown = app->get_subcommands().empty() && app->remaining_size() != 0;
        return {.mistake = inOneLine(isUnknown ? "there is no command or option " + app->remaining().front()
                                               : problem.what())};
    }
}

Parsed Parser::called() const {
    for (const auto *place : app->get_subcommands())
        for (const auto &command : declared.commands)
            if (command.name == place->get_name())
                return call(command, *place);
    return {};
}

/// The library's own way would show the command that was called, which is "help".
std::optional<std::string> Parser::helpOf(const std::string &name) const {
    const auto help = [&](const CLI::App &place, const std::string &usage) {
        return app->get_formatter()->make_help(&place, usage, CLI::AppFormatMode::Normal);
    };
    if (name.empty())
        return help(*app, declared.name);
    for (const auto *place : app->get_subcommands([&](const CLI::App *each) { return each->get_name() == name; }))
        return help(*place, declared.name + " " + name);
    return std::nullopt;
}

}  // namespace tavdb::command
