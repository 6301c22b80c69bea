// SPDX-License-Identifier: Apache-2.0
#include "pages.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace tavdb::manual {

namespace {

using command::Argument;
using command::Command;
using command::Declarations;

/// Of the document of commands, what is no matter of a manual page.
constexpr const char *kCosts = "What it costs";

std::string lowered(std::string text) {
    text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

std::string sentence(std::string text) {
    text.erase(text.find_last_not_of('\n') + 1);
    text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text + (text.ends_with('.') ? "" : ".");
}

std::string heading(std::string title) {
    std::transform(title.begin(), title.end(), title.begin(),
                   [](unsigned char character) { return static_cast<char>(std::toupper(character)); });
    return "\n# " + title + "\n\n";
}

std::string reference(const std::string &name, int section) {
    return "**" + name + "**(" + std::to_string(section) + ")";
}

/// Puts documents into the words of a page, and collects the pages that they refer to.
class Writer {
public:
    Writer(const Declarations &given, std::string ownName) : declarations(given), own(std::move(ownName)) {}

    std::string inWords(const std::string &body) {
        const auto linked = withLinks(body, [this](const std::string &text, const std::string &target) {
            const auto page = pageOf(target);
            if (page.empty())
                return text;
            if (page != own)
                others.insert(page);
            // a text that only names the document or the command is as good as the page's name
            return text.ends_with(".md") || text.starts_with("`") ? page : text + " (" + page + ")";
        });
        const auto lists = withTables(linked, [](const std::vector<Row> &rows) {
            return rows[0].size() == 2 ? definitionList(rows) : tableText(rows);
        });
        return withSubsectionsRaised(lists);
    }

    void refer(const std::string &page) {
        others.insert(page);
    }

    std::string seeAlso() const {
        std::string text;
        for (const auto &page : others)
            text += (text.empty() ? "" : ", ") + page;
        return heading("SEE ALSO") + text + "\n";
    }

private:
    /// The page that a link leads to; empty when what it leads to has none.
    std::string pageOf(const std::string &target) const {
        for (const auto &format : formats())
            if (target.starts_with(format.file))
                return reference(format.name, 5);
        const size_t anchor = target.find('#');
        const auto file = target.substr(0, anchor);
        if (!file.empty() && file != "COMMAND.md")
            return "";
        for (const auto &each : declarations.commands)
            if (anchor != std::string::npos && target.substr(anchor + 1) == each.name)
                return reference(declarations.name + "-" + each.name, 1);
        return reference(declarations.name, 1);
    }

    const Declarations &declarations;
    std::string own;
    std::set<std::string> others;
};

std::string nameLine(const std::string &name, const std::string &about) {
    return "# NAME\n\n" + name + " - " + escaped(about) + "\n";
}

/// "`-o`, `--output` *DIR*"
std::string headOf(const Argument &argument, bool isOperand) {
    std::string text;
    for (const auto &name : argument.names)
        text += (text.empty() ? "`" : ", `") + name + "`";
    return text + (argument.takesValue() && !isOperand ? " *" + escaped(argument.placeholder) + "*" : "");
}

std::string declaredText(const Argument &argument) {
    auto text = sentence(escaped(argument.about));
    std::string values;
    for (const auto &value : argument.rules.values)
        values += (values.empty() ? " One of `" : ", `") + value + "`";
    text += values.empty() ? "" : values + ".";
    return text + (argument.rules.standard.empty() ? "" : " `" + argument.rules.standard + "` unless stated.");
}

/// What the table of options says about one of them, in a paragraph for each row; else what was declared.
std::string textOf(const Argument &option, const std::vector<Row> &rows) {
    std::string text;
    for (const auto &row : rows) {
        const auto words = row[0].substr(1, row[0].size() - 2);
        const size_t end = words.find(' ');
        if (std::find(option.names.begin(), option.names.end(), words.substr(0, end)) == option.names.end())
            continue;
        const auto value = end == std::string::npos ? "" : words.substr(end + 1);
        const bool isValue =
            std::find(option.rules.values.begin(), option.rules.values.end(), value) != option.rules.values.end();
        text += (text.empty() ? "" : "\n\n    ") + (isValue ? "`" + value + "`: " : "") + row[1];
    }
    return text.empty() ? declaredText(option) : text;
}

std::string argumentList(const std::vector<Argument> &arguments, const std::vector<Row> &rows, bool areOperands) {
    std::string text;
    for (const auto &argument : arguments)
        text += headOf(argument, areOperands) + "\n: " + textOf(argument, rows) + "\n\n";
    return text;
}

std::string declaredSynopsis(const Declarations &declarations, const Command &command) {
    auto line = "```\n" + declarations.name + " " + command.name + " [OPTION...]";
    for (const auto &operand : command.operands)
        line += " " + operand.names[0] + (operand.isRepeated ? "..." : "");
    return line + "\n```\n";
}

/// Takes the table of options out of a section. @return its rows
std::vector<Row> takeOptionRows(std::string &body) {
    std::vector<Row> found;
    body = withTables(body, [&](const std::vector<Row> &rows) {
        if (rows[0][0] != "option")
            return tableText(rows);
        found.insert(found.end(), rows.begin() + 1, rows.end());
        return std::string();
    });
    return found;
}

bool isBlank(const std::string &text) {
    return text.find_first_not_of(" \n") == std::string::npos;
}

Page commandPage(const Declarations &declarations, const Command &command, const Section *section) {
    const auto name = declarations.name + "-" + command.name;
    Writer writer(declarations, reference(name, 1));
    writer.refer(reference(declarations.name, 1));
    auto body = section == nullptr ? "" : section->body;
    const auto synopsis = takeFirstBlock(body);
    auto rows = takeOptionRows(body);
    for (auto &row : rows)
        row[1] = sentence(writer.inWords(row[1]));
    auto text = nameLine(name, lowered(command.about));
    text += heading("SYNOPSIS") + (synopsis.empty() ? declaredSynopsis(declarations, command) : synopsis);
    text += heading("DESCRIPTION") + (isBlank(body) ? sentence(escaped(command.about)) + "\n" : writer.inWords(body));
    if (!command.operands.empty())
        text += heading("OPERANDS") + argumentList(command.operands, {}, true);
    text += heading("OPTIONS") + argumentList(command.options, rows, false);
    text += argumentList(declarations.common, {}, false);
    text += heading("EXIT STATUS") + "Unless something else stands above: 0 when it is done, else a code of " +
            reference(declarations.name, 1) + ".\n";
    return {name, 1, text + writer.seeAlso()};
}

Page programPage(const Declarations &declarations, const Document &manual) {
    Writer writer(declarations, reference(declarations.name, 1));
    for (const auto &format : formats())
        writer.refer(reference(format.name, 5));
    auto about = lowered(declarations.about);
    about.erase(about.find_last_not_of('.') + 1);
    auto text = nameLine(declarations.name, about);
    text += heading("SYNOPSIS") + "```\n" + declarations.name + " [OPTION...] COMMAND [ARGUMENT...]\n```\n";
    // behind the table of commands the document goes on about its own examples
    text += heading("DESCRIPTION") + manual.introduction.substr(0, manual.introduction.find("\n|")) + "\n";
    for (const auto &command : declarations.commands)
        text +=
            reference(declarations.name + "-" + command.name, 1) + "\n: " + sentence(escaped(command.about)) + "\n\n";
    text += heading("OPTIONS") + argumentList(declarations.common, {}, false) +
            argumentList(declarations.options, {}, false);
    for (const auto &section : manual.sections) {
        const bool isCommand = std::any_of(declarations.commands.begin(), declarations.commands.end(),
                                           [&](const Command &command) { return command.name == section.title; });
        if (!isCommand && section.title != kCosts)
            text += heading(section.title) + writer.inWords(section.body);
    }
    return {declarations.name, 1, text + writer.seeAlso()};
}

}  // namespace

const std::vector<Format> &formats() {
    static const std::vector<Format> list = {
        {"DESCRIPTIONS.md", "tavdb-description", "what databases are built from"},
        {"HOOKS.md", "tavdb-hooks", "the hook file of a database"},
        {"MEDIA.md", "tavdb-media", "the media configuration of a database"},
    };
    return list;
}

Page formatPage(const Format &format, const Document &document, const Declarations &declarations) {
    Writer writer(declarations, reference(format.name, 5));
    writer.refer(reference(declarations.name, 1));
    auto text = nameLine(format.name, format.about) + heading("DESCRIPTION") + writer.inWords(document.introduction);
    for (const auto &section : document.sections)
        text += heading(section.title) + writer.inWords(section.body);
    return {format.name, 5, text + writer.seeAlso()};
}

std::vector<Page> commandPages(const Declarations &declarations, const Document &manual) {
    std::vector<Page> pages = {programPage(declarations, manual)};
    for (const auto &command : declarations.commands)
        pages.push_back(commandPage(declarations, command, manual.find(command.name)));
    return pages;
}

}  // namespace tavdb::manual
