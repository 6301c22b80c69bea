// SPDX-License-Identifier: Apache-2.0
// Deleting one component and whole subtrees: what takes the place of what went,
// which records are released and in which order, and what stays allocated.
#include <errno.h>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Delete : public TreeFixture {
protected:
    int32_t deleteOne(const std::string &text) {
        return comp_delete(&session, key(text));
    }
    int32_t deleteAll(const std::string &text, int32_t unlink = 1) {
        return comp_deleteWithSub(&session, key(text), unlink);
    }
    std::string at(const char *direction, uint32_t size, const std::string &text) {
        return std::string("component ") + direction + ' ' + std::to_string(size) + '@' + std::to_string(key(text));
    }
    std::string read(uint32_t size, const std::string &text) {
        return at("read", size, text);
    }
    std::string write(uint32_t size, const std::string &text) {
        return at("write", size, text);
    }
    void setWord(const std::string &of, size_t offset, uint32_t word) {
        fakeMedia().setWordAt(kComponents, key(of) + offset, word);
    }
    void spoilKind(const std::string &of) {
        setWord(of, offsetof(tavDBMComponent, kind), 7);
    }
    /// Where records of a size were read, in order.
    std::vector<uint32_t> keysOfReads(uint32_t size) {
        std::vector<uint32_t> keys;
        for (const Event &event : eventLog().events(Category::media)) {
            if (event.operation == Operation::mediaRead && event.length == size)
                keys.push_back(static_cast<uint32_t>(event.offset));
        }
        return keys;
    }
    static uint32_t freeBytes() {
        uint32_t sum = 0;
        for (uint32_t at = fakeMedia().wordAt(kComponents, 12); at != 0; at = fakeMedia().wordAt(kComponents, at))
            sum += fakeMedia().wordAt(kComponents, at + 4);
        return sum;
    }
};

using DeleteOne = Delete;

TEST_F(DeleteOne, TheChildrenTakeThePlaceAndDeliberatelyKeepNamingTheDeletedNode) {
    build("x n(a b) y");
    const uint32_t n = key("n");
    EXPECT_EQ(deleteOne("n"), 0);
    EXPECT_EQ(shape(), "x a b y");
    EXPECT_EQ(parentOf("a"), n);
    EXPECT_EQ(parentOf("b"), n);
}

TEST_F(DeleteOne, OfAFirstChildItsChildrenBecomeTheFirst) {
    build("n(a b) y");
    EXPECT_EQ(deleteOne("n"), 0);
    EXPECT_EQ(shape(), "a b y");
}

TEST_F(DeleteOne, ANodeWithoutChildrenLeavesItsFollower) {
    build("x n() y");
    EXPECT_EQ(deleteOne("n"), 0);
    EXPECT_EQ(shape(), "x y");
}

TEST_F(DeleteOne, ALeafsCurrentValueIsNotTakenForAChild) {
    putLeaf("x", root);
    putLeaf("leaf", root, {.currentValue = 4711});
    putLeaf("y", root);
    EXPECT_EQ(deleteOne("leaf"), 0);
    EXPECT_EQ(shape(), "x y");
}

TEST_F(DeleteOne, TheFirstLeafIsUnlinked) {
    build("leaf y");
    EXPECT_EQ(deleteOne("leaf"), 0);
    EXPECT_EQ(shape(), "y");
}

TEST_F(DeleteOne, ReleasesTwentyEightBytesForANode) {
    build("n() y");
    const uint32_t before = freeBytes();
    EXPECT_EQ(deleteOne("n"), 0);
    EXPECT_EQ(freeBytes(), before + 28);
    EXPECT_EQ(hexAt(kComponents, key("n"), 8), hexWords(key("y") + 40, 28));
}

TEST_F(DeleteOne, ReleasesFortyBytesForALeaf) {
    build("leaf y");
    const uint32_t before = freeBytes();
    EXPECT_EQ(deleteOne("leaf"), 0);
    EXPECT_EQ(freeBytes(), before + 40);
    EXPECT_EQ(hexAt(kComponents, key("leaf"), 8), hexWords(key("y") + 40, 40));
}

