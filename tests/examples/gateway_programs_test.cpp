// SPDX-License-Identifier: Apache-2.0
// The gateway's programs against a fresh database: what the watcher sees of the
// writer, which codes refusals have, where the hooks run, and how each program
// ends when something is wrong.
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>

#include "gateway_test_support.h"
#include "tavdb.h"

extern "C" {
#include "gateway/directory.h"
#include "gateway/error_text.h"
}

namespace tavdb::test {

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAre;

const std::string kWriter = TAVDB_TEST_WRITER;
const std::string kWatcher = TAVDB_TEST_WATCHER;
const std::string kRefused = TAVDB_TEST_REFUSED;

/// "PATH: OLD -> NEW" lines, and no others.
std::vector<std::string> changesIn(const std::string &output) {
    auto lines = linesOf(output);
    std::erase_if(lines, [](const std::string &line) { return line.find(" -> ") == std::string::npos; });
    return lines;
}

size_t lineOf(const std::vector<std::string> &lines, const std::string &line) {
    return static_cast<size_t>(std::find(lines.begin(), lines.end(), line) - lines.begin());
}

class GatewayPrograms : public GatewayTest {
protected:
    void SetUp() override {
        GatewayTest::SetUp();
        build();
    }

    /// A watcher that is looking already.
    std::unique_ptr<Program> watch(const Words &arguments) {
        Words command = {kWatcher, database()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        auto watcher = std::make_unique<Program>(command, place("watched" + std::to_string(watchers++)));
        EXPECT_TRUE(watcher->awaitOutput("watching")) << watcher->output();
        return watcher;
    }

    static void stop(Program &watcher) {
        watcher.signal(SIGTERM);
        EXPECT_EQ(watcher.wait(), 0) << watcher.output();
    }

private:
    int watchers = 0;
};

TEST_F(GatewayPrograms, EveryChangeReachesTheWatchersOfItsSubTree) {
    const auto network = watch({"/network"});
    const auto rest = watch({"/services/"});
    const auto written = run({kWriter, database(), "0"});
    ASSERT_EQ(written.code, 0) << written.output;
    stop(*network);
    stop(*rest);
    EXPECT_THAT(
        changesIn(network->output()),
        UnorderedElementsAre(
            "/network/lan/name: 'lan0' -> 'attic'", "/network/lan/mtuBytes: 1500 -> 1400",
            "/network/lan/macAddress: 0200c0a80101 -> 0200c0a81401", "/network/dhcp/leaseTimeS: 43200 -> 7200",
            "/network/wan/shaper/uploadBps: 40000000 -> 35000000", "/network/wan/shaper/overheadBytes: 34 -> -4",
            "/network/wan/shaper/targetDelayMs: 5 -> 7.5", "/network/dns/primary: '203.0.113.9' -> '198.51.100.1'",
            "/network/dns/secondary: '203.0.113.10' -> '198.51.100.2'", "/network/dns/cacheEntries: 5000 -> 1000"));
    EXPECT_THAT(network->output(), HasSubstr("watcher /network: saw 10 changes"));
    EXPECT_THAT(changesIn(rest->output()), UnorderedElementsAre("/services/ntp/offsetUs: 0 -> -1500",
                                                                "/services/ntp/driftPpm: -12.4375 -> 0.0625"));
}

TEST_F(GatewayPrograms, ChangesOfTheRemainingTypesAreShownToo) {
    const auto radio = watch({"/wireless/radio0"});
    const auto update = watch({"/system/update/lastCheck"});
    ASSERT_EQ(run({kWriter, database(), "0"}).code, 0);
    stop(*radio);
    stop(*update);
    EXPECT_THAT(changesIn(radio->output()), UnorderedElementsAre("/wireless/radio0/channel: 6 -> 11",
                                                                 "/wireless/radio0/noiseLimitDbm: -85 -> -92"));
    EXPECT_THAT(changesIn(update->output()), ElementsAre("/system/update/lastCheck: 1760003600 -> 1760090000"));
}

TEST_F(GatewayPrograms, AWatcherEndsByItselfAfterTheCountItWasGiven) {
    const auto watcher = watch({"/network", "2"});
    ASSERT_EQ(run({kWriter, database(), "0"}).code, 0);
    EXPECT_EQ(watcher->wait(), 0);
    EXPECT_EQ(changesIn(watcher->output()).size(), 2U) << watcher->output();
}

TEST_F(GatewayPrograms, AWriteOfTheSameValueIsNoChange) {
    ASSERT_EQ(run({kWriter, database(), "0"}).code, 0);
    const auto watcher = watch({"/network"});
    ASSERT_EQ(run({kWriter, database(), "0"}).code, 0);
    stop(*watcher);
    EXPECT_THAT(changesIn(watcher->output()), ElementsAre());
    EXPECT_THAT(watcher->output(), HasSubstr("saw 0 changes"));
}

TEST_F(GatewayPrograms, WritersAtTheSameTimeAllFinish) {
    Program one({kWriter, database(), "1"}, place("one"));
    Program other({kWriter, database(), "1"}, place("other"));
    EXPECT_EQ(one.wait(), 0) << one.output();
    EXPECT_EQ(other.wait(), 0) << other.output();
}

TEST_F(GatewayPrograms, AWatcherPassesOverALeafThatIsLockedAndComesBackToIt) {
    const std::string path = "/network/lan/mtuBytes";
    const auto watcher = watch({"/network/lan"});
    tavDBMDescription description;
    ASSERT_EQ(describeDirectory(database().c_str(), &description), 0);
    const int32_t id = tavDBMInit(&description, nullptr);
    ASSERT_GT(id, 0);
    tavDBMSession session;
    ASSERT_EQ(tavDBMInitSession(&session, static_cast<uint32_t>(id)), 0);
    const uint32_t locked = tavDBMSearchByName(&session, path.c_str());
    const uint32_t free = tavDBMSearchByName(&session, "/network/lan/ageingTimeS");
    ASSERT_EQ(tavDBMLock(&session, locked, TAVDB_LOCK_WAIT), 0);
    EXPECT_EQ(tavDBMSetUint16(&session, locked, 1300), 0);
    EXPECT_EQ(tavDBMSetUint32(&session, free, 60), 0);
    EXPECT_TRUE(watcher->awaitOutput("/network/lan/ageingTimeS: 300 -> 60"));
    EXPECT_THAT(watcher->output(), Not(HasSubstr(path)));
    EXPECT_EQ(tavDBMUnlock(&session, locked), 0);
    EXPECT_TRUE(watcher->awaitOutput(path + ": 1500 -> 1300"));
    EXPECT_EQ(tavDBMTermSession(&session), 0);
    EXPECT_EQ(tavDBMTerm(static_cast<uint32_t>(id)), 0);
    stop(*watcher);
}

TEST_F(GatewayPrograms, RefusalsComeWithTheirCodes) {
    const auto refused = run({kRefused, database()});
    EXPECT_EQ(refused.code, 0);
    auto lines = linesOf(refused.output);
    std::erase_if(lines, [](const std::string &line) { return !line.starts_with("    "); });
    EXPECT_THAT(
        lines,
        ElementsAre(HasSubstr(" 66 BELOW_MINIMUM: the value is below the minimum; choose a value inside the range"),
                    HasSubstr(" 67 ABOVE_MAXIMUM: "), HasSubstr(" 68 OFF_STEP: "), HasSubstr(" 65 LENGTH: "),
                    HasSubstr(" 68 OFF_STEP: "), HasSubstr(" 66 BELOW_MINIMUM: "), HasSubstr(" 67 ABOVE_MAXIMUM: "),
                    HasSubstr(" 66 BELOW_MINIMUM: "), HasSubstr(" 71 NOT_ENUMERATED: "),
                    HasSubstr(" 9 PRE_WRITE (detail 45): "), HasSubstr(" 1 NOT_LEAF: "), HasSubstr(" 100 NO_MATCH: "),
                    HasSubstr(" 5 NOT_BELOW: ")));
    EXPECT_THAT(refused.output, HasSubstr("all 13 were refused, and no value changed"));
}

TEST_F(GatewayPrograms, RefusalsChangeNothing) {
    const auto before = tavdb({"tree", "--paths"});
    ASSERT_EQ(run({kRefused, database()}).code, 0);
    EXPECT_EQ(tavdb({"tree", "--paths"}).output, before.output);
}

TEST_F(GatewayPrograms, TheHookHearsOfTheChannelBeforeTheWriterGoesOn) {
    const auto written = run({kWriter, database(), "0"});
    const auto lines = linesOf(written.output);
    const auto told = lineOf(lines, "hook: telling the driver of radio 0: channel 11");
    EXPECT_LT(told, lines.size()) << written.output;
    EXPECT_EQ(lineOf(lines, "writer: /wireless/radio0/channel = 11"), told + 1) << written.output;
}

TEST_F(GatewayPrograms, TheHookRefusesAChannelByItsOwnRule) {
    const auto refused = run({kRefused, database()});
    EXPECT_THAT(refused.output, AllOf(HasSubstr("hook: radio 0 is not measured on channel 12\n"),
                                      Not(HasSubstr("hook: telling the driver"))));
    EXPECT_EQ(tavdb({"get", "/wireless/radio0/channel"}).output, "6\n");
}

TEST_F(GatewayPrograms, TheHookNotesWhoReadsTheSecret) {
    const auto shown = tavdb({"get", "--secrets", "/users/admin/passwordHash"});
    EXPECT_EQ(shown.code, 0);
    EXPECT_THAT(shown.output, HasSubstr("reads the secret with value key"));
    EXPECT_THAT(tavdb({"get", "/users/admin/passwordHash"}).output, Not(HasSubstr("reads the secret")));
}

TEST_F(GatewayPrograms, AProgramToldOfNoDatabaseSaysSoAndMakesNothing) {
    const auto empty = place("empty");
    std::filesystem::create_directory(empty);
    for (const auto &command : {Words{kWriter, empty}, Words{kWatcher, empty, "/"}, Words{kRefused, empty},
                                Words{kWriter, place("absent")}}) {
        const auto ended = run(command);
        EXPECT_EQ(ended.code, 1) << command[0];
        EXPECT_THAT(ended.output, HasSubstr("No such file or directory")) << command[0];
    }
    EXPECT_TRUE(std::filesystem::is_empty(empty));
    EXPECT_FALSE(std::filesystem::exists(place("databases")));
}

TEST_F(GatewayPrograms, WrongArgumentsPrintTheUsage) {
    for (const auto &command :
         {Words{kWriter}, Words{kWriter, database(), "soon"}, Words{kWriter, database(), "-1"},
          Words{kWriter, database(), "1", "2"}, Words{kWatcher, database()}, Words{kWatcher, database(), ""},
          Words{kWatcher, database(), "/", "0"}, Words{kWatcher, database(), "/", "-3"},
          Words{kWatcher, database(), "/", "3x"}, Words{kRefused}}) {
        const auto ended = run(command);
        EXPECT_EQ(ended.code, 2) << testing::PrintToString(command);
        EXPECT_THAT(ended.output, HasSubstr("usage: gateway-"));
    }
}

TEST_F(GatewayPrograms, AWatcherOfAnUnknownPathSaysSo) {
    for (const std::string path : {"/network/lam", "/network/lan/mtu", "network/nowhere"}) {
        const auto ended = run({kWatcher, database(), path});
        EXPECT_EQ(ended.code, 1) << path;
        EXPECT_THAT(ended.output, HasSubstr("watcher: finding " + path)) << path;
    }
}

TEST_F(GatewayPrograms, AWatcherRefusesAPathThatIsTooLong) {
    const auto ended = run({kWatcher, database(), "/" + std::string(5000, 'x')});
    EXPECT_EQ(ended.code, 1);
    EXPECT_THAT(ended.output, HasSubstr("the path is too long"));
}

TEST_F(GatewayPrograms, ADamagedMediaConfigurationIsTold) {
    std::ofstream(database() + "/media.conf", std::ios::trunc) << "no.so a b c d e f g\n";
    const auto ended = run({kWriter, database()});
    EXPECT_EQ(ended.code, 1);
    EXPECT_THAT(ended.output, HasSubstr("attaching to"));
}

class GatewayWithoutHooks : public GatewayTest {
protected:
    void SetUp() override {
        GatewayTest::SetUp();
        build(false);
    }
};

TEST_F(GatewayWithoutHooks, TheWriterWorksAndNoHookIsHeard) {
    const auto written = run({kWriter, database(), "0"});
    EXPECT_EQ(written.code, 0);
    EXPECT_THAT(written.output, Not(HasSubstr("hook:")));
}

TEST_F(GatewayWithoutHooks, WhatIsNotRefusedIsTold) {
    const auto refused = run({kRefused, database()});
    EXPECT_EQ(refused.code, 1);
    EXPECT_THAT(refused.output, AllOf(HasSubstr("/wireless/radio0/channel = 12\n    NOT REFUSED: code 0, the value is "
                                                "changed"),
                                      Not(HasSubstr("all 13"))));
}

TEST(GatewayDirectory, APathThatDoesNotFitIsAnError) {
    tavDBMDescription description;
    EXPECT_EQ(describeDirectory(("/" + std::string(5000, 'x')).c_str(), &description), ENAMETOOLONG);
    EXPECT_EQ(describeDirectory("", &description), ENOENT);
    EXPECT_EQ(describeDirectory("/dev/null", &description), ENOTDIR);
}

TEST(GatewayErrorText, KnowsTheListAndNamesTheRest) {
    EXPECT_STREQ(findErrorText(TAVDB_ERR_OFF_STEP)->name, "OFF_STEP");
    EXPECT_STREQ(findErrorText(TAVDB_ERR_NO_MATCH)->name, "NO_MATCH");
    EXPECT_STREQ(findErrorText(0x1000 | ENOENT)->name, "PLATFORM");
}

}  // namespace

}  // namespace tavdb::test
