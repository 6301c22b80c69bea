// SPDX-License-Identifier: Apache-2.0
// The mutex of a table: which handles there are, and exclusion between threads
// and between processes.
#include <atomic>
#include <vector>

#include "port/contract/platform_under_test.h"
#include "rounds.h"

namespace tavdb::test {
namespace {

constexpr int kMutexRounds = tavdb_test::kSlow ? 200 : 1500;

using MutexContract = TableContractTest;

TEST_F(MutexContract, HandlesAreNeverZeroAndAllDifferent) {
    const Semaphores set = attach(path);
    ASSERT_EQ(set.result, 0);
    EXPECT_NE(set.mutex, 0U);
    EXPECT_NE(set.count, 0U);
    EXPECT_NE(set.event, 0U);
    EXPECT_NE(set.mutex, set.count);
    EXPECT_NE(set.mutex, set.event);
    EXPECT_NE(set.count, set.event);
}

TEST_F(MutexContract, HandleZeroIsRefused) {
    EXPECT_NE(tavOSWRequestMutexSem(0, -1), 0);
    EXPECT_NE(tavOSWRequestMutexSem(0, 0), 0);
    EXPECT_NE(tavOSWReleaseMutexSem(0), 0);
}

TEST_F(MutexContract, ItIsTakenAndReleasedAgainAndAgain) {
    const Semaphores set = attach(path);
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, round % 2 == 0 ? -1 : 0), 0);
        ASSERT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    }
}

TEST_F(MutexContract, CreatingAgainForTheTableGivesTheSameMutex) {
    const Semaphores first = attach(path);
    const Semaphores second = attach(path);
    ASSERT_EQ(second.result, 0);
    ASSERT_EQ(tavOSWRequestMutexSem(first.mutex, -1), 0);
    std::thread([&] { EXPECT_NE(tavOSWRequestMutexSem(second.mutex, 0), 0); }).join();
    EXPECT_EQ(tavOSWReleaseMutexSem(second.mutex), 0);
}

TEST_F(MutexContract, AnotherTablesMutexIsFree) {
    TAVDB_NEEDS(tavOSWSemAnnounce == nullptr ? "tables are not announced to it" : nullptr);
    makeTable(folder / "other");
    const Semaphores set = attach(path);
    const Semaphores other = attach(folder / "other");
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    std::thread([&] {
        EXPECT_EQ(tavOSWRequestMutexSem(other.mutex, 0), 0);
        EXPECT_EQ(tavOSWReleaseMutexSem(other.mutex), 0);
    }).join();
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
}

TEST_F(MutexContract, TryingOnceFailsAtOnceAndChangesNothing) {
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    const auto start = Clock::now();
    std::thread([&] { EXPECT_NE(tavOSWRequestMutexSem(set.mutex, 0), 0); }).join();
    EXPECT_LT(since(start).count(), 1000);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    std::thread([&] {
        EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
        EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    }).join();
}

TEST_F(MutexContract, ALimitedWaitEndsInTime) {
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    std::thread([&] {
        const auto start = Clock::now();
        EXPECT_NE(tavOSWRequestMutexSem(set.mutex, 150), 0);
        EXPECT_GE(since(start).count(), 150);
        EXPECT_LT(since(start).count(), 2500);
    }).join();
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
}

TEST_F(MutexContract, AWaitGetsAMutexThatIsReleasedMeanwhile) {
    const Semaphores set = attach(path);
    for (const int32_t timeoutMs : {-1, 4000}) {
        std::atomic<bool> taken = false;
        std::thread other([&] {
            EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
            taken = true;
            std::this_thread::sleep_for(milliseconds(100));
            EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
        });
        EXPECT_TRUE(eventually([&] { return taken.load(); }));
        EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, timeoutMs), 0);
        EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
        other.join();
    }
}

struct Unprotected {
    volatile int counter = 0;
    volatile int inside = 0;
    volatile bool failed = false;
};

void countUp(Unprotected &shared, uint32_t mutex) {
    for (int round = 0; round < kMutexRounds; ++round) {
        if (tavOSWRequestMutexSem(mutex, -1) != 0 || shared.inside != 0)
            shared.failed = true;
        shared.inside = 1;
        const int before = shared.counter;
        if (round % 16 == 0)
            sched_yield();
        shared.counter = before + 1;
        shared.inside = 0;
        if (tavOSWReleaseMutexSem(mutex) != 0)
            shared.failed = true;
    }
}

void countUpInThreads(Unprotected &shared, uint32_t mutex, int threadCount) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread)
        threads.emplace_back([&shared, mutex] { countUp(shared, mutex); });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(MutexContract, ThreadsExcludeEachOther) {
    constexpr int kThreads = 4;
    const Semaphores set = attach(path);
    Unprotected shared;
    countUpInThreads(shared, set.mutex, kThreads);
    EXPECT_FALSE(shared.failed);
    EXPECT_EQ(shared.counter, kThreads * kMutexRounds);
}

TEST_F(MutexContract, ThreadsOfSeveralProcessesExcludeEachOther) {
    TAVDB_NEEDS_PROCESSES;
    constexpr int kProcesses = 3;
    constexpr int kThreads = 3;
    Shared<Unprotected> shared;
    std::vector<Child> children;
    for (int process = 0; process < kProcesses; ++process)
        children.emplace_back([&] {
            const Semaphores set = attach(path);
            countUpInThreads(*shared, set.mutex, kThreads);
            return set.result == 0 ? 0 : 1;
        });
    for (Child &child : children)
        EXPECT_EQ(child.join(), 0);
    EXPECT_FALSE(shared->failed);
    EXPECT_EQ(shared->counter, kProcesses * kThreads * kMutexRounds);
}

TEST_F(MutexContract, AChildThatInheritedTheHandlesIsExcludedToo) {
    TAVDB_NEEDS_PROCESSES;
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(set.mutex, 0) != 0 ? 0 : 1; }).join(), 0);
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, 0) != 0 ? 0 : 1; }).join(), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_EQ(Child([&] {
                  return tavOSWRequestMutexSem(set.mutex, 0) == 0 && tavOSWReleaseMutexSem(set.mutex) == 0 ? 0 : 1;
              }).join(),
              0);
}

}  // namespace
}  // namespace tavdb::test
