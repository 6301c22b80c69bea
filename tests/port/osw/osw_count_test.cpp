// SPDX-License-Identifier: Apache-2.0
// The counting semaphore beyond its contract: codes, its greatest value, speed, and
// sleepers that are killed.
#include <limits>

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
