// SPDX-License-Identifier: Apache-2.0
#include "markdown.h"

#include <regex>
#include <sstream>

namespace tavdb::manual {

namespace {

constexpr const char *kFence = "```";

/// Calls `take` with each line, its end included, and whether it belongs to a block of code.
void forEachLine(const std::string &text, const std::function<void(const std::string &, bool)> &take) {
    std::istringstream lines(text);
    bool isCode = false;
    for (std::string line; std::getline(lines, line);) {
        const bool isFence = line.starts_with(kFence);
        take(line + "\n", isCode || isFence);
        isCode = isCode != isFence;
    }
}

/// The cells of "| a | b |"; "\|" is no border.
Row cellsOf(const std::string &line) {
    Row cells;
    std::string cell;
    for (size_t i = 1; i < line.size(); i++) {
        const bool isEscaped = line[i] == '\\' && i + 1 < line.size() && line[i + 1] == '|';
        if (line[i] != '|') {
            cell += isEscaped ? line[++i] : line[i];
            continue;
        }
        const size_t start = cell.find_first_not_of(' ');
        cells.push_back(start == std::string::npos ? "" : cell.substr(start, cell.find_last_not_of(' ') + 1 - start));
        cell.clear();
    }
    return cells;
}

std::vector<Row> rowsOf(const std::string &table) {
    std::vector<Row> rows;
    forEachLine(table, [&](const std::string &line, bool) { rows.push_back(cellsOf(line)); });
    if (rows.size() > 1)
        rows.erase(rows.begin() + 1);
    return rows;
}

}  // namespace

const Section *Document::find(const std::string &sectionTitle) const {
    for (const auto &section : sections)
        if (section.title == sectionTitle)
            return &section;
    return nullptr;
}

Document readDocument(const std::string &text) {
    Document document;
    forEachLine(text, [&](const std::string &line, bool isCode) {
        const auto heading = isCode ? 0 : line.find_first_not_of('#');
        if (heading == 1 && document.title.empty())
            document.title = line.substr(2, line.size() - 3);
        else if (heading == 2)
            document.sections.push_back({line.substr(3, line.size() - 4), ""});
        else
            (document.sections.empty() ? document.introduction : document.sections.back().body) += line;
    });
    return document;
}

std::string withTables(const std::string &body, const std::function<std::string(const std::vector<Row> &)> &change) {
    std::string result;
    std::string table;
    const auto finish = [&] {
        if (!table.empty())
            result += change(rowsOf(table));
        table.clear();
    };
    forEachLine(body, [&](const std::string &line, bool isCode) {
        if (!isCode && line.starts_with("|")) {
            table += line;
            return;
        }
        finish();
        result += line;
    });
    finish();
    return result;
}

std::string definitionList(const std::vector<Row> &rows) {
    std::string text;
    for (size_t i = 1; i < rows.size(); i++)
        text += rows[i][0] + "\n: " + rows[i][1] + "\n\n";
    return text;
}

std::string tableText(const std::vector<Row> &rows) {
    std::string text;
    for (size_t i = 0; i < rows.size(); i++) {
        std::string rule = "|";
        for (const auto &cell : rows[i]) {
            text += "| " + std::regex_replace(cell, std::regex("\\|"), "\\|") + " ";
            rule += "---|";
        }
        text += "|\n" + (i == 0 ? rule + "\n" : "");
    }
    return text;
}

std::string withLinks(const std::string &body,
                      const std::function<std::string(const std::string &, const std::string &)> &change) {
    static const std::regex link("\\[([^\\]]+)\\]\\(([^)]+)\\)");
    std::string result;
    auto from = body.cbegin();
    for (std::sregex_iterator each(body.begin(), body.end(), link), end; each != end; ++each) {
        result.append(from, (*each)[0].first);
        result += change((*each)[1], (*each)[2]);
        from = (*each)[0].second;
    }
    return result.append(from, body.cend());
}

std::string takeFirstBlock(std::string &body) {
    std::string block;
    std::string rest;
    bool isOver = false;
    forEachLine(body, [&](const std::string &line, bool isCode) {
        isOver = isOver || (!isCode && !block.empty());
        (isCode && !isOver ? block : rest) += line;
    });
    body = rest;
    return block;
}

std::string withSubsectionsRaised(const std::string &body) {
    std::string result;
    forEachLine(body, [&](const std::string &line, bool isCode) {
        result += !isCode && line.starts_with("### ") ? line.substr(1) : line;
    });
    return result;
}

std::string escaped(const std::string &text) {
    std::string result;
    for (const char character : text) {
        if (std::string_view("\\`*_[]<>&#~^|{}").find(character) != std::string_view::npos)
            result += '\\';
        result += character;
    }
    return result;
}

}  // namespace tavdb::manual
