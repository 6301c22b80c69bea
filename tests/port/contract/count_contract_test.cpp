// SPDX-License-Identifier: Apache-2.0
// The counting semaphore of a table. The library creates it and offers it to its
// users, but waits for it nowhere itself.
#include <vector>

#include "port/contract/platform_under_test.h"
#include "rounds.h"

namespace tavdb::test {
namespace {

constexpr int kCountRounds = tavdb_test::kSlow ? 300 : 3000;
constexpr int32_t kCountLimitMs = 4000;

using CountContract = TableContractTest;

TEST_F(CountContract, HandleZeroIsRefused) {
    EXPECT_NE(tavOSWWaitCountSem(0, 0), 0);
    EXPECT_NE(tavOSWPostCountSem(0), 0);
}

TEST_F(CountContract, EveryPostLetsOneWaitThrough) {
    const Semaphores set = attach(path);
    for (int post = 0; post < 3; ++post)
        EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
    for (int wait = 0; wait < 3; ++wait)
        EXPECT_EQ(tavOSWWaitCountSem(set.count, 0), 0);
}

TEST_F(CountContract, ItBeginsAtZeroAndEndsThere) {
    TAVDB_NEEDS_SLEEP;
    const Semaphores set = attach(path);
    const auto start = Clock::now();
    EXPECT_NE(tavOSWWaitCountSem(set.count, 150), 0);
    EXPECT_GE(since(start).count(), 150);
    EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
    EXPECT_EQ(tavOSWWaitCountSem(set.count, 0), 0);
    EXPECT_NE(tavOSWWaitCountSem(set.count, 20), 0);
}

TEST_F(CountContract, CreatingAgainForTheTableKeepsTheCount) {
    EXPECT_EQ(tavOSWPostCountSem(attach(path).count), 0);
    EXPECT_EQ(tavOSWWaitCountSem(attach(path).count, kCountLimitMs), 0);
}

TEST_F(CountContract, AThreadThatWaitsIsWoken) {
    TAVDB_NEEDS_SLEEP;
    const Semaphores set = attach(path);
    std::thread waiter([&] { EXPECT_EQ(tavOSWWaitCountSem(set.count, 0), 0); });
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
    waiter.join();
}

TEST_F(CountContract, ProcessesShareItAndWakeEachOther) {
    TAVDB_NEEDS_SLEEP;
    TAVDB_NEEDS_PROCESSES;
    EXPECT_EQ(Child([&] { return tavOSWPostCountSem(attach(path).count); }).join(), 0);
    EXPECT_EQ(Child([&] { return tavOSWWaitCountSem(attach(path).count, kCountLimitMs); }).join(), 0);
    Child waiter([&] { return tavOSWWaitCountSem(attach(path).count, 0); });
    std::this_thread::sleep_for(milliseconds(150));
    EXPECT_FALSE(waiter.hasEnded());
    EXPECT_EQ(tavOSWPostCountSem(attach(path).count), 0);
    EXPECT_EQ(waiter.join(), 0);
}

TEST_F(CountContract, PostsAndWaitsOfManyProcessesBalance) {
    TAVDB_NEEDS_SLEEP;
    TAVDB_NEEDS_PROCESSES;
    constexpr int kPairs = 2;
    std::vector<Child> children;
    for (int i = 0; i < kPairs; ++i) {
        children.emplace_back([&] {
            const Semaphores set = attach(path);
            for (int round = 0; round < kCountRounds; ++round)
                if (tavOSWPostCountSem(set.count) != 0)
                    return 1;
            return 0;
        });
        children.emplace_back([&] {
            const Semaphores set = attach(path);
            for (int round = 0; round < kCountRounds; ++round)
                if (tavOSWWaitCountSem(set.count, kCountLimitMs) != 0)
                    return 1;
            return 0;
        });
    }
    for (Child &child : children)
        EXPECT_EQ(child.join(), 0);
    EXPECT_NE(tavOSWWaitCountSem(attach(path).count, 20), 0);
}

}  // namespace
}  // namespace tavdb::test
