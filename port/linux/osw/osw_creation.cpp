// SPDX-License-Identifier: Apache-2.0
// Creating semaphores. A thread creates a set's objects one after the other; the
// first of them finds or makes the set. Nothing is ever destroyed.
#include <errno.h>

#include "osw/result.h"
#include "osw/semaphore_set.h"
#include "osw/thread_state.h"
#include "tavdb_platform.h"

using namespace tavdb::osw;

namespace {

int obtainSet(uint32_t &index) {
    if (!threadState.isAnnounced)
        return obtainAnonymousSet(index);
    threadState.isAnnounced = false;
    return obtainTableSet(threadState.announcedPath, threadState.announcedFd, index);
}

/// Mutex, count and event of one thread, in this order, are of one set.
bool continuesSet(Kind kind) {
    return threadState.createdKind != 0 && threadState.createdKind < static_cast<uint32_t>(kind);
}

int32_t create(uint32_t *handle, Kind kind, bool isValid) {
    if (handle == nullptr || !isValid)
        return resultOf(EINVAL);
    uint32_t index = threadState.createdSet;
    const int error = continuesSet(kind) ? 0 : obtainSet(index);
    threadState.createdKind = error == 0 ? static_cast<uint32_t>(kind) : 0;
    threadState.createdSet = index;
    if (error == 0)
        *handle = handleOf(index, kind);
    return resultOf(error);
}

}  // namespace

void tavOSWSemAnnounce(const char *path, int32_t fd) {
    threadState.announcedPath = path;
    threadState.announcedFd = fd;
    threadState.isAnnounced = true;
    threadState.createdKind = 0;
}

int32_t tavOSWCreateMutexSem(uint32_t *handle, int32_t option, int32_t initial) {
    return create(handle, Kind::mutex, option == 0 && initial == 1);
}

int32_t tavOSWCreateCountSem(uint32_t *handle, int32_t option, int32_t initial) {
    return create(handle, Kind::count, option == 0 && initial == 0);
}

int32_t tavOSWCreateEventSem(uint32_t *handle, int32_t option, int32_t initial) {
    return create(handle, Kind::event, option == 0 && initial == 0);
}
