// SPDX-License-Identifier: Apache-2.0
// Component locks: shared and exclusive locks of components, in a table that all
// processes map. The list of held locks is sorted by database and component;
// waiting happens outside the mutex, on the table's event.
#include <errno.h>
#include <sys/mman.h>

#include <cstddef>

#include "control/db_counter.h"
#include "control/db_dump.h"
#include "control/db_index_list.h"
#include "control/db_mapped_table.h"
#include "control/db_ring.h"
#include "control/db_trace.h"
#include "tavdb_modules.h"
#include "tavdb_platform.h"

namespace tavdb {
namespace {

constexpr uint32_t kLocks = 1023;  // deliberate: the file has room for 1025 entries, 1023 are ever used
constexpr uint32_t kKindMask = 0xFF00;

static_assert(sizeof(tavDBMLockEntry) == 24);
static_assert(offsetof(tavDBMLockEntry, dbId) == 0);
static_assert(offsetof(tavDBMLockEntry, component) == 4);
static_assert(offsetof(tavDBMLockEntry, owner) == 8);
static_assert(offsetof(tavDBMLockEntry, mode) == 12);
static_assert(offsetof(tavDBMLockEntry, next) == 16);
static_assert(offsetof(tavDBMLockEntry, prev) == 20);
static_assert(sizeof(tavDBMLockTable) == 24624);
static_assert(offsetof(tavDBMLockTable, freeHead) == 0);
static_assert(offsetof(tavDBMLockTable, first) == 4);
static_assert(offsetof(tavDBMLockTable, last) == 8);
static_assert(offsetof(tavDBMLockTable, unused) == 12);
static_assert(offsetof(tavDBMLockTable, entry) == 24);

constexpr uint32_t s_me_db_lock_table_size = sizeof(tavDBMLockTable);
uint32_t s_me_db_lock_init;
uint32_t s_debug_db_lock_comp_wait;
uint32_t s_debug_db_lock_comp_unlock_all;
DiagnosticRing<5, 128> s_debug_db_lock_init_error;
DiagnosticRing<5, 128> s_debug_db_lock_term_error;
DiagnosticRing<11, 128> s_debug_db_lock_comp_error;
DiagnosticRing<8, 128> s_debug_db_lock_comp_unlock_error;
MappedTable s_table;

tavDBMLockTable *table() {
    return static_cast<tavDBMLockTable *>(s_table.address);
}

IndexList<tavDBMLockEntry, kLocks> lockList(tavDBMLockTable &t) {
    return {t.entry, t.first};
}

IndexList<tavDBMLockEntry, kLocks> freeList(tavDBMLockTable &t) {
    return {t.entry, t.freeHead};
}

void build(void *address) {
    auto &t = *static_cast<tavDBMLockTable *>(address);
    t.first = 0;
    t.last = 0;
    t.unused[0] = 0;
    t.unused[1] = 0;
    for (uint32_t index = 1; index <= kLocks; index++) {
        t.entry[index].next = index < kLocks ? index + 1 : 0;
        t.entry[index].prev = index - 1;
    }
    publish(t.freeHead, 1);
}

/// The forward links of the lock list are always sound; what else there is follows from them.
void mendTable(void *address) {
    auto &t = *static_cast<tavDBMLockTable *>(address);
    uint32_t freeTail = 0;
    mend<tavDBMLockEntry, kLocks>(t.entry, t.first, t.freeHead, freeTail, [](const tavDBMLockEntry &) { return true; });
    uint32_t previous = 0;
    lockList(t).find([&t, &previous](tavDBMLockEntry &entry) {
        entry.prev = previous;
        previous = lockList(t).indexOf(&entry);
        return false;
    });
    t.last = previous;
}

void recordInitError(TableFailure failure, int32_t fd) {
    static constexpr uint32_t kKinds[kTableFailures] = {1, 2, 4, 8, 16};
    s_debug_db_lock_init_error.put(kKinds[static_cast<int>(failure)], errno, fd, s_me_db_lock_table_size);
}

constexpr TableKind kTable = {
    .initFunction = "lock_init",
    .sizeBytes = s_me_db_lock_table_size,
    .shortWriteCode = TAVDB_ERR_LOCK_FILE,
    .sites = {{100, 0}, {110, 0}, {120, 0}, {130, 0}, {140, 141}},
    .build = build,
    .mend = mendTable,
    .record = recordInitError,
};

/// A component of a database, in the order of the lock list.
struct Place {
    uint32_t dbId;
    uint32_t component;

