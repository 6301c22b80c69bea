// SPDX-License-Identifier: Apache-2.0
// Progress counters: plain words that a function advances when it is entered
// and, in some modules, again when it is left. They exist only for the dump.
#pragma once

#include <cstdint>

namespace tavdb {

/// Steps by two and restarts at 1 before the top, so the top values never show.
inline void enterCounter(uint32_t &counter) {
    counter = counter + 1 > 0xFFFFFEFFu ? 1 : counter + 2;
}

/// One more on leaving: a counter that both functions advance moves by 3 a call.
inline void leaveCounter(uint32_t &counter) {
    counter += 1;
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
