// SPDX-License-Identifier: Apache-2.0
// Holders of a mutex that die: the mutex is had by the next one, and where the
// platform reports deaths the next one is told, once. Only what the library
// needs; how fast and by what means is the port's own affair.
#include <atomic>
#include <random>
#include <vector>

#include "port/contract/platform_under_test.h"
#include "rounds.h"

namespace tavdb::test {
namespace {

constexpr int32_t kDeathLimitMs = 5000;
constexpr uint32_t kKills = tavdb_test::kSlow ? 100 : 800;

class OwnerDeathContract : public TableContractTest {
protected:
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
    /// In a child: takes the mutex and exits with it. @return 0
    int leaveHolding() {
        return Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, kDeathLimitMs); }).join();
    }

    Shared<std::atomic<bool>> held;
};

#define TAVDB_NEEDS_REPORTS \
    TAVDB_NEEDS_PROCESSES;  \
    TAVDB_NEEDS(tavOSWMutexAbandoned == nullptr ? "it does not report deaths" : nullptr)

TEST_F(OwnerDeathContract, TheMutexOfAKilledHolderCanBeHad) {
    TAVDB_NEEDS_PROCESSES;
    const Semaphores set = attach(path);
    for (int round = 0; round < 5; ++round) {
        holder().kill();
        ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, kDeathLimitMs), 0) << round;
        ASSERT_EQ(tavOSWReleaseMutexSem(set.mutex), 0) << round;
    }
}

TEST_F(OwnerDeathContract, WhoWaitsWhenItsHolderIsKilledGetsTheMutex) {
    TAVDB_NEEDS_PROCESSES;
    const Semaphores set = attach(path);
    Child child = holder();
    std::thread killer([&] {
        std::this_thread::sleep_for(milliseconds(100));
        child.kill();
    });
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, kDeathLimitMs), 0);
    killer.join();
}

TEST_F(OwnerDeathContract, AWaiterThatIsKilledLeavesTheMutexToTheOthers) {
    TAVDB_NEEDS_PROCESSES;
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    Child waiter([&] { return tavOSWRequestMutexSem(attach(path).mutex, -1); });
    std::this_thread::sleep_for(milliseconds(100));
    waiter.kill();
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_EQ(leaveHolding(), 0);
}

TEST_F(OwnerDeathContract, ADeathIsReportedExactlyOnce) {
    TAVDB_NEEDS_REPORTS;
    const Semaphores set = attach(path);
    holder().kill();
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, kDeathLimitMs), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, kDeathLimitMs), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
}

TEST_F(OwnerDeathContract, AReleaseIsNoDeath) {
    TAVDB_NEEDS_REPORTS;
    EXPECT_EQ(Child([&] {
                  const Semaphores set = attach(path);
                  return tavOSWRequestMutexSem(set.mutex, -1) + tavOSWReleaseMutexSem(set.mutex);
              }).join(),
              0);
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, kDeathLimitMs), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
}

TEST_F(OwnerDeathContract, AHolderThatExitsIsReportedToo) {
    TAVDB_NEEDS_REPORTS;
    ASSERT_EQ(leaveHolding(), 0);
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, kDeathLimitMs), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
}

TEST_F(OwnerDeathContract, AHolderThatDiesBeforeItAskedPassesTheReportOn) {
    TAVDB_NEEDS_REPORTS;
    holder().kill();
    ASSERT_EQ(leaveHolding(), 0);
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, kDeathLimitMs), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
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

TEST_F(OwnerDeathContract, ManyKillsStopNobodyAndEveryDeathInsideIsReported) {
    TAVDB_NEEDS_REPORTS;
    constexpr int kWorkers = 3;
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
    for (uint32_t kill = 0; kill < kKills; ++kill) {
        std::this_thread::sleep_for(std::chrono::microseconds(500 + random() % 3000));
        Child &victim = workers[random() % kWorkers];
        victim.kill();
        victim = Child(worker);
    }
    for (Child &child : workers)
        child.kill();
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, kDeathLimitMs), 0);
    printf("%u deaths reported, %u of them with the data left open, %u rounds\n", shared->reports.load(),
           shared->mended.load(), shared->second);
    EXPECT_EQ(shared->faults, 0U);
    EXPECT_GT(shared->reports, 0U);
    EXPECT_GE(shared->reports, shared->mended.load());
}

}  // namespace
}  // namespace tavdb::test
