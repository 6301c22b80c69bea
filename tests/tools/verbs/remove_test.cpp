// SPDX-License-Identifier: Apache-2.0
// tavdb rm: what is gone, what is given back, and what is kept because somebody
// else uses it.
#include "tools/verbs/verbs_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

class Remove : public VerbTest {
protected:
    void SetUp() override {
        build(kDevice);
    }
};

TEST_F(Remove, FirstMiddleAndLastChild) {
    EXPECT_EQ(tavdb({"rm", "/network/lan/mtu"}), says(""));
    EXPECT_EQ(tavdb({"list", "/network/lan"}), says("mode\nname\nkey\n"));
    EXPECT_EQ(tavdb({"rm", "/network/lan/name"}), says(""));
    EXPECT_EQ(tavdb({"list", "/network/lan"}), says("mode\nkey\n"));
    EXPECT_EQ(tavdb({"rm", "/network/lan/key"}), says(""));
    EXPECT_THAT(shape(), ElementsAre("/network/", "/network/lan/", "/network/lan/mode", "/level", "/ratio", "/baud"));
    EXPECT_EQ(value("/network/lan/mode"), "auto\n");
    EXPECT_EQ(tavdb({"rm", "/network/lan/mode"}), says(""));
    EXPECT_EQ(tavdb({"rm", "/network/lan"}), says("")) << "an empty node needs no -r";
}

TEST_F(Remove, RefusalsChangeNothing) {
    expectRefusal({"rm", "/network"}, 2, "/network: is a node with children; -r removes them too");
    expectRefusal({"rm", "-r", "/"}, 2, "/: the root cannot be removed");
    expectRefusal({"rm", "/none"}, 3, "/none: there is no 'none' in /");
    EXPECT_EQ(tavdb({"rm"}).exitCode, 2);
}

TEST_F(Remove, SchemaForgetsThePathsAndNoOthers) {
    EXPECT_EQ(tavdb({"rm", "-r", "/network/lan"}), says(""));
    EXPECT_THAT(schemaPaths(), UnorderedElementsAre("/", "/network"));
}

TEST_F(Remove, WholeTreeGivesEverythingBack) {
    for (const auto *path : {"/ratio", "/network", "/baud", "/level"})
        EXPECT_EQ(tavdb({"rm", "-r", path}), says(""));
    EXPECT_THAT(shape(), ElementsAre());
    const auto info = json({"info"});
    for (const auto &medium : info["media"]) {
        if (medium["freeBytes"].is_null())
            continue;
        // The header, and the root's record and name, are what is left.
        const uint64_t kept = medium["holds"] == "component" ? 28 : medium["holds"] == "string" ? 16 : 0;
        EXPECT_EQ(medium["freeBytes"], medium["bytes"].get<uint64_t>() - 16 - kept) << medium;
        EXPECT_EQ(medium["largestFree"], medium["freeBytes"]) << medium;
    }
}

TEST_F(Remove, WhatAnApplicationCreatedIsGivenBack) {
    const auto before = freeBytes();
    {
        tavdb::image::Attached attached(directory());
        auto *const session = attached.session();
        const uint32_t parent = attached.at("/network/");
        const uint32_t node = tavDBMCreateNode(session, tavDBMCreateString(session, "sub/", 6), parent, 0, 0);
        uint32_t previous = 0;
        for (const auto *name : {"p", "q", "r"}) {
            const uint8_t data[4] = {1, 2, 3, 4};
            uint32_t values[3];
            for (auto &key : values)
                key = tavDBMCreateValue(session, TAVDB_TYPE_U32, 0, data, 4, 5);
            tavDBMRangeU32 range = {0, TAVDB_TYPE_U32, 0, UINT32_MAX, 0};
            ASSERT_NE(rangeU32_new(session, &range), nullptr);
            ASSERT_EQ(tavDBMSetConstraintKey(session, values[0], range.key), 0);
            previous = tavDBMCreateLeaf(session, tavDBMCreateString(session, name, 6), node, previous, values[0],
                                        values[1], values[2], 0);
            ASSERT_NE(previous, 0U);
        }
    }
    EXPECT_NE(freeBytes(), before);
    EXPECT_EQ(tavdb({"rm", "-r", "/network/sub"}), says(""));
    EXPECT_EQ(freeBytes(), before);
}

