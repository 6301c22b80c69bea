// SPDX-License-Identifier: Apache-2.0
#include "component_lock.h"

#include <time.h>

#include <chrono>

#include "ending_signals.h"

namespace tavdb::command {

namespace {

constexpr timespec kPause = {0, 10'000'000};

}  // namespace

sigset_t endingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGHUP, SIGINT, SIGTERM})
        sigaddset(&signals, number);
    return signals;
}

ComponentLock::ComponentLock(image::Database &place, uint32_t component, uint32_t timeoutMs, const Kind &wanted)
    : database(place), key(component), kind(wanted) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!tryOnce()) {
        if (failure->code != TAVDB_ERR_LOCKED || Clock::now() >= end || isEnding())
            return;
        nanosleep(&kPause, nullptr);
    }
    failure.reset();
}

bool ComponentLock::tryOnce() {
    pthread_sigmask(SIG_BLOCK, &kind.deferred, &before);
    const int32_t mode = TAVDB_LOCK_TRY | (kind.isShared ? TAVDB_LOCK_SHARED : 0);
    const int32_t code = tavDBMLock(database.cleared(), key, mode);
    isHeld = code == 0;
    if (isHeld)
        return true;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    failure = image::faultOfCode(static_cast<uint32_t>(code), database.session()->errorDetail);
    return false;
}

ComponentLock::~ComponentLock() {
    if (!isHeld)
        return;
    if (!isTaken)
        tavDBMUnlock(database.session(), key);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace tavdb::command
