// SPDX-License-Identifier: Apache-2.0
// tavdb completion: what the scripts offer, asked of the shells themselves. Bash and
// fish can be asked without a terminal; zsh only checks the script's syntax.
#include <gmock/gmock.h>

#include "abi/command_output.h"
#include "tools/command/command_fixture.h"
#include "tools/command/help_text.h"

namespace tavdb_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::UnorderedElementsAre;

constexpr const char *kCommand = TAVDB_COMMAND;

class Completion : public CommandTest {
protected:
    void SetUp() override {
        if (shell(std::string(kCommand) + " --version >/dev/null 2>&1").status != 0)
            GTEST_SKIP() << "a shell cannot run the command here: it is for another machine";
    }

    CommandOutput shell(const std::string &command) const {
        return runCommand("cd '" + place.path() + "' && " + command);
    }
    bool isThere(const std::string &program) const {
        return shell("command -v " + program + " >/dev/null").status == 0;
    }
    void writeScript(const std::string &name) const {
        const auto script = tavdb({"completion", name});
        ASSERT_EQ(script.err, "");
        place.write("script", script.out);
    }

    /// What bash offers for the last of the words, split as bash does.
    std::vector<std::string> bash(const std::vector<std::string> &words) const {
        writeScript("bash");
        std::string call = "source ./script\nCOMP_WORDBREAKS=$' \\t\\n\"\\'><=;|&(:'\nCOMP_WORDS=(tavdb";
        std::string line = "tavdb";
        for (const auto &word : words) {
            call += " '" + word + "'";
            line += (word == "=" || line.ends_with("=") ? "" : " ") + word;
        }
        call += ")\nCOMP_LINE='" + line + "'\nCOMP_CWORD=" + std::to_string(words.size()) + "\n_tavdb " + kCommand +
                "\n[ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\\n' \"${COMPREPLY[@]}\"\n";
        place.write("call", call);
        const auto output = shell("bash ./call 2>&1");
        EXPECT_EQ(output.status, 0);
        return output.lines;
    }

    std::vector<std::string> fish(const std::string &line) const {
        place.write("call", "source ./script\ncomplete -C \"" + line + "\"\n");
        // under emulation the file behind the command has another name
        auto lines = shell(std::string("mkdir -p bin && ln -sf '") + kCommand +
                           "' bin/tavdb && PATH=./bin:\"$PATH\" HOME=. fish --no-config ./call 2>&1")
                         .lines;
        for (auto &offered : lines)
            offered = offered.substr(0, offered.find('\t'));
        return lines;
    }
};

TEST_F(Completion, BashKnowsEveryCommandAndOption) {
    const auto help = tavdb({"help"}).out;
    const auto commands = commandsIn(help);
    EXPECT_THAT(commands, IsSupersetOf({"build", "get", "debug", "completion"}));
    EXPECT_THAT(bash({""}), testing::UnorderedElementsAreArray(commands));
    EXPECT_THAT(bash({"-"}), testing::UnorderedElementsAreArray(optionsIn(help)));
    for (const auto &command : commands)
        EXPECT_THAT(bash({command, "-"}), IsSupersetOf(optionsIn(tavdb({"help", command}).out))) << command;
}

TEST_F(Completion, EveryScriptNamesEveryCommandAndOption) {
    const auto commands = commandsIn(tavdb({"help"}).out);
    for (const auto *shellName : {"bash", "fish", "zsh"}) {
        const auto script = tavdb({"completion", shellName}).out;
        for (const auto &command : commands)
            for (const auto &option : optionsIn(tavdb({"help", command}).out)) {
                const auto name = option.substr(option.find_first_not_of('-'));
                const auto spelt = std::string(shellName) != "fish" ? option
                                   : option.starts_with("--")       ? "-l " + name
                                                                    : "-s " + name;
                EXPECT_THAT(script, HasSubstr(spelt)) << shellName << " " << command;
            }
    }
}

TEST_F(Completion, BashOffersWhatAnOptionAdmits) {
    EXPECT_THAT(bash({"reset", "--to", ""}), UnorderedElementsAre("default", "factory"));
    EXPECT_THAT(bash({"build", "--media", "f"}), ElementsAre("file"));
    EXPECT_THAT(bash({"build", "--media", "=", "f"}), ElementsAre("file"));
    EXPECT_THAT(bash({"dump", "--media", "co"}), UnorderedElementsAre("component", "constraint"));
    EXPECT_THAT(bash({"find", "--type", "u1"}), ElementsAre("u16"));
    EXPECT_THAT(bash({"completion", ""}), UnorderedElementsAre("bash", "fish", "zsh"));
    EXPECT_THAT(bash({"help", "d"}), UnorderedElementsAre("debug", "describe", "dump"));
    EXPECT_THAT(bash({"tree", "--depth", ""}), IsEmpty()) << "a number is not completed";
}

