// SPDX-License-Identifier: Apache-2.0
// Walks over a whole subtree: the copies between a leaf's three values and the
// printing of spaces. In which order the leaves come, what ends a walk, what is
// printed to the last space.
#include <errno.h>

#include <algorithm>
#include <climits>
#include <functional>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class Walk : public TreeFixture {
protected:
    void setWord(const std::string &of, size_t offset, uint32_t word) {
        fakeMedia().setWordAt(kComponents, key(of) + offset, word);
    }
    void spoilKind(const std::string &of) {
        setWord(of, offsetof(tavDBMComponent, kind), 7);
    }
    /// Two nodes, each with the chain in which both stand as its children: every way down runs in a circle, and
    /// no single component is on all of them.
    void putTwoNodesBelowEachOther() {
        build("m() n()");
        setWord("m", offsetof(tavDBMNode, firstChild), key("m"));
        setWord("n", offsetof(tavDBMNode, firstChild), key("m"));
    }
    /// A leaf whose three values hold one letter each, three times.
    void putLetters(const std::string &label, uint32_t parent, const std::string &letters, uint32_t hookId = 0) {
        uint32_t values[3];
        for (size_t tier = 0; tier < 3; ++tier)
            values[tier] = putValue(bytes(std::string(3, letters[tier])));
        putLeaf(label, parent, {values[0], values[1], values[2], hookId});
    }
    /// "cdf" for a leaf made with putLetters("cdf")
    std::string letters(const std::string &of) const {
        const tavDBMLeaf record = leaf(key(of));
        std::string text;
        for (const uint32_t valueKey : {record.currentValue, record.defaultValue, record.factoryValue})
            text += textOfBytes(dataOf(valueKey)).substr(0, 1);
        return text;
    }
};

/// One of the three copies: where from, where to.
struct Copy : Named {
    int32_t (*copy)(tavDBMSession *, uint32_t);
    int32_t site;
    const char *result;  ///< the letters that "cdf" becomes
    uint32_t tavDBMLeaf::*from;
    uint32_t tavDBMLeaf::*to;
};

constexpr Copy kCopies[] = {
    {"comp_defaultToCurrent", comp_defaultToCurrent, 400, "ddf", &tavDBMLeaf::defaultValue, &tavDBMLeaf::currentValue},
    {"comp_factoryToDefault", comp_factoryToDefault, 410, "cff", &tavDBMLeaf::factoryValue, &tavDBMLeaf::defaultValue},
    {"comp_currentToDefault", comp_currentToDefault, 420, "ccf", &tavDBMLeaf::currentValue, &tavDBMLeaf::defaultValue},
};

class CopyTest : public Walk, public testing::WithParamInterface<Copy> {
protected:
    int32_t copy(const std::string &what) {
        return GetParam().copy(&session, key(what));
    }
    std::string errorAt(int32_t step, std::initializer_list<uint32_t> words) const {
        return errorLine(GetParam().name, GetParam().site + step, words);
    }
    /// The copy's own error lines of a site.
    int64_t linesAt(int32_t step) const {
        const std::string start =
            std::string(GetParam().name) + "():[Error]:[" + std::to_string(GetParam().site + step) + ']';
        const auto errors = fakeTrace().errors();
        return std::count_if(errors.begin(), errors.end(), [&](const auto &line) { return line.starts_with(start); });
    }
    /// Makes the source of a leaf longer than its destination.
    void spoilCopyOf(const std::string &of) {
        const uint32_t source = leaf(key(of)).*GetParam().from;
        fakeMedia().setWordAt(kValues, source + offsetof(tavDBMValue, length), 100);
    }
    std::string copied() const {
        return GetParam().result;
    }
};

INSTANTIATE_TEST_SUITE_P(All, CopyTest, testing::ValuesIn(kCopies), kRowName);

TEST_P(CopyTest, OfALeafCopiesBetweenItsOwnValues) {
    putLetters("leaf", root, "cdf");
    const LeafKeys keys = fakeMedia().recordAt<LeafKeys>(kComponents, key("leaf") + 24);
    EXPECT_EQ(copy("leaf"), 0);
    EXPECT_EQ(letters("leaf"), copied());
    EXPECT_EQ(hexText(bytesOf(keys)), hexAt(kComponents, key("leaf") + 24, 16)) << "keys are never exchanged";
}

