// SPDX-License-Identifier: Apache-2.0
// The library's heap.
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "tavdb_platform.h"

namespace tavdb::test {
namespace {

TEST(OswMemory, ABlockIsWritableAndAlignedForAnyType) {
    for (const uint32_t size : {1U, 7U, 4096U, 541740U}) {
        void *const block = tavOSWSubAllocMem(size);
        ASSERT_NE(block, nullptr) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0U) << size;
        memset(block, 0x5A, size);
        EXPECT_EQ(tavOSWOrgFreeMemPart(0, block), 0);
    }
}

TEST(OswMemory, ARequestOfNoBytesGivesABlockOfItsOwn) {
    void *const first = tavOSWSubAllocMem(0);
    void *const second = tavOSWSubAllocMem(0);
    EXPECT_NE(first, nullptr);
    EXPECT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, first), 0);
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, second), 0);
}

TEST(OswMemory, NothingCanBeGivenBack) {
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, nullptr), 0);
}

// Sanitizers take huge requests for errors and need the address space themselves.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(OswMemory, WithoutMemoryTheAnswerIsNullAndTheReasonIsInErrno) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit tight = {256U << 20, 256U << 20};
        errno = 0;
        const bool limited = setrlimit(RLIMIT_AS, &tight) == 0;
        _exit(limited && tavOSWSubAllocMem(0xFFFFFFFF) == nullptr && errno == ENOMEM ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}
#endif

}  // namespace
}  // namespace tavdb::test
