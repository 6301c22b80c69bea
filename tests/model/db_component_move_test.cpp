// SPDX-License-Identifier: Apache-2.0
// Moving a leaf, a node alone and a node with its subtree: where the components
// stand afterwards, in which order records are read and written, and what is
// left when a step fails. Trees are written as "leaf node(leaf node())".
#include <errno.h>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

class Move : public TreeFixture {
protected:
    int32_t moveLeaf(const std::string &what, const std::string &parent, const std::string &previous = "") {
        return leaf_move(&session, key(what), key(parent), keyOrNone(previous));
    }
    int32_t moveSubTree(const std::string &what, const std::string &parent, const std::string &previous = "") {
        return node_moveWithSub(&session, key(what), key(parent), keyOrNone(previous));
    }
    int32_t moveNode(const std::string &what, const std::string &parent, const std::string &previous = "",
                     const std::string &child = "") {
        return node_move(&session, key(what), key(parent), keyOrNone(previous), keyOrNone(child));
    }
    uint32_t keyOrNone(const std::string &text) {
        return text.empty() ? 0 : key(text);
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
    void setNext(const std::string &from, uint32_t to) {
        fakeMedia().setWordAt(kComponents, key(from) + offsetof(tavDBMComponent, next), to);
    }
    void setFirst(const std::string &from, uint32_t to) {
        fakeMedia().setWordAt(kComponents, key(from) + offsetof(tavDBMNode, firstChild), to);
    }
    void setParent(const std::string &of, uint32_t to) {
        fakeMedia().setWordAt(kComponents, key(of) + offsetof(tavDBMComponent, parent), to);
    }
};

using LeafMove = Move;

TEST_F(LeafMove, ALaterLeafLeavesItsParentAndStandsBehindItsNewSibling) {
    build("n(a b c) m(x y)");
    EXPECT_EQ(moveLeaf("b", "m", "x"), 0);
    EXPECT_EQ(shape(), "n(a c) m(x b y)");
    EXPECT_EQ(parentOf("b"), key("m"));
}

TEST_F(LeafMove, WithoutPreviousItBecomesTheFirstChild) {
    build("n(a b c) m(x y)");
    EXPECT_EQ(moveLeaf("c", "m"), 0);
    EXPECT_EQ(shape(), "n(a b) m(c x y)");
}

TEST_F(LeafMove, IntoAnEmptyNode) {
    build("n(a b) m()");
    EXPECT_EQ(moveLeaf("b", "m"), 0);
    EXPECT_EQ(shape(), "n(a) m(b)");
}

TEST_F(LeafMove, WithinItsParent) {
    build("a b c d");
    EXPECT_EQ(moveLeaf("d", "root", "a"), 0);
    EXPECT_EQ(shape(), "a d b c");
}

TEST_F(LeafMove, TheFirstChildDeliberatelyStaysLinkedUnderItsOldParent) {
    build("n(a b c) m(x y)");
    EXPECT_EQ(moveLeaf("a", "m", "x"), 0);
    EXPECT_EQ(shape(), "n(a y) m(x a y)") << "the old chain runs on into the new followers, b and c drop out";
    EXPECT_EQ(parentOf("a"), key("m"));
    EXPECT_EQ(parentOf("b"), key("n"));
    EXPECT_EQ(node(key("b")).component.next, key("c"));
}

TEST_F(LeafMove, TheSecondLeafIsNotListedTwice) {
    build("n(a b) m(x)");
    EXPECT_EQ(moveLeaf("b", "m"), 0);
    EXPECT_EQ(shape(), "n(a) m(b x)");
}

TEST_F(LeafMove, DeliberatelyComparesTheParentsFirstChildWithTheParentsOwnKey) {
    build("n(a b) m()");
    setFirst("n", key("n"));
    setNext("n", 0);  // else the walk would go on to m
    EXPECT_EQ(moveLeaf("a", "m"), 0);
    EXPECT_EQ(node(key("n")).firstChild, key("b")) << "here the shortcut is taken";
}

TEST_F(LeafMove, AFirstLeafMovedToTheFrontOfItsOwnParentFollowsItself) {
    build("n(a b)");
    EXPECT_EQ(moveLeaf("a", "n"), 0);
    EXPECT_EQ(shape(), "n(a ^a)") << "it was never taken out of the chain";
}

TEST_F(LeafMove, ReadsAndWritesInItsFixedOrder) {
    build("n(a b c) m(x y)");
    ASSERT_EQ(moveLeaf("c", "m", "x"), 0);
    EXPECT_THAT(transfers(),
                ElementsAre(read(40, "c"), read(28, "n"), read(24, "a"), read(24, "b"), read(24, "b"), write(24, "b"),
                            write(28, "n"), read(24, "x"), write(24, "x"), write(40, "c")));
}

TEST_F(LeafMove, AsFirstChildReadsAndWritesTheNewParentLast) {
    build("n(a) m()");
    ASSERT_EQ(moveLeaf("a", "m"), 0);
    EXPECT_THAT(transfers(), ElementsAre(read(40, "a"), read(28, "n"), read(24, "a"), write(28, "n"), read(28, "m"),
                                         write(28, "m"), write(40, "a")));
}

TEST_F(LeafMove, AnUnreadableLeafIsTracedAndMovesNothing) {
    build("n(a)");
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_EQ(leaf_move(&session, kBeyond, key("n"), 0), 55);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_TRUE(fakeTrace().errorsAre(
        {errorLine("comp_getLeaf", 124, {kBeyond, 40, 0, 0}), errorLine("leaf_move", 330, {kBeyond, 55})}));
    EXPECT_THAT(fakeMedia().changesSince(before), testing::IsEmpty());
}

TEST_F(LeafMove, AnOldParentThatCannotBeReadIsDeliberatelySkipped) {
    build("m() a b");
    setParent("b", kBeyond);
    EXPECT_EQ(moveLeaf("b", "m"), 0);
    EXPECT_EQ(shape(), "m(b) a b") << "still linked where it was";
    EXPECT_EQ(parentOf("b"), key("m"));
}

TEST_F(LeafMove, ANewSiblingThatCannotBeReadDeliberatelyLeavesTheLeafOutOfEveryChain) {
    build("n(a b c) m(x)");
    EXPECT_EQ(leaf_move(&session, key("b"), key("m"), kBeyond), 0) << "the write of the leaf succeeded";
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_EQ(shape(), "n(a c) m(x)");
    EXPECT_EQ(parentOf("b"), key("m"));
}

TEST_F(LeafMove, ALeafThatIsNotInItsParentsChainIsOnlyInserted) {
    build("n(a) m(x) o()");
    setParent("x", key("n"));
    EXPECT_EQ(moveLeaf("x", "o"), 0);
    EXPECT_EQ(shape(), "n(a) m(x) o(x)");
}

TEST_F(LeafMove, GivesTheResultOfWritingTheLeaf) {
    build("n(a b) m()");
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents, .skip = 3});
    EXPECT_EQ(moveLeaf("b", "m"), 54);
    EXPECT_TRUE(recorded(54, EIO));
    EXPECT_EQ(parentOf("b"), key("n"));
}

