// SPDX-License-Identifier: Apache-2.0
// Which lock is granted, refused and released, and how the lock list looks
// afterwards, byte for byte. Waiting, full tables and failures are tested apart.
#include "lock/lock_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(LockTest, AFreeComponentIsLockedAndUnlocked) {
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 0);
    EXPECT_THAT(heldComponents(), ElementsAre(kComponent));
    EXPECT_EQ(tavDBMUnlock(&session, kComponent), 0);
    EXPECT_THAT(heldComponents(), IsEmpty());
    EXPECT_TRUE(fakeTrace().noErrors());
    EXPECT_TRUE(sound());
}

TEST_F(LockTest, ALockIsTheseWordsInTheTable) {
    tavDBMSession mine = sessionOf(77);
    ASSERT_EQ(tavDBMLock(&mine, kComponent, kTryShared), 0);
    ExpectedImage image = newLockTable();
    image.word(0, 2);  // free head
    image.word(4, 1);  // first
    image.word(8, 1);  // last
    image.put(24 + 24, bytesOf(session.dbId, kComponent, 77, 0x100, 0, 0));
    EXPECT_THAT(differences(image.bytes(), tableBytes()), IsEmpty());
}

TEST_F(LockTest, AReleasedEntryGoesToTheHeadOfTheFreeListAndKeepsItsOtherWords) {
    lockAll({100, 200});
    ASSERT_EQ(tavDBMUnlock(&session, 100), 0);
    ExpectedImage image = newLockTable();
    image.word(0, 1);
    image.word(4, 2);
    image.word(8, 2);
    image.put(24 + 24, bytesOf(session.dbId, 100, session.sessionId, 0, 3, 0));
    image.put(24 + 48, bytesOf(session.dbId, 200, session.sessionId, 0, 0, 0));
    EXPECT_THAT(differences(image.bytes(), tableBytes()), IsEmpty());
}

TEST_F(LockTest, ThreeLocksAreLinkedBothWaysInOrder) {
    lockAll({300, 100, 200});
    ExpectedImage image = newLockTable();
    const uint32_t db = session.dbId;
    const uint32_t owner = session.sessionId;
    image.word(0, 4);
    image.word(4, 2);
    image.word(8, 1);
    image.put(24 + 24, bytesOf(db, 300, owner, 0, 0, 3));
    image.put(24 + 48, bytesOf(db, 100, owner, 0, 3, 0));
    image.put(24 + 72, bytesOf(db, 200, owner, 0, 1, 2));
    EXPECT_THAT(differences(image.bytes(), tableBytes()), IsEmpty());
}

TEST_F(LockTest, TheFreeListGivesTheEntryThatCameBackLast) {
    lockAll({100, 200, 300});
    ASSERT_EQ(tavDBMUnlock(&session, 300), 0);
    ASSERT_EQ(tavDBMUnlock(&session, 100), 0);
    ASSERT_EQ(tavDBMUnlock(&session, 200), 0);
    EXPECT_EQ(table()->freeHead, 2U);
    lockAll({400, 500, 600});
    EXPECT_THAT(held(), ElementsAre(2, 1, 3));
    EXPECT_TRUE(sound());
}

TEST_F(LockTest, TheListIsSortedByComponentAsAnUnsignedNumber) {
    lockAll({0x80000000, 5, 0xFFFFFFFF, 0, 0x7FFFFFFF});
    EXPECT_THAT(heldComponents(), ElementsAre(0, 5, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF));
    EXPECT_TRUE(sound());
}

TEST_F(LockTest, TheListIsSortedByDatabaseFirstAsAnUnsignedNumber) {
    for (const uint32_t dbId : {0x80000000, 2U, 31U, 0U}) {
        tavDBMSession other = sessionIn(dbId);
        ASSERT_EQ(lock_compLock(&other, 1000 - (dbId & 31), kTry), 0);
    }
    std::vector<uint32_t> databases;
    for (const uint32_t index : held())
        databases.push_back(table()->entry[index].dbId);
    EXPECT_THAT(databases, ElementsAre(0, 2, 31, 0x80000000));
    EXPECT_TRUE(sound());
}

TEST_F(LockTest, TwoSharedRequestsOfDifferentSessionsBothSucceed) {
    tavDBMSession other = sessionOf(7);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTryShared), 0);
    EXPECT_EQ(tavDBMLock(&other, kComponent, kTryShared), 0);
    EXPECT_EQ(held().size(), 2U);
}

