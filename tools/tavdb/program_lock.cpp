// SPDX-License-Identifier: Apache-2.0
#include "program_lock.h"

#include <time.h>

#include <algorithm>
#include <chrono>

#include "ending_signals.h"
#include "image/tables.h"

namespace tavdb::command {

namespace {

constexpr timespec kPause = {0, 10'000'000};

}  // namespace

ProgramLock::ProgramLock(OpenedDatabase &place, uint32_t component, bool shared, uint32_t timeoutMs)
    : opened(place), key(component), isShared(shared) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!tryOnce()) {
        if (failure->code != TAVDB_ERR_LOCKED || Clock::now() >= end || isEnding())
            return;
        nanosleep(&kPause, nullptr);
    }
    failure.reset();
}

bool ProgramLock::tryOnce() {
    const auto signals = supervisedSignals();
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    const int32_t kind = isShared ? TAVDB_LOCK_SHARED : 0;
    const int32_t code = tavDBMLock(opened.database->cleared(), key, TAVDB_LOCK_TRY | kind);
    isHeld = code == 0;
    if (isHeld)
        return true;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    failure = image::faultOfCode(static_cast<uint32_t>(code), opened.database->session()->errorDetail);
    return false;
}

ProgramLock::~ProgramLock() {
    if (!isHeld)
        return;
    if (isThere())
        tavDBMUnlock(opened.database->cleared(), key);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

bool ProgramLock::isThere() const {
    const auto locks = image::readLocks(opened.directory.description.lockPath);
    const auto isOurs = [&](const image::HeldLock &lock) {
        const bool isMatch = isShared ? lock.isShared : lock.session == opened.database->session()->sessionId;
        return lock.database == opened.database->id() && lock.component == key && isMatch;
    };
    // What cannot be seen is taken to be there.
    return !locks || std::any_of(locks.value->begin(), locks.value->end(), isOurs);
}

}  // namespace tavdb::command
