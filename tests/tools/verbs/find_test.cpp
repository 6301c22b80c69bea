// SPDX-License-Identifier: Apache-2.0
// tavdb find: patterns, filters, and that a secret cannot be guessed with it.
#include "tools/verbs/verbs_fixture.h"

namespace tavdb_test {
namespace {

class Find : public VerbTest {
protected:
    void SetUp() override {
        build(kDevice);
    }
};

TEST_F(Find, PatternWithoutSlashIsForTheLastName) {
    EXPECT_EQ(tavdb({"find", "m*"}), says("/network/lan/mtu\n/network/lan/mode\n"));
    EXPECT_EQ(tavdb({"find", "l[ae]*"}), says("/network/lan\n/level\n"));
    EXPECT_EQ(tavdb({"find", "?tu"}), says("/network/lan/mtu\n"));
}

TEST_F(Find, StarStaysWithinALevelAndTwoStarsDoNot) {
    EXPECT_EQ(tavdb({"find", "/*"}), says("/network\n/level\n/ratio\n/baud\n"));
    EXPECT_EQ(tavdb({"find", "/*/*/m*"}), says("/network/lan/mtu\n/network/lan/mode\n"));
    EXPECT_EQ(tavdb({"find", "/**/key"}), says("/network/lan/key\n"));
    EXPECT_EQ(tavdb({"find", "network/**"}),
              says("/network\n/network/lan\n/network/lan/mtu\n/network/lan/mode\n/network/lan/name\n"
                   "/network/lan/key\n"));
}

TEST_F(Find, PatternThatEndsInASlashIsForNodes) {
    EXPECT_EQ(tavdb({"find", "**/"}), says("/\n/network\n/network/lan\n"));
}

TEST_F(Find, StartPathLimitsTheSearch) {
    EXPECT_EQ(tavdb({"find", "*e*", "/network/lan"}), says("/network/lan/mode\n/network/lan/name\n/network/lan/key\n"));
    EXPECT_EQ(tavdb({"find", "*", "/none"}), fails(3, "tavdb: /none: there is no 'none' in /\n"));
}

TEST_F(Find, TypesAndKinds) {
    EXPECT_EQ(tavdb({"find", "*", "--type", "u32"}), says("/network/lan/mtu\n/baud\n"));
    EXPECT_EQ(tavdb({"find", "*", "--type", "node"}), says("/network\n/network/lan\n"));
    EXPECT_EQ(tavdb({"find", "[lrb]*", "--type", "leaf"}), says("/level\n/ratio\n/baud\n"));
    EXPECT_EQ(tavdb({"find", "*", "--type", "u31"}),
              fails(2, "tavdb: --type: there is no type 'u31' (see 'tavdb help')\n"));
}

TEST_F(Find, ValuesAsTheyPrintAndRaw) {
    EXPECT_EQ(tavdb({"find", "*", "--value", "auto"}), says("/network/lan/mode\n"));
    EXPECT_EQ(tavdb({"find", "*", "--value", "7"}), says("/network/lan/mode\n"));
    EXPECT_EQ(tavdb({"find", "*", "--value", "9600"}), says("/baud\n"));
    EXPECT_EQ(tavdb({"find", "*", "--value", "9600", "--type", "u8"}).exitCode, 3);
}

TEST_F(Find, SecretsCannotBeGuessed) {
    EXPECT_EQ(tavdb({"find", "*", "--value", "00ff7e01"}), fails(3, "tavdb: *: nothing matches\n"));
    EXPECT_EQ(tavdb({"find", "*", "--value", "00ff7e01", "--secrets"}), says("/network/lan/key\n"));
}

TEST_F(Find, NothingFoundAndBadPatterns) {
    EXPECT_EQ(tavdb({"find", "zzz"}), fails(3, "tavdb: zzz: nothing matches\n"));
    EXPECT_EQ(tavdb({"find", ""}), fails(2, "tavdb: find: the pattern is empty\n"));
    EXPECT_EQ(tavdb({"find"}).exitCode, 2);
    EXPECT_EQ(tavdb({"find", "zzz", "--json"}), (CommandResult{3, "[]\n", "tavdb: zzz: nothing matches\n"}));
}

TEST_F(Find, JsonSaysWhatEachIs) {
    EXPECT_EQ(json({"find", "la*"}), Json::parse(R"([{"path":"/network/lan","kind":"node"}])"));
    EXPECT_EQ(json({"find", "mtu"}), Json::parse(R"([{"path":"/network/lan/mtu","kind":"leaf","type":"u32"}])"));
}

}  // namespace
}  // namespace tavdb_test
