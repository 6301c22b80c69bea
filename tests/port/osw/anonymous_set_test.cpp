// SPDX-License-Identifier: Apache-2.0
// Sets that no table was announced for: shared with later children only.
#include <atomic>

#include "port/osw/osw_test_support.h"

namespace tavdb::test {
namespace {

TEST(AnonymousSet, EveryCreationOfAMutexStartsANewSet) {
    const Semaphores first = createSemaphores();
    const Semaphores second = createSemaphores();
    ASSERT_EQ(first.result, 0);
    ASSERT_EQ(second.result, 0);
    EXPECT_NE(first.mutex, second.mutex);
    ASSERT_EQ(tavOSWRequestMutexSem(first.mutex, 0), 0);
    EXPECT_EQ(tavOSWRequestMutexSem(second.mutex, 0), 0);
}

TEST(AnonymousSet, MutexIsSharedWithLaterChildren) {
    const Semaphores set = createSemaphores();
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(set.mutex, 0) == code(EAGAIN); }).join(), 1);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(set.mutex, 0); }).join(), 0);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
}

TEST(AnonymousSet, EventAndCountAreSharedWithLaterChildren) {
    const Semaphores set = createSemaphores();
    Child waiter([&] { return tavOSWWaitEventSem(set.event, 4000) + tavOSWWaitCountSem(set.count, 4000); });
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
    EXPECT_EQ(waiter.join(), 0);
    EXPECT_EQ(tavOSWWaitCountSem(set.count, 20), code(ETIMEDOUT));
}

TEST(AnonymousSet, ASleeperWakesAfterTheHolderDied) {
    const Semaphores set = createSemaphores();
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    ASSERT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(set.mutex, 0); }).join(), 0);
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 2000), 0);
}

TEST(AnonymousSet, CountAndEventStandAloneToo) {
    uint32_t count = 0;
    uint32_t event = 0;
    EXPECT_EQ(tavOSWCreateCountSem(&count, 0, 0), 0);
    EXPECT_EQ(tavOSWCreateEventSem(&event, 0, 0), 0);
    EXPECT_EQ(tavOSWPostCountSem(count), 0);
    EXPECT_EQ(tavOSWWaitCountSem(count, 0), 0);
    EXPECT_EQ(tavOSWWaitEventSem(event, 20), code(ETIMEDOUT));
}

TEST(AnonymousSet, ALostDescriptorIsAnError) {
    const Semaphores set = createSemaphores();
    ASSERT_EQ(close_range(3, ~0U, 0), 0);
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, -1), code(EBADF));
}

}  // namespace
}  // namespace tavdb::test
