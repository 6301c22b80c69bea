// SPDX-License-Identifier: Apache-2.0
// The mutex: exclusion between threads and processes, time limits, misuse, and
// holders that die.
#include <pthread.h>

#include <atomic>
#include <random>
#include <vector>

#include "port/osw/osw_test_support.h"

namespace tavdb::test {
namespace {

class OswMutex : public ::testing::Test {
protected:
    OswMutex() : path(folder / "table") {
        makeTable(path);
    }
    /// A child that takes the mutex and keeps it until it is killed.
    Child holder() {
        Child child([&] {
            const Semaphores set = attach(path);
            if (tavOSWRequestMutexSem(set.mutex, -1) != 0)
                return 1;
            *held = true;
            for (;;)
                pause();
        });
        EXPECT_TRUE(eventually([&] { return held->load(); }));
        *held = false;
        return child;
    }

    TempFolder folder;
    std::string path;
    Shared<std::atomic<bool>> held;
};

TEST_F(OswMutex, ThreadsOfSeveralProcessesExcludeEachOther) {
    constexpr int kProcesses = 3;
    constexpr int kThreads = 3;
    constexpr int kRounds = 1500;
    struct Unprotected {
        volatile int counter = 0;
        volatile int inside = 0;
        volatile bool failed = false;
    };
    Shared<Unprotected> shared;
    const auto work = [&](uint32_t mutex) {
        for (int round = 0; round < kRounds; ++round) {
            if (tavOSWRequestMutexSem(mutex, -1) != 0 || shared->inside != 0)
                shared->failed = true;
            shared->inside = 1;
            const int before = shared->counter;
            if (round % 16 == 0)
                sched_yield();
            shared->counter = before + 1;
            shared->inside = 0;
            if (tavOSWReleaseMutexSem(mutex) != 0)
                shared->failed = true;
        }
    };
    std::vector<Child> children;
    for (int process = 0; process < kProcesses; ++process)
        children.emplace_back([&] {
            const Semaphores set = attach(path);
            std::vector<std::thread> threads;
            for (int thread = 0; thread < kThreads; ++thread)
                threads.emplace_back(work, set.mutex);
            for (std::thread &thread : threads)
                thread.join();
            return set.result == 0 ? 0 : 1;
        });
    for (Child &child : children)
        EXPECT_EQ(child.join(), 0);
    EXPECT_FALSE(shared->failed);
    EXPECT_EQ(shared->counter, kProcesses * kThreads * kRounds);
}

TEST_F(OswMutex, ASecondRequestOfTheHolderIsRefusedAndChangesNothing) {
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, -1), code(EDEADLK));
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 0), code(EDEADLK));
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, 0) == code(EAGAIN); }).join(), 1);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, 0); }).join(), 0);
}

TEST_F(OswMutex, OnlyTheHolderCanRelease) {
    const Semaphores set = attach(path);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), code(EPERM));
    EXPECT_EQ(errno, EPERM);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    std::thread([&] { EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), code(EPERM)); }).join();
    EXPECT_EQ(Child([&] { return tavOSWReleaseMutexSem(attach(path).mutex) == code(EPERM); }).join(), 1);
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, 0) == code(EAGAIN); }).join(), 1);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), code(EPERM));
}

TEST_F(OswMutex, TryingOnceFailsWhileAThreadOrAProcessHoldsIt) {
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    std::thread([&] { EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 0), code(EAGAIN)); }).join();
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    const Child child = holder();
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 0), code(EAGAIN));
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(OswMutex, ALimitedWaitEndsInTime) {
    const Semaphores set = attach(path);
    Child child = holder();
    const auto start = Clock::now();
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 150), code(ETIMEDOUT));
    EXPECT_GE(since(start).count(), 150);
    EXPECT_LT(since(start).count(), 1500);
    child.kill();
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 150), 0);
}

TEST_F(OswMutex, ALimitedWaitGetsAMutexThatIsReleasedMeanwhile) {
    const Semaphores set = attach(path);
    std::atomic<bool> taken = false;
    std::thread other([&] {
        EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
        taken = true;
        std::this_thread::sleep_for(milliseconds(100));
        EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    });
    EXPECT_TRUE(eventually([&] { return taken.load(); }));
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 4000), 0);
    other.join();
}

TEST_F(OswMutex, ATimeLimitBelowMinusOneIsRefused) {
    const Semaphores set = attach(path);
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, -2), code(EINVAL));
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), code(EPERM));
}

