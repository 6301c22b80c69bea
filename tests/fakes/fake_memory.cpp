// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_memory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fakes/errno_keeper.h"
#include "fakes/event_log.h"
#include "fakes/fault_plan.h"
#include "fakes/misuse.h"
#include "tavdb_platform.h"

#if defined(__SANITIZE_ADDRESS__)
#define TAVDB_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TAVDB_TEST_ASAN 1
#endif
#endif
#ifndef TAVDB_TEST_ASAN
#define TAVDB_TEST_ASAN 0
#endif

namespace tavdb_test {

namespace {

constexpr char kMemory[] = "memory";
// The address sanitizer sees a write past the end itself, and at once, when nothing stands behind the block.
constexpr uint32_t kGuardBytes = TAVDB_TEST_ASAN ? 0 : 16;
// It also sees the use of a freed block, when the block is really freed.
constexpr uint64_t kMostFreedBytes = TAVDB_TEST_ASAN ? 0 : 32U << 20;
constexpr uint8_t kGuardByte = 0xFD;

bool isFilled(const void *block, size_t from, size_t count, uint8_t byte) {
    // each byte is the one behind it: many megabytes are looked at
    const uint8_t *const first = static_cast<const uint8_t *>(block) + from;
    return count == 0 || (*first == byte && memcmp(first, first + 1, count - 1) == 0);
}

void *guardedBlock(uint32_t size) {
    uint8_t *const block = static_cast<uint8_t *>(malloc(std::max<size_t>(size + kGuardBytes, 1)));
    if (block == nullptr)
        return nullptr;
    memset(block, FakeMemory::kFreshByte, size);
    memset(block + size, kGuardByte, kGuardBytes);
    return block;
}

std::string bytesText(uint32_t size) {
    return std::to_string(size) + " bytes";
}

}  // namespace

bool FakeMemory::guardsBlocks() {
    return kGuardBytes != 0;
}

size_t FakeMemory::liveBlocks() const {
    const std::lock_guard guard(mutex_);
    return live_.size();
}

uint64_t FakeMemory::liveBytes() const {
    const std::lock_guard guard(mutex_);
    uint64_t sum = 0;
    for (const auto &[address, size] : live_)
        sum += size;
    return sum;
}

std::string FakeMemory::liveText() const {
    const std::lock_guard guard(mutex_);
    if (live_.empty())
        return "";
    std::string text = std::to_string(live_.size()) + (live_.size() == 1 ? " block:" : " blocks:");
    for (const auto &[address, size] : live_)
        text += ' ' + std::to_string(size);
    return text;
}

void FakeMemory::forgetLive() {
    const std::lock_guard guard(mutex_);
    forgotten_.merge(live_);
    live_.clear();
}

void FakeMemory::checkFreedBlocks() {
    const std::lock_guard guard(mutex_);
    for (const Block &block : freed_) {
        if (isFilled(block.address, 0, block.size, kFreedByte))
            continue;
        reportMisuse(kMemory, "a freed block of " + bytesText(block.size) + " was written to");
        memset(block.address, kFreedByte, block.size);
    }
}

void FakeMemory::reset() {
    forgetLive();
    const std::lock_guard guard(mutex_);
    for (const Block &block : freed_)
        free(block.address);
    freed_.clear();
    freedBytes_ = 0;
}

void *FakeMemory::allocate(uint32_t size) {
    ErrnoKeeper keeper;
    Event event{.operation = Operation::alloc, .details = std::to_string(size), .length = size};
    void *block = nullptr;
    if (const auto fault = faultPlan().next(Operation::alloc, ""))
        event.error = fault->error;
    else if (size > kLargestBlock || (block = guardedBlock(size)) == nullptr)
        event.error = ENOMEM;
    event.failed = block == nullptr;
    keeper.set(event.error);
    eventLog().add(event);
    if (block == nullptr)
        return nullptr;
    const std::lock_guard guard(mutex_);
    live_[block] = size;
    return block;
}

int32_t FakeMemory::release(int32_t part, void *block) {
    const ErrnoKeeper keeper;
    if (part != 0)
        reportMisuse(kMemory, "memory given back with part " + std::to_string(part) + " instead of 0");
    uint32_t size = 0;
    if (!takeOut(block, size))
        return platformCode(EINVAL);
    eventLog().add({.operation = Operation::free, .details = std::to_string(size), .length = size});
    keepFreed({block, size});
    return 0;
}

bool FakeMemory::takeOut(void *block, uint32_t &size) {
    const std::lock_guard guard(mutex_);
    auto &home = live_.contains(block) ? live_ : forgotten_;
    const auto found = home.find(block);
    if (found == home.end()) {
        const bool again =
            std::any_of(freed_.begin(), freed_.end(), [&](const Block &b) { return b.address == block; });
        reportMisuse(kMemory, again ? "a block was freed twice" : "a block was freed that is not allocated");
        return false;
    }
    size = found->second;
    home.erase(found);
    if (!isFilled(block, size, kGuardBytes, kGuardByte))
        reportMisuse(kMemory, "a block of " + bytesText(size) + " was written past its end");
    return true;
}

void FakeMemory::keepFreed(Block block) {
    const std::lock_guard guard(mutex_);
    memset(block.address, kFreedByte, block.size);
    freed_.push_back(block);
    freedBytes_ += block.size;
    while (freedBytes_ > kMostFreedBytes || (kMostFreedBytes == 0 && !freed_.empty())) {
        letGo(freed_.front());
        freed_.pop_front();
    }
}

void FakeMemory::letGo(Block block) {
    if (!isFilled(block.address, 0, block.size, kFreedByte))
        reportMisuse(kMemory, "a freed block of " + bytesText(block.size) + " was written to");
    freedBytes_ -= block.size;
    free(block.address);
}

FakeMemory &fakeMemory() {
    static auto *const memory = new FakeMemory;
    return *memory;
}

}  // namespace tavdb_test

extern "C" {

void *tavOSWSubAllocMem(uint32_t size) {
    return tavdb_test::fakeMemory().allocate(size);
}

int32_t tavOSWOrgFreeMemPart(int32_t part, void *buffer) {
    return tavdb_test::fakeMemory().release(part, buffer);
}
}