TEST_F(LockTest, AThirdExclusiveRequestBesideTwoSharedLocksGets75) {
    tavDBMSession other = sessionOf(7);
    tavDBMSession third = sessionOf(8);
    tavDBMLock(&session, kComponent, kTryShared);
    tavDBMLock(&other, kComponent, kTryShared);
    EXPECT_EQ(tavDBMLock(&third, kComponent, kTry), 75);
    EXPECT_EQ(held().size(), 2U);
}

TEST_F(LockTest, ASharedRequestOnAComponentHeldExclusivelyGets75) {
    tavDBMSession other = sessionOf(7);
    ASSERT_EQ(tavDBMLock(&session, kComponent, kTry), 0);
    EXPECT_EQ(tavDBMLock(&other, kComponent, kTryShared), 75);
}

TEST_F(LockTest, AnExclusiveRequestOnAComponentHeldSharedGets75) {
    tavDBMSession other = sessionOf(7);
    ASSERT_EQ(tavDBMLock(&session, kComponent, kTryShared), 0);
    EXPECT_EQ(tavDBMLock(&other, kComponent, kTry), 75);
}

TEST_F(LockTest, ARefusalChangesNoByteOfTheTable) {
    lockAll({100, kComponent, 200});
    const Bytes before = tableBytes();
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 75);
    EXPECT_THAT(differences(before, tableBytes()), IsEmpty());
}

TEST_F(LockTest, ARefusalIsDeliberatelyNotRecordedInTheSessionAndNotTraced) {
    lockAll({kComponent});
    session_setError(&session, 33, 5);
    clearLogs();
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 75);
    EXPECT_TRUE(sessionKeeps(33, 5));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(LockTest, ALockLeavesAnEarlierErrorInTheSession) {
    session_setError(&session, 33, 5);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 0);
    EXPECT_EQ(tavDBMUnlock(&session, kComponent), 0);
    EXPECT_TRUE(sessionKeeps(33, 5));
}

TEST_F(LockTest, ASecondSharedLockOfTheSameSessionIsGrantedLikeAnyOther) {
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTryShared), 0);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTryShared), 0);
    EXPECT_THAT(owners(), ElementsAre(session.sessionId, session.sessionId));
}

TEST_F(LockTest, LocksAreDeliberatelyNotReentrant) {
    ASSERT_EQ(tavDBMLock(&session, kComponent, kTry), 0);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 75);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTryShared), 75);
}

TEST_F(LockTest, SharedLocksOfAComponentStandNewestFirstBetweenTheirNeighbours) {
    lockAll({100, 200});
    for (const uint32_t id : {41U, 42U, 43U}) {
        tavDBMSession other = sessionOf(id);
        ASSERT_EQ(tavDBMLock(&other, 150, kTryShared), 0);
    }
    EXPECT_THAT(heldComponents(), ElementsAre(100, 150, 150, 150, 200));
    EXPECT_THAT(owners(), ElementsAre(session.sessionId, 43, 42, 41, session.sessionId));
    EXPECT_TRUE(sound());
}

TEST_F(LockTest, TwoSharedLocksAreReleasedTheNewerFirstAndAThirdUnlockReturns76) {
    tavDBMSession older = sessionOf(41);
    tavDBMSession newer = sessionOf(42);
    ASSERT_EQ(tavDBMLock(&older, kComponent, kTryShared), 0);
    ASSERT_EQ(tavDBMLock(&newer, kComponent, kTryShared), 0);
    EXPECT_EQ(tavDBMUnlock(&session, kComponent), 0);
    EXPECT_THAT(owners(), ElementsAre(41));
    EXPECT_EQ(tavDBMUnlock(&session, kComponent), 0);
    EXPECT_THAT(owners(), IsEmpty());
    EXPECT_EQ(tavDBMUnlock(&session, kComponent), 76);
}

TEST_F(LockTest, AnySessionMayDeliberatelyReleaseALockThatAnotherTook) {
    tavDBMSession other = sessionOf(7);
    ASSERT_EQ(tavDBMLock(&session, kComponent, kTry), 0);
    EXPECT_EQ(tavDBMUnlock(&other, kComponent), 0);
    EXPECT_THAT(held(), IsEmpty());
}

TEST_F(LockTest, TheFirstLockOfTheListIsUnlinked) {
    lockAll({100, 200, 300});
    EXPECT_EQ(tavDBMUnlock(&session, 100), 0);
    EXPECT_THAT(heldComponents(), ElementsAre(200, 300));
    EXPECT_TRUE(sound());
}

