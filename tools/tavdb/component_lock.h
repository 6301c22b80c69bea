// SPDX-License-Identifier: Apache-2.0
// The exclusive lock of a component for the time of a write. A lock outlives its
// process, so the signals that end a program wait until it is given back.
#pragma once

#include <csignal>
#include <cstdint>

#include "image/database.h"

namespace tavdb::command {

class ComponentLock {
public:
    /// Tries until the time is over. What is locked then is a fault.
    ComponentLock(image::Database &place, uint32_t component, uint32_t timeoutMs);
    ComponentLock(const ComponentLock &) = delete;
    ComponentLock &operator=(const ComponentLock &) = delete;
    ~ComponentLock();

    const image::Status &fault() const {
        return failure;
    }

private:
    /// Blocks the signals only while the lock may be held.
    bool tryOnce();

    image::Database &database;
    uint32_t key;
    bool isHeld = false;
    image::Status failure;
    sigset_t before = {};
};

}  // namespace tavdb::command
