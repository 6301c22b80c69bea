// SPDX-License-Identifier: Apache-2.0
// The event of a table. Its waiter has looked under the mutex, found nothing,
// released the mutex and then waits: a post that came in between must end the
// wait, and every waiter must wake.
#include <atomic>
#include <vector>

#include "port/contract/platform_under_test.h"
#include "rounds.h"

namespace tavdb::test {
namespace {

constexpr int kEventRounds = tavdb_test::kSlow ? 300 : 500;
constexpr int kTurns = tavdb_test::kSlow ? 300 : 10000;
constexpr int32_t kEventLimitMs = 4000;

class EventContract : public TableContractTest {
protected:
    static void visit(const Semaphores &set) {
        EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
        EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    }
};

TEST_F(EventContract, HandleZeroIsRefused) {
    EXPECT_NE(tavOSWWaitEventSem(0, 0), 0);
    EXPECT_NE(tavOSWPostEventSem(0), 0);
}

TEST_F(EventContract, AnEventThatNobodyWaitsForCanBePosted) {
    const Semaphores set = attach(path);
    for (int round = 0; round < kEventRounds; ++round)
        ASSERT_EQ(tavOSWPostEventSem(set.event), 0);
}

// A wait that only looks around every now and then would end too, but late.
TEST_F(EventContract, NoPostBetweenTheAttemptAndTheWaitIsLost) {
    TAVDB_NEEDS_SLEEP;
    const Semaphores set = attach(path);
    const auto start = Clock::now();
    for (int round = 0; round < kEventRounds; ++round) {
        visit(set);
        std::thread([&] { EXPECT_EQ(tavOSWPostEventSem(set.event), 0); }).join();
        ASSERT_EQ(tavOSWWaitEventSem(set.event, kEventLimitMs), 0) << "post " << round << " is lost";
    }
    EXPECT_LT(since(start).count(), kEventRounds * 20);
}

TEST_F(EventContract, NorIsOneOfAnotherProcess) {
    TAVDB_NEEDS_SLEEP;
    TAVDB_NEEDS_PROCESSES;
    const Semaphores set = attach(path);
    for (int round = 0; round < 20; ++round) {
        visit(set);
        ASSERT_EQ(Child([&] { return tavOSWPostEventSem(attach(path).event); }).join(), 0);
        ASSERT_EQ(tavOSWWaitEventSem(set.event, kEventLimitMs), 0) << "post " << round << " is lost";
    }
}

TEST_F(EventContract, NorOneThatCameWhileTheMutexWasHeld) {
    TAVDB_NEEDS_SLEEP;
    const Semaphores set = attach(path);
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
        std::thread([&] { EXPECT_EQ(tavOSWPostEventSem(set.event), 0); }).join();
        ASSERT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
        ASSERT_EQ(tavOSWWaitEventSem(set.event, kEventLimitMs), 0) << "post " << round << " is lost";
    }
}

TEST_F(EventContract, WithoutAPostALimitedWaitRunsOut) {
    TAVDB_NEEDS_SLEEP;
    const Semaphores set = attach(path);
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    visit(set);  // the post came before, so it does not count
    const auto start = Clock::now();
    EXPECT_NE(tavOSWWaitEventSem(set.event, 350), 0);
    EXPECT_GE(since(start).count(), 350);
    EXPECT_LT(since(start).count(), 2500);
}

TEST_F(EventContract, APostOfOneTableIsNotAnothers) {
    TAVDB_NEEDS_SLEEP;
    TAVDB_NEEDS(tavOSWSemAnnounce == nullptr ? "tables are not announced to it" : nullptr);
    makeTable(folder / "other");
    const Semaphores set = attach(path);
    const Semaphores other = attach(folder / "other");
    visit(set);
    visit(other);
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    EXPECT_NE(tavOSWWaitEventSem(other.event, 50), 0);
    EXPECT_EQ(tavOSWWaitEventSem(set.event, kEventLimitMs), 0);
}

TEST_F(EventContract, EveryThreadHasAViewOfItsOwn) {
    TAVDB_NEEDS_SLEEP;
    const Semaphores set = attach(path);
    std::atomic<int> stage = 0;
    std::thread other([&] {
        visit(set);
        stage = 1;
        EXPECT_TRUE(eventually([&] { return stage == 2; }));
        EXPECT_EQ(tavOSWWaitEventSem(set.event, kEventLimitMs), 0);
    });
    EXPECT_TRUE(eventually([&] { return stage == 1; }));
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    visit(set);  // this thread has seen the post by now, the other has not
    stage = 2;
    other.join();
    EXPECT_NE(tavOSWWaitEventSem(set.event, 20), 0);
}

TEST_F(EventContract, OnePostWakesEveryThread) {
    TAVDB_NEEDS_SLEEP;
    constexpr int kWaiters = 5;
    const Semaphores set = attach(path);
    std::atomic<int> ready = 0;
    std::atomic<int> woken = 0;
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back([&] {
            visit(set);
            ++ready;
            EXPECT_EQ(tavOSWWaitEventSem(set.event, 0), 0);
            ++woken;
        });
    EXPECT_TRUE(eventually([&] { return ready == kWaiters; }));
    std::this_thread::sleep_for(milliseconds(250));
    EXPECT_EQ(woken, 0) << "woke without a post";
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    for (std::thread &waiter : waiters)
        waiter.join();
}

TEST_F(EventContract, OnePostWakesEveryProcess) {
    TAVDB_NEEDS_SLEEP;
    TAVDB_NEEDS_PROCESSES;
    constexpr int kWaiters = 5;
    Shared<std::atomic<int>> ready;
    std::vector<Child> waiters;
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back([&] {
            const Semaphores set = attach(path);
            if (tavOSWRequestMutexSem(set.mutex, -1) != 0 || tavOSWReleaseMutexSem(set.mutex) != 0)
                return 1;
            ++*ready;
            return tavOSWWaitEventSem(set.event, 0) == 0 ? 0 : 2;
        });
    ASSERT_TRUE(eventually([&] { return *ready == kWaiters; }));
    std::this_thread::sleep_for(milliseconds(250));
    for (const Child &waiter : waiters)
        EXPECT_FALSE(waiter.hasEnded()) << "woke without a post";
    EXPECT_EQ(tavOSWPostEventSem(attach(path).event), 0);
    for (Child &waiter : waiters)
        EXPECT_EQ(waiter.join(), 0);
}

// Two players hand a turn back and forth. One lost wake-up and a wait runs into
// its limit, which is far longer than the whole game.
int play(const Semaphores &set, volatile int &turn, int mine) {
    for (int round = 0; round < kTurns;) {
        if (tavOSWRequestMutexSem(set.mutex, -1) != 0)
            return 1;
        const bool isMine = turn == mine;
        if (isMine) {
            turn = 1 - mine;
            ++round;
            tavOSWPostEventSem(set.event);
        }
        if (tavOSWReleaseMutexSem(set.mutex) != 0)
            return 2;
        if (!isMine && tavOSWWaitEventSem(set.event, kEventLimitMs) != 0)
            return 3;
    }
    return 0;
}

TEST_F(EventContract, ThreadsTakeTurnsAndNoWakeUpIsLost) {
    TAVDB_NEEDS_SLEEP;
    const Semaphores set = attach(path);
    volatile int turn = 0;
    std::thread first([&] { EXPECT_EQ(play(set, turn, 0), 0); });
    std::thread second([&] { EXPECT_EQ(play(set, turn, 1), 0); });
    first.join();
    second.join();
}

TEST_F(EventContract, ProcessesTakeTurnsAndNoWakeUpIsLost) {
    TAVDB_NEEDS_SLEEP;
    TAVDB_NEEDS_PROCESSES;
    Shared<int> turn;
    Child first([&] { return play(attach(path), *turn, 0); });
    Child second([&] { return play(attach(path), *turn, 1); });
    EXPECT_EQ(first.join(), 0);
    EXPECT_EQ(second.join(), 0);
}

}  // namespace
}  // namespace tavdb::test