TEST_F(LockTest, ALockInTheMiddleIsUnlinked) {
    lockAll({100, 200, 300});
    EXPECT_EQ(tavDBMUnlock(&session, 200), 0);
    EXPECT_THAT(heldComponents(), ElementsAre(100, 300));
    EXPECT_TRUE(sound());
}

TEST_F(LockTest, TheLastLockOfTheListIsUnlinked) {
    lockAll({100, 200, 300});
    EXPECT_EQ(tavDBMUnlock(&session, 300), 0);
    EXPECT_THAT(heldComponents(), ElementsAre(100, 200));
    EXPECT_TRUE(sound());
}

TEST_F(LockTest, UnlockingWithoutALockAtTheEndOfTheListReturns76DeliberatelyNotInTheSession) {
    lockAll({100});
    session_setError(&session, 33, 5);
    const Bytes before = tableBytes();
    clearLogs();
    EXPECT_EQ(tavDBMUnlock(&session, 200), 76);
    EXPECT_TRUE(sessionKeeps(33, 5));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("lock_compUnlock", 161)));
    EXPECT_THAT(differences(before, tableBytes()), IsEmpty());
}

TEST_F(LockTest, UnlockingWithoutALockBeforeALaterOneReturns76DeliberatelyNotInTheSession) {
    lockAll({100, 300});
    session_setError(&session, 33, 5);
    const Bytes before = tableBytes();
    clearLogs();
    EXPECT_EQ(tavDBMUnlock(&session, 200), 76);
    EXPECT_TRUE(sessionKeeps(33, 5));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("lock_compUnlock", 160)));
    EXPECT_THAT(differences(before, tableBytes()), IsEmpty());
}

TEST_F(LockTest, TheSameComponentInTwoDatabasesCanBeLockedExclusivelyTwice) {
    tavDBMDescription second = description;
    second.fifthWord = 1;
    const int32_t dbId = attach(second);
    ASSERT_GT(dbId, 0);
    tavDBMSession other = sessionIn(static_cast<uint32_t>(dbId));
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 0);
    EXPECT_EQ(tavDBMLock(&other, kComponent, kTry), 0);
    EXPECT_EQ(held().size(), 2U);
    EXPECT_EQ(tavDBMUnlock(&other, kComponent), 0);
    EXPECT_EQ(table()->entry[held().at(0)].dbId, session.dbId);
}

TEST_F(LockTest, TheComponentIsNotLookedUpInTheTree) {
    EXPECT_EQ(tavDBMLock(&session, 0, kTry), 0);
    EXPECT_EQ(tavDBMLock(&session, 0xFFFFFFFF, kTry), 0);
    EXPECT_THAT(eventLog().lines(Category::media), IsEmpty());
}

TEST_F(LockTest, ALockIsTakenUnderTheMutexAndPostsNothing) {
    clearLogs();
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 0);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("mutexRequest lock.tbl", "mutexAbandoned lock.tbl", "mutexRelease lock.tbl"));
}

TEST_F(LockTest, TheMutexIsRequestedWithoutATimeLimit) {
    clearLogs();
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 0);
    EXPECT_EQ(eventLog().events(Category::semaphores).at(0).argument, -1);
}

TEST_F(LockTest, AnUnlockPostsTheEventAndThenReleasesTheMutex) {
    lockAll({kComponent});
    clearLogs();
    EXPECT_EQ(tavDBMUnlock(&session, kComponent), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("mutexRequest lock.tbl", "mutexAbandoned lock.tbl",
                                                "eventPost lock.tbl", "mutexRelease lock.tbl"));
}

TEST_F(LockTest, AnUnlockThatFindsNoLockReleasesTheMutexAndPostsNothing) {
    clearLogs();
    EXPECT_EQ(tavDBMUnlock(&session, kComponent), 76);
    EXPECT_THAT(eventLog().lines(Category::semaphores),
                ElementsAre("mutexRequest lock.tbl", "mutexAbandoned lock.tbl", "mutexRelease lock.tbl"));
}

TEST_F(LockTest, ARefusedLockReleasesTheMutexAndPostsNothing) {
    lockAll({kComponent});
    clearLogs();
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 75);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("mutexRequest lock.tbl", "mutexAbandoned lock.tbl", "mutexRelease lock.tbl"));
}

