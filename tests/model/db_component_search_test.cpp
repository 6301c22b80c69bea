// SPDX-License-Identifier: Apache-2.0
// The search below one component: names are matched as prefixes of the path,
// separators and all, and the first child that matched but led nowhere ends the
// search. Absolute and relative paths are the application interface's.
#include <errno.h>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

class Search : public TreeFixture {
protected:
    uint32_t search(const std::string &from, const std::string &path) {
        return comp_searchByName(&session, key(from), path.c_str());
    }
    uint32_t search(const std::string &path) {
        return search("root", path);
    }
    /// Fails when the search finds something; else the error it left.
    uint32_t errorOf(const std::string &path) {
        EXPECT_EQ(search(path), 0U) << path;
        return session.errorCode;
    }
    void nameRoot(const std::string &text) {
        nameIt(root, text);
    }
};

TEST_F(Search, FindsTheStartItselfWhenThePathEndsWithItsName) {
    nameRoot("device");
    EXPECT_EQ(search("device"), root);
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(Search, AWrongStartIsCode100WithItsKey) {
    nameRoot("device");
    EXPECT_EQ(search("other/x"), 0U);
    EXPECT_TRUE(recorded(100, root));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_searchByName", 502, {root})));
}

TEST_F(Search, APathIsTheConcatenationOfTheNames) {
    nameRoot("/");
    buildNamed("network/(lan/(mtu ip))");
    EXPECT_EQ(search("/network/lan/ip"), key("ip"));
    EXPECT_EQ(search("/network/lan/"), key("lan/"));
    EXPECT_EQ(search("/network/"), key("network/"));
    EXPECT_EQ(search("/"), root);
}

TEST_F(Search, NamesMayCarryTheirSeparatorInFront) {
    nameRoot("");
    buildNamed("/a(/x) /b()");
    EXPECT_EQ(search("/a/x"), key("/x"));
    EXPECT_EQ(search("/b"), key("/b"));
    EXPECT_EQ(search(""), root);
}

TEST_F(Search, ANodeWithoutChildrenDeliberatelyMatchesWhateverFollowsASlash) {
    nameRoot("");
    buildNamed("/a() /b()");
    EXPECT_EQ(search("/a/"), key("/a"));
    EXPECT_EQ(search("/a/zzz"), key("/a"));
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(Search, ANodeWithoutChildrenAndAnotherCharacterIsCode5WithItsKey) {
    nameRoot("");
    buildNamed("/a()");
    EXPECT_EQ(search("/abc"), 0U);
    EXPECT_TRUE(recorded(5, key("/a")));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_searchByName", 501, {key("/a")})));
}

TEST_F(Search, ANodeWhoseChildrenDoNotMatchIsCode5WithItsKey) {
    nameRoot("/");
    buildNamed("a/(x y)");
    EXPECT_EQ(search("/a/z"), 0U);
    EXPECT_TRUE(recorded(5, key("a/")));
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("comp_searchByName", 502, {key("x")}),
                                       errorLine("comp_searchByName", 502, {key("y")}),
                                       errorLine("comp_searchByName", 501, {key("a/")})}));
}

TEST_F(Search, AMismatchedSiblingIsPassedBy) {
    nameRoot("/");
    buildNamed("a b c/(d)");
    EXPECT_EQ(search("/c/d"), key("d"));
    EXPECT_TRUE(recorded(100, key("b"))) << "what the last mismatch recorded stays";
}

TEST_F(Search, DeliberatelyGivesUpAtTheFirstChildThatMatchedButLeadsNowhere) {
    nameRoot("/");
    buildNamed("lan(x) lan2/(y)");
    EXPECT_EQ(search("/lan2/y"), 0U);
    EXPECT_TRUE(recorded(5, key("lan")));
}

TEST_F(Search, ASiblingWhoseNameIsAPrefixOfAnothersDoesNotHideItWhenItStandsBehind) {
    nameRoot("/");
    buildNamed("lan2/(y) lan(x)");
    EXPECT_EQ(search("/lan2/y"), key("y"));
    EXPECT_EQ(search("/lanx"), key("x")) << "separators are part of the names";
}

