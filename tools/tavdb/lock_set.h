// SPDX-License-Identifier: Apache-2.0
// The locks of a command that works on several components, and the options that
// every command with locks has.
#pragma once

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "component_lock.h"
#include "declarations.h"

namespace tavdb::command {

/// --timeout, in seconds and parts of them
struct TimeoutOption {
    double seconds = 5;

    uint32_t ms() const;
    void add(Command &command);
};

struct LockOptions {
    TimeoutOption timeout;
    bool noLock = false;

    /// --timeout and --no-lock
    void add(Command &command);
};

/// Exclusive locks, given back in reverse order: each of them keeps signals waiting
/// until it is gone.
class LockSet {
public:
    LockSet(image::Database &place, const LockOptions &given) : database(place), options(given) {}
    LockSet(const LockSet &) = delete;
    LockSet &operator=(const LockSet &) = delete;
    ~LockSet();

    /// Locks a component unless it is locked by this set already, or locks are off.
    image::Status add(uint32_t component);

private:
    image::Database &database;
    const LockOptions &options;
    std::unordered_set<uint32_t> keys;
    std::vector<std::unique_ptr<ComponentLock>> locks;
};

}  // namespace tavdb::command
