// SPDX-License-Identifier: Apache-2.0
#include "declarations.h"

#include <string_view>

#include "image/text_util.h"

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

}  // namespace

Argument::Argument(const std::string &head, Target place, std::string description, Rules given)
    : about(std::move(description)), target(place), rules(std::move(given)) {
    const auto words = image::splitWords(head);
    names = image::splitAt(words.front(), ',');
    const bool isOption = head.starts_with('-');
    placeholder = isOption && words.size() == 1 ? "" : words.back();
    kind = rules.values.empty() ? kindOf(placeholder) : WordKind::listed;
    isRepeated = std::holds_alternative<std::vector<std::string> *>(target);
}

void Command::add(const std::string &head, Target target, std::string description, Rules rules) {
    (head.starts_with('-') ? options : operands).emplace_back(head, target, std::move(description), std::move(rules));
}

Command &Declarations::add(std::string command, std::string description) {
    return commands.emplace_back(Command{std::move(command), std::move(description)});
}

}  // namespace tavdb::command
