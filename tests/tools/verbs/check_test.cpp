// SPDX-License-Identifier: Apache-2.0
// tavdb check and repair as people meet them: what they print, their exit codes, and
// that the one changes nothing and the other only what it says.
#include <cstdlib>

#include "tools/verbs/verbs_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

/// Keys: root 16, /network 44, /network/lan 72, /level 112 and so on.
class CheckVerb : public VerbTest {
protected:
    void SetUp() override {
        build(kDevice);
    }
    void damage() {
        patch(place / "db/component.med", 44 + 4, word(0xFFFFFFF0));
    }
    const std::string line =
        "component.med: the node at 44 of /recovered-44: its name, at 4294967280, lies outside of its medium (damage): "
        "it gets a new name; lost: its name\n";
};

TEST_F(CheckVerb, SoundDatabase) {
    const auto before = filesIn(directory());
    const CommandResult expected = {0, "", "tavdb: db: sound: 2 nodes, 7 leaves\n"};
    EXPECT_EQ(tavdb({"check"}), expected);
    EXPECT_EQ(tavdb({"check", "db"}), expected);
    EXPECT_EQ(tavdb({"repair"}), expected);
    EXPECT_EQ(tavdb({"repair", "-n", "db"}), expected);
    EXPECT_EQ(tavdb({"check", "--json"}), (CommandResult{0, "[]\n", expected.err}));
    EXPECT_EQ(filesIn(directory()), before) << "no table was made, and no file touched";
}

TEST_F(CheckVerb, DamageIsPrintedAndNothingChanged) {
    damage();
    const auto before = filesIn(directory());
    for (const auto &call : {Lines{"check"}, Lines{"repair", "-n"}, Lines{"repair", "--dry-run"}}) {
        const auto result = tavdb(call);
        EXPECT_EQ(result.exitCode, 8);
        EXPECT_THAT(result.out, testing::StartsWith(line));
        EXPECT_EQ(result.err, "tavdb: db: is damaged in 1 place; see 'tavdb repair'\n");
    }
    EXPECT_EQ(filesIn(directory()), before);
}

TEST_F(CheckVerb, JsonHasTheSameKeysAlways) {
    damage();
    const auto result = tavdb({"check", "--json"});
    EXPECT_EQ(result.exitCode, 8);
    const auto findings = Json::parse(result.out);
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[0], (Json{{"file", "component.med"},
                                 {"record", "the node at 44"},
                                 {"offset", 44},
                                 {"path", "/recovered-44"},
                                 {"what", "its name, at 4294967280, lies outside of its medium"},
                                 {"gravity", "damage"},
                                 {"repair", "it gets a new name"},
                                 {"lost", "its name"}}));
    EXPECT_EQ(findings[1]["gravity"], "oddity");
    EXPECT_EQ(findings[1]["path"], nullptr);
    EXPECT_EQ(findings[1].size(), findings[0].size());
}

TEST_F(CheckVerb, RepairSaysWhatWasLostAndKeepsTheOriginal) {
    damage();
    const auto damaged = bytesOf(place / "db/component.med");
    const auto result = tavdb({"repair"});
    EXPECT_EQ(result.exitCode, 8) << "something was lost";
    EXPECT_THAT(result.out, testing::StartsWith(line));
    EXPECT_EQ(result.err, "tavdb: db: repaired, with 1 loss; what it was like is kept in damaged-1\n");
    EXPECT_EQ(bytesOf(place / "db/damaged-1/component.med"), damaged);
    EXPECT_THAT(shape(), testing::IsSupersetOf({"/recovered-44/", "/recovered-44/lan/", "/recovered-44/lan/mtu"}));
    EXPECT_EQ(tavdb({"check"}).exitCode, 0);
    EXPECT_EQ(tavdb({"repair"}), (CommandResult{0, "", "tavdb: db: sound: 2 nodes, 7 leaves\n"}));
    EXPECT_EQ(tavdb({"get", "/recovered-44/lan/key"}).exitCode, 6) << "the secret is one still";
    EXPECT_EQ(tavdb({"mv", "/recovered-44", "/", "--name", "network"}), says(""));
    EXPECT_EQ(value("/network/lan/mtu"), "1400\n");
    EXPECT_EQ(tavdb({"check", "db/damaged-1"}).exitCode, 8);
}