TEST_F(LeafMove, DeliberatelyIgnoresFailedWritesBeforeThat) {
    build("n(a b) m()");
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents, .times = 3});
    EXPECT_EQ(moveLeaf("b", "m"), 0);
    EXPECT_TRUE(recorded(54, EIO));
    EXPECT_EQ(parentOf("b"), key("m"));
}

TEST_F(LeafMove, ACircleInTheOldChainEndsTheSearchWithOneLine) {
    build("n(a b c) m(x)");
    setNext("c", key("a"));
    setParent("x", key("n"));
    EXPECT_EQ(moveLeaf("x", "m"), 0);
    ASSERT_EQ(fakeTrace().errors().size(), 1U);
    EXPECT_THAT(fakeTrace().errors()[0], StartsWith("comp_getNextSibling():[Error]:[300]"));
}

using SubTreeMove = Move;

TEST_F(SubTreeMove, TheChildrenMoveAlong) {
    build("n(a(p q) b) m(x)");
    EXPECT_EQ(moveSubTree("a", "m", "x"), 0);
    EXPECT_EQ(shape(), "n(b) m(x a(p q))");
    EXPECT_EQ(parentOf("a"), key("m"));
    EXPECT_EQ(parentOf("p"), key("a"));
}

TEST_F(SubTreeMove, AFirstChildIsUnlinkedUnlikeALeaf) {
    build("a() b() m()");
    EXPECT_EQ(moveSubTree("a", "m"), 0);
    EXPECT_EQ(shape(), "b() m(a())");
}