TEST_F(DeleteOne, ReadsAndWritesInItsFixedOrder) {
    build("x n(a b) y");
    ASSERT_EQ(deleteOne("n"), 0);
    EXPECT_THAT(recordTransfers(),
                ElementsAre(read(28, "n"), read(28, "root"),                                  // itself, its parent
                            read(24, "n"), read(28, "n"), read(24, "a"), read(24, "b"),       // children counted
                            read(24, "n"), read(28, "n"), read(24, "a"),                      // the last one found
                            read(24, "b"), write(24, "b"),                                    // and linked on
                            read(24, "x"), read(24, "x"), write(24, "x"), write(28, "root"),  // put in its place
                            read(24, "n")));
    EXPECT_EQ(transfers().back().substr(0, 17), "component write 8") << "the release comes last";
}

TEST_F(DeleteOne, AnUnreadableComponentIsTracedAndReleasesNothing) {
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_EQ(comp_delete(&session, kBeyond), 55);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_TRUE(fakeTrace().errorsAre(
        {errorLine("comp_getNode", 114, {kBeyond, 28, 0, 0}), errorLine("comp_delete", 360, {kBeyond, 55})}));
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
}

TEST_F(DeleteOne, AParentThatCannotBeReadIsDeliberatelySkipped) {
    build("x n(a) y");
    setWord("n", offsetof(tavDBMComponent, parent), kBeyond);
    const uint32_t before = freeBytes();
    EXPECT_EQ(deleteOne("n"), 0);
    EXPECT_EQ(freeBytes(), before + 28);
    EXPECT_EQ(node(key("x")).component.next, key("n")) << "the chain stays";
}

TEST_F(DeleteOne, ChildrenThatCannotBeCountedToTheLastOneLoseNone) {
    build("x n(a b c) y");
    const MediaImage before = fakeMedia().snapshotAll();
    for (uint32_t skip = 2; skip < 11; ++skip) {  // behind the node and its parent: the walks over the children
        faultPlan().add({.operation = Operation::mediaRead, .subject = kComponents, .skip = skip});
        EXPECT_EQ(deleteOne("n"), 55) << skip;
        faultPlan().clear();
        EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty()) << skip;
    }
    session.errorCode = 0;
    EXPECT_EQ(deleteOne("n"), 0);
    EXPECT_EQ(shape(), "x a b c y");
}

TEST_F(DeleteOne, ACountThatSucceedsLeavesAnOldErrorAlone) {
    build("x n(a b c) y");
    putOldError();
    EXPECT_EQ(deleteOne("n"), 0);
    EXPECT_TRUE(oldErrorIsThere());
}

TEST_F(DeleteOne, ARecordThatCannotBeReadAgainIsUnlinkedButNotReleased) {
    build("leaf y");
    const uint32_t before = freeBytes();
    faultPlan().add({.operation = Operation::mediaRead, .subject = kComponents, .skip = 2});
    EXPECT_EQ(deleteOne("leaf"), 55);
    EXPECT_TRUE(recorded(55, EIO));
    EXPECT_EQ(fakeTrace().errors().back(), errorLine("comp_delete", 361, {key("leaf"), 55}));
    EXPECT_EQ(shape(), "y");
    EXPECT_EQ(freeBytes(), before);
}

TEST_F(DeleteOne, AnUnknownKindIsCode3AndNotReleased) {
    build("x n() y");
    spoilKind("n");
    const uint32_t before = freeBytes();
    EXPECT_EQ(deleteOne("n"), 3);
    EXPECT_TRUE(recorded(3, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_setDeleted", 390, {key("n"), 7})));
    EXPECT_EQ(freeBytes(), before);
}

TEST_F(DeleteOne, GivesTheFileListsResultEvenWhenItFailed) {
    build("leaf y");
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents, .skip = 1, .times = kForEver});
    EXPECT_EQ(deleteOne("leaf"), 0) << "a release always answers 0";
    EXPECT_TRUE(recorded(23, EIO));
}

