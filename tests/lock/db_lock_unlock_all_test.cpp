// SPDX-License-Identifier: Apache-2.0
// Emptying the lock list: for a process that has the table to itself, so without
// the mutex and without waking anyone.
#include "lock/lock_test_support.h"

namespace tavdb_test {
namespace {

using testing::IsEmpty;

class LockUnlockAllTest : public LockTest {
protected:
    void expectEmptied() {
        EXPECT_EQ(lock_compUnlockAll(), 0);
        EXPECT_EQ(table()->first, 0U);
        EXPECT_EQ(table()->last, 0U);
        EXPECT_TRUE(sound());
    }
};

TEST_F(LockUnlockAllTest, AnEmptyListStaysEmpty) {
    const Bytes before = tableBytes();
    expectEmptied();
    EXPECT_THAT(differences(before, tableBytes()), IsEmpty());
}

TEST_F(LockUnlockAllTest, OneLockIsGivenBack) {
    lockAll({100});
    expectEmptied();
}

TEST_F(LockUnlockAllTest, ManyLocksAreGivenBackAndEveryEntryIsFreeOnce) {
    lockAll({300, 100, 200});
    ASSERT_EQ(tavDBMUnlock(&session, 200), 0);
    ASSERT_EQ(tavDBMLock(&session, 400, kTryShared), 0);
    ASSERT_EQ(tavDBMLock(&session, 400, kTryShared), 0);
    expectEmptied();
}

TEST_F(LockUnlockAllTest, AFullTableIsEmptiedAndCanBeFilledAgain) {
    fill(1);
    expectEmptied();
    fill(5000);
    EXPECT_TRUE(sound());
}

TEST_F(LockUnlockAllTest, LocksOfOtherSessionsAndDatabasesGoToo) {
    tavDBMSession other = sessionIn(17);
    ASSERT_EQ(lock_compLock(&other, 100, kTry), 0);
    lockAll({100});
    expectEmptied();
}

TEST_F(LockUnlockAllTest, TakesNoMutexAndPostsNoEvent) {
    lockAll({100, 200});
    clearLogs();
    EXPECT_EQ(lock_compUnlockAll(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

TEST_F(LockUnlockAllTest, WorksWhileTheMutexCannotBeHad) {
    lockAll({100, 200});
    faultPlan().add({.operation = Operation::mutexRequest, .times = kForEver});
    expectEmptied();
}

TEST_F(LockUnlockAllTest, WhatWasLockedCanBeLockedAgain) {
    lockAll({100});
    ASSERT_EQ(lock_compUnlockAll(), 0);
    EXPECT_EQ(tavDBMUnlock(&session, 100), 76);
    EXPECT_EQ(tavDBMLock(&session, 100, kTry), 0);
}

}  // namespace
}  // namespace tavdb_test
