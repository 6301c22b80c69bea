// SPDX-License-Identifier: Apache-2.0
// The search by name of the application interface: absolute paths from the
// root, relative ones among the children of the current component, and the
// error that each kind of failure leaves. Matching itself is the model's. The
// numbers in trace lines are fixed for good.
#include <errno.h>

#include <algorithm>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::IsEmpty;

constexpr const char *kFunction = "tavDBMSearchByName";

/// A tree whose nodes carry a "/" behind their names, the root's being "/".
class SearchByName : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        nameIt(root, "/");
    }
    uint32_t search(const std::string &name) {
        return tavDBMSearchByName(&session, name.c_str());
    }
    void standAt(const std::string &text) {
        session.currentComponent = key(text);
    }
    int64_t linesAt(int32_t site) const {
        const std::string start = std::string(kFunction) + "():[Error]:[" + std::to_string(site) + ']';
        const auto errors = fakeTrace().errors();
        return std::count_if(errors.begin(), errors.end(), [&](const auto &line) { return line.starts_with(start); });
    }
};

TEST_F(SearchByName, WithoutASessionOrANameIsCode89AtLine229) {
    EXPECT_EQ(tavDBMSearchByName(nullptr, "/"), 0U);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine(kFunction, 229)));
    clearTraces();
    EXPECT_EQ(tavDBMSearchByName(&session, nullptr), 0U);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine(kFunction, 229)));
    EXPECT_TRUE(recorded(89, 0));
    EXPECT_EQ(accesses(), 0U);
}

TEST_F(SearchByName, AnAbsolutePathStartsAtTheRootWhateverIsCurrent) {
    buildNamed("network/(lan/(mtu ip))");
    standAt("lan/");
    EXPECT_EQ(search("/network/lan/mtu"), key("mtu"));
    EXPECT_EQ(search("/network/"), key("network/"));
    EXPECT_EQ(search("/"), root);
    EXPECT_EQ(transfers().front(), "component read 16@0");
}

TEST_F(SearchByName, AnAbsolutePathWhoseLastNameIsWrongDeliberatelyEndsWithCode100) {
    buildNamed("network/(lan/(mtu ip))");
    EXPECT_EQ(search("/network/lan/dns"), 0U);
    EXPECT_TRUE(recorded(100, key("lan/"))) << "the detail stays that of the 5 before";
    EXPECT_EQ(fakeTrace().errors().back(), errorTextLine(kFunction, 170, "/network/lan/dns"));
    EXPECT_EQ(linesAt(170), 1);
}

TEST_F(SearchByName, AnAbsolutePathWhoseFirstNameIsWrongEndsWithCode100) {
    buildNamed("network/(x)");
    EXPECT_EQ(search("/system/x"), 0U);
    EXPECT_TRUE(recorded(100, root));
    EXPECT_EQ(linesAt(170), 1);
}

TEST_F(SearchByName, AnyOtherErrorOfAnAbsoluteSearchIsLeftAsItIs) {
    faultPlan().add({.operation = Operation::mediaRead, .subject = kStrings});
    EXPECT_EQ(search("/x"), 0U);
    EXPECT_TRUE(recorded(40, EIO));
    EXPECT_EQ(linesAt(170), 0);
}

TEST_F(SearchByName, ARootThatDoesNotMatchIsLeftAsCode100WithoutLine170) {
    nameIt(root, "device");
    EXPECT_EQ(search("/x"), 0U);
    EXPECT_TRUE(recorded(100, root));
    EXPECT_EQ(linesAt(170), 0);
}

TEST_F(SearchByName, AnOldCode5DeliberatelyBecomes100AtALeafWithTextLeftOver) {
    buildNamed("ip");
    session.errorCode = 5;
    session.errorDetail = 4711;
    EXPECT_EQ(search("/ipx"), 0U);
    EXPECT_TRUE(recorded(100, 4711));
    EXPECT_EQ(linesAt(170), 1);
}

TEST_F(SearchByName, ARelativePathStartsAmongTheChildrenOfTheCurrentComponent) {
    buildNamed("network/(lan/(mtu ip)) mtu");
    standAt("network/");
    EXPECT_EQ(search("lan/ip"), key("ip"));
    EXPECT_EQ(search("lan/"), key("lan/"));
    EXPECT_EQ(transfers().front(), "component read 28@" + std::to_string(key("network/")));
}

TEST_F(SearchByName, ARelativeSearchPassesByChildrenThatDoNotMatch) {
    buildNamed("a b c/(d)");
    EXPECT_EQ(search("c/d"), key("d"));
    EXPECT_EQ(search("b"), key("b"));
}

TEST_F(SearchByName, ARelativeSearchDeliberatelyStopsAtTheFirstChildThatMatchedAPrefix) {
    buildNamed("lan(x) lan2/(y)");
    EXPECT_EQ(search("lan2/y"), 0U);
    EXPECT_TRUE(recorded(5, key("lan")));
    EXPECT_EQ(linesAt(217), 0);
}

