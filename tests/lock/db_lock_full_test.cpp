// SPDX-License-Identifier: Apache-2.0
// The table with no entry left: the three places at which a lock then fails, and
// that nothing is lost by it.
#include <errno.h>

#include "lock/lock_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FullLockTableTest : public LockTest {
protected:
    /// The request fails with 78: returned, recorded, traced once, in the ring; the table stays.
    void expectFull(uint32_t component, int32_t mode) {
        const Bytes before = tableBytes();
        session_setError(&session, 33, 5);
        clearLogs();
        EXPECT_EQ(tavDBMLock(&session, component, mode), 78);
        EXPECT_TRUE(sessionKeeps(78, 0));
        EXPECT_TRUE(fakeTrace().onlyError(errorLine("lock_compLock", 150)));
        EXPECT_THAT(eventLog().lines(), ElementsAre("mutexRequest lock.tbl", "mutexAbandoned lock.tbl",
                                                    "trace 0 lock_compLock():[Error]:[150]", "mutexRelease lock.tbl"));
        EXPECT_THAT(differences(before, tableBytes()), IsEmpty());
    }
    /// The newest record's words behind the sequence number, up to the error number.
    static std::string newestRecord() {
        const std::vector<std::string> lines = ringLines(kLockRing);
        return lines.empty() ? "" : lines.back();
    }
    std::string fullRecord(uint32_t kind, uint32_t component, uint32_t mode, uint32_t next, uint32_t previous) const {
        const std::string whole = ringLine(1, {kind, component, mode, next, 0, previous, 0, 0, session.dbId});
        return whole.substr(0, whole.size() - 1);
    }
};

TEST_F(FullLockTableTest, Takes1023LocksAndTheNextOneFailsWith78) {
    fill(1);
    EXPECT_EQ(held().size(), 1023U);
    EXPECT_EQ(table()->freeHead, 0U);
    EXPECT_TRUE(sound());
    expectFull(5000, kTry);
}

TEST_F(FullLockTableTest, FailsAtTheEndOfTheList) {
    fill(1);
    expectFull(5000, kTry);
    EXPECT_THAT(newestRecord(), testing::StartsWith(fullRecord(8, 5000, kTry, 0, 1023)));
}

TEST_F(FullLockTableTest, FailsBeforeALaterEntry) {
    fill(1, 500);
    fill(1001, 523);
    expectFull(700, kTry);
    EXPECT_THAT(newestRecord(), testing::StartsWith(fullRecord(1, 700, kTry, 501, 500)));
}

TEST_F(FullLockTableTest, FailsBeforeTheFirstEntry) {
    fill(1000);
    expectFull(1, kTry);
    EXPECT_THAT(newestRecord(), testing::StartsWith(fullRecord(1, 1, kTry, 1, 0)));
}

TEST_F(FullLockTableTest, FailsWhenASharedLockIsAdded) {
    fill(1, 1022);
    ASSERT_EQ(tavDBMLock(&session, 5000, kTryShared), 0);
    expectFull(5000, kTryShared);
    EXPECT_THAT(newestRecord(), testing::StartsWith(fullRecord(2, 5000, kTryShared, 1023, 1022)));
}

TEST_F(FullLockTableTest, FailsForAnotherDatabaseToo) {
    fill(1);
    tavDBMSession other = sessionIn(31);
    EXPECT_EQ(lock_compLock(&other, 1, kTry), 78);
}

TEST_F(FullLockTableTest, ARequestThatWouldWaitFailsAtOnce) {
    fill(1);
    clearLogs();
    EXPECT_EQ(tavDBMLock(&session, 5000, kWait), 78);
    EXPECT_EQ(eventCounts().requests, 0U);
}

TEST_F(FullLockTableTest, AConflictIsStillAConflict) {
    fill(1);
    EXPECT_EQ(tavDBMLock(&session, 500, kTry), 75);
}

TEST_F(FullLockTableTest, HasRoomAgainAfterOneUnlock) {
    fill(1);
    ASSERT_EQ(tavDBMLock(&session, 5000, kTry), 78);
    ASSERT_EQ(tavDBMUnlock(&session, 500), 0);
    EXPECT_EQ(tavDBMLock(&session, 5000, kTry), 0);
    EXPECT_EQ(table()->last, 500U);
    EXPECT_TRUE(sound());
}

TEST_F(FullLockTableTest, CanBeEmptiedLockByLock) {
    fill(1);
    for (uint32_t component = 1023; component >= 1; component--)
        ASSERT_EQ(tavDBMUnlock(&session, component), 0);
    EXPECT_THAT(held(), IsEmpty());
    EXPECT_EQ(table()->last, 0U);
    EXPECT_TRUE(sound());
    fill(2000);
    EXPECT_TRUE(sound());
}

}  // namespace
}  // namespace tavdb_test
