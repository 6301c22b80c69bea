// SPDX-License-Identifier: Apache-2.0
// Reserving component records, and creating nodes and leaves: the bytes they
// leave, the order of their steps, where they stand in the tree afterwards, and
// what a failing step leaves behind. Not about what the records mean later.
#include <errno.h>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kNewName = 0x0A0B0C0D;

class ComponentCreation : public TreeFixture {
protected:
    uint32_t nextSlot() const {
        return fakeMedia().recordAt<tavDBMMediumHeader>(kComponents, 0).firstFree;
    }
    /// A leaf with four different words.
    uint32_t createLeaf(uint32_t parent, uint32_t previous) {
        return leaf_create(&session, kNewName, parent, previous, 21, 22, 23, 24);
    }
    /// The file list's transfers for a slot from the first of its blocks.
    static std::vector<std::string> slotTransfers(uint32_t slot, uint32_t size) {
        const std::string block = std::to_string(slot);
        return {"component read 4@12", "component read 8@" + block, "component write 4@12",
                "component write 8@" + std::to_string(slot + size)};
    }
    static void expectSteps(std::vector<std::string> slotSteps, const std::vector<std::string> &steps) {
        slotSteps.insert(slotSteps.end(), steps.begin(), steps.end());
        EXPECT_EQ(transfers(), slotSteps);
    }
    static std::string step(const char *direction, uint32_t size, uint32_t at) {
        return std::string("component ") + direction + ' ' + std::to_string(size) + '@' + std::to_string(at);
    }
};

TEST_F(ComponentCreation, ANodeRecordIsSevenWords) {
    const uint32_t created = node_create(&session, kNewName, root, 0, 0);
    EXPECT_EQ(hexAt(kComponents, created, 28), hexWords(created, kNewName, 0, root, 0, TAVDB_KIND_NODE, 0));
}

TEST_F(ComponentCreation, ALeafRecordIsTenWords) {
    build("a");
    const uint32_t created = createLeaf(root, 0);
    EXPECT_EQ(hexAt(kComponents, created, 40),
              hexWords(created, kNewName, 0, root, key("a"), TAVDB_KIND_LEAF, 21, 22, 23, 24));
}

TEST_F(ComponentCreation, ANodeWithoutPreviousBecomesTheFirstChild) {
    build("a b");
    label(node_create(&session, kNewName, root, 0, 0), "new");
    EXPECT_EQ(shape(), "new() a b");
    EXPECT_EQ(parentOf("new"), root);
}

TEST_F(ComponentCreation, ANodeFollowsItsPreviousSibling) {
    build("a b");
    label(node_create(&session, kNewName, root, key("a"), 0), "new");
    EXPECT_EQ(shape(), "a new() b");
}

TEST_F(ComponentCreation, ALeafWithoutPreviousBecomesTheFirstChild) {
    build("a b");
    label(createLeaf(root, 0), "new");
    EXPECT_EQ(shape(), "new a b");
}

TEST_F(ComponentCreation, ALeafFollowsItsPreviousSibling) {
    build("a b");
    label(createLeaf(root, key("b")), "new");
    EXPECT_EQ(shape(), "a b new");
}

TEST_F(ComponentCreation, TheParentsFirstChildIsAdoptedByANewFirstChild) {
    build("child after");
    label(node_create(&session, kNewName, root, 0, key("child")), "new");
    EXPECT_EQ(shape(), "new(child) after");
    EXPECT_EQ(parentOf("child"), key("new"));
    EXPECT_EQ(parentOf("after"), root);
}

TEST_F(ComponentCreation, TheNextSiblingIsAdoptedByANodeBehindItsPrevious) {
    build("a child(x) after");
    label(node_create(&session, kNewName, root, key("a"), key("child")), "new");
    EXPECT_EQ(shape(), "a new(child(x)) after");
    EXPECT_EQ(parentOf("child"), key("new"));
}

TEST_F(ComponentCreation, AdoptionDeliberatelyTakesTheChildAsGivenWithoutLookingForItInTheChain) {
    build("a n(x y)");
    label(node_create(&session, kNewName, root, 0, key("x")), "new");
    EXPECT_EQ(node(key("new")).firstChild, key("x"));
    EXPECT_EQ(node(key("new")).component.next, key("y"));
    EXPECT_EQ(node(key("x")).component.next, 0U);
}

TEST_F(ComponentCreation, TwoChildrenMayDeliberatelyBearOneName) {
    const uint32_t first = createLeaf(root, 0);
    const uint32_t second = createLeaf(root, first);
    EXPECT_NE(second, 0U);
    EXPECT_EQ(leaf(first).component.name, leaf(second).component.name);
}

