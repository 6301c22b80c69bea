// SPDX-License-Identifier: Apache-2.0
// Sleeping on a word of memory that several processes share, and the clock that
// limits the sleep. What the word means, and whether a sleeper was woken for a
// reason, is for the caller to see.
#pragma once

#include <cstdint>

namespace tavdb::osw {

/// Sleepers look around this often, whatever their time limit.
inline constexpr int64_t kSliceNs = 100'000'000;

/// A point in time after which a wait gives up.
class Deadline {
public:
    /// @param timeoutMs 0 or less never comes
    explicit Deadline(int32_t timeoutMs);
    /// @return the time left, at most one slice; 0 when the deadline has come
    int64_t nextSliceNs() const;

private:
    int64_t atNs_;
};

void sleepFor(int64_t durationNs);

/// Sleeps while the word has that value, at most so long. It may also return early without a reason.
void futexWait(uint32_t *word, uint32_t value, int64_t limitNs);

/// Wakes at most so many sleepers.
void futexWake(uint32_t *word, int32_t sleepers);

}  // namespace tavdb::osw
