// SPDX-License-Identifier: Apache-2.0
// How the command is called: help, version, mistakes, and where the database is.
#include <gmock/gmock.h>

#include "tools/command/command_fixture.h"
#include "tools/command/help_text.h"

namespace tavdb_test {
namespace {

using testing::HasSubstr;

class Usage : public CommandTest {};

TEST_F(Usage, VersionIsOneLine) {
    const auto version = tavdb({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_THAT(version.out, testing::MatchesRegex("tavdb [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(Usage, HelpNamesEveryCommandAndExitCode) {
    const auto help = tavdb({"help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_EQ(help, tavdb({"--help"}));
    for (const auto *word : {"build", "get", "set", "list", "tree", "describe", "info", "help", "10 refused by a hook"})
        EXPECT_THAT(help.out, HasSubstr(word));
}

TEST_F(Usage, EachCommandHasItsOwnHelp) {
    for (const auto *command : {"build", "get", "set", "list", "tree", "describe", "info"}) {
        const auto help = tavdb({"help", command});
        EXPECT_EQ(help.exitCode, 0);
        EXPECT_THAT(help.out, HasSubstr(std::string("Usage: tavdb ") + command)) << command;
        EXPECT_EQ(tavdb({command, "--help"}), help) << command;
    }
    EXPECT_EQ(tavdb({"help", "dance"}), fails(2, "tavdb: help: there is no command dance\n"));
}

/// Only commands whose names occur are declared; what they are called must be what they are found by.
TEST_F(Usage, EveryCommandOfTheHelpIsKnownByItsName) {
    const auto commands = commandsIn(tavdb({"help"}).out);
    EXPECT_GT(commands.size(), 20U);
    for (const std::string &command : commands) {
        const auto mistake = tavdb({command, "--dance"});
        EXPECT_EQ(mistake.exitCode, 2);
        EXPECT_THAT(mistake.err, testing::Not(HasSubstr("there is no command"))) << command;
    }
}

TEST_F(Usage, NameOfACommandMayBeTheNameOfSomethingElse) {
    build("get: {type: u8, current: 1}\nlist: {type: u8, current: 2}\n");
    std::filesystem::rename(place / "db", place / "tree");
    EXPECT_EQ(tavdb({"-d", "tree", "get", "get"}), says("1\n"));
    EXPECT_EQ(tavdb({"get", "-d", "tree", "/list"}), says("2\n"));
}

TEST_F(Usage, MistakesAreOneLine) {
    EXPECT_EQ(tavdb({}), fails(2, "tavdb: a command is expected (see 'tavdb help')\n"));
    EXPECT_EQ(tavdb({"dance"}), fails(2, "tavdb: there is no command or option dance (see 'tavdb help')\n"));
    EXPECT_EQ(tavdb({"--dance"}), fails(2, "tavdb: there is no command or option --dance (see 'tavdb help')\n"));
    for (const auto &call : std::vector<std::vector<std::string>>{{"get"},
                                                                  {"get", "--dance", "/a"},
                                                                  {"list", "/a", "/b"},
                                                                  {"describe"},
                                                                  {"info", "x"},
                                                                  {"set", "--dance"},
                                                                  {"tree", "--depth", "x"}}) {
        const auto result = tavdb(call);
        EXPECT_EQ(result.exitCode, 2) << call[0];
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, testing::MatchesRegex("tavdb: [^\n]+\n")) << call[0];
    }
}

TEST_F(Usage, DirectoryIsNamedByTheOptionOrTheEnvironment) {
    build("a: {type: u8, current: 1}\n");
    std::filesystem::rename(place / "db", place / "one");
    build("a: {type: u8, current: 2}\n");
    EXPECT_EQ(tavdb({"get", "/a"}), says("2\n")) << "TAVDB_DIR is db";
    for (const auto &call : std::vector<std::vector<std::string>>{
             {"-d", "one", "get", "/a"}, {"get", "-d", "one", "/a"}, {"get", "/a", "--directory", "one"}})
        EXPECT_EQ(tavdb(call), says("1\n"));
    EXPECT_EQ(tavdb({"set", "-d", "one", "/a", "5"}), says(""));
    EXPECT_EQ(tavdb({"-d", "one", "set", "/a", "6"}), says(""));
    EXPECT_EQ(tavdb({"get", "/a"}), says("2\n"));
    EXPECT_EQ(tavdb({"get", "-d", "one", "/a"}), says("6\n"));
}

TEST_F(Usage, WithoutADirectoryThereIsNothingToRead) {
    EXPECT_EQ(tavdb({"-d", "", "get", "/a"}), fails(3, "tavdb: db: there is no such directory\n"));
    EXPECT_EQ(tavdb({"get", "/a"}), fails(3, "tavdb: db: there is no such directory\n"));
}

TEST_F(Usage, OtherDirectoriesAndFilesSayWhatTheyAre) {
    std::filesystem::create_directory(place / "db");
    EXPECT_EQ(tavdb({"get", "/a"}), fails(3, "tavdb: db: is not a database directory: it has no media.conf\n"));
    std::filesystem::remove(place / "db");
    place.write("db", "");
    EXPECT_EQ(tavdb({"get", "/a"}), fails(3, "tavdb: db: is not a database directory: it is a file\n"));
}

TEST_F(Usage, DatabaseOfAnotherFormatIsExitCodeNine) {
    build("a: {type: u8}\n");
    patch(place / "db/value.med", 4, word(0x00070002));
    EXPECT_EQ(tavdb({"get", "/a"}), fails(9, "tavdb: db: value.med: is of format 7, this program knows format 1\n"));
}

TEST_F(Usage, ControlTableThatCannotBeUsedIsNamed) {
    build("a: {type: u8}\n");
    const auto before = std::string(getenv("TAVDB_DBTABLE"));
    setenv("TAVDB_DBTABLE", (place / "no/table").c_str(), 1);
    EXPECT_EQ(tavdb({"get", "/a"}), fails(1, "tavdb: db: the control table " + place / "no/table" +
                                                 " cannot be used: No such file or directory\n"));
    setenv("TAVDB_DBTABLE", before.c_str(), 1);
}

}  // namespace
}  // namespace tavdb_test
