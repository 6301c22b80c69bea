// SPDX-License-Identifier: Apache-2.0
// The counting semaphore of a table.
#include <atomic>
#include <cstring>
#include <limits>
#include <vector>

#include "port/osw/osw_test_support.h"

namespace tavdb::test {
namespace {

class OswCount : public ::testing::Test {
protected:
    OswCount() : path(folder / "table") {
        makeTable(path);
    }
    TempFolder folder;
    std::string path;
};

TEST_F(OswCount, EveryPostLetsOneWaitThrough) {
    const Semaphores set = attach(path);
    EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
    EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
    EXPECT_EQ(tavOSWWaitCountSem(set.count, 0), 0);
    EXPECT_EQ(tavOSWWaitCountSem(set.count, 0), 0);
    const auto start = Clock::now();
    EXPECT_EQ(tavOSWWaitCountSem(set.count, 150), code(ETIMEDOUT));
    EXPECT_GE(since(start).count(), 150);
}

TEST_F(OswCount, ItIsSharedAndAttachingKeepsIt) {
    EXPECT_EQ(Child([&] { return tavOSWPostCountSem(attach(path).count); }).join(), 0);
    EXPECT_EQ(Child([&] { return tavOSWWaitCountSem(attach(path).count, 2000); }).join(), 0);
    EXPECT_EQ(tavOSWWaitCountSem(attach(path).count, 20), code(ETIMEDOUT));
}

TEST_F(OswCount, ASleeperIsWokenByAnotherProcess) {
    const Semaphores set = attach(path);
    Child waiter([&] { return tavOSWWaitCountSem(attach(path).count, 0); });
    std::this_thread::sleep_for(milliseconds(150));
    EXPECT_FALSE(waiter.hasEnded());
    EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
    EXPECT_EQ(waiter.join(), 0);
}

TEST_F(OswCount, ASleeperThatIsKilledTakesNoPostWithIt) {
    const Semaphores set = attach(path);
    for (int round = 0; round < 20; ++round) {
        Child doomed([&] { return tavOSWWaitCountSem(attach(path).count, 0); });
        Child waiter([&] { return tavOSWWaitCountSem(attach(path).count, 2000); });
        std::this_thread::sleep_for(milliseconds(10));
        doomed.kill();
        EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
        EXPECT_EQ(waiter.join(), 0);
    }
    EXPECT_EQ(tavOSWWaitCountSem(set.count, 20), code(ETIMEDOUT));
}

TEST_F(OswCount, PostsAndWaitsOfManyProcessesBalance) {
    constexpr int kPairs = 2;
    constexpr int kRounds = 3000;
    std::vector<Child> children;
    for (int i = 0; i < kPairs; ++i) {
        children.emplace_back([&] {
            const Semaphores set = attach(path);
            for (int round = 0; round < kRounds; ++round)
                if (tavOSWPostCountSem(set.count) != 0)
                    return 1;
            return 0;
        });
        children.emplace_back([&] {
            const Semaphores set = attach(path);
            for (int round = 0; round < kRounds; ++round)
                if (tavOSWWaitCountSem(set.count, 4000) != 0)
                    return 1;
            return 0;
        });
    }
    for (Child &child : children)
        EXPECT_EQ(child.join(), 0);
    EXPECT_EQ(tavOSWWaitCountSem(attach(path).count, 20), code(ETIMEDOUT));
}

TEST_F(OswCount, APostWakesASleeperAtOnce) {
    constexpr int kRounds = 40;
    makeTable(folder / "back");
    Child other([&] {
        const Semaphores there = attach(path);
        const Semaphores back = attach(folder / "back");
        for (int round = 0; round < kRounds; ++round)
            if (tavOSWWaitCountSem(there.count, 4000) != 0 || tavOSWPostCountSem(back.count) != 0)
                return 1;
        return 0;
    });
    const Semaphores there = attach(path);
    const Semaphores back = attach(folder / "back");
    const auto start = Clock::now();
    for (int round = 0; round < kRounds; ++round) {
        ASSERT_EQ(tavOSWPostCountSem(there.count), 0);
        ASSERT_EQ(tavOSWWaitCountSem(back.count, 4000), 0);
    }
    EXPECT_LT(since(start).count(), 2000) << "found by looking around every 100 ms only";
    EXPECT_EQ(other.join(), 0);
}

TEST_F(OswCount, AFullCountRefusesAPost) {
    const Semaphores set = attach(path);
    const int fd = open((path + ".sem").c_str(), O_RDWR);
    const uint32_t full = std::numeric_limits<uint32_t>::max();
    constexpr off_t kCountOffset = 32;
    ASSERT_EQ(pwrite(fd, &full, sizeof full, kCountOffset), static_cast<ssize_t>(sizeof full));
    close(fd);
    EXPECT_EQ(tavOSWPostCountSem(set.count), code(EOVERFLOW));
    EXPECT_EQ(tavOSWWaitCountSem(set.count, 0), 0);
    EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
}

TEST_F(OswCount, ANegativeTimeLimitIsRefused) {
    EXPECT_EQ(tavOSWWaitCountSem(attach(path).count, -1), code(EINVAL));
}

}  // namespace
}  // namespace tavdb::test