TEST_F(SubTreeMove, ALaterChildIsUnlinkedThroughItsPredecessor) {
    build("n(a b() c) m(x y)");
    EXPECT_EQ(moveSubTree("b", "m"), 0);
    EXPECT_EQ(shape(), "n(a c) m(b() x y)");
}

TEST_F(SubTreeMove, ReadsAndWritesInItsFixedOrder) {
    build("n(a b()) m(x)");
    ASSERT_EQ(moveSubTree("b", "m", "x"), 0);
    EXPECT_THAT(transfers(), ElementsAre(read(28, "b"), read(28, "n"), read(24, "a"), read(24, "a"), write(24, "a"),
                                         write(28, "n"), read(24, "x"), write(24, "x"), write(28, "b")));
}

TEST_F(SubTreeMove, OfAFirstChildRewritesTheOldParentOnly) {
    build("b() m()");
    ASSERT_EQ(moveSubTree("b", "m"), 0);
    EXPECT_THAT(transfers(), ElementsAre(read(28, "b"), read(28, "root"), write(28, "root"), read(28, "m"),
                                         write(28, "m"), write(28, "b")));
}

TEST_F(SubTreeMove, AnUnreadableNodeIsTracedAndMovesNothing) {
    EXPECT_EQ(node_moveWithSub(&session, 0, root, 0), 4);
    EXPECT_TRUE(recorded(4, 0));
    EXPECT_TRUE(
        fakeTrace().errorsAre({errorLine("comp_getNode", 112, {0}), errorLine("node_moveWithSub", 340, {0, 4})}));
}

TEST_F(SubTreeMove, TheRootHasNoParentToLeave) {
    build("m()");
    const uint32_t other = key("m");
    setFirst("root", 0);
    EXPECT_EQ(node_moveWithSub(&session, root, other, 0), 0);
    EXPECT_EQ(node(other).firstChild, root);
    EXPECT_EQ(node(root).component.parent, other);
}

TEST_F(SubTreeMove, DeliberatelyNothingPreventsANodeBelowItself) {
    build("a(b())");
    EXPECT_EQ(moveSubTree("a", "b"), 0);
    EXPECT_EQ(shape(), "");
    EXPECT_EQ(node(key("b")).firstChild, key("a"));
    EXPECT_EQ(node(key("a")).firstChild, key("b"));
}

TEST_F(SubTreeMove, GivesTheResultOfWritingTheNode) {
    build("a() m()");
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents, .skip = 2});
    EXPECT_EQ(moveSubTree("a", "m"), 54);
    EXPECT_TRUE(recorded(54, EIO));
}

using NodeMove = Move;

TEST_F(NodeMove, ItsChildrenTakeItsPlaceAndDeliberatelyKeepNamingItAsParent) {
    build("p(x n(a b) y) q(s t)");
    EXPECT_EQ(moveNode("n", "q", "s"), 0);
    EXPECT_EQ(shape(), "p(x a b y) q(s n() t)");
    EXPECT_EQ(parentOf("a"), key("n"));
    EXPECT_EQ(parentOf("b"), key("n"));
    EXPECT_EQ(parentOf("n"), key("q"));
}

TEST_F(NodeMove, AFirstChildIsReplacedInItsParent) {
    build("p(n(a b) y) q()");
    EXPECT_EQ(moveNode("n", "q"), 0);
    EXPECT_EQ(shape(), "p(a b y) q(n())");
}