TEST_P(CopyTest, OfALeafReadsLeafRecordsAndDataInItsFixedOrder) {
    putLetters("leaf", root, "cdf");
    ASSERT_EQ(copy("leaf"), 0);
    const tavDBMLeaf record = leaf(key("leaf"));
    const auto at = [](const char *what, uint32_t size, uint32_t where) {
        return std::string(what) + ' ' + std::to_string(size) + '@' + std::to_string(where);
    };
    const uint32_t to = record.*GetParam().to;
    const uint32_t from = record.*GetParam().from;
    EXPECT_THAT(transfers(),
                ElementsAre(at("component read", 24, key("leaf")), at("component read", 40, key("leaf")),
                            at("value read", 28, to), at("value read", 28, from),                    // lengths
                            at("value read", 28, from), at("data read", 3, value(from).dataOffset),  // the source
                            at("value read", 28, to), at("data write", 3, value(to).dataOffset)));
}

TEST_P(CopyTest, OfANodeReachesEveryLeafBelow) {
    const uint32_t n = putNode("n", root);
    putLetters("a", n, "cdf");
    putLetters("b", putNode("m", n), "cdf");
    putLetters("other", root, "cdf");
    EXPECT_EQ(copy("n"), 0);
    EXPECT_EQ(letters("a"), copied());
    EXPECT_EQ(letters("b"), copied());
    EXPECT_EQ(letters("other"), "cdf");
    EXPECT_TRUE(recorded(0, 0));
}

TEST_P(CopyTest, OfANodeWithoutChildrenIsDone) {
    putNode("n", root);
    EXPECT_EQ(copy("n"), 0);
    EXPECT_THAT(transfers(), ElementsAre(StartsWith("component read 24@"), StartsWith("component read 28@")));
}

TEST_P(CopyTest, TheFirstFailureEndsTheWalkInChainOrder) {
    const uint32_t n = putNode("n", root);
    putLetters("a", n, "cdf");
    const uint32_t m = putNode("m", n);
    putLetters("b", m, "cdf");
    putLetters("c", m, "cdf");
    putLetters("d", n, "cdf");
    spoilCopyOf("b");
    EXPECT_EQ(copy("n"), 49);
    EXPECT_TRUE(recorded(49, 0));
    EXPECT_EQ(letters("a"), copied());
    EXPECT_EQ(letters("c"), "cdf");
    EXPECT_EQ(letters("d"), "cdf");
}

TEST_P(CopyTest, ALeafWithoutAValueIsPassedOverWithItsErrorInTheSession) {
    const uint32_t n = putNode("n", root);
    putLeaf("none", n);
    putLetters("a", n, "cdf");
    EXPECT_EQ(copy("n"), 0);
    EXPECT_TRUE(recorded(51, 0));
    EXPECT_EQ(letters("a"), copied());
}

TEST_P(CopyTest, AnUnknownKindIsCode3) {
    build("n(x)");
    spoilKind("x");
    EXPECT_EQ(copy("n"), 3);
    EXPECT_TRUE(recorded(3, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(1, {key("x"), 7})));
}

TEST_P(CopyTest, AnUnreadableComponentIsTracedAndTheLastErrorReturned) {
    EXPECT_EQ(GetParam().copy(&session, kBeyond), 55);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_TRUE(
        fakeTrace().errorsAre({errorLine("comp_getComponent", 104, {kBeyond, 24, 0, 0}), errorAt(0, {kBeyond, 55})}));
}

TEST_P(CopyTest, ANodeThatCannotBeReadGivesTheLastError) {
    build("n(x)");
    faultPlan().add({.operation = Operation::mediaRead, .subject = kComponents, .skip = 1});
    EXPECT_EQ(copy("n"), 55);
    EXPECT_TRUE(recorded(55, EIO));
}

TEST_P(CopyTest, ANodeBelowItselfEndsWithOneLine) {
    const uint32_t n = putNode("n", root);
    putLetters("a", n, "cdf");
    putNode("m", n);
    setWord("m", offsetof(tavDBMNode, firstChild), n);
    EXPECT_EQ(copy("n"), 0);
    EXPECT_EQ(letters("a"), copied());
    EXPECT_EQ(linesAt(3), 1);
    EXPECT_LT(accesses(), 200U);
}

TEST_P(CopyTest, TwoNodesBelowEachOtherEndAndTheirLeafIsCopied) {
    putTwoNodesBelowEachOther();
    putLetters("leaf", root, "cdf");
    EXPECT_EQ(copy("m"), 0);
    EXPECT_EQ(letters("leaf"), copied());
    EXPECT_EQ(linesAt(3), 3) << "m below m, m below n below m, n below n below m";
    EXPECT_LT(accesses(), 100U);
}