TEST_F(DeleteOne, ACircleOfSiblingsEndsTheSearchForThePredecessor) {
    build("a b c n()");
    setWord("c", offsetof(tavDBMComponent, next), key("a"));
    EXPECT_EQ(deleteOne("n"), 0);
    ASSERT_EQ(fakeTrace().errors().size(), 1U);
    EXPECT_LT(accesses(), 30U);
}

TEST_F(DeleteOne, NoReadThatFailsLeadsToAWriteOverTheHeaderOrTheRoot) {
    build("p(x n(a b))");
    fakeMedia().setWordAt(kComponents, 0, 0);
    fakeMedia().setWordAt(kComponents, 4, 0);
    const Bytes front = fakeMedia().bytesAt(kComponents, 0, 12);
    const Bytes rootRecord = fakeMedia().bytesAt(kComponents, root, 28);
    forEachFault([&] {
        deleteOne("n");
        EXPECT_EQ(hexText(fakeMedia().bytesAt(kComponents, 0, 12)), hexText(front));
        EXPECT_EQ(hexText(fakeMedia().bytesAt(kComponents, root, 28)), hexText(rootRecord));
    });
}

using DeleteWithSub = Delete;

TEST_F(DeleteWithSub, TakesEverythingBelowAlong) {
    build("x n(a b(c d) e) y");
    const uint32_t before = freeBytes();
    EXPECT_EQ(deleteAll("n"), 0);
    EXPECT_EQ(shape(), "x y");
    EXPECT_EQ(freeBytes(), before + 2 * 28 + 4 * 40);
}

TEST_F(DeleteWithSub, OfEverythingLeavesOneFreeBlock) {
    build("n(a b(c d) e)");
    EXPECT_EQ(deleteAll("n"), 0);
    const uint32_t behindRoot = root + 28;
    EXPECT_EQ(freeBlocks(kComponents),
              std::to_string(behindRoot) + '+' + std::to_string(kRecordMediumSize - behindRoot));
}

TEST_F(DeleteWithSub, DeliberatelyLeavesValuesAndNamesAllocated) {
    const LeafKeys keys = {.currentValue = putValue({1}), .defaultValue = putValue({2}), .factoryValue = putValue({3})};
    nameIt(putLeaf("leaf", putNode("n", root), keys), "name");
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_EQ(deleteAll("n"), 0);
    for (const char *const hint : {kValues, kData, kStrings, kTexts})
        EXPECT_EQ(fakeMedia().snapshot(hint), before.at(hint)) << hint;
}

TEST_F(DeleteWithSub, ChildrenGoLastFirst) {
    build("n(a b(c d) e)");
    ASSERT_EQ(deleteAll("n"), 0);
    std::vector<uint32_t> leaves;
    for (const uint32_t read : keysOfReads(28)) {
        if (read != key("n") && read != key("b") && read != root)
            leaves.push_back(read);
    }
    EXPECT_THAT(leaves, ElementsAre(key("e"), key("d"), key("c"), key("a")));
}

TEST_F(DeleteWithSub, ReadsAndWritesInItsFixedOrder) {
    build("n(a b)");
    ASSERT_EQ(deleteAll("n"), 0);
    EXPECT_THAT(recordTransfers(),
                ElementsAre(read(28, "n"), read(28, "root"), write(28, "root"), read(28, "n"),  // unlinked, again
                            read(24, "n"), read(28, "n"), read(24, "a"), read(24, "b"),         // counted
                            read(24, "n"), read(28, "n"), read(24, "a"), read(28, "b"),         // child 1
                            read(24, "n"), read(28, "n"), read(28, "a")));                      // child 0
}

TEST_F(DeleteWithSub, ALeafIsJustReleased) {
    build("x leaf y");
    const uint32_t before = freeBytes();
    EXPECT_EQ(deleteAll("leaf"), 0);
    EXPECT_EQ(shape(), "x y");
    EXPECT_EQ(freeBytes(), before + 40);
}

