// SPDX-License-Identifier: Apache-2.0
// The platform's memory in a test: counts live blocks, fills new ones with a
// pattern, notices blocks freed twice or never allocated, writes past the end
// and writes after the free. Not for memory that tests or fakes use themselves.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>

namespace tavdb_test {

class FakeMemory {
public:
    static constexpr uint32_t kLargestBlock = 64U << 20;  ///< more is refused with ENOMEM
    static constexpr uint8_t kFreshByte = 0xCD;
    static constexpr uint8_t kFreedByte = 0xDD;

    /// False under the address sanitizer, which sees bad writes itself and ends the program at them.
    static bool guardsBlocks();

    size_t liveBlocks() const;
    uint64_t liveBytes() const;
    /// "2 blocks: 28 16", empty when nothing is live.
    std::string liveText() const;
    /// The test accepts the live blocks: they count no more, and may still be freed.
    void forgetLive();
    /// Fails the test for each freed block that was written to since.
    void checkFreedBlocks();
    /// Forgets everything between two tests.
    void reset();

    void *allocate(uint32_t size);
    int32_t release(int32_t part, void *block);

private:
    struct Block {
        void *address;
        uint32_t size;
    };

    bool takeOut(void *block, uint32_t &size);
    void keepFreed(Block block);
    void letGo(Block block);

    mutable std::mutex mutex_;
    std::map<void *, uint32_t> live_;
    std::map<void *, uint32_t> forgotten_;
    std::deque<Block> freed_;  ///< poisoned, oldest first, given back when there are too many
    uint64_t freedBytes_ = 0;
};

/// The memory of this process.
FakeMemory &fakeMemory();

}  // namespace tavdb_test
