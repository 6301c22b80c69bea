// SPDX-License-Identifier: Apache-2.0
// A lock, shared or exclusive, for as long as another program runs. Unlike the lock
// of a write it may be taken away meanwhile, so it is looked at before it is given
// back: the library releases a component's lock whoever holds it.
#pragma once

#include "command.h"
#include "component_lock.h"

namespace tavdb::command {

class ProgramLock {
public:
    /// Tries until the time is over. While the lock is held, the signals of
    /// supervisedSignals() are blocked.
    ProgramLock(OpenedDatabase &place, uint32_t component, bool shared, uint32_t timeoutMs);
    ~ProgramLock();

    const image::Status &fault() const {
        return lock.fault();
    }
    const sigset_t &signalsBefore() const {
        return lock.signalsBefore();
    }
    /// Whether nobody took the lock away. Of shared locks one is as good as another.
    bool isThere() const;

private:
    OpenedDatabase &opened;
    const uint32_t key;
    const bool isShared;
    ComponentLock lock;
};

}  // namespace tavdb::command