TEST_F(LockTest, TheComponentModulesNamesDoTheSame) {
    EXPECT_EQ(comp_lock(&session, kComponent, kWait), 0);
    EXPECT_EQ(comp_lock(&session, kComponent, kTry), 75);
    EXPECT_EQ(comp_lock(&session, kComponent, 2), 77);
    EXPECT_EQ(comp_unlock(&session, kComponent), 0);
    EXPECT_EQ(comp_unlock(&session, kComponent), 76);
}

TEST_F(LockTest, TheLockModulesOwnAttemptNeverWaitsWhateverTheModesLowByte) {
    ASSERT_EQ(lock_compLock(&session, kComponent, kWait), 0);
    EXPECT_EQ(lock_compLock(&session, kComponent, kWait), 75);
    EXPECT_EQ(eventCounts().requests, 0U);
}

TEST_F(LockTest, ALockOutlivesItsSession) {
    tavDBMSession passing = {};
    ASSERT_EQ(tavDBMInitSession(&passing, session.dbId), 0);
    ASSERT_EQ(tavDBMLock(&passing, kComponent, kTry), 0);
    ASSERT_EQ(tavDBMTermSession(&passing), 0);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 75);
}

TEST_F(LockTest, WithoutASessionNothingIsLockedOrUnlockedAndNothingCrashes) {
    lockAll({kComponent});
    EXPECT_EQ(tavDBMLock(nullptr, 200, kTry), 89);
    EXPECT_EQ(tavDBMLock(nullptr, 200, kWait), 89);
    EXPECT_EQ(tavDBMLock(nullptr, 200, 2), 77);
    EXPECT_EQ(tavDBMUnlock(nullptr, kComponent), 89);
    EXPECT_THAT(heldComponents(), ElementsAre(kComponent));
}

/// A mode, what is stored of it, and whether it shares with a shared lock.
struct ModeRow {
    const char *name;
    int32_t mode;
    uint32_t stored;
};
void PrintTo(const ModeRow &row, std::ostream *stream) {
    *stream << row.name;
}

class LockModeTest : public LockTest, public testing::WithParamInterface<ModeRow> {};

constexpr ModeRow kModes[] = {
    {"ExclusiveTry", 0x001, 0},
    {"ExclusiveWait", 0x000, 0},
    {"SharedTry", 0x101, 0x100},
    {"SharedWait", 0x100, 0x100},
    {"AnotherSecondByteIsExclusive", 0x201, 0x200},
    {"TheSharedBitAmongOthersIsExclusive", 0x301, 0x300},
    {"AllBitsOfTheSecondByteAreExclusive", 0xFF01, 0xFF00},
    {"BitsAboveTheSecondByteDoNotCount", 0x7FFF0101, 0x100},
    {"ANegativeModeIsTakenByItsBits", -255, 0xFF00},
};

INSTANTIATE_TEST_SUITE_P(Modes, LockModeTest, testing::ValuesIn(kModes), byName);

TEST_P(LockModeTest, StoresTheSecondByteOfTheMode) {
    ASSERT_EQ(tavDBMLock(&session, kComponent, GetParam().mode), 0);
    EXPECT_EQ(table()->entry[1].mode, GetParam().stored);
}

TEST_P(LockModeTest, SharesOnlyAsExactly0x100) {
    ASSERT_EQ(lock_compLock(&session, kComponent, GetParam().mode), 0);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTryShared), GetParam().stored == 0x100 ? 0 : 75);
}

TEST_P(LockModeTest, IsGrantedBesideASharedLockOnlyAsExactly0x100) {
    ASSERT_EQ(tavDBMLock(&session, kComponent, kTryShared), 0);
    EXPECT_EQ(lock_compLock(&session, kComponent, GetParam().mode), GetParam().stored == 0x100 ? 0 : 75);
}

TEST_F(LockTest, AWaitModeThatIsNeither0Nor1FailsWith77AndChangesNothing) {
    const Bytes before = tableBytes();
    const std::vector<std::string> ring = ringLines(kLockRing);
    for (const int32_t mode : {0x002, 0x102, 0x0FF, 0x1FF, -1}) {
        clearLogs();
        EXPECT_EQ(tavDBMLock(&session, kComponent, mode), 77) << mode;
        EXPECT_TRUE(sessionKeeps(77, 0));
        EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_lock", 250, {kComponent, static_cast<uint32_t>(mode)})));
        EXPECT_THAT(eventLog().lines(Category::semaphores), IsEmpty());
    }
    EXPECT_THAT(differences(before, tableBytes()), IsEmpty());
    EXPECT_EQ(ringLines(kLockRing), ring);
}

}  // namespace
}  // namespace tavdb_test
