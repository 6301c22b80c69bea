// SPDX-License-Identifier: Apache-2.0
#include "osw/semaphore_set.h"

#include <errno.h>
#include <limits.h>
#include <sys/file.h>
#include <unistd.h>

#include "osw/futex.h"
#include "osw/thread_state.h"
#include "tavdb_platform.h"

namespace tavdb::osw {

TAVOSW_STATIC_TLS constinit thread_local ThreadState threadState = {};

namespace {

constexpr int32_t kRemarkLevel = 2;

SemaphoreSet sets[kSetCapacity];
uint32_t setCount;
uint32_t processId;

// Guards the list of sets and which table each belongs to. Taken after a set's
// gate, never before, and never held while waiting for anything.
pthread_mutex_t registry = PTHREAD_MUTEX_INITIALIZER;

class Guard {
public:
    explicit Guard(pthread_mutex_t &mutex) : mutex_(mutex) {
        pthread_mutex_lock(&mutex_);
    }
    ~Guard() {
        pthread_mutex_unlock(&mutex_);
    }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;

private:
    pthread_mutex_t &mutex_;
};

void beforeFork() {
    pthread_mutex_lock(&registry);
}

void inParent() {
    pthread_mutex_unlock(&registry);
}

/// The child is one thread that holds no mutex. Its descriptors would share the parent's locks, and keep them if the
/// parent died, so it opens its own.
void inChild() {
    processId = static_cast<uint32_t>(::getpid());
    for (uint32_t index = 0; index < setCount; ++index) {
        SemaphoreSet &set = sets[index];
        pthread_mutex_init(&set.gate, nullptr);
        set.holder = nullptr;
        set.abandoned = false;
        reopenInChild(set.table);
    }
    pthread_mutex_init(&registry, nullptr);
}

pthread_once_t prepared = PTHREAD_ONCE_INIT;
int preparation;

void prepareProcess() {
    processId = static_cast<uint32_t>(::getpid());
    preparation = pthread_atfork(beforeFork, inParent, inChild);
}

int prepareOnce() {
    pthread_once(&prepared, prepareProcess);
    return preparation;
}

/// With the registry's lock. @return an index, or the count when no set fits
uint32_t findSet(const TableFile &table) {
    for (uint32_t index = 0; index < setCount; ++index)
        if (sets[index].table.identity == table.identity)
            return index;
    for (uint32_t index = 0; index < setCount; ++index)
        if (hasSamePath(sets[index].table, table))
            return index;
    return setCount;
}

/// With the registry's lock: the next free set takes the table over.
int appendSet(const TableFile &table, uint32_t &index) {
    if (setCount == kSetCapacity)
        return ENOSPC;
    SemaphoreSet &set = sets[setCount];
    set.view = {nullptr, -1, kNotLookedYet, {}};
    const int error = table.path != nullptr ? mapOwnPage(set.view, kNotLookedYet) : mapAnonymousPage(set.view, table);
    if (error != 0)
        return error;
    pthread_mutex_init(&set.gate, nullptr);
    set.table = table;
    index = setCount;
    __atomic_store_n(&setCount, setCount + 1, __ATOMIC_RELEASE);
    return 0;
}

/// The table was made anew, or has moved: its set follows it, and the handles stay.
int repoint(SemaphoreSet &set, TableFile &table) {
    if (isHeldByThisThread(set))
        return EDEADLK;
    const Guard gate(set.gate);
    const int error = mapOwnPage(set.view, kNotLookedYet);
    if (error != 0)
        return error;
    set.abandoned = false;
    const Guard guard(registry);
    const TableFile before = set.table;
    set.table = table;
    table = before;
    return 0;
}

enum class Place : uint8_t { found, appended, moved };

/// Where the table's set is; a new one has taken the table over.
int findPlace(const TableFile &table, uint32_t &index, Place &place) {
    const Guard guard(registry);
    index = findSet(table);
    if (index == setCount) {
        place = Place::appended;
        return appendSet(table, index);
    }
    const TableFile &known = sets[index].table;
    const bool isSame =
        known.identity == table.identity && (known.path == nullptr || leadsTo(known.path, known.identity));
    place = isSame ? Place::found : Place::moved;
    return 0;
}

/// Takes the table over or closes it.
int placeTable(TableFile &table, uint32_t &index) {
    Place place = Place::found;
    int error = findPlace(table, index, place);
    if (error == 0 && place == Place::appended)
        return 0;
    if (error == 0 && place == Place::moved)
        error = repoint(sets[index], table);
    closeTableFile(table);
    return error;
}

int lockFile(int fd, int operation) {
    while (::flock(fd, operation) != 0)
        if (errno != EINTR)
            return errno;
    return 0;
}

/// With the gate held, which stays so only when the lock was had.
int takeLock(SemaphoreSet &set, int operation) {
    int error = ensureOpen(set.table);
    if (error == 0)
        error = lockFile(set.table.fd, operation);
    if (error != 0)
        pthread_mutex_unlock(&set.gate);
    return error;
}

/// Looks for the page if the lock is free; an attaching process waits for nobody.
int settleNow(SemaphoreSet &set) {
    const int error = tryTake(set);
    if (error != 0)
        return error == EAGAIN ? 0 : error;
    inspect(set, Making::allowed);
    return leave(set);
}

}  // namespace

SemaphoreSet *setOf(uint32_t handle, Kind kind) {
    const uint32_t index = setIndexOf(handle, kind);
    return index < __atomic_load_n(&setCount, __ATOMIC_ACQUIRE) ? &sets[index] : nullptr;
}

int obtainTableSet(const char *path, int fd, uint32_t &index) {
    int error = prepareOnce();
    if (error != 0)
        return error;
    TableFile table;
    error = openTableFile(path, fd, table);
    if (error == 0)
        error = placeTable(table, index);
    return error == 0 ? settleNow(sets[index]) : error;
}

int obtainAnonymousSet(uint32_t &index) {
    int error = prepareOnce();
    if (error != 0)
        return error;
    TableFile table;
    error = openAnonymousFile(kPageBytes, table);
    if (error != 0)
        return error;
    const Guard guard(registry);
    error = appendSet(table, index);
    if (error != 0)
        closeTableFile(table);
    return error;
}

uint32_t ownProcessId() {
    return processId;
}

int take(SemaphoreSet &set) {
    pthread_mutex_lock(&set.gate);
    return takeLock(set, LOCK_EX);
}

int tryTake(SemaphoreSet &set) {
    if (pthread_mutex_trylock(&set.gate) != 0)
        return EAGAIN;
    const int error = takeLock(set, LOCK_EX | LOCK_NB);
    return error == EWOULDBLOCK ? EAGAIN : error;
}

int leave(SemaphoreSet &set) {
    const int error = lockFile(set.table.fd, LOCK_UN);
    pthread_mutex_unlock(&set.gate);
    return error;
}

bool isHeldByThisThread(const SemaphoreSet &set) {
    return __atomic_load_n(&set.holder, __ATOMIC_RELAXED) == thisThread();
}

void post(SemaphoreSet &set) {
    __atomic_add_fetch(&set.view.page->generation, 1, __ATOMIC_SEQ_CST);
    futexWake(&set.view.page->generation, INT_MAX);
}

bool inspect(SemaphoreSet &set, Making making) {
    const int before = set.view.error;
    const bool holderDied = inspectPage(set.view, set.table, making);
    if (set.view.error != before && set.view.error != 0)
        dbs_me_debug_trace(kRemarkLevel, "tavosw: [%s] cannot be shared, error %d: waits poll\n", set.table.pagePath,
                           set.view.error);
    return holderDied;
}

int settle(SemaphoreSet &set) {
    if (isSettled(set))
        return 0;
    const int error = take(set);
    if (error != 0)
        return error;
    inspect(set, Making::allowed);
    return leave(set);
}

void lookAfter(SemaphoreSet &set) {
    const int pageError = errorOf(set.view);
    const bool isFine = pageError == 0 ? looksCurrent(set.view) && holderOn(set.view) == 0 : pageError != kNotLookedYet;
    if (isFine || tryTake(set) != 0)
        return;
    if (inspect(set, Making::allowed))
        post(set);
    leave(set);
}

}  // namespace tavdb::osw