TEST_P(CopyTest, ALeafThatAMoveLeftUnderTwoParentsIsReachedFromBoth) {
    putLetters("leaf", putNode("from", root), "cdf");
    ASSERT_EQ(leaf_move(&session, key("leaf"), putNode("to", root), 0), 0);
    ASSERT_EQ(shape(), "from(leaf) to(leaf)");
    for (const char *const parent : {"from", "to"}) {
        fakeMedia().setBytesAt(kData, value(leaf(key("leaf")).*GetParam().to).dataOffset, bytes("???"));
        EXPECT_EQ(copy(parent), 0);
        EXPECT_EQ(letters("leaf"), copied());
    }
    clearTraces();
    EXPECT_EQ(copy("root"), 0);
    EXPECT_EQ(eventLog().count(Operation::mediaWrite), 2U) << "once below each";
    EXPECT_EQ(linesAt(3), 0) << "a leaf met again is no circle";
}

TEST_P(CopyTest, ACircleOfSiblingsEnds) {
    const uint32_t n = putNode("n", root);
    putLetters("a", n, "cdf");
    putLetters("b", n, "cdf");
    setWord("b", offsetof(tavDBMComponent, next), key("a"));
    EXPECT_EQ(copy("n"), 0);
    EXPECT_EQ(letters("b"), copied());
    EXPECT_EQ(linesAt(2), 1);
    EXPECT_LT(accesses(), 100U);
}

TEST_P(CopyTest, AThousandNodesBelowEachOtherAreReached) {
    fakeMedia().createForRecords(kComponents, 65536);
    root = putRoot();
    uint32_t at = root;
    for (int depth = 0; depth < 1000; ++depth)
        at = putNode("n" + std::to_string(depth), at);
    putLetters("leaf", at, "cdf");
    EXPECT_EQ(GetParam().copy(&session, root), 0);
    EXPECT_EQ(letters("leaf"), copied());
}

TEST_P(CopyTest, OnlyTheDefaultToTheCurrentRunsTheLeafsHook) {
    fakeHooks().putReady(6);
    putLetters("leaf", root, "cdf", 6);
    const uint32_t current = leaf(key("leaf")).currentValue;
    EXPECT_EQ(copy("leaf"), 0);
    const auto calls = eventLog().lines(Category::hooks);
    if (GetParam().copy != comp_defaultToCurrent)
        EXPECT_THAT(calls, IsEmpty());
    else
        EXPECT_THAT(calls, ElementsAre("getHook 6", "hook preWrite " + std::to_string(current) + " 3",
                                       "hook postWrite " + std::to_string(current) + " 3"));
}

TEST_P(CopyTest, ADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(copy("root"), 83);
    EXPECT_TRUE(recorded(83, 0));
    session.dbId = 1;
}

TEST_P(CopyTest, WhateverFailsNeverGivesAValueThatIsNeitherOldNorNew) {
    putLetters("leaf", putNode("n", root), "cdf");
    const std::string expected = copied();
    forEachFault([&] {
        const int32_t code = copy("n");
        const std::string now = letters("leaf");
        EXPECT_TRUE(now == "cdf" || now == expected) << now;
        EXPECT_TRUE(code == 0 || code == -1 || static_cast<uint32_t>(code) == session.errorCode) << code;
        EXPECT_TRUE(faultPlan().fired() || now == expected);
    });
}

class Print : public Walk {
protected:
    std::string printed(const std::function<void()> &print) {
        testing::internal::CaptureStdout();
        print();
        return testing::internal::GetCapturedStdout();
    }
    std::string printed(uint32_t componentKey, int32_t depth) {
        return printed([&] { comp_traverseAndPrint(&session, componentKey, depth); });
    }
    static std::string spaces(size_t count) {
        return std::string(count, ' ');
    }
};

TEST_F(Print, ALeafWithoutHookAtDepthZeroIsSixSpacesAndNothingElse) {
    build("leaf");
    EXPECT_EQ(printed(key("leaf"), 0), spaces(6));
}

TEST_F(Print, ALeafWithAHookPrintsItsWidthOnceMore) {
    putLeaf("leaf", root, {.hookId = 5});
    EXPECT_EQ(printed(key("leaf"), 0), spaces(8));
}

TEST_F(Print, ALeafIsIndentedTwiceItsDepthAndItsValuesOneMore) {
    build("leaf");
    EXPECT_EQ(printed(key("leaf"), 3), spaces(6 + 3 * 8));
}