TEST_F(DeleteWithSub, WithoutUnlinkingTheChainStaysAsItIs) {
    build("x leaf y");
    EXPECT_EQ(deleteAll("leaf", 0), 0);
    EXPECT_EQ(node(key("x")).component.next, key("leaf"));
    EXPECT_THAT(recordTransfers(), ElementsAre(read(28, "leaf")));
}

TEST_F(DeleteWithSub, AnyUnlinkFlagButZeroUnlinks) {
    build("x leaf y");
    EXPECT_EQ(deleteAll("leaf", -5), 0);
    EXPECT_EQ(shape(), "x y");
}

TEST_F(DeleteWithSub, AnUnreadableComponentIsTracedAndReleasesNothing) {
    EXPECT_EQ(comp_deleteWithSub(&session, 0, 1), 4);
    EXPECT_TRUE(recorded(4, 0));
    EXPECT_TRUE(
        fakeTrace().errorsAre({errorLine("comp_getNode", 112, {0}), errorLine("comp_deleteWithSub", 371, {0, 4})}));
}

TEST_F(DeleteWithSub, ARecordThatCannotBeReadAgainIsUnlinkedButNotReleased) {
    build("leaf y");
    const uint32_t before = freeBytes();
    faultPlan().add({.operation = Operation::mediaRead, .subject = kComponents, .skip = 2});
    EXPECT_EQ(deleteAll("leaf"), 55);
    EXPECT_EQ(fakeTrace().errors().back(), errorLine("comp_deleteWithSub", 372, {key("leaf"), 55}));
    EXPECT_EQ(shape(), "y");
    EXPECT_EQ(freeBytes(), before);
}

TEST_F(DeleteWithSub, AChildThatFailsDeliberatelyDoesNotStopTheOthers) {
    build("n(a b c)");
    spoilKind("b");
    const uint32_t before = freeBytes();
    EXPECT_EQ(deleteAll("n"), 0);
    EXPECT_EQ(freeBytes(), before + 28 + 2 * 40);
    EXPECT_TRUE(recorded(3, 0));
}

TEST_F(DeleteWithSub, AnUnknownKindIsTakenForALeafAndIsCode3) {
    build("x n(a)");
    spoilKind("n");
    EXPECT_EQ(deleteAll("n"), 3);
    EXPECT_TRUE(recorded(3, 0));
    EXPECT_EQ(shape(), "x");
}

TEST_F(DeleteWithSub, ANodeBelowItselfEndsWithOneLine) {
    build("n(a m())");
    setWord("m", offsetof(tavDBMNode, firstChild), key("n"));
    setWord("n", offsetof(tavDBMComponent, parent), 0);
    EXPECT_EQ(deleteAll("n", 0), 0);
    EXPECT_THAT(fakeTrace().errors(), testing::Contains(testing::StartsWith("comp_deleteWithSub():[Error]:[370]")));
    EXPECT_LT(accesses(), 300U);
}

TEST_F(DeleteWithSub, TwoNodesBelowEachOtherGoOnceAndLeaveASoundFreeList) {
    build("y m() n()");
    setWord("m", offsetof(tavDBMNode, firstChild), key("m"));
    setWord("n", offsetof(tavDBMNode, firstChild), key("m"));
    EXPECT_EQ(deleteAll("m", 0), 0);
    EXPECT_EQ(freeBytes(), kRecordMediumSize - 16 - 28 - 40) << freeBlocks(kComponents);
    EXPECT_LT(accesses(), 300U);
}

TEST_F(DeleteWithSub, ACircleOfSiblingsEndsAndLeavesASoundFreeList) {
    build("n(a b c) y");
    setWord("c", offsetof(tavDBMComponent, next), key("a"));
    EXPECT_EQ(deleteAll("n"), 0);
    EXPECT_EQ(shape(), "y");
    EXPECT_EQ(freeBytes(), kRecordMediumSize - 16 - 28 - 40) << freeBlocks(kComponents);
    EXPECT_LT(accesses(), 500U);
}