TEST_F(ComponentCreation, NeighboursKeepTheirReservedWords) {
    build("child a other");
    putReservedWords();
    EXPECT_NE(createLeaf(root, key("a")), 0U);
    EXPECT_NE(createLeaf(root, 0), 0U);
    EXPECT_NE(node_create(&session, kNewName, root, key("a"), key("other")), 0U);
    EXPECT_NE(node_create(&session, kNewName, root, 0, key("child")), 0U);
    EXPECT_THAT(changedReservedWords(), IsEmpty());
}

TEST_F(ComponentCreation, AMediumFilledToItsEndKeepsEveryRecord) {
    std::vector<uint32_t> keys;
    for (uint32_t created = root; created != 0;) {
        keys.push_back(created);
        created = keys.size() % 2 != 0 ? createLeaf(root, 0) : 0;
        created = created != 0 ? created : node_create(&session, kNewName, root, 0, 0);
    }
    ASSERT_GT(keys.size(), 400U);
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_EQ(createLeaf(root, 0), 0U);
    EXPECT_EQ(node_create(&session, kNewName, root, 0, 0), 0U);
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
    EXPECT_EQ(comp_getChildCount(&session, root), keys.size() - 1);
    for (const uint32_t at : keys)
        EXPECT_EQ(node(at).component.key, at);
}

TEST_F(ComponentCreation, NodeAsFirstChildReadsAndWritesTheParentThenWritesItself) {
    build("child");
    const uint32_t slot = nextSlot();
    const uint32_t child = key("child");
    ASSERT_EQ(node_create(&session, kNewName, root, 0, child), slot);
    expectSteps(slotTransfers(slot, 28), {step("read", 28, root), step("write", 28, root), step("read", 24, child),
                                          step("write", 24, child), step("write", 28, slot)});
}

TEST_F(ComponentCreation, NodeBehindASiblingReadsAndWritesTheSiblingThenWritesItself) {
    build("a child");
    const uint32_t slot = nextSlot();
    const uint32_t a = key("a");
    const uint32_t child = key("child");
    ASSERT_EQ(node_create(&session, kNewName, root, a, child), slot);
    expectSteps(slotTransfers(slot, 28), {step("read", 24, a), step("write", 24, a), step("read", 24, child),
                                          step("write", 24, child), step("write", 28, slot)});
}

TEST_F(ComponentCreation, LeafAsFirstChildWritesTheParentBeforeItself) {
    const uint32_t slot = nextSlot();
    ASSERT_EQ(createLeaf(root, 0), slot);
    expectSteps(slotTransfers(slot, 40), {step("read", 28, root), step("write", 28, root), step("write", 40, slot)});
}

TEST_F(ComponentCreation, LeafBehindASiblingWritesTheSiblingBeforeItself) {
    build("a");
    const uint32_t slot = nextSlot();
    const uint32_t a = key("a");
    ASSERT_EQ(createLeaf(root, a), slot);
    expectSteps(slotTransfers(slot, 40), {step("read", 24, a), step("write", 24, a), step("write", 40, slot)});
}

