// SPDX-License-Identifier: Apache-2.0
// The event beyond its contract: pages that are replaced, codes, signals, and
// sleepers that wake when the mutex's holder dies.
#include <pthread.h>

#include <atomic>
#include <vector>

#include "port/osw/osw_test_support.h"

namespace tavdb::test {
namespace {

class OswEvent : public ::testing::Test {
protected:
    OswEvent() : path(folder / "table") {
        makeTable(path);
    }
    void visit(const Semaphores &set) {
        EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
        EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    }

    TempFolder folder;
    std::string path;
};

TEST_F(OswEvent, APostIsSeenOnce) {
    const Semaphores set = attach(path);
    visit(set);
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 50), 0);
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 50), code(ETIMEDOUT));
}

// A new page must not look like the one before it after as many posts.
TEST_F(OswEvent, APostOnAPageThatReplacedAnotherIsNotLost) {
    const Semaphores set = attach(path);
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    visit(set);
    std::filesystem::remove(path + ".sem");
    EXPECT_EQ(Child([&] {
                  const Semaphores other = attach(path);
                  visit(other);
                  return tavOSWPostEventSem(other.event);
              }).join(),
              0);
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 1000), 0);
}

TEST_F(OswEvent, AThreadThatNeverTookTheMutexSeesEveryPost) {
    const Semaphores set = attach(path);
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 20), code(ETIMEDOUT));
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 0), 0);
    std::thread([&] { EXPECT_EQ(tavOSWWaitEventSem(set.event, 0), 0); }).join();
}

TEST_F(OswEvent, WithoutAPostALimitedWaitRunsOut) {
    const Semaphores set = attach(path);
    visit(set);
    const auto start = Clock::now();
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 350), code(ETIMEDOUT));
    EXPECT_GE(since(start).count(), 350);
    EXPECT_LT(since(start).count(), 1500);
    EXPECT_EQ(errno, ETIMEDOUT);
}

TEST_F(OswEvent, ANegativeTimeLimitIsRefused) {
    EXPECT_EQ(tavOSWWaitEventSem(attach(path).event, -1), code(EINVAL));
}

TEST_F(OswEvent, AWaitOutlastsSignals) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    const Semaphores set = attach(path);
    std::atomic<int32_t> result = -1;
    std::thread waiter([&] {
        visit(set);
        result = tavOSWWaitEventSem(set.event, 0);
    });
    for (int i = 0; i < 20; ++i) {
        std::this_thread::sleep_for(milliseconds(10));
        pthread_kill(waiter.native_handle(), SIGUSR1);
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    waiter.join();
    EXPECT_EQ(result, 0);
}

TEST_F(OswEvent, ASleeperWakesAfterTheHolderDied) {
    Shared<std::atomic<int>> stage;
    const Semaphores set = attach(path);
    visit(set);
    Child child([&] {
        const int32_t result = tavOSWRequestMutexSem(attach(path).mutex, -1);
        ++*stage;
        for (;;)
            pause();
        return static_cast<int>(result);
    });
    ASSERT_TRUE(eventually([&] { return *stage == 1; }));
    std::thread killer([&] {
        std::this_thread::sleep_for(milliseconds(150));
        child.kill();
    });
    const auto start = Clock::now();
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 0), 0);
    EXPECT_LT(since(start).count(), 1000);
    killer.join();
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
}

TEST_F(OswEvent, OneOfManySleepersFindsTheDeath) {
    constexpr int kSleepers = 4;
    Shared<std::atomic<int>> sleeping;
    Shared<std::atomic<int>> reports;
    std::vector<Child> sleepers;
    for (int i = 0; i < kSleepers; ++i)
        sleepers.emplace_back([&] {
            const Semaphores set = attach(path);
            if (tavOSWRequestMutexSem(set.mutex, -1) != 0 || tavOSWReleaseMutexSem(set.mutex) != 0)
                return 1;
            ++*sleeping;
            if (tavOSWWaitEventSem(set.event, 4000) != 0 || tavOSWRequestMutexSem(set.mutex, -1) != 0)
                return 2;
            *reports += tavOSWMutexAbandoned(set.mutex);
            return static_cast<int>(tavOSWReleaseMutexSem(set.mutex));
        });
    ASSERT_TRUE(eventually([&] { return *sleeping == kSleepers; }));
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, -1); }).join(), 0);
    for (Child &sleeper : sleepers)
        EXPECT_EQ(sleeper.join(), 0);
    EXPECT_EQ(*reports, 1);
}

// Whoever attaches while the mutex is held does not know the page yet.
TEST_F(OswEvent, APostRightAfterAttachingReachesTheSleepersOfOtherProcesses) {
    struct Stages {
        std::atomic<int> sleeping = 0;
        std::atomic<int> holding = 0;
    };
    Shared<Stages> shared;
    Child sleeper([&] {
        const Semaphores set = attach(path);
        if (tavOSWRequestMutexSem(set.mutex, -1) != 0 || tavOSWReleaseMutexSem(set.mutex) != 0)
            return 1;
        ++shared->sleeping;
        return tavOSWWaitEventSem(set.event, 4000) == 0 ? 0 : 2;
    });
    ASSERT_TRUE(eventually([&] { return shared->sleeping == 1; }));
    Child holder([&] {
        const Semaphores set = attach(path);
        if (tavOSWRequestMutexSem(set.mutex, -1) != 0)
            return 1;
        ++shared->holding;
        usleep(200000);
        return static_cast<int>(tavOSWReleaseMutexSem(set.mutex));
    });
    ASSERT_TRUE(eventually([&] { return shared->holding == 1; }));
    EXPECT_EQ(tavOSWPostEventSem(attach(path).event), 0);
    EXPECT_EQ(sleeper.join(), 0);
    EXPECT_EQ(holder.join(), 0);
}

TEST_F(OswEvent, ALivingHolderWakesNobody) {
    const Semaphores set = attach(path);
    visit(set);
    Shared<std::atomic<bool>> held;
    const Child child([&] {
        *held = tavOSWRequestMutexSem(attach(path).mutex, -1) == 0;
        for (;;)
            pause();
        return 0;
    });
    ASSERT_TRUE(eventually([&] { return held->load(); }));
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 350), code(ETIMEDOUT));
}

TEST_F(OswEvent, ASleeperLeavesTheLockOfAThreadOfItsOwnProcessAlone) {
    const Semaphores set = attach(path);
    std::thread sleeper;
    std::atomic<bool> visited = false;
    sleeper = std::thread([&] {
        visit(set);
        visited = true;
        EXPECT_EQ(tavOSWWaitEventSem(set.event, 400), code(ETIMEDOUT));
    });
    EXPECT_TRUE(eventually([&] { return visited.load(); }));
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, 600) == code(ETIMEDOUT); }).join(), 1);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    sleeper.join();
}

}  // namespace
}  // namespace tavdb::test