class SetDeleted : public Delete {};

TEST_F(SetDeleted, OfADatabaseThatIsNotOpenIsCode83) {
    build("leaf");
    tavDBMComponent header = node(key("leaf")).component;
    session.dbId = kNotOpenDb;
    EXPECT_EQ(comp_setDeleted(&session, &header), 83);
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_setDeleted", 380, {key("leaf"), kNotOpenDb})));
    session.dbId = 1;
}

TEST_F(SetDeleted, ReleasesTheSlotThatTheHeaderNames) {
    build("leaf y");
    const uint32_t before = freeBytes();
    const tavDBMComponent header = {
        .key = key("leaf"), .name = 0, .reserved = 0, .parent = 0, .next = 0, .kind = TAVDB_KIND_LEAF};
    EXPECT_EQ(comp_setDeleted(&session, &header), 0);
    EXPECT_EQ(freeBytes(), before + 40);
    EXPECT_THAT(recordTransfers(), IsEmpty());
}

TEST_F(SetDeleted, WithoutAHeaderNothingIsReleased) {
    const MediaImage before = fakeMedia().snapshotAll();
    comp_setDeleted(&session, nullptr);
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
}

TEST_F(SetDeleted, TheSlotIsGivenToTheNextComponentOfItsSize) {
    build("leaf y");
    const uint32_t slot = key("leaf");
    ASSERT_EQ(deleteOne("leaf"), 0);
    EXPECT_EQ(leaf_create(&session, 0, root, 0, 0, 0, 0, 0), slot);
}

struct Deleter : Named {
    int32_t (*run)(tavDBMSession *, uint32_t);
};

constexpr Deleter kDeleters[] = {
    {"comp_delete", comp_delete},
    {"comp_deleteWithSub", [](tavDBMSession *session, uint32_t key) { return comp_deleteWithSub(session, key, 1); }}};

class DeleterTest : public Delete, public testing::WithParamInterface<Deleter> {};

INSTANTIATE_TEST_SUITE_P(All, DeleterTest, testing::ValuesIn(kDeleters), kRowName);

TEST_P(DeleterTest, WhateverFailsLeavesTheOtherRecordsAlone) {
    build("bystander(x) p(w n(a b(c)) z)");
    const Bytes bystander = fakeMedia().bytesAt(kComponents, key("bystander"), 28 + 40);
    const Bytes header = fakeMedia().bytesAt(kComponents, 0, 12);
    forEachFault([&] {
        const int32_t code = GetParam().run(&session, key("n"));
        EXPECT_TRUE(code == 0 || static_cast<uint32_t>(code) == session.errorCode) << code;
        EXPECT_TRUE(code == 0 || faultPlan().fired());
        EXPECT_EQ(fakeMedia().bytesAt(kComponents, key("bystander"), 28 + 40), bystander);
        EXPECT_EQ(fakeMedia().bytesAt(kComponents, 0, 12), header);
    });
}

TEST_P(DeleterTest, LeavesTheReservedWordsOfAllThatItRewritesAsTheyAre) {
    build("w n(a b) z");
    putReservedWords();
    ASSERT_EQ(GetParam().run(&session, key("n")), 0);
    ASSERT_EQ(GetParam().run(&session, key("w")), 0) << "the first child";
    for (const std::string &changed : changedReservedWords())
        EXPECT_TRUE(changed == "n" || changed == "a" || changed == "b" || changed == "w") << changed;
}

TEST_P(DeleterTest, ADatabaseThatIsNotOpenIsCode83) {
    build("n()");
    session.dbId = kNotOpenDb;
    EXPECT_EQ(GetParam().run(&session, key("n")), 83);
    EXPECT_TRUE(recorded(83, 0));
    session.dbId = 1;
}

}  // namespace
}  // namespace tavdb_test
