// SPDX-License-Identifier: Apache-2.0
// tavdb reset and save: which values are copied, and which leaf refuses.
#include "tools/verbs/verbs_fixture.h"

namespace tavdb_test {
namespace {

class Reset : public VerbTest {
protected:
    void SetUp() override {
        build(kDevice);
        ASSERT_EQ(tavdb({"set", "/network/lan/mtu=2000", "/network/lan/name=eth7", "/level=4"}), says(""));
    }
    std::string standard(const std::string &path) {
        return tavdb({"get", "--default", path}).out;
    }
};

TEST_F(Reset, LeafFromDefault) {
    EXPECT_EQ(tavdb({"reset", "/network/lan/mtu"}), says(""));
    EXPECT_EQ(value("/network/lan/mtu"), "1400\n");
    EXPECT_EQ(value("/level"), "4\n");
}

TEST_F(Reset, AllBelowANode) {
    EXPECT_EQ(tavdb({"reset", "-r", "/network"}), says(""));
    EXPECT_EQ(value("/network/lan/mtu"), "1400\n");
    EXPECT_EQ(value("/network/lan/name"), "lan0\n");
    EXPECT_EQ(value("/level"), "4\n");
}

TEST_F(Reset, FactoryGoesThroughTheDefault) {
    EXPECT_EQ(tavdb({"reset", "--to", "factory", "/network/lan/mtu"}), says(""));
    EXPECT_EQ(value("/network/lan/mtu"), "1500\n");
    EXPECT_EQ(standard("/network/lan/mtu"), "1500\n");
}

TEST_F(Reset, RefusalsChangeNothing) {
    expectRefusal({"reset", "/network"}, 2, "/network: is a node; -r is for all leaves below it");
    expectRefusal({"reset", "/none"}, 3, "/none: there is no 'none' in /");
    EXPECT_EQ(tavdb({"reset", "--to", "current", "/level"}).exitCode, 2);
    EXPECT_EQ(tavdb({"reset"}).exitCode, 2);
}

TEST_F(Reset, LeafWithoutADefaultIsNamedAndTheOthersAreReset) {
    {
        tavdb::image::Attached attached(directory());
        ASSERT_EQ(tavDBMSetDefaultValueKey(attached.session(), attached.at("/network/lan/mtu"), 0), 0);
    }
    const auto result = tavdb({"reset", "-r", "/"});
    EXPECT_NE(result.exitCode, 0);
    EXPECT_THAT(result.err, testing::StartsWith("tavdb: /network/lan/mtu: "));
    EXPECT_EQ(value("/network/lan/mtu"), "2000\n");
    EXPECT_EQ(value("/level"), "-3\n");
}

TEST_F(Reset, DefaultThatTheConstraintRefusesIsNotCopied) {
    // The record of the range is the leaf's own; the default lies outside now.
    {
        tavdb::image::Attached attached(directory());
        const auto range = tavdb::image::packed<uint32_t>({1600, 4000000, 100});
        ASSERT_EQ(tavDBMSetConstraintData(attached.session(), attached.at("/network/lan/mtu"), range.data(),
                                          static_cast<int32_t>(range.size())),
                  0);
    }
    EXPECT_EQ(tavdb({"reset", "/network/lan/mtu"}).exitCode, 4);
    EXPECT_EQ(value("/network/lan/mtu"), "2000\n");
}

TEST_F(Reset, LockedLeafIsLeftAlone) {
    const auto script = std::string(TAVDB_COMMAND) + " reset /level --timeout 0.05; echo $?; " + TAVDB_COMMAND +
                        " reset /level --no-lock; echo $?";
    EXPECT_EQ(tavdb({"lock", "/level", "--", "sh", "-c", script}),
              (CommandResult{0, "5\n0\n", "tavdb: /level: the component is locked in a conflicting way\n"}));
    EXPECT_EQ(value("/level"), "-3\n");
}

TEST_F(Reset, HooksSeeTheCurrentValueOnly) {
    std::filesystem::remove_all(directory());
    const std::string library = TAVDB_TEST_HOOKS;
    place.write("hooks", "1 " + library + " refuse - - -\n3 " + library + " increase - - -\n");
    build(
        "write: {type: u8, hook: 1, current: 1, default: 2, factory: 3}\n"
        "more: {type: u8, hook: 3, current: 1, default: 2, factory: 3}\n",
        {"--hooks", "hooks"});
    const auto refused = tavdb({"reset", "/write", "--to", "factory"});
    EXPECT_EQ(refused.exitCode, 10);
    EXPECT_THAT(refused.err, testing::StartsWith("tavdb: /write: only the default value was reset: "));
    EXPECT_EQ(value("/write"), "1\n");
    EXPECT_EQ(standard("/write"), "3\n");
    EXPECT_EQ(tavdb({"reset", "/more"}), says(""));
    EXPECT_EQ(value("/more"), "3\n") << "the hook adds one";
    EXPECT_EQ(tavdb({"save", "/more"}), says(""));
    EXPECT_EQ(standard("/more"), "3\n") << "no hook runs";
    EXPECT_EQ(tavdb({"reset", "/write", "--no-hooks"}), says(""));
    EXPECT_EQ(value("/write"), "3\n");
}

using Save = Reset;

TEST_F(Save, CurrentBecomesTheDefault) {
    EXPECT_EQ(tavdb({"save", "/level"}), says(""));
    EXPECT_EQ(standard("/level"), "4\n");
    EXPECT_EQ(standard("/network/lan/mtu"), "1400\n");
    expectRefusal({"save", "/"}, 2, "/: is a node; -r is for all leaves below it");
    EXPECT_EQ(tavdb({"save", "/", "-r"}), says(""));
    EXPECT_EQ(standard("/network/lan/mtu"), "2000\n");
}

}  // namespace
}  // namespace tavdb_test