TEST_F(Search, ALeafWithTextLeftOverIsDeliberatelyNoError) {
    nameRoot("leaf");
    fakeMedia().setWordAt(kComponents, root + offsetof(tavDBMComponent, kind), TAVDB_KIND_LEAF);
    putOldError();
    EXPECT_EQ(search("leaf/more"), 0U);
    EXPECT_EQ(search("leafmore"), 0U);
    EXPECT_TRUE(oldErrorIsThere());
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(Search, ALeafWithTextLeftOverLetsItsSiblingsTry) {
    nameRoot("/");
    buildNamed("ip ip6");
    EXPECT_EQ(search("/ip6"), key("ip6"));
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(Search, AnOldCode5EndsTheSearchAtALeafWithTextLeftOver) {
    nameRoot("/");
    buildNamed("ip ip6");
    session.errorCode = 5;
    session.errorDetail = 4711;
    EXPECT_EQ(search("/ip6"), 0U);
    EXPECT_TRUE(recorded(5, 4711));
}

TEST_F(Search, AnOldCode5IsOverwrittenByTheFirstMismatch) {
    nameRoot("/");
    buildNamed("a b");
    session.errorCode = 5;
    EXPECT_EQ(search("/b"), key("b"));
    EXPECT_TRUE(recorded(100, key("a")));
}

TEST_F(Search, AnOldCode5StaysWithItsDetailWhenANodeHasNoChildren) {
    nameRoot("a");
    session.errorCode = 5;
    session.errorDetail = 4711;
    EXPECT_EQ(search("abc"), 0U);
    EXPECT_TRUE(recorded(5, 4711));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(Search, EmptyNamesMatchEverythingAndAreLookedThrough) {
    nameRoot("");
    buildNamed("(x)");
    EXPECT_EQ(search("x"), key("x"));
    EXPECT_EQ(search(""), root);
    EXPECT_EQ(errorOf("y"), 5U);
}

TEST_F(Search, AnEmptyPathFindsOnlyANamelessStart) {
    nameRoot("a");
    EXPECT_EQ(search(""), 0U);
    EXPECT_TRUE(recorded(100, root));
}

TEST_F(Search, ANameOf255CharactersIsReadWhole) {
    const std::string name(255, 'n');
    nameRoot(name);
    EXPECT_EQ(search(name), root);
    EXPECT_EQ(errorOf(name.substr(1)), 100U);
}

TEST_F(Search, ANameOf256CharactersIsReadWithoutItsNul) {
    const std::string name(256, 'n');
    nameRoot(name);
    EXPECT_EQ(search(name), root);
    EXPECT_EQ(errorOf(name.substr(1)), 100U);
}

TEST_F(Search, OfALongerNameTheFirst256CharactersCount) {
    const std::string name(300, 'n');
    nameRoot(name);
    EXPECT_EQ(search(name.substr(0, 256)), root);
    EXPECT_EQ(errorOf(name), 5U) << "the rest of the path is not found below";
}

TEST_F(Search, ReadsHeaderNameAndNodeOfEachComponentOnce) {
    nameRoot("/");
    buildNamed("a b/()");
    const auto nameAt = [this](const std::string &what) { return node(key(what)).component.name; };
    ASSERT_EQ(search("/b/"), key("b/"));
    const auto text = [](const std::string &what, uint32_t size, uint32_t at) {
        return what + ' ' + std::to_string(size) + '@' + std::to_string(at);
    };
    EXPECT_THAT(transfers(), ElementsAre(text("component read", 24, root), text("string read", 16, nameAt("root")),
                                         "text read 2@0", text("component read", 28, root),  // "/"
                                         text("component read", 24, key("a")), text("string read", 16, nameAt("a")),
                                         "text read 2@2", text("component read", 24, key("a")),  // "a", next
                                         text("component read", 24, key("b/")), text("string read", 16, nameAt("b/")),
                                         "text read 3@4"));
}

TEST_F(Search, AnUnreadableStartIsTraced) {
    EXPECT_EQ(comp_searchByName(&session, kBeyond, "x"), 0U);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_TRUE(fakeTrace().errorsAre(
        {errorLine("comp_getComponent", 104, {kBeyond, 24, 0, 0}), errorLine("comp_searchByName", 500, {kBeyond})}));
}

TEST_F(Search, ANameThatCannotBeReadEndsTheMatchWithItsError) {
    nameRoot("a");
    faultPlan().add({.operation = Operation::mediaRead, .subject = kTexts});
    EXPECT_EQ(search("a"), 0U);
    EXPECT_TRUE(recorded(24, EIO));
}

TEST_F(Search, AChildWhoseNameCannotBeReadIsPassedBy) {
    nameRoot("/");
    buildNamed("a b");
    faultPlan().add({.operation = Operation::mediaRead, .subject = kTexts, .skip = 1});
    EXPECT_EQ(search("/b"), key("b"));
}

TEST_F(Search, ANodeThatCannotBeReadIsTheResultOnlyBeforeASlash) {
    nameRoot("a");
    faultPlan().add({.operation = Operation::mediaRead, .subject = kComponents, .skip = 1});
    EXPECT_EQ(search("a/b"), root);
    EXPECT_TRUE(recorded(55, EIO));
    faultPlan().add({.operation = Operation::mediaRead, .subject = kComponents, .skip = 1});
    EXPECT_EQ(search("abc"), 0U);
}

TEST_F(Search, WithoutAPathNothingIsRead) {
    EXPECT_EQ(comp_searchByName(&session, root, nullptr), 0U);
    EXPECT_TRUE(recorded(89, 0));
    EXPECT_EQ(accesses(), 0U);
}

TEST_F(Search, ACircleOfSiblingsEndsWithCode5AndOneLineOfItsOwn) {
    nameRoot("/");
    buildNamed("a b");
    fakeMedia().setWordAt(kComponents, key("b") + offsetof(tavDBMComponent, next), key("a"));
    EXPECT_EQ(search("/x"), 0U);
    EXPECT_TRUE(recorded(5, root));
    EXPECT_THAT(fakeTrace().errors(), testing::Contains(StartsWith("comp_searchByName():[Error]:[503]")).Times(1));
    EXPECT_LT(accesses(), 100U);
}

TEST_F(Search, ANamelessNodeBelowItselfEnds) {
    nameRoot("");
    fakeMedia().setWordAt(kComponents, root + offsetof(tavDBMNode, firstChild), root);
    EXPECT_EQ(search("x"), 0U);
    EXPECT_TRUE(recorded(5, root));
    ASSERT_EQ(fakeTrace().errors().size(), 2U);
    EXPECT_THAT(fakeTrace().errors()[0], testing::StartsWith("comp_searchByName():[Error]:[505]"));
    EXPECT_EQ(fakeTrace().errors()[1], errorLine("comp_searchByName", 501, {root}));
    EXPECT_LT(accesses(), 100U);
}

TEST_F(Search, ADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(search("x"), 0U);
    EXPECT_TRUE(recorded(83, 0));
    session.dbId = 1;
}

TEST_F(Search, WhateverFailsChangesNothingAndFindsTheRightOneOrNone) {
    nameRoot("/");
    buildNamed("a b/(c d)");
    const MediaImage before = fakeMedia().snapshotAll();
    forEachFault([&] {
        const uint32_t found = search("/b/d");
        const bool cutShort = found == key("b/");  // its node could not be read, and the path goes on with '/'
        EXPECT_TRUE(found == key("d") || (found == 0 && session.errorCode != 0) || cutShort) << found;
        EXPECT_TRUE(faultPlan().fired() || found == key("d"));
        EXPECT_THAT(fakeMedia().changesSince(before), testing::IsEmpty());
    });
}

}  // namespace
}  // namespace tavdb_test