TEST_F(CheckVerb, RepairWithoutLossesEndsWell) {
    patch(place / "db/component.med", 16 + 24, word(3));
    const auto result = tavdb({"repair"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.err, EndsWith("repaired: 2 nodes, 7 leaves; what it was like is kept in damaged-1\n"));
    EXPECT_THAT(shape(), testing::Contains("/network/lan/mtu"));
}

TEST_F(CheckVerb, OtherCommandsSendToRepair) {
    patch(place / "db/value.med", 0, "XXXX");
    EXPECT_EQ(tavdb({"get", "/level"}).exitCode, 8);
    EXPECT_EQ(tavdb({"repair"}).exitCode, 0);
    EXPECT_EQ(tavdb({"get", "/level"}), says("-3\n"));
}

TEST_F(CheckVerb, UnfinishedRepairIsFinished) {
    place.write("db/repair.journal", "value.med\n");
    place.write("db/value.med.repaired", bytesOf(place / "db/value.med"));
    patch(place / "db/value.med", 16, "broken");
    EXPECT_EQ(tavdb({"get", "/level"}), fails(8, "tavdb: db: a repair was cut short; 'tavdb repair' finishes it\n"));
    EXPECT_EQ(tavdb({"check"}).out, "repair.journal: a repair was cut short (damage): it is finished\n");
    EXPECT_EQ(tavdb({"repair"}).exitCode, 0);
    EXPECT_EQ(tavdb({"get", "/level"}), says("-3\n"));
    EXPECT_THAT(filesIn(directory()), testing::Not(testing::Contains(testing::Key("repair.journal"))));
}

TEST_F(CheckVerb, DatabaseInUseIsCheckedAndNotRepaired) {
    const auto checked = tavdb({"lock", "/level", "--", TAVDB_COMMAND, "check"});
    EXPECT_EQ(checked.exitCode, 0);
    EXPECT_THAT(checked.err,
                MatchesRegex("tavdb: db: is in use by process [0-9]+; what it is writing may look damaged\n"
                             "tavdb: db: sound: 2 nodes, 7 leaves\n"));
    const auto repaired = tavdb({"lock", "/level", "--", TAVDB_COMMAND, "repair"});
    EXPECT_EQ(repaired.exitCode, 5);
    EXPECT_THAT(repaired.err, MatchesRegex("tavdb: db: is in use by process [0-9]+\n"));
}

TEST_F(CheckVerb, WhatCommandsLeaveIsSound) {
    ASSERT_EQ(tavdb({"set", "/network/lan/mtu=2000", "/level=1"}), says(""));
    ASSERT_EQ(tavdb({"mv", "/network/lan/mtu", "/"}), says(""));
    ASSERT_EQ(tavdb({"mv", "/network/lan/mode", "/", "--first"}), says(""));
    ASSERT_EQ(tavdb({"rm", "-r", "/network"}), says(""));
    ASSERT_EQ(tavdb({"rm", "/ratio"}), says(""));
    EXPECT_EQ(tavdb({"check"}), (CommandResult{0, "", "tavdb: db: sound: 0 nodes, 4 leaves\n"}));
}

TEST_F(CheckVerb, MistakesInTheCall) {
    EXPECT_EQ(tavdb({"check", "none"}), fails(3, "tavdb: none: there is no such directory\n"));
    EXPECT_EQ(tavdb({"repair", "d.yaml"}), fails(3, "tavdb: d.yaml: is not a database directory: it is a file\n"));
    EXPECT_EQ(tavdb({"check", "db", "db"}).exitCode, 2);
    EXPECT_EQ(tavdb({"check", "-n"}).exitCode, 2);
}

TEST_F(CheckVerb, FullDiskChangesNothing) {
    damage();
    const auto before = filesIn(directory());
    Surroundings starved;
    starved.fileBytesMax = 300;
    EXPECT_EQ(tavdb({"repair"}, starved), fails(7, "tavdb: db: media.conf: cannot be written: File too large\n"));
    EXPECT_EQ(filesIn(directory()), before);
}

}  // namespace
}  // namespace tavdb_test
