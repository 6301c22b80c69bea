// SPDX-License-Identifier: Apache-2.0
// tavdb set: what is written, what is refused, and lines that came from get or tree.
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>

#include "tools/command/command_fixture.h"
#include "tools/image/attached.h"

namespace tavdb_test {
namespace {

using testing::HasSubstr;

class Set : public CommandTest {
protected:
    void SetUp() override {
        build(kDevice);
    }
    std::string value(const std::string &path) {
        return tavdb({"get", "--secrets", path}).out;
    }
};

TEST_F(Set, OnePathAndOneValue) {
    EXPECT_EQ(tavdb({"set", "/network/lan/mtu", "400"}), says(""));
    EXPECT_EQ(value("/network/lan/mtu"), "400\n");
    EXPECT_EQ(tavdb({"set", "level", "-5"}), says("")) << "a value may look like an option";
    EXPECT_EQ(value("/level"), "-5\n");
    EXPECT_EQ(tavdb({"set", "/network/lan/name", "--json"}), says(""));
    EXPECT_EQ(value("/network/lan/name"), "--json\n");
    EXPECT_EQ(tavdb({"set", "/network/lan/name", ""}), says(""));
    EXPECT_EQ(value("/network/lan/name"), "\n");
}

TEST_F(Set, SeveralAssignments) {
    EXPECT_EQ(tavdb({"set", "level=1", "/baud=19200", "/network/lan/name='a b'"}), says(""));
    EXPECT_EQ(value("/level"), "1\n");
    EXPECT_EQ(value("/baud"), "19200\n");
    EXPECT_EQ(value("/network/lan/name"), "a b\n");
}

TEST_F(Set, LabelsAndNumbersOfEnumerations) {
    EXPECT_EQ(tavdb({"set", "/network/lan/mode", "on"}), says(""));
    EXPECT_EQ(tavdb({"get", "--raw", "/network/lan/mode"}), says("1\n"));
    EXPECT_EQ(tavdb({"set", "/network/lan/mode", "0"}), says(""));
    EXPECT_EQ(value("/network/lan/mode"), "off\n");
}

TEST_F(Set, DefaultTierAndNoOther) {
    EXPECT_EQ(tavdb({"set", "--default", "/level", "2"}), says(""));
    EXPECT_EQ(tavdb({"get", "--default", "/level"}), says("2\n"));
    EXPECT_EQ(value("/level"), "-3\n");
    EXPECT_EQ(tavdb({"set", "--factory", "/level", "2"}).exitCode, 2);
}

TEST_F(Set, RefusedValuesSayWhatIsAllowedAndChangeNothing) {
    const auto before = bytesOf(place / "db/data.med");
    const std::vector<std::pair<std::vector<std::string>, std::string>> refused = {
        {{"/network/lan/mtu", "5"}, "value 5 is outside 300..4000000 step 100"},
        {{"/network/lan/mtu", "350"}, "value 350 is not on the step of 300..4000000 step 100"},
        {{"/network/lan/mtu", "x"}, "value 'x' is not an unsigned 32-bit integer"},
        {{"/network/lan/mode", "maybe"}, "value 'maybe' is not one of off, on, auto"},
        {{"/network/lan/mode", "2"}, "value 2 is not one of off, on, auto"},
        {{"/network/lan/mode", "256"}, "value 256 is not one of off, on, auto"},
        {{"/network/lan/name", "12345678901234567890123456789012"},
         "value '12345678901234567890123456789012' is longer than 31 characters"},
        {{"/network/lan/key", "xyz"}, "the value has an odd number of hex digits"},
        {{"/level", "128"}, "value 128 is not a signed 8-bit integer (-128..127)"},
        {{"/level", "6"}, "value 6 is outside -5..5"},
        {{"/ratio", "1e99"}, "value 1e99 is too big or too small for f32"},
    };
    for (const auto &[arguments, sentence] : refused)
        EXPECT_EQ(tavdb({"set", arguments[0], arguments[1]}),
                  fails(4, "tavdb: " + arguments[0] + ": " + sentence + "\n"));
    EXPECT_EQ(bytesOf(place / "db/data.med"), before);
}

TEST_F(Set, WhatCanBeWrittenIsWrittenAndTheFirstFaultIsTheExitCode) {
    EXPECT_EQ(tavdb({"set", "/none=1", "/level=9", "/baud=19200"}),
              fails(3, "tavdb: /none: there is no 'none' in /\ntavdb: /level: value 9 is outside -5..5\n"));
    EXPECT_EQ(value("/baud"), "19200\n");
    EXPECT_EQ(tavdb({"set", "/level=9", "/none=1"}).exitCode, 4);
}

TEST_F(Set, NodesTakeNoValue) {
    EXPECT_EQ(tavdb({"set", "/network", "1"}), fails(3, "tavdb: /network: is a node; use tree or list\n"));
}

TEST_F(Set, ArgumentThatIsNoAssignmentStopsAll) {
    EXPECT_EQ(tavdb({"set", "/baud=19200", "/level", "3"}), fails(2,
                                                                  "tavdb: /level: is no PATH=VALUE: there is no '='\n"
                                                                  "tavdb: 3: is no PATH=VALUE: there is no '='\n"));
    EXPECT_EQ(value("/baud"), "9600\n");
    EXPECT_EQ(tavdb({"set"}).exitCode, 2);
    EXPECT_EQ(tavdb({"set", "/level"}).exitCode, 2);
    EXPECT_EQ(tavdb({"set", "=5"}).exitCode, 2);
}

TEST_F(Set, ShorterTextLeavesNoTail) {
    ASSERT_EQ(tavdb({"set", "/network/lan/name", "a text that is longer"}), says(""));
    ASSERT_EQ(tavdb({"set", "/network/lan/name", "lan0"}), says(""));
    const auto once = bytesOf(place / "db/data.med");
    build(kDevice, {"--replace"});
    EXPECT_EQ(once, bytesOf(place / "db/data.med"));
}

TEST_F(Set, LinesOfStandardInput) {
    EXPECT_EQ(tavdb({"set", "-"}, {.input = "# a comment\n\n/level='4'\r\n/baud=19200\n/network/lan/name='it\\'s'"}),
              says(""));
    EXPECT_EQ(value("/level"), "4\n");
    EXPECT_EQ(value("/baud"), "19200\n");
    EXPECT_EQ(value("/network/lan/name"), "it's\n");
}

TEST_F(Set, LinesThatAreNoneAreNamedAndTheOthersWritten) {
    EXPECT_EQ(tavdb({"set", "-"}, {.input = "nonsense\n/level='4' x\n/level='4\n/level='\\q'\n/baud=19200\n"}),
              fails(2,
                    "tavdb: standard input:1: is no PATH='VALUE': there is no '='\n"
                    "tavdb: standard input:2: is no PATH='VALUE': something stands behind the quoted value: ' x'\n"
                    "tavdb: standard input:3: is no PATH='VALUE': a quoted value is not ended\n"
                    "tavdb: standard input:4: is no PATH='VALUE': a backslash begins no escape that is known\n"));
    EXPECT_EQ(value("/baud"), "19200\n");
}

TEST_F(Set, EmptyInputWritesNothing) {
    EXPECT_EQ(tavdb({"set", "-"}), says(""));
}

TEST_F(Set, TextsOfAnyBytesGoThereAndBack) {
    std::string odd;
    for (int byte = 1; byte < 256; byte++) {
        odd += static_cast<char>(byte);
        if (odd.size() < 31 && byte < 255)
            continue;
        ASSERT_EQ(tavdb({"set", "/network/lan/name", odd}), says(""));
        const auto lines = tavdb({"get", "/network/lan/name", "/level"});
        EXPECT_EQ(std::count(lines.out.begin(), lines.out.end(), '\n'), 2) << "one line for each value";
        ASSERT_EQ(tavdb({"set", "/network/lan/name", "else"}), says(""));
        ASSERT_EQ(tavdb({"set", "-"}, {.input = lines.out}), says(""));
        EXPECT_EQ(value("/network/lan/name"), odd + "\n");
        odd.clear();
    }
}

TEST_F(Set, WholeTreeGoesThereAndBack) {
    ASSERT_EQ(tavdb({"set", "/network/lan/mtu=900", "/network/lan/mode=off", "/ratio=-2.5e-7", "/level=5",
                     "/network/lan/key=a1b2c3d4", "/network/lan/name=\t'x'"}),
              says(""));
    const auto lines = tavdb({"tree", "--paths", "--secrets"});
    const auto images = filesIn(place / "db");
    build(kDevice, {"--replace"});
    ASSERT_NE(bytesOf(place / "db/data.med"), images.at("data.med"));
    EXPECT_EQ(tavdb({"set", "-"}, {.input = lines.out}), says(""));
    EXPECT_EQ(bytesOf(place / "db/data.med"), images.at("data.med"));
    EXPECT_EQ(tavdb({"tree", "--paths", "--secrets"}), lines);
}

TEST_F(Set, MaskedSecretsOfATreeAreLeftAlone) {
    const auto lines = tavdb({"tree", "--paths"});
    EXPECT_THAT(lines.out, HasSubstr("# /network/lan/key is a secret; --secrets shows it\n"));
    EXPECT_EQ(tavdb({"set", "-"}, {.input = lines.out}), says(""));
    EXPECT_EQ(value("/network/lan/key"), "00ff7e01\n");
}

TEST_F(Set, ReadOnlyMediumIsAnError) {
    std::string media;
    for (const std::string image : {"component", "value", "constraint", "string", "data", "text"})
        media +=
            "libtavdbfile.so tavdbFileOpenRom tavdbFileClose tavdbFileRead tavdbFileWrite tavdbFileSeek "
            "tavdbFileSync3 " +
            image + ".med\n";
    place.write("db/media.conf", media);
    EXPECT_EQ(value("/level"), "-3\n");
    const auto result = tavdb({"set", "/level", "1"});
    EXPECT_GE(result.exitCode, 6) << result.err;
    EXPECT_LE(result.exitCode, 7) << result.err;
    EXPECT_THAT(result.err, testing::MatchesRegex("tavdb: /level: [^\n]+\n"));
    EXPECT_EQ(value("/level"), "-3\n");
}

TEST_F(Set, ComponentThatIsLockedElsewhereIsExitCodeFive) {
    tavdb::image::Attached other(place / "db");
    const auto leaf = other.at("/level");
    ASSERT_EQ(tavDBMLock(other.session(), leaf, TAVDB_LOCK_TRY), 0);
    const auto refused = tavdb({"set", "--timeout", "0.03", "/level", "1"});
    EXPECT_EQ(refused.exitCode, 5);
    EXPECT_THAT(refused.err, testing::MatchesRegex("tavdb: /level: [^\n]+\n"));
    EXPECT_EQ(value("/level"), "-3\n") << "a lock keeps no reader away";
    EXPECT_EQ(tavdb({"set", "/baud", "19200"}), says("")) << "another component is free";
    EXPECT_EQ(tavdb({"set", "--no-lock", "/level", "1"}), says(""));
    const auto waiting = start({"set", "--timeout", "20", "/level", "2"});
    EXPECT_EQ(tavDBMUnlock(other.session(), leaf), 0);
    EXPECT_EQ(finish(waiting), says(""));
    EXPECT_EQ(value("/level"), "2\n");
}

TEST_F(Set, SignalEndsTheWaitAndLeavesNoSessionBehind) {
    tavdb::image::Attached other(place / "db");
    const auto leaf = other.at("/level");
    ASSERT_EQ(tavDBMLock(other.session(), leaf, TAVDB_LOCK_TRY), 0);
    const auto waiting = start({"set", "--timeout", "25", "/level", "2"});
    // Until its session stands in the table beside that of this process.
    const auto path = place / "db/session.tbl";
    for (int i = 0; i < 20000 && wordAt(path, 8) == other.session()->sessionId; i++)
        usleep(1000);
    kill(waiting.process, SIGTERM);
    EXPECT_EQ(finish(waiting).exitCode, 1000 + SIGTERM);
    EXPECT_EQ(wordAt(path, 8), other.session()->sessionId) << "the only session";
    EXPECT_EQ(tavDBMUnlock(other.session(), leaf), 0);
}

TEST_F(Set, LockIsGivenBackAfterwards) {
    ASSERT_EQ(tavdb({"set", "/level", "1"}), says(""));
    ASSERT_EQ(tavdb({"set", "/level", "9"}).exitCode, 4);
    tavdb::image::Attached other(place / "db");
    EXPECT_EQ(tavDBMLock(other.session(), other.at("/level"), TAVDB_LOCK_TRY), 0);
    EXPECT_EQ(tavDBMUnlock(other.session(), other.at("/level")), 0);
}

TEST_F(Set, ValueOfAnApplicationIsSeenAndTheOtherWayRound) {
    tavdb::image::Attached application(place / "db");
    ASSERT_EQ(tavDBMSetSint8(application.session(), application.at("/level"), 5), 0);
    EXPECT_EQ(value("/level"), "5\n");
    ASSERT_EQ(tavdb({"set", "/level", "-1"}), says(""));
    int8_t level = 0;
    EXPECT_EQ(tavDBMGetSint8(application.session(), application.at("/level"), &level), 0);
    EXPECT_EQ(level, -1);
}

class Hooks : public CommandTest {
protected:
    void SetUp() override {
        const std::string library = TAVDB_TEST_HOOKS;
        place.write("hooks", "1 " + library + " refuse - - -\n2 " + library + " - - refuse -\n3 " + library +
                                 " increase - - -\n4 " + library + " - refuse - -\n");
        build(
            "write: {type: u8, hook: 1}\nread: {type: u8, hook: 2}\nmore: {type: u8, hook: 3}\n"
            "after: {type: u8, hook: 4}\nplain: {type: u8}\n",
            {"--hooks", "hooks"});
    }
};

TEST_F(Hooks, RefusalIsExitCodeTenWithTheHooksResult) {
    const auto write = tavdb({"set", "/write", "1"});
    EXPECT_EQ(write.exitCode, 10);
    EXPECT_THAT(write.err, testing::MatchesRegex("tavdb: /write: [^\n]+ with result -7\n"));
    EXPECT_EQ(tavdb({"get", "/write"}), says("0\n"));
    const auto after = tavdb({"set", "/after", "1"});
    EXPECT_EQ(after.exitCode, 10);
    const auto read = tavdb({"get", "/read"});
    EXPECT_EQ(read.exitCode, 10);
    EXPECT_THAT(read.err, testing::MatchesRegex("tavdb: /read: [^\n]+ with result -7\n"));
}

TEST_F(Hooks, HookMayChangeWhatIsWritten) {
    EXPECT_EQ(tavdb({"set", "/more", "4"}), says(""));
    EXPECT_EQ(tavdb({"get", "/more"}), says("5\n"));
}

TEST_F(Hooks, ValuesAreReachedWithoutThem) {
    EXPECT_EQ(tavdb({"set", "--no-hooks", "/write", "1"}), says(""));
    EXPECT_EQ(tavdb({"--no-hooks", "get", "/write", "/read"}), says("/write='1'\n/read='0'\n"));
}

TEST_F(Hooks, HookFileThatIsNoneIsNamed) {
    place.write("db/hooks.conf", "one two\n");
    EXPECT_EQ(tavdb({"get", "/plain"}),
              fails(1, "tavdb: db: a line of the hook file is not well formed; TAVDB_TRACE=0 shows which\n"));
    place.write("db/hooks.conf", "1 /no/library.so a - - -\n");
    EXPECT_EQ(tavdb({"get", "/plain"}).exitCode, 1);
    EXPECT_EQ(tavdb({"get", "--no-hooks", "/plain"}), says("0\n"));
}

}  // namespace
}  // namespace tavdb_test
