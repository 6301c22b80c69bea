// SPDX-License-Identifier: Apache-2.0
// The words of a component record one by one: names, links and children, and a
// leaf's value keys; what getters answer for the wrong kind and what setters
// write. Walks over chains that run in a circle are here as well.
#include <errno.h>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kWord = 0x13579BDF;

/// A word of the header with its getter and setter.
struct HeaderWord : Named {
    uint32_t offset;
    uint32_t (*get)(tavDBMSession *, uint32_t);
    int32_t (*set)(tavDBMSession *, uint32_t, uint32_t);
};

constexpr HeaderWord kHeaderWords[] = {{"StringKey", 4, comp_getStringKey, comp_setStringKey},
                                       {"Parent", 12, comp_getParent, comp_setParent},
                                       {"NextSibling", 16, comp_getNextSibling, comp_setNextSibling}};

class HeaderWordTest : public TreeFixture, public testing::WithParamInterface<HeaderWord> {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        at = putLeaf("leaf", root, {.currentValue = 1, .defaultValue = 2, .factoryValue = 3, .hookId = 4});
        fakeMedia().setWordAt(kComponents, at + 8, 0xABCDEF01);  // the reserved word
        putOldError();
    }
    uint32_t get(uint32_t componentKey) {
        return GetParam().get(&session, componentKey);
    }
    int32_t set(uint32_t componentKey) {
        return GetParam().set(&session, componentKey, kWord);
    }

    uint32_t at = 0;
};

INSTANTIATE_TEST_SUITE_P(All, HeaderWordTest, testing::ValuesIn(kHeaderWords), kRowName);

TEST_P(HeaderWordTest, IsReadWithTheHeader) {
    fakeMedia().setWordAt(kComponents, at + GetParam().offset, kWord);
    EXPECT_EQ(get(at), kWord);
    EXPECT_THAT(transfers(), ElementsAre("component read 24@" + std::to_string(at)));
    EXPECT_TRUE(oldErrorIsThere());
}

TEST_P(HeaderWordTest, OfAnUnreadableComponentIsZero) {
    EXPECT_EQ(get(kBeyond), 0U);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_getComponent", 104, {kBeyond, 24, 0, 0})));
}

TEST_P(HeaderWordTest, IsSetByRewritingTheHeaderAndNothingElse) {
    Bytes expected = fakeMedia().snapshot(kComponents);
    const Bytes word = bytesOf(kWord);
    std::copy(word.begin(), word.end(), expected.data() + at + GetParam().offset);
    EXPECT_EQ(set(at), 0);
    const std::string where = "24@" + std::to_string(at);
    EXPECT_THAT(transfers(), ElementsAre("component read " + where, "component write " + where));
    EXPECT_THAT(differences(expected, fakeMedia().snapshot(kComponents)), IsEmpty());
    EXPECT_TRUE(oldErrorIsThere());
}

TEST_P(HeaderWordTest, OfAnUnreadableComponentIsNotSetAndTheLastErrorReturned) {
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_EQ(set(kBeyond), 55);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
}

TEST_P(HeaderWordTest, ThatCannotBeWrittenGivesTheResultOfTheWrite) {
    const MediaImage before = fakeMedia().snapshotAll();
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents});
    EXPECT_EQ(set(at), 54);
    EXPECT_TRUE(recorded(54, EIO));
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
}

TEST_P(HeaderWordTest, OfADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(get(at), 0U);
    EXPECT_EQ(set(at), 83);
    EXPECT_TRUE(recorded(83, 0));
    session.dbId = 1;
}

// A key of 0 is what a search gives that found nothing, and the medium's first word then stands where a
// record has its key. Nothing may be written there or over the medium's header.
TEST_P(HeaderWordTest, OfComponentZeroIsNotWrittenAnywhere) {
    for (const uint32_t firstWord : {0x1000U, 0U}) {
        fakeMedia().setWordAt(kComponents, 0, firstWord);
        const MediaImage before = fakeMedia().snapshotAll();
        EXPECT_EQ(set(0), 4);
        EXPECT_TRUE(recorded(4, 0));
        EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
    }
}

