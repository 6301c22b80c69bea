// SPDX-License-Identifier: Apache-2.0
// The library's heap.
#include <sys/resource.h>

#include <cstddef>
#include <cstring>

#include "port/contract/platform_under_test.h"

namespace tavdb::test {
namespace {

using MemoryContract = ContractTest;

TEST_F(MemoryContract, ABlockIsWritableAndAlignedForAnyType) {
    for (const uint32_t size : {1U, 7U, 28U, 4096U, 541740U}) {
        void *const block = tavOSWSubAllocMem(size);
        ASSERT_NE(block, nullptr) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0U) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(uint64_t), 0U) << size;
        memset(block, 0x5A, size);
        EXPECT_EQ(tavOSWOrgFreeMemPart(0, block), 0);
    }
}

TEST_F(MemoryContract, ARequestOfNoBytesGivesABlockOfItsOwn) {
    void *const first = tavOSWSubAllocMem(0);
    void *const second = tavOSWSubAllocMem(0);
    EXPECT_NE(first, nullptr);
    EXPECT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, first), 0);
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, second), 0);
}

TEST_F(MemoryContract, BlocksDoNotOverlap) {
    char *const first = static_cast<char *>(tavOSWSubAllocMem(100));
    char *const second = static_cast<char *>(tavOSWSubAllocMem(100));
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    memset(first, 'a', 100);
    memset(second, 'b', 100);
    EXPECT_EQ(std::string(first, 100), std::string(100, 'a'));
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, first), 0);
    EXPECT_EQ(std::string(second, 100), std::string(100, 'b'));
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, second), 0);
}

// Sanitizers take huge requests for errors and need the address space themselves.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(MemoryContract, WithoutMemoryTheAnswerIsNullAndTheReasonIsInErrno) {
    EXPECT_EQ(Child([] {
                  const rlimit tight = {256U << 20, 256U << 20};
                  errno = 0;
                  const bool limited = setrlimit(RLIMIT_AS, &tight) == 0;
                  return limited && tavOSWSubAllocMem(0xFFFFFFFF) == nullptr && errno != 0 ? 0 : 1;
              }).join(),
              0);
}
#endif

}  // namespace
}  // namespace tavdb::test