TEST_F(NodeMove, WithoutChildrenItJustLeaves) {
    build("p(x n() y) q()");
    EXPECT_EQ(moveNode("n", "q"), 0);
    EXPECT_EQ(shape(), "p(x y) q(n())");
}

TEST_F(NodeMove, AdoptsTheComponentBehindItsNewPlace) {
    build("p(n(a)) q(s t(u) v)");
    EXPECT_EQ(moveNode("n", "q", "s", "t"), 0);
    EXPECT_EQ(shape(), "p(a) q(s n(t(u)) v)");
    EXPECT_EQ(parentOf("t"), key("n"));
}

TEST_F(NodeMove, AdoptsTheFirstChildWhenItBecomesTheFirst) {
    build("p(n(a)) q(t v)");
    EXPECT_EQ(moveNode("n", "q", "", "t"), 0);
    EXPECT_EQ(shape(), "p(a) q(n(t) v)");
}

TEST_F(NodeMove, ReadsAndWritesInItsFixedOrder) {
    build("p(x n(a b)) q(s t)");
    ASSERT_EQ(moveNode("n", "q", "s", "t"), 0);
    EXPECT_THAT(transfers(),
                ElementsAre(read(28, "n"), read(28, "p"),                                  // the node, its parent
                            read(24, "n"), read(28, "n"), read(24, "a"), read(24, "b"),    // children counted
                            read(24, "n"), read(28, "n"), read(24, "a"),                   // the last one found
                            read(24, "b"), write(24, "b"),                                 // and linked on
                            read(24, "x"), read(24, "x"), write(24, "x"), write(28, "p"),  // put in its place
                            read(24, "s"), write(24, "s"), read(24, "t"), write(24, "t"),  // the new place
                            write(28, "n")));
}

TEST_F(NodeMove, AnUnreadableNodeMovesNothing) {
    EXPECT_EQ(node_move(&session, kBeyond, root, 0, 0), 55);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_TRUE(fakeTrace().errorsAre(
        {errorLine("comp_getNode", 114, {kBeyond, 28, 0, 0}), errorLine("node_move", 350, {kBeyond, 55})}));
}

TEST_F(NodeMove, ChildrenThatCannotBeCountedToTheLastOneLoseNone) {
    build("x n(a b c) y q(z)");
    const MediaImage before = fakeMedia().snapshotAll();
    for (uint32_t skip = 2; skip < 11; ++skip) {  // behind the node and its parent: the walks over the children
        faultPlan().add({.operation = Operation::mediaRead, .subject = kComponents, .skip = skip});
        EXPECT_EQ(node_move(&session, key("n"), key("q"), key("z"), 0), 55) << skip;
        faultPlan().clear();
        EXPECT_THAT(fakeMedia().changesSince(before), testing::IsEmpty()) << skip;
    }
}

TEST_F(NodeMove, AnUnreadableNewSiblingDeliberatelyWritesTheNodeWithItsOldFirstChild) {
    build("p(n(a)) q(s t)");
    EXPECT_EQ(node_move(&session, key("n"), key("q"), kBeyond, key("t")), 0);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_EQ(shape(), "p(a) q(s t)");
    EXPECT_EQ(parentOf("n"), key("q"));
    EXPECT_EQ(node(key("n")).firstChild, key("a"));
}

TEST_F(NodeMove, AnUnreadableNewParentDeliberatelyWritesTheNodeWithItsOldFirstChild) {
    build("p(n(a))");
    EXPECT_EQ(node_move(&session, key("n"), kBeyond, 0, 0), 0);
    EXPECT_EQ(parentOf("n"), kBeyond);
    EXPECT_EQ(node(key("n")).firstChild, key("a"));
}

TEST_F(NodeMove, AnOldParentThatCannotBeReadDeliberatelySkipsTheFirstPart) {
    build("p(n(a)) q()");
    setParent("n", kBeyond);
    EXPECT_EQ(moveNode("n", "q"), 0);
    EXPECT_EQ(shape(), "p(n()) q(n())");
    EXPECT_EQ(node(key("a")).component.next, 0U);
}