TEST_F(Print, ANodeIsIndentedTwiceItsDepth) {
    build("n()");
    EXPECT_EQ(printed(key("n"), 0), "");
    EXPECT_EQ(printed(key("n"), 4), spaces(8));
}

TEST_F(Print, ChildrenStandOneDeeper) {
    build("n(a m(b))");
    const size_t a = 2 + 3 * 4;
    const size_t m = 2;
    const size_t b = 4 + 3 * 6;
    EXPECT_EQ(printed(key("n"), 0), spaces(a + m + b));
}

TEST_F(Print, ANegativeWidthPrintsNoSpaces) {
    build("leaf n(a)");
    EXPECT_EQ(printed(key("leaf"), -1), "");
    EXPECT_EQ(printed(key("leaf"), -5), "");
    EXPECT_EQ(printed(key("n"), -1), spaces(6)) << "its leaf stands at depth 0";
}

TEST_F(Print, AnEnormousDepthPrintsNothingSinceItsWidthIsNegative) {
    build("leaf n(a)");
    EXPECT_EQ(printed(key("leaf"), INT_MAX / 2 + 1), "");
    EXPECT_EQ(printed(key("n"), INT_MAX / 2 + 1), "");
}

TEST_F(Print, TheLargestDepthDoesNotOverflow) {
    build("leaf n(a)");
    EXPECT_EQ(printed(key("leaf"), INT_MAX), "");
    EXPECT_LE(printed(key("n"), INT_MAX).size(), 6U);
}

TEST_F(Print, ReadsHeaderAndRecordInChainOrder) {
    build("n(a b)");
    EXPECT_EQ(printed(key("n"), 0).size(), 2U * (2 + 3 * 4));
    const auto read = [this](uint32_t size, const std::string &what) {
        return "component read " + std::to_string(size) + '@' + std::to_string(key(what));
    };
    EXPECT_THAT(transfers(), ElementsAre(read(24, "n"), read(28, "n"), read(24, "a"), read(40, "a"), read(24, "a"),
                                         read(24, "b"), read(40, "b"), read(24, "b")));
}

TEST_F(Print, AnUnreadableRecordPrintsNothing) {
    EXPECT_EQ(printed(kBeyond, 2), "");
    EXPECT_TRUE(recorded(55, 0));
}

TEST_F(Print, AnUnknownKindIsCode3AndPrintsNothing) {
    build("n(x a)");
    spoilKind("x");
    EXPECT_EQ(printed(key("n"), 0), spaces(2 + 3 * 4)) << "the sibling is printed all the same";
    EXPECT_TRUE(recorded(3, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_traverseAndPrint", 440, {key("x"), 7})));
}

TEST_F(Print, ANodeBelowItselfEndsWithOneLine) {
    build("n(m())");
    setWord("m", offsetof(tavDBMNode, firstChild), key("n"));
    EXPECT_LT(printed(key("n"), 0).size(), 100U);
    ASSERT_EQ(fakeTrace().errors().size(), 1U);
    EXPECT_THAT(fakeTrace().errors()[0], StartsWith("comp_traverseAndPrint():[Error]:[430]"));
}

TEST_F(Print, ACircleOfSiblingsEndsWithOneLine) {
    build("n(a b)");
    setWord("b", offsetof(tavDBMComponent, next), key("a"));
    const std::string text = printed(key("n"), 0);
    EXPECT_GE(text.size(), 2U * (2 + 3 * 4)) << "each leaf at least once";
    ASSERT_EQ(fakeTrace().errors().size(), 1U);
    EXPECT_THAT(fakeTrace().errors()[0], StartsWith("comp_traverseAndPrint():[Error]:[441]"));
    EXPECT_LT(accesses(), 100U);
}

TEST_F(Print, TwoNodesBelowEachOtherEnd) {
    putTwoNodesBelowEachOther();
    EXPECT_EQ(printed(key("m"), 0), spaces(2)) << "n stands once below m";
    EXPECT_EQ(fakeTrace().errors().size(), 3U);
    EXPECT_LT(accesses(), 100U);
}

TEST_F(Print, AValueIsPrintedAsNothing) {
    const uint32_t valueKey = putValue({1, 2, 3});
    EXPECT_EQ(printed([&] { value_print(&session, valueKey); }), "");
    EXPECT_EQ(accesses(), 0U);
}

}  // namespace
}  // namespace tavdb_test
