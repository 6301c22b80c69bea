// SPDX-License-Identifier: Apache-2.0
// The lock of a component for the length of a scope. A lock outlives its process,
// so signals that end a program wait until it is given back.
#pragma once

#include <csignal>
#include <cstdint>

#include "image/database.h"

namespace tavdb::command {

/// SIGHUP, SIGINT and SIGTERM.
sigset_t endingSignals();

class ComponentLock {
public:
    struct Kind {
        bool isShared = false;
        sigset_t deferred = endingSignals();  ///< blocked while the lock is held
    };

    /// Tries until the time is over. What is locked then is a fault.
    ComponentLock(image::Database &place, uint32_t component, uint32_t timeoutMs)
        : ComponentLock(place, component, timeoutMs, Kind()) {}
    ComponentLock(image::Database &place, uint32_t component, uint32_t timeoutMs, const Kind &wanted);
    ComponentLock(const ComponentLock &) = delete;
    ComponentLock &operator=(const ComponentLock &) = delete;
    ~ComponentLock();

    const image::Status &fault() const {
        return failure;
    }
    /// The signals that were blocked before.
    const sigset_t &signalsBefore() const {
        return before;
    }
    /// Somebody else released it: nothing is left to give back.
    void forget() {
        isTaken = true;
    }

private:
    /// Blocks the signals only while the lock may be held.
    bool tryOnce();

    image::Database &database;
    const uint32_t key;
    const Kind kind;
    bool isHeld = false;
    bool isTaken = false;
    image::Status failure;
    sigset_t before = {};
};

}  // namespace tavdb::command