TEST_F(SearchByName, ARelativePathThatNoChildMatchesIsCode5AtLine217) {
    buildNamed("a b");
    EXPECT_EQ(search("c"), 0U);
    EXPECT_TRUE(recorded(5, 0));
    EXPECT_EQ(fakeTrace().errors().back(), errorTextLine(kFunction, 217, "c"));
}

TEST_F(SearchByName, ARelativePathBelowANodeWithoutChildrenIsCode5AtLine217) {
    EXPECT_EQ(search("c"), 0U);
    EXPECT_TRUE(recorded(5, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorTextLine(kFunction, 217, "c")));
}

TEST_F(SearchByName, AnOldCode5StaysWithItsDetailWhenThereAreNoChildren) {
    session.errorCode = 5;
    session.errorDetail = 4711;
    EXPECT_EQ(search("c"), 0U);
    EXPECT_TRUE(recorded(5, 4711));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(SearchByName, AnOldCode5DoesNotHideAChildThatMatches) {
    buildNamed("a b");
    session.errorCode = 5;
    EXPECT_EQ(search("b"), key("b"));
}

TEST_F(SearchByName, AnOldCode5StopsARelativeSearchAtALeafWithTextLeftOver) {
    buildNamed("ip ip6");
    EXPECT_EQ(search("ip6"), key("ip6"));
    session.errorCode = 5;
    session.errorDetail = 4711;
    EXPECT_EQ(search("ip6"), 0U);
    EXPECT_TRUE(recorded(5, 4711));
}

TEST_F(SearchByName, ACurrentComponentThatCannotBeReadLeavesItsError) {
    session.currentComponent = 0;
    EXPECT_EQ(search("c"), 0U);
    EXPECT_TRUE(recorded(4, 0));
    session.currentComponent = kBeyond;
    EXPECT_EQ(search("c"), 0U);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_EQ(linesAt(217), 0);
}

TEST_F(SearchByName, ALeafAsCurrentComponentDeliberatelyTakesItsCurrentValueForAChild) {
    buildNamed("a");
    putLeaf("odd", root, {.currentValue = key("a")});
    standAt("odd");
    EXPECT_EQ(search("a"), key("a"));
}

TEST_F(SearchByName, AnEmptyNameFindsNoChildWithAName) {
    buildNamed("a b");
    EXPECT_EQ(search(""), 0U);
    EXPECT_TRUE(recorded(5, 0));
    EXPECT_EQ(fakeTrace().errors().back(), errorTextLine(kFunction, 217, ""));
}

TEST_F(SearchByName, ALongNameIsComparedWhole) {
    const std::string name(255, 'n');
    buildNamed(name + "/()");  // 256 characters with its separator
    EXPECT_EQ(search(name + '/'), key(name + '/'));
    EXPECT_EQ(search('/' + name + '/'), key(name + '/'));
    EXPECT_EQ(search(name.substr(1) + '/'), 0U);
}

TEST_F(SearchByName, ASuccessLeavesTheErrorOfTheLastMismatch) {
    buildNamed("a b");
    EXPECT_EQ(search("b"), key("b"));
    EXPECT_TRUE(recorded(100, key("a")));
}

TEST_F(SearchByName, ACircleOfSiblingsEndsWithCode5) {
    buildNamed("a b");
    fakeMedia().setWordAt(kComponents, key("b") + offsetof(tavDBMComponent, next), key("a"));
    EXPECT_EQ(search("c"), 0U);
    EXPECT_TRUE(recorded(5, 0));
    EXPECT_EQ(linesAt(211), 1) << "one line for the circle";
    EXPECT_LT(accesses(), 100U);
}

TEST_F(SearchByName, ANodeBelowItselfEnds) {
    buildNamed("n/()");
    nameIt(key("n/"), "");
    fakeMedia().setWordAt(kComponents, key("n/") + offsetof(tavDBMNode, firstChild), key("n/"));
    EXPECT_EQ(search("/x"), 0U);
    EXPECT_EQ(session.errorCode, 100U);
    EXPECT_EQ(search("x"), 0U);
    EXPECT_EQ(session.errorCode, 5U);
    EXPECT_LT(accesses(), 200U);
}

TEST_F(SearchByName, OfADatabaseThatIsNotOpenIsCode83ForARelativePath) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(search("x"), 0U);
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_EQ(search("/x"), 0U);
    EXPECT_TRUE(recorded(83, 0));
    session.dbId = 1;
}

TEST_F(SearchByName, NeverChangesAMedium) {
    buildNamed("a b/(c)");
    const MediaImage before = fakeMedia().snapshotAll();
    for (const char *const name : {"/", "/a", "/b/c", "/b/x", "a", "b/c", "x", "", "//", "b//c"})
        search(name);
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
}

}  // namespace
}  // namespace tavdb_test
