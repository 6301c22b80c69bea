// SPDX-License-Identifier: Apache-2.0
// The mutex beyond its contract: codes, misuse, time limits, signals, and how soon
// a dead holder's mutex is free.
#include <pthread.h>

#include <atomic>

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

TEST_F(OswMutex, AKilledHoldersMutexIsFreeAtOnce) {
    const Semaphores set = attach(path);
    holder().kill();
    const auto start = Clock::now();
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_LT(since(start).count(), 50);
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

}  // namespace
}  // namespace tavdb::test
