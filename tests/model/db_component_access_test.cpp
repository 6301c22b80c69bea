// SPDX-License-Identifier: Apache-2.0
// The small rest of the component module: its lock wrappers, the read function
// on a plain descriptor, the name of the component medium, and its dump.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <climits>

#include "fakes/fake_semaphores.h"
#include "model/module_dump.h"
#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ComponentLock : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        ASSERT_EQ(tavDBMInitSession(&other, session.dbId), 0);
        clearTraces();
    }
    void TearDown() override {
        EXPECT_EQ(tavDBMTermSession(&other), 0);
        TreeFixture::TearDown();
    }
    static std::vector<std::string> steps() {
        return eventLog().lines(Category::semaphores);
    }

    tavDBMSession other{};
};

TEST_F(ComponentLock, AModeWhoseLowBitsAreOneTriesOnceAndDoesNotWait) {
    ASSERT_EQ(comp_lock(&other, 50, TAVDB_LOCK_TRY), 0);
    EXPECT_EQ(comp_lock(&session, 50, TAVDB_LOCK_TRY), 75);
    EXPECT_EQ(eventLog().count(Operation::eventWait), 0U);
    EXPECT_EQ(comp_unlock(&other, 50), 0);
}

TEST_F(ComponentLock, AModeWhoseLowBitsAreZeroWaitsForTheUnlock) {
    ASSERT_EQ(comp_lock(&other, 50, TAVDB_LOCK_WAIT), 0);
    fakeSemaphores().onEventWait([this](const std::string &) { comp_unlock(&other, 50); });
    EXPECT_EQ(comp_lock(&session, 50, TAVDB_LOCK_WAIT), 0);
    EXPECT_EQ(eventLog().count(Operation::eventWait), 1U);
    EXPECT_EQ(comp_unlock(&session, 50), 0);
}

TEST_F(ComponentLock, TheHigherBitsOfTheModeReachTheLockTable) {
    EXPECT_EQ(comp_lock(&session, 50, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED), 0);
    EXPECT_EQ(comp_lock(&other, 50, TAVDB_LOCK_WAIT | TAVDB_LOCK_SHARED), 0) << "two shared locks go together";
    EXPECT_EQ(comp_unlock(&session, 50), 0);
    EXPECT_EQ(comp_unlock(&session, 50), 0);
}

TEST_F(ComponentLock, AnyOtherLowBitsAreCode77WithoutTouchingTheTable) {
    for (const int32_t mode : {2, 0x10, 0x80, 0xFF, 0x102, INT_MIN | 0x7F}) {
        clearTraces();
        EXPECT_EQ(comp_lock(&session, 50, mode), 77);
        EXPECT_TRUE(recorded(77, 0));
        EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_lock", 250, {50, static_cast<uint32_t>(mode)})));
        EXPECT_THAT(steps(), IsEmpty());
    }
}

TEST_F(ComponentLock, UnlockGivesTheTablesResult) {
    EXPECT_EQ(comp_unlock(&session, 50), 76);
    EXPECT_EQ(comp_lock(&session, 50, TAVDB_LOCK_TRY), 0);
    clearTraces();
    EXPECT_EQ(comp_unlock(&session, 50), 0);
    EXPECT_THAT(steps(), ElementsAre("mutexRequest lock.tbl", "mutexAbandoned lock.tbl", "eventPost lock.tbl",
                                     "mutexRelease lock.tbl"));
}

TEST_F(ComponentLock, TheApplicationsFunctionsAreTheSame) {
    EXPECT_EQ(tavDBMLock(&session, 50, 2), 77);
    EXPECT_EQ(tavDBMLock(&session, 50, TAVDB_LOCK_TRY), 0);
    EXPECT_EQ(tavDBMLock(&other, 50, TAVDB_LOCK_TRY), 75);
    EXPECT_EQ(tavDBMUnlock(&session, 50), 0);
    EXPECT_EQ(tavDBMUnlock(&session, 50), 76);
}

TEST(IsCompMedia, ComparesEightCharactersAndDeliberatelyNotTheNinth) {
    EXPECT_EQ(IsCompMedia("compMedia"), 1);
    EXPECT_EQ(IsCompMedia("compMedi"), 1);
    EXPECT_EQ(IsCompMedia("compMedium"), 1);
    EXPECT_EQ(IsCompMedia("compMedi/anything"), 1);
}

TEST(IsCompMedia, RefusesEverythingElse) {
    for (const char *const name : {"", "compMed", "CompMedia", "xcompMedia", "component"})
        EXPECT_EQ(IsCompMedia(name), 0) << name;
    EXPECT_EQ(IsCompMedia(nullptr), 0);
}

class CompFileRead : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        fd = open(file("plain").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, "0123456789", 10), 10);
    }
    void TearDown() override {
        close(fd);
        TreeFixture::TearDown();
    }
    int32_t read(int32_t from, int32_t length, uint32_t offset) {
        return compFileRead(from, buffer, length, offset, &error);
    }

    int fd = -1;
    char buffer[16] = "...............";
    uint32_t error = 77;
};