TEST_F(ComponentCreation, ASuccessLeavesAnEarlierErrorInTheSession) {
    putOldError();
    EXPECT_NE(node_create(&session, kNewName, root, 0, 0), 0U);
    EXPECT_NE(createLeaf(root, 0), 0U);
    EXPECT_TRUE(oldErrorIsThere());
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(ComponentCreation, NewNodeTouchesOnlyKeyAndKindOfTheBuffer) {
    tavDBMNode buffer;
    memset(&buffer, 0xEE, sizeof buffer);
    const uint32_t slot = nextSlot();
    EXPECT_EQ(comp_newNode(&session, &buffer), &buffer);
    constexpr uint32_t kLeft = 0xEEEEEEEE;
    EXPECT_EQ(hexText(bytesOf(buffer)), hexWords(slot, kLeft, kLeft, kLeft, kLeft, TAVDB_KIND_NODE, kLeft));
    expectSteps(slotTransfers(slot, 28), {});
}

TEST_F(ComponentCreation, NewLeafTouchesOnlyKeyAndKindOfTheBuffer) {
    tavDBMLeaf buffer;
    memset(&buffer, 0xEE, sizeof buffer);
    const uint32_t slot = nextSlot();
    EXPECT_EQ(comp_newLeaf(&session, &buffer), &buffer);
    constexpr uint32_t kLeft = 0xEEEEEEEE;
    EXPECT_EQ(hexText(bytesOf(buffer)),
              hexWords(slot, kLeft, kLeft, kLeft, kLeft, TAVDB_KIND_LEAF, kLeft, kLeft, kLeft, kLeft));
    expectSteps(slotTransfers(slot, 40), {});
}

TEST_F(ComponentCreation, AMissingBufferIsCode89AndTakesNoSlot) {
    const uint32_t slot = nextSlot();
    EXPECT_EQ(comp_newNode(&session, nullptr), nullptr);
    EXPECT_TRUE(recorded(89, 0));
    EXPECT_EQ(comp_newLeaf(&session, nullptr), nullptr);
    EXPECT_TRUE(recorded(89, 0));
    EXPECT_EQ(nextSlot(), slot);
}

TEST_F(ComponentCreation, AnUnreadablePreviousEndsTheNodeWithItsSlotUnwritten) {
    build("a");
    const uint32_t slot = nextSlot();
    const Bytes slotBefore = fakeMedia().bytesAt(kComponents, slot + 8, 20);
    EXPECT_EQ(node_create(&session, kNewName, root, kBeyond, 0), 0U);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_getComponent", 104, {kBeyond, 24, 0, 0})));
    EXPECT_EQ(fakeMedia().bytesAt(kComponents, slot + 8, 20), slotBefore);
    EXPECT_EQ(nextSlot(), slot + 28) << "the slot stays reserved";
    EXPECT_EQ(shape(), "a");
}

TEST_F(ComponentCreation, AnUnreadableParentEndsTheNodeWithItsSlotUnwritten) {
    EXPECT_EQ(node_create(&session, kNewName, 0, 0, 0), 0U);
    EXPECT_TRUE(recorded(4, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_getNode", 112, {0})));
    EXPECT_THAT(recordTransfers(), IsEmpty());
}

TEST_F(ComponentCreation, AnUnreadableChildEndsTheNodeBehindTheRewrittenParent) {
    build("a");
    const uint32_t slot = nextSlot();
    EXPECT_EQ(node_create(&session, kNewName, root, 0, kBeyond), 0U);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_THAT(recordTransfers(),
                ElementsAre(step("read", 28, root), step("write", 28, root), "component read 24@65536 -> 0"));
    EXPECT_EQ(node(root).firstChild, slot);
}

TEST_F(ComponentCreation, AnUnreadableNeighbourEndsTheLeafWithTheSessionsLastError) {
    const uint32_t slot = nextSlot();
    EXPECT_EQ(createLeaf(root, kBeyond), 0U);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_EQ(createLeaf(0, 0), 0U);
    EXPECT_TRUE(recorded(4, 0));
    EXPECT_EQ(nextSlot(), slot + 80) << "both slots stay reserved";
    EXPECT_EQ(shape(), "");
}

TEST_F(ComponentCreation, AFailedWriteOfTheNewNodeItselfIsDeliberatelyIgnored) {
    const uint32_t slot = nextSlot();
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents, .skip = 3});
    EXPECT_EQ(node_create(&session, kNewName, root, 0, 0), slot);
    EXPECT_TRUE(recorded(54, EIO));
    EXPECT_EQ(node(root).firstChild, slot);
}

TEST_F(ComponentCreation, AFailedWriteOfANeighbourDoesNotEndTheNode) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents, .skip = 2});
    const uint32_t created = node_create(&session, kNewName, root, 0, 0);
    EXPECT_EQ(node(created).component.name, kNewName);
    EXPECT_EQ(shape(), "");
    EXPECT_TRUE(recorded(54, EIO));
}

TEST_F(ComponentCreation, AFailedWriteOfANeighbourEndsTheLeaf) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents, .skip = 2});
    EXPECT_EQ(createLeaf(root, 0), 0U);
    EXPECT_TRUE(recorded(54, EIO));
    EXPECT_EQ(recordTransfers().size(), 2U) << "the leaf is not written";
}

TEST_F(ComponentCreation, AFailedWriteOfTheLeafItselfGivesNoKey) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents, .skip = 3});
    EXPECT_EQ(createLeaf(root, 0), 0U);
    EXPECT_TRUE(recorded(54, EIO));
}

/// The four functions that take a slot, and the lines they trace when there is none.
struct Creator : Named {
    bool (*create)(tavDBMSession *, uint32_t parent);
    const char *reserver;
    int32_t reserverSite;
    int32_t kind;
    int32_t ownSite;  ///< 0 without a line of its own
};

