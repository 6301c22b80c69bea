// SPDX-License-Identifier: Apache-2.0
// The event of a set. A post is a new generation; a wait ends when the generation
// is not the one that the waiting thread saw when it last took the mutex. So a
// post between a failed attempt under the mutex and the wait is never lost.
#include <errno.h>

#include "osw/futex.h"
#include "osw/result.h"
#include "osw/semaphore_set.h"
#include "osw/thread_state.h"
#include "tavdb_platform.h"

using namespace tavdb::osw;

namespace {

/// Whether posts may go unseen, so that the caller has to look again itself.
bool mustPoll(const SemaphoreSet &set) {
    return !isShared(set.view) || hasSeveralNames(set.table);
}

bool sawPost(const SemaphoreSet &set, uint32_t &seen) {
    const uint32_t generation = __atomic_load_n(&set.view.page->generation, __ATOMIC_SEQ_CST);
    if (generation == seen)
        return false;
    seen = generation;
    return true;
}

int waitForPost(SemaphoreSet &set, uint32_t &seen, const Deadline &deadline) {
    while (!sawPost(set, seen)) {
        const int64_t sliceNs = deadline.nextSliceNs();
        if (sliceNs == 0)
            return ETIMEDOUT;
        futexWait(&set.view.page->generation, seen, sliceNs);
        if (sawPost(set, seen) || mustPoll(set))
            return 0;
        lookAfter(set);
    }
    return 0;
}

}  // namespace

int32_t tavOSWWaitEventSem(uint32_t handle, int32_t timeoutMs) {
    SemaphoreSet *const set = setOf(handle, Kind::event);
    if (set == nullptr || timeoutMs < 0)
        return resultOf(EINVAL);
    checkPage(*set);
    uint32_t &seen = threadState.generations[setIndexOf(handle, Kind::event)];
    if (seen == 0)
        seen = set->view.page->origin;  // the thread never took the mutex: every post counts
    return resultOf(waitForPost(*set, seen, Deadline(timeoutMs)));
}

int32_t tavOSWPostEventSem(uint32_t handle) {
    SemaphoreSet *const set = setOf(handle, Kind::event);
    if (set == nullptr)
        return resultOf(EINVAL);
    const int error = settle(*set);
    checkPage(*set);
    post(*set);
    return resultOf(error);
}