TEST_F(CompFileRead, ReadsAtThePositionAndClearsTheErrorWord) {
    EXPECT_EQ(read(fd, 4, 3), 4);
    EXPECT_STREQ(buffer, "3456...........");
    EXPECT_EQ(error, 0U);
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(CompFileRead, GivesAShortCountAtTheEnd) {
    EXPECT_EQ(read(fd, 8, 6), 4);
    EXPECT_EQ(read(fd, 8, 100), 0);
    EXPECT_EQ(error, 0U);
}

TEST_F(CompFileRead, ALengthOfZeroReadsNothingAndIsNoFailure) {
    EXPECT_EQ(read(fd, 0, 3), 0);
    EXPECT_EQ(error, 0U);
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(CompFileRead, AFailureIsMinusOneInResultAndErrorWord) {
    EXPECT_EQ(read(-3, 4, 3), -1);
    EXPECT_EQ(error, kMinusOne);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("compFileRead", 270, {static_cast<uint32_t>(-3), 4, 3, 0})));
}

TEST_F(CompFileRead, ANegativeLengthReadsNothing) {
    EXPECT_EQ(read(fd, -1, 0), -1);
    EXPECT_EQ(error, kMinusOne);
    EXPECT_STREQ(buffer, "...............");
}

TEST_F(CompFileRead, ToleratesAMissingErrorWord) {
    EXPECT_EQ(compFileRead(fd, buffer, 2, 0, nullptr), 2);
    EXPECT_EQ(compFileRead(-1, buffer, 2, 0, nullptr), -1);
}

TEST_F(CompFileRead, AnOffsetBeyondTwoGigabytesIsNotNegative) {
    EXPECT_EQ(read(fd, 4, 0xFFFFFFF0), 0);
    EXPECT_EQ(error, 0U);
}

class ComponentDump : public TreeFixture {};

constexpr const char *kComponentFunctions[] = {"dbs_me_db_component_debug_info",
                                               "comp_delete",
                                               "comp_deleteWithSub",
                                               "comp_init",
                                               "comp_term",
                                               "IsCompMedia",
                                               "compFileRead",
                                               "comp_getComponent",
                                               "comp_getNode",
                                               "comp_getLeaf",
                                               "comp_setComponent",
                                               "comp_setNode",
                                               "comp_setDeleted",
                                               "comp_setLeaf",
                                               "comp_newNode",
                                               "comp_newLeaf",
                                               "comp_currentToDefault",
                                               "comp_factoryToDefault",
                                               "comp_defaultToCurrent",
                                               "comp_lock",
                                               "comp_unlock",
                                               "comp_searchByName",
                                               "comp_getChildCount",
                                               "comp_getChildByIndex",
                                               "comp_getNextSibling",
                                               "comp_setNextSibling",
                                               "comp_traverseAndPrint",
                                               "comp_getParent",
                                               "comp_setParent",
                                               "comp_getFirstChild",
                                               "comp_setFirstChild",
                                               "comp_getStringKey",
                                               "comp_setStringKey",
                                               "comp_getRoot",
                                               "leaf_getCurrentValueKey",
                                               "leaf_getDefaultValueKey",
                                               "leaf_getFactoryValueKey",
                                               "leaf_setCurrentValueKey",
                                               "leaf_setDefaultValueKey",
                                               "leaf_setFactoryValueKey",
                                               "leaf_create",
                                               "leaf_move",
                                               "node_create",
                                               "node_move",
                                               "node_moveWithSub"};

TEST_F(ComponentDump, AtLevel98PrintsNothing) {
    const Dump dump = dumpOf(dbs_me_db_component_debug_info, 98);
    EXPECT_THAT(dump.lines, IsEmpty());
    EXPECT_EQ(dump.debugSize, 0U);
    EXPECT_EQ(dump.ramSize, 0U);
}

TEST_F(ComponentDump, AtLevel99ListsItsFunctionsInOrder) {
    const Dump dump = dumpOf(dbs_me_db_component_debug_info, 99);
    EXPECT_EQ(dump.lines, withAddresses({"====(db_component)\n"}, kComponentFunctions));
    EXPECT_EQ(dump.result, 0);
}

TEST_F(ComponentDump, AtLevel5PrintsTwoSizesOfZeroFirst) {
    const Dump dump = dumpOf(dbs_me_db_component_debug_info, 5);
    EXPECT_EQ(dump.lines, withAddresses({"====(db_component)\n", dumpLine(0, "debug_size"), dumpLine(0, "ram_size")},
                                        kComponentFunctions));
    EXPECT_EQ(dump.debugSize, 0U);
    EXPECT_EQ(dump.ramSize, 0U);
}

TEST_F(ComponentDump, WithoutTotalsIsTheSame) {
    EXPECT_EQ(dbs_me_db_component_debug_info(99, nullptr, nullptr), 0);
    EXPECT_EQ(fakeTrace().texts(99), withAddresses({"====(db_component)\n"}, kComponentFunctions));
}

}  // namespace
}  // namespace tavdb_test