    bool operator==(const Place &) const = default;
    bool operator<(const Place &other) const {
        return dbId != other.dbId ? dbId < other.dbId : component < other.component;
    }
};

Place placeOf(const tavDBMLockEntry &entry) {
    return {entry.dbId, entry.component};
}

/// Where a component stands in the lock list, or would stand.
struct Spot {
    uint32_t previous;
    tavDBMLockEntry *next;  ///< the first entry that is not in front of the component, or null
    bool isHeld;            ///< next is a lock of this component
    uint32_t entry = 0;     ///< the entry that was put there
};

Spot findSpot(const Place &place) {
    Spot spot = {0, nullptr, false};
    if (table() == nullptr)
        return spot;
    const auto list = lockList(*table());
    spot.next = list.find([&](const tavDBMLockEntry &entry) {
        if (!(placeOf(entry) < place))
            return true;
        spot.previous = list.indexOf(&entry);
        return false;
    });
    spot.isHeld = spot.next != nullptr && placeOf(*spot.next) == place;
    return spot;
}

uint32_t indexOf(const tavDBMLockEntry *entry) {
    return entry != nullptr ? lockList(*table()).indexOf(entry) : 0;
}

/// Puts an entry from the free list between two others. Forward links first: they are what mendTable trusts.
void insertLock(tavDBMLockEntry &entry, const Spot &spot) {
    tavDBMLockTable &t = *table();
    const uint32_t index = indexOf(&entry);
    entry.next = indexOf(spot.next);
    entry.prev = spot.previous;
    publish(spot.previous != 0 ? t.entry[spot.previous].next : t.first, index);
    (spot.next != nullptr ? spot.next->prev : t.last) = index;
}

void removeLock(tavDBMLockEntry &entry, uint32_t previous) {
    tavDBMLockTable &t = *table();
    const uint32_t index = indexOf(&entry);
    tavDBMLockEntry *const next = lockList(t).at(entry.next);
    lockList(t).remove(index, previous);
    (next != nullptr ? next->prev : t.last) = previous;
    freeList(t).pushFront(index);
}

/// One kind bit of the lock ring for each way in which an attempt fails.
enum LockError : uint32_t {
    kFullBeforeLater = 1,
    kFullAddingShared = 2,
    kConflict = 4,
    kFullAtEnd = 8,
    kLockRelease = 16,
    kLockRequest = 32
};

enum UnlockError : uint32_t { kLaterReached = 1, kEndReached = 2, kUnlockRelease = 4, kUnlockRequest = 8 };

/// An attempt's place and mode, for the ring.
struct Attempt {
    Place place;
    int32_t mode;

