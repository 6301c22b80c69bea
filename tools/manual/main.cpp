// SPDX-License-Identifier: Apache-2.0
// Writes the manual: a file NAME.SECTION.md for each page, to be rendered by
// render.sh. Takes the folder of the documents, that of the pages, and the date
// that the pages bear.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "command_line.h"
#include "pages.h"

namespace tavdb::manual {

namespace {

namespace fs = std::filesystem;

Document read(const fs::path &file) {
    std::ifstream stream(file);
    std::ostringstream text;
    text << stream.rdbuf();
    if (!stream || text.str().empty())
        throw std::runtime_error(file.string() + " cannot be read");
    return readDocument(text.str());
}

/// What a page begins with is for the converter: it becomes the page's title line.
void write(const fs::path &folder, const Page &page, const std::string &date) {
    const auto file = folder / (page.name + "." + std::to_string(page.section) + ".md");
    std::ofstream stream(file);
    stream << "title: " << page.name << "\nsection: " << page.section << "\ndate: " << date
           << "\nsource: tavdb " TAVDB_VERSION "\nvolume: " << (page.section == 1 ? "Commands" : "File formats")
           << "\n\n"
           << page.text;
    if (!stream.flush())
        throw std::runtime_error(file.string() + " cannot be written");
}

void writeAll(const fs::path &documents, const fs::path &folder, const std::string &date) {
    const command::CommandLine line;
    const auto &declarations = line.declarations();
    for (const auto &page : commandPages(declarations, read(documents / "COMMAND.md")))
        write(folder, page, date);
    for (const auto &format : formats())
        write(folder, formatPage(format, read(documents / format.file), declarations), date);
}

}  // namespace

}  // namespace tavdb::manual

int main(int argumentCount, char **argumentValues) {
    if (argumentCount != 4) {
        std::fputs("usage: tavdb_manual DOCUMENTS PAGES DATE\n", stderr);
        return 2;
    }
    try {
        tavdb::manual::writeAll(argumentValues[1], argumentValues[2], argumentValues[3]);
        return 0;
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "tavdb_manual: %s\n", problem.what());
        return 1;
    }
}