TEST_F(Completion, BashOffersFilesAndFolders) {
    build(kDevice);
    place.write("data.xml", "");
    EXPECT_THAT(bash({"build", "d"}), UnorderedElementsAre("d.yaml", "data.xml", "db"));
    EXPECT_THAT(bash({"build", "d.yaml", "-o", "d"}), ElementsAre("db"));
    EXPECT_THAT(bash({"-d", "d"}), ElementsAre("db"));
    EXPECT_THAT(bash({"lock", "/level", "--", "unam"}), Contains("uname"));
    EXPECT_THAT(bash({"lock", "/level", "--", "cat", "d."}), ElementsAre("d.yaml"));
}

TEST_F(Completion, BashOffersThePathsOfTheDatabase) {
    build(kDevice);
    EXPECT_THAT(bash({"-d", "db", "get", ""}), UnorderedElementsAre("/network/", "/level", "/ratio", "/baud"));
    EXPECT_THAT(bash({"get", "-d", "db", "/network/lan/m"}),
                UnorderedElementsAre("/network/lan/mtu", "/network/lan/mode"));
    EXPECT_THAT(bash({"get", "--directory", "=", "db", "ne"}), ElementsAre("network/"));
    EXPECT_THAT(bash({"-ddb", "mv", "/level", "/n"}), ElementsAre("/network/"));
    EXPECT_THAT(bash({"-d", "db", "set", "--no-lock", "/le"}), ElementsAre("/level"));
    EXPECT_THAT(bash({"-d", "db", "set", "/level", "-"}), IsEmpty()) << "that is a value";
    EXPECT_THAT(bash({"-d", "db", "list", "/network", "/l"}), IsEmpty()) << "list takes one path";
}

TEST_F(Completion, BashQuotesWhatTheShellWouldTakeApart) {
    build("\"a b\": {type: u8}\n\"c$(touch x)\": {type: u8}\n\"e=f\": {type: u8}\n");
    EXPECT_THAT(bash({"-d", "db", "get", "/a"}), ElementsAre("/a\\ b"));
    EXPECT_THAT(bash({"-d", "db", "get", "\"/a"}), ElementsAre("/a b"));
    EXPECT_THAT(bash({"-d", "db", "get", "/c"}), ElementsAre("/c\\$\\(touch\\ x\\)"));
    EXPECT_THAT(bash({"-d", "db", "get", "/e", "=", ""}), ElementsAre("f")) << "bash replaces what is behind the =";
    EXPECT_THAT(place.names(), Not(Contains("x")));
}

TEST_F(Completion, BashIsQuietWithoutADatabase) {
    EXPECT_THAT(bash({"get", "/"}), IsEmpty());
    EXPECT_THAT(bash({"-d", "nowhere", "get", "/"}), IsEmpty());
    EXPECT_THAT(bash({"dance", ""}), IsEmpty());
    EXPECT_THAT(bash({"get", "-d", "$(touch x)", "/"}), IsEmpty());
    EXPECT_THAT(place.names(), Not(Contains("x"))) << "nothing that was typed is run";
}

TEST_F(Completion, FishOffersTheSame) {
    if (!isThere("fish"))
        GTEST_SKIP() << "fish is not installed";
    build(kDevice);
    writeScript("fish");
    EXPECT_THAT(fish("tavdb "), testing::UnorderedElementsAreArray(commandsIn(tavdb({"help"}).out)));
    EXPECT_THAT(fish("tavdb reset --to "), UnorderedElementsAre("default", "factory"));
    EXPECT_THAT(fish("tavdb get --se"), ElementsAre("--secrets"));
    EXPECT_THAT(fish("tavdb -d db get /network/lan/m"), UnorderedElementsAre("/network/lan/mtu", "/network/lan/mode"));
    EXPECT_THAT(fish("tavdb --directory=db mv /level /n"), ElementsAre("/network/"));
    EXPECT_THAT(fish("tavdb -d db list /network /l"), IsEmpty());
    EXPECT_THAT(fish("tavdb get /"), IsEmpty());
}

TEST_F(Completion, ZshTakesTheScript) {
    if (!isThere("zsh"))
        GTEST_SKIP() << "zsh is not installed";
    writeScript("zsh");
    EXPECT_THAT(shell("zsh -n ./script 2>&1").lines, IsEmpty());
    EXPECT_THAT(shell("head -1 ./script").lines, ElementsAre("#compdef tavdb"));
}

TEST_F(Completion, OtherShellsAreRefused) {
    EXPECT_EQ(tavdb({"completion", "dash"}),
              fails(2, "tavdb: SHELL: dash not in {bash,fish,zsh} (see 'tavdb help')\n"));
    EXPECT_EQ(tavdb({"completion"}).exitCode, 2);
}

}  // namespace
}  // namespace tavdb_test
