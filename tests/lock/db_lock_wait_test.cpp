// SPDX-License-Identifier: Apache-2.0
// Waiting for a lock: attempts outside the mutex, a wait on the event between
// two of them, and no end but a lock or a failure. The fakes call the test in
// place of a wait, so what another process would do is done there.
#include <errno.h>

#include "lock/lock_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LockWaitTest : public LockTest {
protected:
    /// Runs in the place of the waits, one step each; the last one must make the lock free.
    static void duringWaits(std::vector<std::function<void()>> steps) {
        auto next = std::make_shared<size_t>(0);
        fakeSemaphores().onEventWait([steps = std::move(steps), next](const std::string &) {
            ASSERT_LT(*next, steps.size()) << "one more wait than there should be";
            steps[(*next)++]();
        });
    }
    static uint32_t waitCounter() {
        return dumped(dbs_me_db_lock_debug_info, "s_debug_db_lock_comp_wait");
    }
    void unlock(uint32_t component) {
        EXPECT_EQ(tavDBMUnlock(&holder_, component), 0);
    }

    tavDBMSession holder_ = {};

    void SetUp() override {
        LockTest::SetUp();
        holder_ = sessionOf(7);
    }
};

TEST_F(LockWaitTest, AFreeComponentIsLockedWithoutAWait) {
    clearLogs();
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWait), 0);
    EXPECT_EQ(eventLog().count(Operation::eventWait), 0U);
}

TEST_F(LockWaitTest, AnExclusiveRequestWaitsUntilBothSharedLocksHaveBeenReleased) {
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTryShared), 0);
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTryShared), 0);
    duringWaits({[&] { unlock(kComponent); },
                 [&] {
                     EXPECT_EQ(owners().size(), 1U);
                     unlock(kComponent);
                 }});
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWait), 0);
    EXPECT_EQ(eventCounts().requests, 2U);
    EXPECT_THAT(owners(), ElementsAre(session.sessionId));
}

TEST_F(LockWaitTest, ASharedRequestWaitsForAnExclusiveLock) {
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTry), 0);
    duringWaits({[&] { unlock(kComponent); }});
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWaitShared), 0);
    EXPECT_EQ(table()->entry[held().at(0)].mode, 0x100U);
}

TEST_F(LockWaitTest, ASharedRequestDoesNotWaitForASharedLock) {
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTryShared), 0);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWaitShared), 0);
    EXPECT_EQ(eventCounts().requests, 0U);
}

TEST_F(LockWaitTest, AWaiterWokenByAnotherComponentTriesAgainAndWaitsOn) {
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTry), 0);
    ASSERT_EQ(tavDBMLock(&holder_, 999, kTry), 0);
    duringWaits({[&] { unlock(999); }, [&] { unlock(kComponent); }});
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWait), 0);
    EXPECT_EQ(eventCounts().requests, 2U);
}

TEST_F(LockWaitTest, AWaiterThatLosesTheRaceToANewcomerWaitsAgain) {
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTry), 0);
    duringWaits({[&] {
                     unlock(kComponent);
                     EXPECT_EQ(tavDBMLock(&holder_, kComponent, kTry), 0);
                 },
                 [&] { unlock(kComponent); }});
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWait), 0);
    EXPECT_EQ(eventCounts().requests, 2U);
}

TEST_F(LockWaitTest, TheMutexIsReleasedBeforeAWaitAndTakenAgainAfterIt) {
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTry), 0);
    clearLogs();
    duringWaits({[&] { unlock(kComponent); }});
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWait), 0);
    const std::vector<std::string> attempt = {"mutexRequest lock.tbl", "mutexAbandoned lock.tbl",
                                              "mutexRelease lock.tbl"};
    std::vector<std::string> expected = attempt;
    expected.push_back("eventWait lock.tbl");
    for (const char *const line :
         {"mutexRequest lock.tbl", "mutexAbandoned lock.tbl", "eventPost lock.tbl", "mutexRelease lock.tbl"})
        expected.push_back(line);  // the holder's unlock
    expected.insert(expected.end(), attempt.begin(), attempt.end());
    EXPECT_EQ(eventLog().lines(Category::semaphores), expected);
}

TEST_F(LockWaitTest, AWaitHasNoTimeLimit) {
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTry), 0);
    clearLogs();
    duringWaits({[&] { unlock(kComponent); }});
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWait), 0);
    for (const Event &event : eventLog().events(Category::semaphores)) {
        if (event.operation == Operation::eventWait) {
            EXPECT_EQ(event.argument, 0);
        }
    }
    EXPECT_EQ(eventLog().count(Operation::eventWait), 1U);
}

TEST_F(LockWaitTest, ThereIsNoCountOfAttempts) {
    constexpr size_t kWaits = 500;
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTry), 0);
    std::vector<std::function<void()>> steps(kWaits - 1, [] {});
    steps.push_back([&] { unlock(kComponent); });
    duringWaits(std::move(steps));
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWait), 0);
    EXPECT_EQ(eventCounts().requests, kWaits);
}

TEST_F(LockWaitTest, AFailedWaitCountsAsAWaitAndTheLockIsTriedAgain) {
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTry), 0);
    faultPlan().add({.operation = Operation::eventWait, .times = 3});
    duringWaits({[&] { unlock(kComponent); }});
    session_setError(&session, 33, 5);
    clearLogs();
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWait), 0);
    EXPECT_EQ(eventLog().count(Operation::eventWait), 4U);
    EXPECT_TRUE(sessionKeeps(33, 5));
    EXPECT_EQ(fakeTrace().errors().size(), 3U);
}

TEST_F(LockWaitTest, AWaitingRequestThatFindsTheTableFullEndsWith78) {
    fill(1, 1022);
    ASSERT_EQ(tavDBMLock(&holder_, 5000, kTry), 0);
    duringWaits({[&] {
        unlock(5000);
        EXPECT_EQ(tavDBMLock(&holder_, 6000, kTry), 0);
    }});
    EXPECT_EQ(tavDBMLock(&session, 5000, kWait), 78);
    EXPECT_TRUE(sessionKeeps(78, 0));
}

TEST_F(LockWaitTest, AMutexThatFailsEndsTheWaitWithItsCode) {
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTry), 0);
    duringWaits({[] { faultPlan().add({.operation = Operation::mutexRequest}); }});
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWait), platformCode(EIO));
    EXPECT_TRUE(sessionKeeps(platformCode(EIO), EIO));
}

TEST_F(LockWaitTest, TryingNeverWaits) {
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kTry), 0);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 75);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTryShared), 75);
    EXPECT_EQ(eventCounts().requests, 0U);
}

TEST_F(LockWaitTest, TheWaitCounterMovesByTwoOnEntryAndByOneOnLeaving) {
    const uint32_t before = waitCounter();
    ASSERT_EQ(tavDBMLock(&session, kComponent, kWait), 0);
    EXPECT_EQ(waitCounter(), before + 3);
    uint32_t during = 0;
    duringWaits({[&] {
        during = waitCounter();
        EXPECT_EQ(tavDBMUnlock(&session, kComponent), 0);
    }});
    ASSERT_EQ(tavDBMLock(&holder_, kComponent, kWait), 0);
    EXPECT_EQ(during, before + 5);
    EXPECT_EQ(waitCounter(), before + 6);
}

TEST_F(LockWaitTest, TryingLeavesTheWaitCounterAlone) {
    const uint32_t before = waitCounter();
    ASSERT_EQ(tavDBMLock(&session, kComponent, kTry), 0);
    EXPECT_EQ(waitCounter(), before);
}

}  // namespace
}  // namespace tavdb_test
