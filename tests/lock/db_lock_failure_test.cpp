// SPDX-License-Identifier: Apache-2.0
// Locks whose mutex or event fails: what is returned and recorded, and what has
// happened to the lock all the same.
#include <errno.h>

#include <functional>

#include "fakes/fault_runs.h"
#include "lock/lock_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LockFailureTest : public LockTest {
protected:
    /// The wrapper's line, then the function's own.
    static std::vector<std::string> lines(const char *wrapper, int32_t wrapperSite, const char *function,
                                          int32_t site) {
        return {wrapperLine(wrapper, wrapperSite, kTableFile, kCode),
                errorLine(function, site, {kComponent, static_cast<uint32_t>(kCode), EPROTO})};
    }
};

TEST_F(LockFailureTest, ALockWhoseMutexCannotBeTakenPassesTheCodeThroughAndChangesNothing) {
    const Bytes before = tableBytes();
    failNext(Operation::mutexRequest);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), kCode);
    EXPECT_TRUE(sessionKeeps(kCode, EPROTO));
    EXPECT_TRUE(fakeTrace().errorsAre(lines("misc_waitMtx", 174, "lock_compLock", 180)));
    EXPECT_THAT(differences(before, tableBytes()), IsEmpty());
    EXPECT_EQ(eventLog().count(Operation::mutexRelease), 0U);
}

TEST_F(LockFailureTest, ALockWhoseMutexCannotBeReleasedReturnsTheCodeAndIsHeldAllTheSame) {
    failNext(Operation::mutexRelease);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), kCode);
    EXPECT_TRUE(sessionKeeps(kCode, EPROTO));
    EXPECT_TRUE(fakeTrace().errorsAre(lines("misc_postMtx", 209, "lock_compLock", 181)));
    EXPECT_THAT(heldComponents(), ElementsAre(kComponent));
}

TEST_F(LockFailureTest, AWaitingLockEndsWithTheCodeOfARelease) {
    failNext(Operation::mutexRelease);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kWait), kCode);
    EXPECT_THAT(heldComponents(), ElementsAre(kComponent));
}

TEST_F(LockFailureTest, ARefusalStandsWhenTheMutexThenCannotBeReleased) {
    lockAll({kComponent});
    session_setError(&session, 33, 5);
    failNext(Operation::mutexRelease);
    EXPECT_EQ(tavDBMLock(&session, kComponent, kTry), 75);
    EXPECT_TRUE(sessionKeeps(33, 5));
    EXPECT_TRUE(fakeTrace().onlyError(wrapperLine("misc_postMtx", 209, kTableFile, kCode)));
}

TEST_F(LockFailureTest, AFullTableStandsWhenTheMutexThenCannotBeReleased) {
    fill(1);
    failNext(Operation::mutexRelease);
    EXPECT_EQ(tavDBMLock(&session, 5000, kTry), 78);
    EXPECT_TRUE(sessionKeeps(78, 0));
}

TEST_F(LockFailureTest, AnUnlockWhoseMutexCannotBeTakenPassesTheCodeThroughAndChangesNothing) {
    lockAll({kComponent});
    const Bytes before = tableBytes();
    failNext(Operation::mutexRequest);
    EXPECT_EQ(tavDBMUnlock(&session, kComponent), kCode);
    EXPECT_TRUE(sessionKeeps(kCode, EPROTO));
    EXPECT_TRUE(fakeTrace().errorsAre(lines("misc_waitMtx", 174, "lock_compUnlock", 190)));
    EXPECT_THAT(differences(before, tableBytes()), IsEmpty());
    EXPECT_EQ(eventCounts().releases, 0U);
}

TEST_F(LockFailureTest, AnUnlockWhoseMutexCannotBeReleasedReturnsTheCodeAndHasUnlockedAllTheSame) {
    lockAll({kComponent});
    failNext(Operation::mutexRelease);
    EXPECT_EQ(tavDBMUnlock(&session, kComponent), kCode);
    EXPECT_TRUE(sessionKeeps(kCode, EPROTO));
    EXPECT_TRUE(fakeTrace().errorsAre(lines("misc_postMtx", 209, "lock_compUnlock", 191)));
    EXPECT_THAT(held(), IsEmpty());
    EXPECT_EQ(eventCounts().releases, 1U);
}

TEST_F(LockFailureTest, AnUnlockThatFindsNoLockReturns76WhenTheMutexThenCannotBeReleased) {
    session_setError(&session, 33, 5);
    failNext(Operation::mutexRelease);
    EXPECT_EQ(tavDBMUnlock(&session, kComponent), 76);
    EXPECT_TRUE(sessionKeeps(33, 5));
}

TEST_F(LockFailureTest, AnUnlockWhoseEventCannotBePostedHasUnlockedAndSucceeds) {
    lockAll({kComponent});
    session_setError(&session, 33, 5);
    failNext(Operation::eventPost);
    EXPECT_EQ(tavDBMUnlock(&session, kComponent), 0);
    EXPECT_TRUE(sessionKeeps(33, 5));
    EXPECT_TRUE(fakeTrace().onlyError(wrapperLine("misc_postEvent", 347, kTableFile, kCode)));
    EXPECT_THAT(held(), IsEmpty());
    EXPECT_THAT(fakeSemaphores().heldMutexes(), IsEmpty());
}

/// One text for each step of an operation: result and locks held when that step failed.
std::vector<std::string> outcomes(const std::function<int32_t()> &operation,
                                  const std::function<size_t()> &countLocks) {
    std::vector<std::string> texts;
    forEachFailingOperation([&](uint64_t) {
        const int32_t result = operation();
        const bool fired = faultPlan().fired();
        faultPlan().endFaults();
        if (fired)
            texts.push_back(std::to_string(result) + '/' + std::to_string(countLocks()));
        EXPECT_THAT(fakeSemaphores().heldMutexes(), IsEmpty());
    });
    return texts;
}

class LockStepTest : public LockTest {
protected:
    void SetUp() override {
        LockTest::SetUp();
        bystander_ = sessionOf(9);
        ASSERT_EQ(tavDBMLock(&bystander_, 999, kTry), 0);
    }
    /// The bystander's lock is always the last one; the lists must always fit together.
    size_t countLocks() {
        EXPECT_TRUE(sound());
        EXPECT_EQ(owners().back(), 9U);
        return owners().size() - 1;
    }
    static std::string text(int32_t code, size_t locks) {
        return std::to_string(code) + '/' + std::to_string(locks);
    }
    static constexpr int32_t kFailed = platformCode(EIO);

private:
    tavDBMSession bystander_ = {};
};

TEST_F(LockStepTest, ALockStepByStep) {
    uint32_t component = 0;  // a fresh one for each run, in front of the bystander's
    EXPECT_THAT(outcomes([&] { return tavDBMLock(&session, ++component, kTry); }, [&] { return countLocks(); }),
                ElementsAre(text(kFailed, 0), text(kFailed, 1)));
}

TEST_F(LockStepTest, AnUnlockStepByStep) {
    lockAll({10, 11, 12, 13});
    uint32_t component = 9;
    EXPECT_THAT(outcomes([&] { return tavDBMUnlock(&session, ++component); }, [&] { return countLocks(); }),
                ElementsAre(text(kFailed, 4), text(0, 3), text(kFailed, 2)));
}

}  // namespace
}  // namespace tavdb_test
