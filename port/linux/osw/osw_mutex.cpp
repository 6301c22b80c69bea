// SPDX-License-Identifier: Apache-2.0
// The mutex of a set: taken and given back, and the question whether its last
// holder died with it.
#include <errno.h>

#include "osw/futex.h"
#include "osw/result.h"
#include "osw/semaphore_set.h"
#include "osw/thread_state.h"
#include "tavdb_platform.h"

using namespace tavdb::osw;

namespace {

constexpr int64_t kRetryNs = 1'000'000;

/// A file lock knows no time limit, so a limited wait tries again and again.
int takeWithin(SemaphoreSet &set, int32_t timeoutMs) {
    const Deadline deadline(timeoutMs);
    int error = tryTake(set);
    while (error == EAGAIN && timeoutMs != 0) {
        const int64_t leftNs = deadline.nextSliceNs();
        if (leftNs == 0)
            return ETIMEDOUT;
        sleepFor(leftNs < kRetryNs ? leftNs : kRetryNs);
        error = tryTake(set);
    }
    return error;
}

/// The page is marked only after it was looked at: a holder killed in between is still one that died.
void enter(SemaphoreSet &set, uint32_t setIndex) {
    // A page that could not be made is not tried again here, but one that somebody else made meanwhile is taken.
    const Making making = set.view.error <= 0 ? Making::allowed : Making::refused;
    if (inspect(set, making))
        set.abandoned = true;
    __atomic_store_n(&set.view.page->dirty, ownProcessId(), __ATOMIC_SEQ_CST);
    threadState.generations[setIndex] = __atomic_load_n(&set.view.page->generation, __ATOMIC_SEQ_CST);
    __atomic_store_n(&set.holder, thisThread(), __ATOMIC_RELAXED);
}

}  // namespace

int32_t tavOSWRequestMutexSem(uint32_t handle, int32_t timeoutMs) {
    SemaphoreSet *const set = setOf(handle, Kind::mutex);
    if (set == nullptr || timeoutMs < -1)
        return resultOf(EINVAL);
    if (isHeldByThisThread(*set))
        return resultOf(EDEADLK);
    const int error = timeoutMs == -1 ? take(*set) : takeWithin(*set, timeoutMs);
    if (error == 0)
        enter(*set, setIndexOf(handle, Kind::mutex));
    return resultOf(error);
}

int32_t tavOSWReleaseMutexSem(uint32_t handle) {
    SemaphoreSet *const set = setOf(handle, Kind::mutex);
    if (set == nullptr)
        return resultOf(EINVAL);
    if (!isHeldByThisThread(*set))
        return resultOf(EPERM);
    __atomic_store_n(&set->view.page->dirty, 0, __ATOMIC_SEQ_CST);
    __atomic_store_n(&set->holder, nullptr, __ATOMIC_RELAXED);
    return resultOf(leave(*set));
}

int32_t tavOSWMutexAbandoned(uint32_t handle) {
    SemaphoreSet *const set = setOf(handle, Kind::mutex);
    if (set == nullptr || !isHeldByThisThread(*set) || !set->abandoned)
        return 0;
    set->abandoned = false;
    return 1;
}