    void record(LockError kind, const Spot &spot, int32_t requested, int32_t released) const {
        const int error = errno;
        s_debug_db_lock_comp_error.put(kind, place.component, mode, indexOf(spot.next), spot.entry, spot.previous,
                                       requested, released, place.dbId, error);
    }
};

/// Grants the lock under the mutex, and says where. @return 0, LOCKED, LOCK_FULL
int32_t grant(tavDBMSession *session, const Attempt &attempt, Spot &spot) {
    spot = findSpot(attempt.place);
    const uint32_t kind = static_cast<uint32_t>(attempt.mode) & kKindMask;
    const bool shared = spot.isHeld && spot.next->mode == TAVDB_LOCK_SHARED && kind == TAVDB_LOCK_SHARED;
    if (spot.isHeld && !shared) {
        attempt.record(kConflict, spot, 0, 0);
        return TAVDB_ERR_LOCKED;  // deliberate: not recorded in the session
    }
    tavDBMLockEntry *const entry = table() != nullptr ? freeList(*table()).first() : nullptr;
    if (entry == nullptr) {
        traceError({"lock_compLock", 150});
        attempt.record(shared ? kFullAddingShared : (spot.next != nullptr ? kFullBeforeLater : kFullAtEnd), spot, 0, 0);
        return session_setError(session, TAVDB_ERR_LOCK_FULL, 0);
    }
    spot.entry = indexOf(entry);
    freeList(*table()).remove(spot.entry, 0);
    entry->dbId = attempt.place.dbId;
    entry->component = attempt.place.component;
    entry->owner = session->sessionId;
    entry->mode = kind;
    insertLock(*entry, spot);
    return 0;
}

/// What an unlock that failed leaves in its ring.
void recordUnlock(UnlockError kind, const Place &place, uint32_t index, int32_t requested, int32_t released) {
    s_debug_db_lock_comp_unlock_error.put(kind, place.component, requested, released, index, place.dbId, errno);
}

/// Releases the component's first lock under the mutex, and says which entry it was. @return 0, NOT_LOCKED
int32_t release(const Place &place, uint32_t &index) {
    const Spot spot = findSpot(place);
    if (!spot.isHeld) {
        traceError({"lock_compUnlock", spot.next != nullptr ? 160 : 161});
        recordUnlock(spot.next != nullptr ? kLaterReached : kEndReached, place, indexOf(spot.next), 0, 0);
        return TAVDB_ERR_NOT_LOCKED;  // deliberate: not recorded in the session
    }
    index = indexOf(spot.next);
    removeLock(*spot.next, spot.previous);  // deliberate: whoever owns it
    misc_postEvent(&s_table.semaphores);
    return 0;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

int32_t lock_init(const char *path) {
    const uint32_t attached = s_me_db_lock_init;
    s_me_db_lock_init += 1;
    return attached == 0 ? openTable(s_table, kTable, path) : 0;
}

int32_t lock_term() {
    s_me_db_lock_init -= 1;
    if (s_me_db_lock_init != 0)
        return 0;
    const int32_t result = closeTable(s_table, kTable);
    if (result != 0) {
        const int error = errno;
        traceError({__func__, 170}, error);
        s_debug_db_lock_term_error.put(1, error, 0, result);
        return TAVDB_ERR_UNMAP;
    }
    return misc_freeSems(&s_table.semaphores);
}

int32_t lock_compLock(tavDBMSession *session, uint32_t component, int32_t mode) {
    if (session == nullptr)
        return TAVDB_ERR_NULL_ARGUMENT;
    const Attempt attempt = {{session->dbId, component}, mode};
    const int32_t requested = lockTable(s_table, kTable);
    if (requested != 0) {
        const int error = errno;
        attempt.record(kLockRequest, {}, requested, 0);
        return fail(session, requested, static_cast<uint32_t>(error), {__func__, 180}, component, requested, error);
    }
    Spot spot = {};
    const int32_t code = grant(session, attempt, spot);
    const int32_t released = unlockTable(s_table);
    if (code != 0 || released == 0)
        return code;
    const int error = errno;
    attempt.record(kLockRelease, spot, 0, released);
    return fail(session, released, static_cast<uint32_t>(error), {__func__, 181}, component, released, error);
}

int32_t lock_compLockW(tavDBMSession *session, uint32_t component, int32_t mode) {
    const CountedScope scope(s_debug_db_lock_comp_wait);
    int32_t code = lock_compLock(session, component, mode);
    while (code == TAVDB_ERR_LOCKED) {
        misc_waitEvent(&s_table.semaphores);
        code = lock_compLock(session, component, mode);
    }
    return code;
}

int32_t lock_compUnlock(tavDBMSession *session, uint32_t component) {
    if (session == nullptr)
        return TAVDB_ERR_NULL_ARGUMENT;
    const Place place = {session->dbId, component};
    const int32_t requested = lockTable(s_table, kTable);
    if (requested != 0) {
        const int error = errno;
        recordUnlock(kUnlockRequest, place, 0, requested, 0);
        return fail(session, requested, static_cast<uint32_t>(error), {__func__, 190}, component, requested, error);
    }
    uint32_t index = 0;
    const int32_t code = release(place, index);
    const int32_t released = unlockTable(s_table);
    if (code != 0 || released == 0)
        return code;
    const int error = errno;
    recordUnlock(kUnlockRelease, place, index, 0, released);
    return fail(session, released, static_cast<uint32_t>(error), {__func__, 191}, component, released, error);
}

int32_t lock_compUnlockAll() {
    const CountedScope scope(s_debug_db_lock_comp_unlock_all);
    if (table() == nullptr)
        return 0;
    tavDBMLockTable &t = *table();
    for (uint32_t steps = 0; steps < kLocks; steps++) {
        tavDBMLockEntry *const entry = lockList(t).first();
        if (entry == nullptr)
            break;
        removeLock(*entry, 0);
    }
    t.first = 0;
    t.last = 0;
    return 0;
}

namespace tavdb {
namespace {

void dumpRings(int32_t level) {
    dumpWord(level, "s_debug_db_lock_init_error",
             static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&s_debug_db_lock_init_error)));
    const auto dumpRing = [level](const char *title, const auto &ring) {
        dbs_me_debug_trace(level, "%s", title);
        ring.dump(level);
    };
    dumpRing("[s_debug_db_lock_init_error]\n", s_debug_db_lock_init_error);
    dumpRing("[s_debug_db_lock_term_error]\n", s_debug_db_lock_term_error);
    dumpRing("[s_debug_db_lock_comp_error]\n", s_debug_db_lock_comp_error);
    dumpRing("[s_debug_db_lock_comp_unlock_error]\n", s_debug_db_lock_comp_unlock_error);
}

}  // namespace
}  // namespace tavdb

int32_t dbs_me_db_lock_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpWord words[] = {
        TAVDB_DUMP_WORD(s_me_db_lock_init),
        TAVDB_DUMP_WORD(s_me_db_lock_table_size),
        TAVDB_DUMP_WORD(s_debug_db_lock_comp_wait),
    };
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(lock_compLock),
        TAVDB_DUMP_FUNCTION(lock_compLockW),
        TAVDB_DUMP_FUNCTION(lock_compUnlock),
        TAVDB_DUMP_FUNCTION(lock_compUnlockAll),
        TAVDB_DUMP_FUNCTION(lock_init),
        TAVDB_DUMP_FUNCTION(lock_term),
        TAVDB_DUMP_FUNCTION(dbs_me_db_lock_debug_info),
    };
    return dumpModule({.banner = "====(db_lock)\n",
                       .debugSize = 14904,
                       .ramSize = 8,
                       .words = words,
                       .functions = functions,
                       .moreStatics = dumpRings},
                      level, debugSize, ramSize);
}
