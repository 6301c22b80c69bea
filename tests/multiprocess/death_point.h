// SPDX-License-Identifier: Apache-2.0
// Where a process is to die: at a chosen store to memory that it shares with
// others. The library and the port's semaphores are compiled once more for this
// test, so that every store of theirs passes through here.
#pragma once

#include <atomic>
#include <cstdint>

namespace tavdb_test {

/// Lies in memory that the dying process shares with the test.
struct DeathPoint {
    uint32_t store = 0;              ///< the process stops in front of this store, the first being 0
    std::atomic<uint32_t> seen = 0;  ///< stores so far
    std::atomic<bool> isReached = false;
};

/// From here on stores of this process to shared mappings count. At the chosen one it stops, to be killed.
void stopAt(DeathPoint &point);

}  // namespace tavdb_test
