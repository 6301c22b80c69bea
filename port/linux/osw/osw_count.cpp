// SPDX-License-Identifier: Apache-2.0
// The counting semaphore of a set: a number on the page and sleepers on it. It
// needs a page that is shared; without one it fails rather than count alone.
#include <errno.h>

#include <limits>

#include "osw/futex.h"
#include "osw/result.h"
#include "osw/semaphore_set.h"
#include "tavdb_platform.h"

using namespace tavdb::osw;

namespace {

/// Changes the count by one unless it is at its limit. @return whether it did
bool step(uint32_t &count, uint32_t limit, uint32_t change) {
    uint32_t found = __atomic_load_n(&count, __ATOMIC_SEQ_CST);
    while (found != limit)
        if (__atomic_compare_exchange_n(&count, &found, found + change, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST))
            return true;
    return false;
}

bool lower(SemaphoreSet &set) {
    return step(set.view.page->count, 0, std::numeric_limits<uint32_t>::max());
}

bool raise(SemaphoreSet &set) {
    return step(set.view.page->count, std::numeric_limits<uint32_t>::max(), 1);
}

int waitForCount(SemaphoreSet &set, const Deadline &deadline) {
    while (errorOf(set.view) <= 0) {
        if (lower(set))
            return 0;
        const int64_t sliceNs = deadline.nextSliceNs();
        if (sliceNs == 0)
            return ETIMEDOUT;
        futexWait(&set.view.page->count, 0, sliceNs);
        lookAfter(set);
    }
    return errorOf(set.view);
}

}  // namespace

int32_t tavOSWWaitCountSem(uint32_t handle, int32_t timeoutMs) {
    SemaphoreSet *const set = setOf(handle, Kind::count);
    if (set == nullptr || timeoutMs < 0)
        return resultOf(EINVAL);
    checkPage(*set);
    return resultOf(waitForCount(*set, Deadline(timeoutMs)));
}

int32_t tavOSWPostCountSem(uint32_t handle) {
    SemaphoreSet *const set = setOf(handle, Kind::count);
    if (set == nullptr)
        return resultOf(EINVAL);
    const int error = settle(*set);
    if (error != 0)
        return resultOf(error);
    checkPage(*set);
    if (!isShared(set->view))
        return resultOf(errorOf(set->view));
    if (!raise(*set))
        return resultOf(EOVERFLOW);
    futexWake(&set->view.page->count, 1);
    return 0;
}