/// A value key of a leaf with its getter and setter.
struct ValueKey : Named {
    uint32_t offset;
    uint32_t (*get)(tavDBMSession *, uint32_t);
    int32_t (*set)(tavDBMSession *, uint32_t, uint32_t);
    const char *getter;
    const char *setter;
    int32_t site;  ///< of the getter; the setter's follows
};

constexpr ValueKey kValueKeys[] = {
    {"Current", 24, leaf_getCurrentValueKey, leaf_setCurrentValueKey, "leaf_getCurrentValueKey",
     "leaf_setCurrentValueKey", 220},
    {"Default", 28, leaf_getDefaultValueKey, leaf_setDefaultValueKey, "leaf_getDefaultValueKey",
     "leaf_setDefaultValueKey", 230},
    {"Factory", 32, leaf_getFactoryValueKey, leaf_setFactoryValueKey, "leaf_getFactoryValueKey",
     "leaf_setFactoryValueKey", 240},
};

class ValueKeyTest : public TreeFixture, public testing::WithParamInterface<ValueKey> {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        at = putLeaf("leaf", root, {.currentValue = 1, .defaultValue = 2, .factoryValue = 3, .hookId = 4});
        fakeMedia().setWordAt(kComponents, at + GetParam().offset, kWord);
    }

    uint32_t at = 0;
};

INSTANTIATE_TEST_SUITE_P(All, ValueKeyTest, testing::ValuesIn(kValueKeys), kRowName);

TEST_P(ValueKeyTest, IsReadWithTheLeaf) {
    putOldError();
    EXPECT_EQ(GetParam().get(&session, at), kWord);
    EXPECT_THAT(transfers(), ElementsAre("component read 40@" + std::to_string(at)));
    EXPECT_TRUE(oldErrorIsThere());
}

TEST_P(ValueKeyTest, IsSetByRewritingTheLeafAndNothingElse) {
    Bytes expected = fakeMedia().snapshot(kComponents);
    const Bytes word = bytesOf(uint32_t{77});
    std::copy(word.begin(), word.end(), expected.data() + at + GetParam().offset);
    EXPECT_EQ(GetParam().set(&session, at, 77), 0);
    const std::string where = "40@" + std::to_string(at);
    EXPECT_THAT(transfers(), ElementsAre("component read " + where, "component write " + where));
    EXPECT_THAT(differences(expected, fakeMedia().snapshot(kComponents)), IsEmpty());
}

TEST_P(ValueKeyTest, OfANodeIsCode1) {
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_EQ(GetParam().get(&session, root), 0U);
    EXPECT_TRUE(recorded(1, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine(GetParam().getter, GetParam().site, {root, 0})));
    clearTraces();
    EXPECT_EQ(GetParam().set(&session, root, 77), 1);
    EXPECT_TRUE(recorded(1, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine(GetParam().setter, GetParam().site + 1, {root, 0})));
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
}

TEST_P(ValueKeyTest, OfAComponentThatCannotBeReadIsZeroAndNotSet) {
    EXPECT_EQ(GetParam().get(&session, 0), 0U);
    EXPECT_TRUE(recorded(4, 0));
    EXPECT_EQ(GetParam().set(&session, kBeyond, 77), 55);
    EXPECT_TRUE(recorded(55, 0));
}

TEST_P(ValueKeyTest, ThatCannotBeWrittenGivesTheResultOfTheWrite) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents});
    EXPECT_EQ(GetParam().set(&session, at, 77), 54);
    EXPECT_TRUE(recorded(54, EIO));
}