TEST_F(Remove, SmallEnumerationDoesNotOverwriteItsNeighbours) {
    // Three elements of one byte: a free block's head would reach into the next record.
    EXPECT_EQ(tavdb({"rm", "/network/lan/mode"}), says(""));
    EXPECT_EQ(tavdb({"set", "/network/lan/mtu", "250"}).exitCode, 4);
    EXPECT_EQ(tavdb({"set", "/network/lan/mtu", "350"}).exitCode, 4);
    EXPECT_EQ(tavdb({"set", "/network/lan/mtu", "400"}), says(""));
    EXPECT_EQ(tavdb({"set", "/baud", "19200"}), says(""));
    EXPECT_EQ(tavdb({"set", "/baud", "19201"}).exitCode, 4);
}

TEST_F(Remove, SharedValuesConstraintsAndNamesAreKept) {
    {
        tavdb::image::Attached attached(directory());
        auto *const session = attached.session();
        const uint32_t mtu = attached.at("/network/lan/mtu");
        const uint32_t baud = attached.at("/baud");
        // baud's default is mtu's, and its current value has mtu's constraint; level bears mtu's name.
        ASSERT_EQ(tavDBMSetDefaultValueKey(session, baud, tavDBMGetDefaultValueKey(session, mtu)), 0);
        const uint32_t constraint = tavDBMGetConstraintKey(session, tavDBMGetCurrentValueKey(session, mtu));
        ASSERT_EQ(tavDBMSetConstraintKey(session, tavDBMGetCurrentValueKey(session, baud), constraint), 0);
        ASSERT_EQ(tavDBMSetStringKey(session, attached.at("/level"), tavDBMGetStringKey(session, mtu)), 0);
    }
    EXPECT_EQ(tavdb({"rm", "/network/lan/mtu"}), says(""));
    EXPECT_EQ(tavdb({"get", "--default", "/baud"}), says("1400\n"));
    EXPECT_EQ(tavdb({"set", "/baud", "350"}).exitCode, 4);
    EXPECT_EQ(tavdb({"set", "/baud", "400"}), says(""));
    EXPECT_EQ(tavdb({"get", "/mtu"}), says("-3\n"));
}

TEST_F(Remove, WhatHangsBelowAnotherNodeThanItNames) {
    // Deleting a node alone leaves its children in its place, naming it as their parent.
    {
        tavdb::image::Attached attached(directory());
        ASSERT_EQ(tavDBMDeleteComponent(attached.session(), attached.at("/network/lan/")), 0);
    }
    EXPECT_EQ(tavdb({"rm", "/network/mtu"}), says(""));
    EXPECT_EQ(tavdb({"list", "/network"}), says("mode\nname\nkey\n"));
}

TEST_F(Remove, LockedComponentsAreRefused) {
    for (const auto *locked : {"/", "/network", "/network/lan"})
        EXPECT_EQ(
            tavdb({"lock", locked, "--", TAVDB_COMMAND, "rm", "-r", "/network/lan", "--timeout", "0.03"}).exitCode, 5)
            << locked;
    const auto below = tavdb({"lock", "/network/lan/key", "--", TAVDB_COMMAND, "rm", "-r", "/network"});
    EXPECT_EQ(below.exitCode, 5);
    EXPECT_THAT(below.err, testing::MatchesRegex(
                               "tavdb: /network: /network/lan/key is locked by session [0-9]+ .process [0-9]+.\n"));
    EXPECT_EQ(shape().size(), 9U);
    EXPECT_EQ(tavdb({"lock", "/network/lan/key", "--", TAVDB_COMMAND, "rm", "-r", "/network", "--no-lock"}), says(""));
}

TEST_F(Remove, DamageIsReportedAndNothingRemoved) {
    // /level says that its next sibling is /network: a circle.
    {
        tavdb::image::Attached attached(directory());
        ASSERT_EQ(comp_setNextSibling(attached.session(), attached.at("/level"), attached.at("/network/")), 0);
    }
    const auto before = bytesOf(place / "db/component.med");
    EXPECT_EQ(tavdb({"rm", "-r", "/network"}).exitCode, 8);
    EXPECT_EQ(bytesOf(place / "db/component.med"), before);
}

}  // namespace
}  // namespace tavdb_test
