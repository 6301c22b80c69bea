// SPDX-License-Identifier: Apache-2.0
// The comparison of two file paths, by which databases are told apart.
#include <gmock/gmock.h>

#include <string>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr size_t kLongest = 4096;

class PathCompare : public ControlFixture {
protected:
    int32_t compare(const std::string &a, const std::string &b) {
        return misc_pathCompare(a.c_str(), b.c_str());
    }
};

TEST_F(PathCompare, EqualAbsolutePathsAreEqual) {
    EXPECT_EQ(compare("/var/x/db1", "/var/x/db1"), 0);
}

TEST_F(PathCompare, DifferentAbsolutePathsAreInTheOrderOfTheirBytes) {
    EXPECT_LT(compare("/var/a", "/var/b"), 0);
    EXPECT_GT(compare("/var/b", "/var/a"), 0);
    EXPECT_LT(compare("/var", "/var/a"), 0);
}

TEST_F(PathCompare, BytesAboveTheAsciiRangeAreTheGreaterOnes) {
    EXPECT_GT(compare("/\xFF", "/a"), 0);
}

TEST_F(PathCompare, AnAbsolutePathNeedsNoMemory) {
    compare("/var/a", "/var/b");
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

TEST_F(PathCompare, ARelativePathHasTheWorkingFolderInFront) {
    environment().set("PWD", "/var/x/");
    EXPECT_EQ(compare("db1", "/var/x/db1"), 0);
    EXPECT_EQ(compare("/var/x/db1", "db1"), 0);
}

TEST_F(PathCompare, DeliberatelyNoSlashIsPutBetweenFolderAndPath) {
    environment().set("PWD", "/var/x");
    EXPECT_EQ(compare("db1", "/var/xdb1"), 0);
    EXPECT_NE(compare("db1", "/var/x/db1"), 0);
}

TEST_F(PathCompare, TwoRelativePathsAreComparedBehindTheSameFolder) {
    environment().set("PWD", "/var/x");
    EXPECT_EQ(compare("db1", "db1"), 0);
    EXPECT_LT(compare("db1", "db2"), 0);
}

TEST_F(PathCompare, PathsAreComparedAsTextAndNotAsFiles) {
    environment().set("PWD", "/var/x/");
    EXPECT_NE(compare("./db1", "/var/x/db1"), 0);
    EXPECT_NE(compare("/var//x", "/var/x"), 0);
}

TEST_F(PathCompare, AnEmptyPathIsRelative) {
    environment().set("PWD", "/var/x");
    EXPECT_EQ(compare("", "/var/x"), 0);
}

TEST_F(PathCompare, WithoutAWorkingFolderNothingStandsInFront) {
    environment().unset("PWD");
    EXPECT_EQ(compare("db1", "db1"), 0);
    EXPECT_GT(compare("db1", "/db1"), 0);
}

TEST_F(PathCompare, EachRelativePathTakesABufferAndGivesItBack) {
    environment().set("PWD", "/var/x");
    compare("a", "b");
    EXPECT_THAT(eventLog().lines(), ElementsAre("alloc 4097", "alloc 4097", "free 4097", "free 4097"));
}

TEST_F(PathCompare, ACombinationOf4096CharactersIsComparedWhole) {
    environment().set("PWD", "/" + std::string(1000, 'p'));
    const std::string rest(kLongest - 1001, 'r');
    const std::string whole = "/" + std::string(1000, 'p') + rest;
    ASSERT_EQ(whole.size(), kLongest);
    EXPECT_EQ(compare(rest, whole), 0);
}

TEST_F(PathCompare, ALongerCombinationIsComparedOnItsFirst4096Characters) {
    environment().set("PWD", "/" + std::string(1000, 'p'));
    const std::string rest(kLongest - 1001, 'r');
    EXPECT_EQ(compare(rest + "a", rest + "b"), 0);
    EXPECT_EQ(compare(rest + "and much more", "/" + std::string(1000, 'p') + rest), 0);
}

TEST_F(PathCompare, TheLastCharacterThatFitsStillCounts) {
    environment().set("PWD", "/" + std::string(1000, 'p'));
    const std::string rest(kLongest - 1002, 'r');
    EXPECT_LT(compare(rest + "a", rest + "b"), 0);
}

TEST_F(PathCompare, AWorkingFolderOf4096CharactersLeavesNoRoom) {
    const std::string longest = "/" + std::string(kLongest - 1, 'p');
    environment().set("PWD", longest);
    EXPECT_EQ(compare("a", "b"), 0);
    EXPECT_EQ(compare("a", longest), 0);
}

TEST_F(PathCompare, ALongerWorkingFolderIsCutThere) {
    const std::string longest = "/" + std::string(kLongest - 1, 'p');
    environment().set("PWD", longest + std::string(5000, 'q'));
    EXPECT_EQ(compare("a", longest), 0);
}

TEST_F(PathCompare, WithoutMemoryThePathsAreComparedAsGiven) {
    environment().set("PWD", "/var/x");
    faultPlan().add({.operation = Operation::alloc, .times = 2});
    EXPECT_EQ(compare("db1", "db1"), 0);
    faultPlan().add({.operation = Operation::alloc});
    EXPECT_GT(compare("db1", "/var/xdb1"), 0);
}

}  // namespace
}  // namespace tavdb_test
