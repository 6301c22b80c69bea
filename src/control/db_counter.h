// SPDX-License-Identifier: Apache-2.0
// Progress counters: plain words that a function advances when it is entered
// and, in some modules, again when it is left. They exist only for the dump, so
// threads that advance one at once may lose a count, and nothing else.
#pragma once

#include <cstdint>

namespace tavdb {

inline uint32_t counted(const uint32_t &counter) {
    return __atomic_load_n(&counter, __ATOMIC_RELAXED);
}

/// Steps by two and restarts at 1 before the top, so the top values never show.
inline void enterCounter(uint32_t &counter) {
    const uint32_t before = counted(counter);
    __atomic_store_n(&counter, before + 1 > 0xFFFFFEFFu ? 1 : before + 2, __ATOMIC_RELAXED);
}

/// One more on leaving: a counter that both functions advance moves by 3 a call.
inline void leaveCounter(uint32_t &counter) {
    __atomic_store_n(&counter, counted(counter) + 1, __ATOMIC_RELAXED);
}

/// Advances a counter from the entry of a scope to its end.
class CountedScope {
public:
    explicit CountedScope(uint32_t &counter) : counter_(counter) {
        enterCounter(counter_);
    }
    ~CountedScope() {
        leaveCounter(counter_);
    }
    CountedScope(const CountedScope &) = delete;
    CountedScope &operator=(const CountedScope &) = delete;

private:
    uint32_t &counter_;
};

}  // namespace tavdb