TEST_F(OswMutex, AWaitOutlastsSignals) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    const Semaphores set = attach(path);
    Child child = holder();
    std::atomic<int32_t> result = -1;
    std::thread waiter([&] { result = tavOSWRequestMutexSem(set.mutex, -1); });
    for (int i = 0; i < 20; ++i) {
        pthread_kill(waiter.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(milliseconds(5));
    }
    EXPECT_EQ(result, -1);
    child.kill();
    waiter.join();
    EXPECT_EQ(result, 0);
}

TEST_F(OswMutex, TheDeathOfAHolderIsReportedExactlyOnce) {
    const Semaphores set = attach(path);
    holder().kill();
    const auto start = Clock::now();
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_LT(since(start).count(), 50);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_EQ(Child([&] {
                  const Semaphores other = attach(path);
                  return tavOSWRequestMutexSem(other.mutex, -1) + tavOSWMutexAbandoned(other.mutex);
              }).join(),
              0);
}

TEST_F(OswMutex, AHolderThatExitsIsReportedToo) {
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, -1); }).join(), 0);
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
}

TEST_F(OswMutex, ARequesterThatDiesBeforeItAskedPassesTheReportOn) {
    holder().kill();
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, -1); }).join(), 0);
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
}

TEST_F(OswMutex, ADeathIsReportedToTheHolderOnly) {
    const Semaphores set = attach(path);
    holder().kill();
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 0);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    std::thread([&] { EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 0); }).join();
    EXPECT_EQ(tavOSWMutexAbandoned(0), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.event), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
}

TEST_F(OswMutex, AWaiterGetsTheMutexOfAKilledHolder) {
    const Semaphores set = attach(path);
    Child child = holder();
    std::thread killer([&] {
        std::this_thread::sleep_for(milliseconds(100));
        child.kill();
    });
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
    killer.join();
}

// Workers count two words up together; one that is killed may leave them apart,
// but never without the next one being told.
struct KillShared {
    volatile uint32_t first = 0;
    volatile uint32_t second = 0;
    volatile int inside = 0;
    std::atomic<uint32_t> mended = 0;
    std::atomic<uint32_t> reports = 0;
    std::atomic<uint32_t> faults = 0;
};

void workUnderFire(KillShared &shared, uint32_t mutex) {
    if (tavOSWRequestMutexSem(mutex, -1) != 0) {
        ++shared.faults;
        return;
    }
    if (tavOSWMutexAbandoned(mutex) == 1) {
        ++shared.reports;
        shared.mended += shared.inside != 0 ? 1 : 0;
        shared.second = shared.first;
        shared.inside = 0;
    }
    if (shared.inside != 0 || shared.first != shared.second)
        ++shared.faults;
    shared.inside = 1;
    shared.first = shared.first + 1;
    for (int spin = 0; spin < 30000; ++spin)
        shared.inside = spin + 1;
    shared.second = shared.second + 1;
    shared.inside = 0;
    if (tavOSWReleaseMutexSem(mutex) != 0)
        ++shared.faults;
}

TEST_F(OswMutex, HundredsOfKillsStopNobodyAndEveryDeathInsideIsReported) {
    constexpr int kWorkers = 3;
    constexpr auto kDuration = milliseconds(3000);
    Shared<KillShared> shared;
    const auto worker = [&] {
        const Semaphores set = attach(path);
        for (;;)
            workUnderFire(*shared, set.mutex);
        return 0;
    };
    std::vector<Child> workers;
    for (int i = 0; i < kWorkers; ++i)
        workers.emplace_back(worker);
    std::minstd_rand random(4711);
    uint32_t kills = 0;
    for (const auto start = Clock::now(); since(start) < kDuration; ++kills) {
        std::this_thread::sleep_for(std::chrono::microseconds(500 + random() % 3000));
        Child &victim = workers[random() % kWorkers];
        victim.kill();
        victim = Child(worker);
    }
    for (Child &child : workers)
        child.kill();
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 1000), 0);
    printf("%u kills, %u deaths reported, %u of them with the data left open, %u rounds\n", kills,
           shared->reports.load(), shared->mended.load(), shared->second);
    EXPECT_EQ(shared->faults, 0U);
    EXPECT_GE(kills, 100U);
    EXPECT_GT(shared->reports, 0U);
    EXPECT_GE(shared->reports, shared->mended.load());
}

}  // namespace
}  // namespace tavdb::test
