// SPDX-License-Identifier: Apache-2.0
#include "program_lock.h"

#include <algorithm>

#include "image/tables.h"
#include "program.h"

namespace tavdb::command {

ProgramLock::ProgramLock(OpenedDatabase &place, uint32_t component, bool shared, uint32_t timeoutMs)
    : opened(place),
      key(component),
      isShared(shared),
      lock(*place.database, component, timeoutMs, {.isShared = shared, .deferred = supervisedSignals()}) {}

ProgramLock::~ProgramLock() {
    if (!lock.fault() && !isThere())
        lock.forget();
}

bool ProgramLock::isThere() const {
    const auto locks = image::readLocks(opened.directory.description->lockPath);
    const auto isOurs = [&](const image::HeldLock &held) {
        const bool isMatch = isShared ? held.isShared : held.session == opened.database->session()->sessionId;
        return held.database == opened.database->id() && held.component == key && isMatch;
    };
    // What cannot be seen is taken to be there.
    return !locks || std::any_of(locks.value->begin(), locks.value->end(), isOurs);
}

}  // namespace tavdb::command