constexpr Creator kCreators[] = {
    {"newNode",
     [](tavDBMSession *session, uint32_t) {
         tavDBMNode buffer{};
         return comp_newNode(session, &buffer) != nullptr;
     },
     "comp_newNode", 160, TAVDB_KIND_NODE, 0},
    {"newLeaf",
     [](tavDBMSession *session, uint32_t) {
         tavDBMLeaf buffer{};
         return comp_newLeaf(session, &buffer) != nullptr;
     },
     "comp_newLeaf", 170, TAVDB_KIND_LEAF, 0},
    {"node_create", [](tavDBMSession *session, uint32_t parent) { return node_create(session, 1, parent, 0, 0) != 0; },
     "comp_newNode", 160, TAVDB_KIND_NODE, 310},
    {"leaf_create",
     [](tavDBMSession *session, uint32_t parent) { return leaf_create(session, 1, parent, 0, 0, 0, 0, 0) != 0; },
     "comp_newLeaf", 170, TAVDB_KIND_LEAF, 320},
};

class CreatorTest : public TreeFixture, public testing::WithParamInterface<Creator> {
protected:
    bool create() {
        return GetParam().create(&session, root);
    }
    /// The lines behind those of the file list.
    std::vector<std::string> ownLines(int32_t step, std::initializer_list<uint32_t> words) const {
        std::vector<std::string> lines = {errorLine(GetParam().reserver, GetParam().reserverSite + step, words)};
        if (GetParam().ownSite != 0)
            lines.push_back(errorLine(GetParam().name, GetParam().ownSite));
        return lines;
    }
};

INSTANTIATE_TEST_SUITE_P(All, CreatorTest, testing::ValuesIn(kCreators), kRowName);

TEST_P(CreatorTest, AFullMediumGivesNothingAndChangesNoByte) {
    fakeMedia().setWordAt(kComponents, 12, 0);
    const MediaImage before = fakeMedia().snapshotAll();
    putOldError();
    EXPECT_FALSE(create());
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
    EXPECT_TRUE(oldErrorIsThere()) << "no code is stated for a full medium";
    EXPECT_TRUE(fakeTrace().errorsAre(ownLines(6, {0, kComponentMedia})));
    EXPECT_THAT(transfers(), ElementsAre("component read 4@12"));
}

TEST_P(CreatorTest, AMediumWhoseBlocksAreTooSmallGivesNothingAndChangesNoByte) {
    const uint32_t size = GetParam().kind == TAVDB_KIND_NODE ? sizeof(tavDBMNode) : sizeof(tavDBMLeaf);
    const uint32_t block = fakeMedia().wordAt(kComponents, 12);
    fakeMedia().setWordAt(kComponents, block + offsetof(tavDBMFreeBlock, size), size - 1);
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_FALSE(create());
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
    EXPECT_TRUE(fakeTrace().errorsAre(ownLines(6, {0, kComponentMedia})));
}

TEST_P(CreatorTest, ASplitThatFailsGivesNothingAndWritesNoRecord) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents, .skip = 1});
    const Bytes rootBefore = fakeMedia().bytesAt(kComponents, root, 28);
    EXPECT_FALSE(create());
    EXPECT_TRUE(recorded(23, EIO));
    EXPECT_EQ(fakeMedia().bytesAt(kComponents, root, 28), rootBefore);
    EXPECT_THAT(recordTransfers(), IsEmpty());
    const auto errors = fakeTrace().errors();
    const auto own = ownLines(6, {kMinusOne, kComponentMedia});
    ASSERT_EQ(errors.size(), own.size() + 1);
    EXPECT_EQ(std::vector<std::string>(errors.begin() + 1, errors.end()), own);
}

TEST_P(CreatorTest, ADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    EXPECT_FALSE(create());
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_TRUE(fakeTrace().errorsAre(ownLines(0, {0, kNotOpenDb})));
    EXPECT_EQ(accesses(), 0U);
    session.dbId = 1;
}

TEST_P(CreatorTest, AMediumThatIsNotConfiguredIsCode21) {
    const NoMedia none;
    EXPECT_FALSE(create());
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_EQ(accesses(), 0U);
}

TEST_P(CreatorTest, WithoutASessionNothingHappens) {
    EXPECT_FALSE(GetParam().create(nullptr, root));
    EXPECT_EQ(accesses(), 0U);
}

TEST_P(CreatorTest, WhateverFailsLeavesTheOtherRecordsAlone) {
    build("bystander(x)");
    const Bytes bystander = fakeMedia().bytesAt(kComponents, key("bystander"), 28 + 40);
    forEachFault([&] {
        const bool created = create();
        EXPECT_TRUE(created || session.errorCode != 0 || fakeTrace().errors().size() > 0);
        EXPECT_TRUE(created || faultPlan().fired());
        EXPECT_EQ(fakeMedia().bytesAt(kComponents, key("bystander"), 28 + 40), bystander);
    });
}

}  // namespace
}  // namespace tavdb_test