class Children : public TreeFixture {
protected:
    /// Gives a component a kind that no component has.
    void spoilKind(uint32_t componentKey) {
        fakeMedia().setWordAt(kComponents, componentKey + offsetof(tavDBMComponent, kind), 7);
    }
    void setNext(const std::string &from, const std::string &to) {
        fakeMedia().setWordAt(kComponents, key(from) + offsetof(tavDBMComponent, next), key(to));
    }
    static std::string read(uint32_t size, uint32_t at) {
        return "component read " + std::to_string(size) + '@' + std::to_string(at);
    }
};

TEST_F(Children, TheFirstChildOfANodeTakesHeaderAndNode) {
    build("a b");
    EXPECT_EQ(comp_getFirstChild(&session, root), key("a"));
    EXPECT_THAT(transfers(), ElementsAre(read(24, root), read(28, root)));
}

TEST_F(Children, ALeafDeliberatelyHasNoFirstChildAndNoError) {
    putLeaf("leaf", root, {.currentValue = 99});
    putOldError();
    EXPECT_EQ(comp_getFirstChild(&session, key("leaf")), 0U);
    EXPECT_TRUE(oldErrorIsThere());
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(Children, AComponentOfNoKindHasNoFirstChildAndNoError) {
    build("n(a)");
    spoilKind(key("n"));
    putOldError();
    EXPECT_EQ(comp_getFirstChild(&session, key("n")), 0U);
    EXPECT_TRUE(oldErrorIsThere());
}

TEST_F(Children, TheFirstChildOfAnUnreadableComponentIsZero) {
    EXPECT_EQ(comp_getFirstChild(&session, kBeyond), 0U);
    EXPECT_TRUE(recorded(55, 0));
}

TEST_F(Children, SettingTheFirstChildOfANodeThatCannotBeReadBehindItsHeaderChangesNothing) {
    build("a b");
    const Bytes before = fakeMedia().snapshot(kComponents);
    faultPlan().add({.operation = Operation::mediaRead, .skip = 1});
    EXPECT_EQ(comp_setFirstChild(&session, root, key("b")), 55);
    EXPECT_EQ(session.errorCode, 55U);
    EXPECT_THAT(differences(before, fakeMedia().snapshot(kComponents)), IsEmpty());
}

TEST_F(Children, SettingTheFirstChildRewritesTheNodeOnly) {
    build("a b");
    Bytes expected = fakeMedia().snapshot(kComponents);
    const Bytes word = bytesOf(key("b"));
    std::copy(word.begin(), word.end(), expected.data() + root + 24);
    EXPECT_EQ(comp_setFirstChild(&session, root, key("b")), 0);
    EXPECT_THAT(transfers(), ElementsAre(read(24, root), read(28, root), "component write 28@" + std::to_string(root)));
    EXPECT_THAT(differences(expected, fakeMedia().snapshot(kComponents)), IsEmpty());
}

TEST_F(Children, SettingTheFirstChildOfALeafIsCode2) {
    build("leaf");
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_EQ(comp_setFirstChild(&session, key("leaf"), 5), 2);
    EXPECT_TRUE(recorded(2, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_setFirstChild", 180, {key("leaf"), TAVDB_KIND_LEAF})));
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
}

TEST_F(Children, SettingTheFirstChildReportsReadAndWriteFailures) {
    EXPECT_EQ(comp_setFirstChild(&session, kBeyond, 5), 55);
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents});
    EXPECT_EQ(comp_setFirstChild(&session, root, 5), 54);
    EXPECT_TRUE(recorded(54, EIO));
}

TEST_F(Children, AreCountedAlongTheirChain) {
    build("a b(x) c");
    EXPECT_EQ(comp_getChildCount(&session, root), 3U);
    EXPECT_THAT(transfers(), ElementsAre(read(24, root), read(28, root), read(24, key("a")), read(24, key("b")),
                                         read(24, key("c"))));
}

TEST_F(Children, OfAnEmptyNodeAreNone) {
    EXPECT_EQ(comp_getChildCount(&session, root), 0U);
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(Children, OfALeafCannotBeCountedUnlikeItsFirstChild) {
    build("leaf");
    EXPECT_EQ(comp_getChildCount(&session, key("leaf")), 0U);
    EXPECT_TRUE(recorded(2, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_getChildCount", 190, {key("leaf"), TAVDB_KIND_LEAF})));
}

TEST_F(Children, OfAComponentOfNoKindAreCode2) {
    build("n(a)");
    spoilKind(key("n"));
    EXPECT_EQ(comp_getChildCount(&session, key("n")), 0U);
    EXPECT_TRUE(recorded(2, 0));
    EXPECT_EQ(comp_getChildByIndex(&session, key("n"), 0), 0U);
    EXPECT_EQ(comp_setFirstChild(&session, key("n"), 5), 2);
}

TEST_F(Children, AreFoundByIndexWithIndexStepsAlongTheChain) {
    build("a b c");
    EXPECT_EQ(comp_getChildByIndex(&session, root, 0), key("a"));
    eventLog().clear();
    EXPECT_EQ(comp_getChildByIndex(&session, root, 2), key("c"));
    EXPECT_THAT(transfers(), ElementsAre(read(24, root), read(28, root), read(24, key("a")), read(24, key("b"))));
}

TEST_F(Children, AnIndexEqualToTheCountGivesZeroAndRecordsNothing) {
    build("a b");
    EXPECT_EQ(comp_getChildByIndex(&session, root, 2), 0U);
    EXPECT_EQ(comp_getChildByIndex(&session, root, 0xFFFFFFFF), 0U) << "the index is unsigned";
    EXPECT_TRUE(recorded(0, 0));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(Children, OfALeafHaveNoIndex) {
    build("leaf");
    EXPECT_EQ(comp_getChildByIndex(&session, key("leaf"), 0), 0U);
    EXPECT_TRUE(recorded(2, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_getChildByIndex", 200, {key("leaf"), TAVDB_KIND_LEAF})));
}

TEST_F(Children, OfAnUnreadableComponentAreNone) {
    EXPECT_EQ(comp_getChildCount(&session, kBeyond), 0U);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_EQ(comp_getChildByIndex(&session, kBeyond, 0), 0U);
}

TEST_F(Children, ACircleOfSiblingsEndsACountWithOneLine) {
    build("a b c");
    setNext("c", "a");
    const uint32_t count = comp_getChildCount(&session, root);
    EXPECT_GE(count, 3U);
    EXPECT_LE(count, 9U) << "the walk ends soon after it met a record again";
    ASSERT_EQ(fakeTrace().errors().size(), 1U);
    EXPECT_THAT(fakeTrace().errors()[0], testing::StartsWith("comp_getChildCount():[Error]:[191]"));
}

TEST_F(Children, ASiblingThatFollowsItselfEndsTheSearchForAnIndexWithOneLine) {
    build("a b");
    setNext("b", "b");
    EXPECT_EQ(comp_getChildByIndex(&session, root, 1000), 0U);
    ASSERT_EQ(fakeTrace().errors().size(), 1U);
    EXPECT_THAT(fakeTrace().errors()[0], testing::StartsWith("comp_getChildByIndex():[Error]:[201]"));
    EXPECT_LT(accesses(), 10U);
}

class Root : public TreeFixture {};

TEST_F(Root, IsTheWordInTheMediumsHeader) {
    fakeMedia().setWordAt(kComponents, 8, kWord);
    EXPECT_EQ(comp_getRoot(&session), kWord);
    EXPECT_THAT(transfers(), ElementsAre("component read 16@0"));
}

TEST_F(Root, OfADatabaseThatIsNotOpenIsDeliberatelyTracedButNotRecorded) {
    putOldError();
    session.dbId = kNotOpenDb;
    EXPECT_EQ(comp_getRoot(&session), 0U);
    EXPECT_TRUE(oldErrorIsThere());
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_getRoot", 210, {kNotOpenDb})));
    EXPECT_EQ(comp_getRoot(nullptr), 0U);
    session.dbId = 1;
}

}  // namespace
}  // namespace tavdb_test
