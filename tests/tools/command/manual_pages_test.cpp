// SPDX-License-Identifier: Apache-2.0
// The manual's pages as man shows them: each command has one, with all of its
// options, and no page makes the formatter complain.
#include <gmock/gmock.h>

#include <filesystem>
#include <regex>

#include "abi/command_output.h"
#include "tools/command/command_fixture.h"
#include "tools/command/help_text.h"

namespace tavdb_test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class ManualPages : public CommandTest {
protected:
    void SetUp() override {
        if (folder.empty())
            GTEST_SKIP() << "lowdown is not installed: there is no manual";
        if (runCommand("command -v man >/dev/null && command -v lexgrog >/dev/null").status != 0)
            GTEST_SKIP() << "man-db is not installed";
    }

    std::vector<fs::path> pages() const {
        std::vector<fs::path> found;
        for (const auto &entry : fs::recursive_directory_iterator(folder))
            if (entry.is_regular_file())
                found.push_back(entry.path());
        return found;
    }
    fs::path pageOf(const std::string &command) const {
        return folder / "man1" / (command.empty() ? "tavdb.1" : "tavdb-" + command + ".1");
    }
    /// What a reader sees, without bold and underlined.
    static std::string shown(const fs::path &page) {
        std::string text;
        for (const auto &line :
             runCommand("MANWIDTH=200 MANOPT= LC_ALL=C.UTF-8 man -l '" + page.string() + "' 2>&1").lines)
            text += line + "\n";
        return text;
    }
    /// The lines below a heading, up to the next one.
    static std::string section(const std::string &text, const std::string &title) {
        const size_t start = text.find("\n" + title + "\n");
        if (start == std::string::npos)
            return "";
        const auto rest = text.substr(start + title.size() + 1);
        std::smatch next;
        std::regex_search(rest, next, std::regex("\n[A-Za-z]"));
        return rest.substr(0, static_cast<size_t>(next.position()));
    }

    const fs::path folder = TAVDB_MANUAL;
};

TEST_F(ManualPages, EachCommandHasOne) {
    const auto commands = commandsIn(tavdb({"help"}).out);
    EXPECT_THAT(commands, Contains("get"));
    const auto overview = shown(pageOf(""));
    for (const auto &command : commands) {
        EXPECT_TRUE(fs::exists(pageOf(command))) << command;
        EXPECT_THAT(overview, HasSubstr("tavdb-" + command + "(1)"));
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "man1"), {}), std::ssize(commands) + 1)
        << "no page is left of a command that is gone";
}

TEST_F(ManualPages, EachHasTheOptionsOfItsCommand) {
    auto commands = commandsIn(tavdb({"help"}).out);
    commands.emplace_back();
    for (const auto &command : commands) {
        const auto help = command.empty() ? tavdb({"help"}) : tavdb({"help", command});
        const auto options = section(shown(pageOf(command)), "OPTIONS");
        for (const auto &option : optionsIn(help.out))
            EXPECT_TRUE(std::regex_search(options, std::regex("[ \n]" + option + "[ ,\n]")))
                << command << " " << option << options;
        EXPECT_THAT(options, HasSubstr("--directory DIR")) << command;
    }
}

TEST_F(ManualPages, EachSaysWhatCommandAndOperandsAreFor) {
    for (const auto &command : commandsIn(tavdb({"help"}).out)) {
        const auto help = tavdb({"help", command}).out;
        const auto page = shown(pageOf(command));
        auto about = help.substr(0, help.find('\n'));
        about[0] = static_cast<char>(tolower(about[0]));
        EXPECT_THAT(section(page, "NAME"), HasSubstr("tavdb-" + command + " - " + about));
        EXPECT_THAT(section(page, "SYNOPSIS"), HasSubstr("tavdb " + command));
        EXPECT_THAT(section(page, "DESCRIPTION"), Not(IsEmpty())) << command;
        for (const auto &operand : itemsBelow(help, "Positionals"))
            EXPECT_THAT(section(page, "OPERANDS"), HasSubstr("       " + operand)) << command;
    }
}

TEST_F(ManualPages, OptionsHaveTheTextOfTheTableWhereThereIsOne) {
    const auto options = section(shown(pageOf("build")), "OPTIONS");
    EXPECT_THAT(options, HasSubstr("memory: The images are mapped into memory; the default."));
    EXPECT_THAT(section(shown(pageOf("reset")), "OPTIONS"),
                HasSubstr("One of default, factory. default unless stated."));
}

TEST_F(ManualPages, FileFormatsHaveTheirs) {
    EXPECT_THAT(shown(folder / "man5/tavdb-media.5"), HasSubstr("LIBRARY OPEN CLOSE READ WRITE LSEEK SYNC HINT"));
    EXPECT_THAT(shown(folder / "man5/tavdb-hooks.5"), HasSubstr("ID LIBRARY PRE-WRITE POST-WRITE PRE-READ POST-READ"));
    EXPECT_THAT(shown(folder / "man5/tavdb-description.5"), HasSubstr("Keys of a leaf"));
}

TEST_F(ManualPages, NoneHasALinkOrMarkdownLeft) {
    for (const auto &page : pages()) {
        const auto text = shown(page);
        for (const auto *trace : {"](", "<#", "```", "**tavdb"})
            EXPECT_THAT(text, Not(HasSubstr(trace))) << page;
    }
}

TEST_F(ManualPages, RenderWithoutWarnings) {
    for (const auto &page : pages())
        EXPECT_THAT(runCommand("LC_ALL=C.UTF-8 man --warnings -l '" + page.string() + "' 2>&1 >/dev/null").lines,
                    IsEmpty())
            << page;
}

TEST_F(ManualPages, AreFoundByWhatTheyAreAbout) {
    for (const auto &page : pages()) {
        const auto name = page.stem().string();
        EXPECT_THAT(runCommand("lexgrog '" + page.string() + "'").lines, ElementsAre(HasSubstr("\"" + name + " - ")));
    }
}

}  // namespace
}  // namespace tavdb_test
