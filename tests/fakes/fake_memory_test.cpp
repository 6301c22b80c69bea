// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_memory.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "fakes/byte_text.h"
#include "fakes/event_log.h"
#include "fakes/fakes_test.h"
#include "fakes/fault_plan.h"
#include "tavdb_platform.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using Memory = FakesTest;
using MemoryDeathTest = FakesTest;

TEST_F(Memory, CountsLiveBlocks) {
    void *const a = tavOSWSubAllocMem(28);
    void *const b = tavOSWSubAllocMem(0);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(fakeMemory().liveBlocks(), 2U);
    EXPECT_EQ(fakeMemory().liveBytes(), 28U);
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, b), 0);
    EXPECT_EQ(fakeMemory().liveText(), "1 block: 28");
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, a), 0);
    EXPECT_EQ(fakeMemory().liveText(), "");
    EXPECT_THAT(eventLog().lines(), ElementsAre("alloc 28", "alloc 0", "free 0", "free 28"));
}

TEST_F(Memory, FreshBlocksAreNotZero) {
    uint8_t *const block = static_cast<uint8_t *>(tavOSWSubAllocMem(4));
    EXPECT_EQ(hexText({block, 4}), "cd cd cd cd");
    tavOSWOrgFreeMemPart(0, block);
}

TEST_F(Memory, AbsurdSizesAreRefused) {
    errno = 0;
    EXPECT_EQ(tavOSWSubAllocMem(FakeMemory::kLargestBlock + 1), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(eventLog().text(), "alloc 67108865 -> 0 ENOMEM\n");
}

TEST_F(Memory, ThePlanRefusesABlock) {
    faultPlan().add({.operation = Operation::alloc});
    errno = 0;
    EXPECT_EQ(tavOSWSubAllocMem(4), nullptr);
    EXPECT_EQ(errno, ENOMEM);
}

TEST_F(Memory, FreeingTwiceFailsTheTest) {
    void *const block = tavOSWSubAllocMem(4);
    tavOSWOrgFreeMemPart(0, block);
    EXPECT_NONFATAL_FAILURE(tavOSWOrgFreeMemPart(0, block), "a block was freed");
}

TEST_F(Memory, FreeingAForeignBlockFailsTheTest) {
    int other = 0;
    EXPECT_NONFATAL_FAILURE(tavOSWOrgFreeMemPart(0, &other), "not allocated");
    EXPECT_NONFATAL_FAILURE(tavOSWOrgFreeMemPart(0, nullptr), "not allocated");
}

TEST_F(Memory, AWrongPartFailsTheTest) {
    void *const block = tavOSWSubAllocMem(4);
    EXPECT_NONFATAL_FAILURE(tavOSWOrgFreeMemPart(1, block), "part 1");
}

TEST_F(Memory, ForgottenBlocksCountNoMoreAndMayStillBeFreed) {
    void *const block = tavOSWSubAllocMem(4);
    fakeMemory().forgetLive();
    EXPECT_EQ(fakeMemory().liveBlocks(), 0U);
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, block), 0);
}

TEST_F(MemoryDeathTest, WritingPastTheEndFailsTheTest) {
    volatile uint8_t *const block = static_cast<uint8_t *>(tavOSWSubAllocMem(4));
    const auto write = [&] { block[4] = 1; };
    if (!FakeMemory::guardsBlocks()) {
        EXPECT_DEATH(write(), "AddressSanitizer");
        return;
    }
    write();
    EXPECT_NONFATAL_FAILURE(tavOSWOrgFreeMemPart(0, const_cast<uint8_t *>(block)), "past its end");
}

TEST_F(MemoryDeathTest, WritingToAFreedBlockFailsTheTest) {
    volatile uint8_t *const block = static_cast<uint8_t *>(tavOSWSubAllocMem(4));
    tavOSWOrgFreeMemPart(0, const_cast<uint8_t *>(block));
    const auto write = [&] { block[0] = 1; };
    if (!FakeMemory::guardsBlocks()) {
        EXPECT_DEATH(write(), "AddressSanitizer");
        return;
    }
    EXPECT_EQ(block[0], FakeMemory::kFreedByte);
    write();
    EXPECT_NONFATAL_FAILURE(fakeMemory().checkFreedBlocks(), "was written to");
}

}  // namespace
}  // namespace tavdb_test