TEST_F(NodeMove, AChildThatCannotBeAdoptedIsStillTheFirstChild) {
    build("n() q()");
    EXPECT_EQ(node_move(&session, key("n"), key("q"), 0, kBeyond), 0);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_EQ(node(key("n")).firstChild, kBeyond);
}

TEST_F(NodeMove, APredecessorThatIsNotFoundDeliberatelyLeavesTheChainAsItWas) {
    build("p(x) q(n(a)) r()");
    setParent("n", key("p"));
    EXPECT_EQ(moveNode("n", "r"), 0);
    EXPECT_EQ(shape(), "p(x) q(n()) r(n())");
}

TEST_F(NodeMove, GivesTheResultOfWritingTheNode) {
    build("n() m()");
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents, .skip = 2});
    EXPECT_EQ(moveNode("n", "m"), 54);
    EXPECT_TRUE(recorded(54, EIO));
}

/// Every operation that can fail, for the three moves.
struct Mover : Named {
    int32_t (*move)(tavDBMSession *, uint32_t what, uint32_t parent, uint32_t previous);
    const char *what;
};

constexpr Mover kMovers[] = {
    {"leaf_move", leaf_move, "leaf"},
    {"node_moveWithSub", node_moveWithSub, "node"},
    {"node_move",
     [](tavDBMSession *session, uint32_t what, uint32_t parent, uint32_t previous) {
         return node_move(session, what, parent, previous, 0);
     },
     "node"},
};

class MoverTest : public TreeFixture, public testing::WithParamInterface<Mover> {};

INSTANTIATE_TEST_SUITE_P(All, MoverTest, testing::ValuesIn(kMovers), kRowName);

TEST_P(MoverTest, WhateverFailsLeavesTheOtherRecordsAlone) {
    build("bystander(x) p(w leaf node(a b) z) q(s t)");
    const Bytes bystander = fakeMedia().bytesAt(kComponents, key("bystander"), 28 + 40);
    const Bytes header = fakeMedia().bytesAt(kComponents, 0, 16);
    forEachFault([&] {
        const int32_t code = GetParam().move(&session, key(GetParam().what), key("q"), key("s"));
        EXPECT_TRUE(code == 0 || static_cast<uint32_t>(code) == session.errorCode) << code;
        EXPECT_TRUE(code == 0 || faultPlan().fired());
        EXPECT_EQ(fakeMedia().bytesAt(kComponents, key("bystander"), 28 + 40), bystander);
        EXPECT_EQ(fakeMedia().bytesAt(kComponents, 0, 16), header);
    });
}

TEST_P(MoverTest, LeavesTheReservedWordsOfAllThatItRewritesAsTheyAre) {
    build("p(w leaf node(a b) z) q(s t)");
    putReservedWords();
    ASSERT_EQ(GetParam().move(&session, key(GetParam().what), key("q"), key("s")), 0);
    ASSERT_EQ(GetParam().move(&session, key(GetParam().what), key("p"), 0), 0);
    EXPECT_THAT(changedReservedWords(), testing::IsEmpty());
}

TEST_P(MoverTest, ADatabaseThatIsNotOpenIsCode83) {
    build("p(leaf node())");
    session.dbId = kNotOpenDb;
    EXPECT_EQ(GetParam().move(&session, key(GetParam().what), root, 0), 83);
    EXPECT_TRUE(recorded(83, 0));
    session.dbId = 1;
}

// A read that fails while the last of the children is looked for gives no child; the medium's first words,
// which are 0 on a medium prepared without any, must not be taken for a record then.
TEST_F(NodeMove, NoReadThatFailsLeadsToAWriteOverTheHeaderOrTheRoot) {
    build("p(x n(a b)) q(s)");
    fakeMedia().setWordAt(kComponents, 0, 0);
    fakeMedia().setWordAt(kComponents, 4, 0);
    const Bytes front = fakeMedia().bytesAt(kComponents, 0, root + 24);
    forEachFault([&] {
        moveNode("n", "q", "s");
        EXPECT_EQ(hexText(fakeMedia().bytesAt(kComponents, 0, root + 24)), hexText(front));
    });
}

}  // namespace
}  // namespace tavdb_test
