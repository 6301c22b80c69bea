// SPDX-License-Identifier: Apache-2.0
#include "lock_set.h"

#include <CLI/Validators.hpp>
#include <cmath>

namespace tavdb::command {

namespace {

constexpr double kTimeoutMostS = 1000000;

}  // namespace

void addTimeout(CLI::App &command, uint32_t &timeoutMs) {
    const auto keep = [&timeoutMs](double seconds) { timeoutMs = static_cast<uint32_t>(std::lround(seconds * 1000)); };
    command.add_option_function<double>("--timeout", keep, "how long to wait for a locked component; 5 unless stated")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, kTimeoutMostS));
}

void LockOptions::add(CLI::App &command) {
    addTimeout(command, timeoutMs);
    command.add_flag("--no-lock", noLock, "go ahead although components are locked");
}

LockSet::~LockSet() {
    while (!locks.empty())
        locks.pop_back();
}

image::Status LockSet::add(uint32_t component) {
    if (options.noLock || component == 0 || !keys.insert(component).second)
        return std::nullopt;
    locks.push_back(std::make_unique<ComponentLock>(database, component, options.timeoutMs));
    return locks.back()->fault();
}

}  // namespace tavdb::command
