// SPDX-License-Identifier: Apache-2.0
#include "lock_set.h"

#include <cmath>

namespace tavdb::command {

namespace {

constexpr double kTimeoutMostS = 1000000;

}  // namespace

uint32_t TimeoutOption::ms() const {
    return static_cast<uint32_t>(std::lround(seconds * 1000));
}

void TimeoutOption::add(Command &command) {
    command.add("--timeout SECONDS", &seconds, "how long to wait for a locked component; 5 unless stated",
                {.range = {{0, kTimeoutMostS}}});
}

void LockOptions::add(Command &command) {
    timeout.add(command);
    command.add("--no-lock", &noLock, "go ahead although components are locked");
}

LockSet::~LockSet() {
    while (!locks.empty())
        locks.pop_back();
}

image::Status LockSet::add(uint32_t component) {
    if (options.noLock || component == 0 || !keys.insert(component).second)
        return std::nullopt;
    locks.push_back(std::make_unique<ComponentLock>(database, component, options.timeout.ms()));
    return locks.back()->fault();
}

}  // namespace tavdb::command
