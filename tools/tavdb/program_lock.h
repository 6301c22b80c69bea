// SPDX-License-Identifier: Apache-2.0
// A lock, shared or exclusive, for as long as another program runs. Unlike the lock
// of a write it may be taken away meanwhile, so it is looked at before it is given
// back: the library releases a component's lock whoever holds it.
#pragma once

#include <csignal>

#include "command.h"
#include "lock_set.h"
#include "program.h"

namespace tavdb::command {

class ProgramLock {
public:
    /// Tries until the time is over. While the lock is held, the signals of
    /// supervisedSignals() are blocked.
    ProgramLock(OpenedDatabase &place, uint32_t component, bool shared, uint32_t timeoutMs);
    ProgramLock(const ProgramLock &) = delete;
    ProgramLock &operator=(const ProgramLock &) = delete;
    ~ProgramLock();

    const image::Status &fault() const {
        return failure;
    }
    const sigset_t &signalsBefore() const {
        return before;
    }
    /// Whether nobody took the lock away. Of shared locks one is as good as another.
    bool isThere() const;

private:
    bool tryOnce();

    OpenedDatabase &opened;
    const uint32_t key;
    const bool isShared;
    bool isHeld = false;
    image::Status failure;
    sigset_t before = {};
};

}  // namespace tavdb::command
