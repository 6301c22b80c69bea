// SPDX-License-Identifier: Apache-2.0
// The session table: one slot for each open session of any process, in a file
// that all processes map. Slots of processes that died are taken over when the
// table is full.
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <cstddef>

#include "control/db_dump.h"
#include "control/db_index_list.h"
#include "control/db_mapped_table.h"
#include "control/db_trace.h"
#include "tavdb_platform.h"

namespace tavdb {
namespace {

constexpr uint32_t kSessions = 1023;  // deliberate: the file has room for 1025 slots, 1023 are ever used

static_assert(sizeof(tavDBMSession) == 20);
static_assert(offsetof(tavDBMSession, sessionId) == 0);
static_assert(offsetof(tavDBMSession, dbId) == 4);
static_assert(offsetof(tavDBMSession, errorCode) == 8);
static_assert(offsetof(tavDBMSession, errorDetail) == 12);
static_assert(offsetof(tavDBMSession, currentComponent) == 16);
static_assert(sizeof(tavDBMSessionSlot) == 16);
static_assert(offsetof(tavDBMSessionSlot, sessionId) == 0);
static_assert(offsetof(tavDBMSessionSlot, processId) == 4);
static_assert(offsetof(tavDBMSessionSlot, dbId) == 8);
static_assert(offsetof(tavDBMSessionSlot, next) == 12);
static_assert(sizeof(tavDBMSessionTable) == 16412);
static_assert(offsetof(tavDBMSessionTable, freeHead) == 0);
static_assert(offsetof(tavDBMSessionTable, freeTail) == 4);
static_assert(offsetof(tavDBMSessionTable, sessionHead) == 8);
static_assert(offsetof(tavDBMSessionTable, slot) == 12);

constexpr uint32_t s_db_session_table_size = sizeof(tavDBMSessionTable);
uint32_t s_db_session_init;
MappedTable s_table;

tavDBMSessionTable *table() {
    return static_cast<tavDBMSessionTable *>(s_table.address);
}

IndexList<tavDBMSessionSlot, kSessions> sessionList(tavDBMSessionTable &t) {
    return {t.slot, t.sessionHead};
}

IndexQueue<tavDBMSessionSlot, kSessions> freeQueue(tavDBMSessionTable &t) {
    return {t.slot, t.freeHead, t.freeTail};
}

void build(void *address) {
    dbs_me_db_session_init_table(static_cast<tavDBMSessionTable *>(address), kSessions + 1);
}

/// A slot that is in no list was on its way between the two: it is free.
void mendTable(void *address) {
    auto &t = *static_cast<tavDBMSessionTable *>(address);
    mend<tavDBMSessionSlot, kSessions>(t.slot, t.sessionHead, t.freeHead, t.freeTail,
                                       [](const tavDBMSessionSlot &) { return true; });
}

constexpr TableKind kTable = {
    .initFunction = "session_init",
    .sizeBytes = s_db_session_table_size,
    .shortWriteCode = TAVDB_ERR_SESSION_FILE,
    .sites = {{488, 0}, {517, 0}, {525, 0}, {535, 0}, {541, 543}},
    .build = build,
    .mend = mendTable,
    .record = nullptr,
};

bool isDead(int32_t processId) {
    return kill(processId, 0) != 0 && errno != EPERM;
}

/// Takes the slot of a process that died; its reference to the database goes with it.
tavDBMSessionSlot *reclaimSlot(tavDBMSessionTable &t) {
    for (uint32_t index = 1; index <= kSessions; index++) {
        tavDBMSessionSlot &slot = t.slot[index];
        if (!isDead(slot.processId) || dbs_me_db_control_term_table_entry(slot.dbId) != 0)
            continue;
        // deliberate: this one text has no line end
        dbs_me_debug_trace(2, "%s():[Debug]:[%d][0x%8x][0x%8x][0x%8x]", "tavDBMInitSession", 290, index,
                           static_cast<uint32_t>(slot.processId), slot.dbId);
        return &slot;
    }
    return nullptr;
}

void own(tavDBMSessionSlot &slot, uint32_t dbId) {
    slot.processId = getpid();
    slot.dbId = dbId;
}

/// A slot for this process: a free one, or that of a dead process, or null. The
/// owner is written before the slot joins the sessions, so that a slot in that
/// list always names the process that took it.
tavDBMSessionSlot *takeSlot(uint32_t dbId) {
    if (table() == nullptr)
        return nullptr;
    tavDBMSessionTable &t = *table();
    tavDBMSessionSlot *slot = freeQueue(t).popFront();
    if (slot != nullptr) {
        own(*slot, dbId);
        sessionList(t).pushFront(sessionList(t).indexOf(slot));
        return slot;
    }
    slot = reclaimSlot(t);
    if (slot != nullptr)
        own(*slot, dbId);
    return slot;
}

int32_t openSession(tavDBMSession *session, uint32_t dbId) {
    const tavDBMSessionSlot *const slot = takeSlot(dbId);
    if (slot == nullptr)
        return fail(session, TAVDB_ERR_SESSIONS_FULL, 0, {"tavDBMInitSession", 301}, dbId);
    session->sessionId = slot->sessionId;
    session->dbId = dbId;
    session->currentComponent = tavDBMGetRoot(session);
    session->errorCode = 0;
    session->errorDetail = 0;
    return 0;
}

int32_t closeSession(tavDBMSession *session) {
    uint32_t predecessor = 0;
    const auto isOwn = [session](const tavDBMSessionSlot &slot) { return slot.sessionId == session->sessionId; };
    const tavDBMSessionSlot *const slot =
        table() != nullptr ? sessionList(*table()).find(isOwn, &predecessor) : nullptr;
    if (slot == nullptr)
        return fail(session, TAVDB_ERR_NO_SESSION, 0, {"tavDBMTermSession", 426}, session->sessionId);
    const uint32_t index = sessionList(*table()).indexOf(slot);
    dbs_me_db_session_remove(index, predecessor);
    dbs_me_db_session_free_entry(index);
    return 0;
}

/// Both operations run under the mutex; a mutex that fails is theirs to report.
struct MutexSites {
    int32_t request;
    int32_t nullSession;  ///< 0 writes no line
    int32_t release;
};

template <typename Operation>
int32_t underMutex(tavDBMSession *session, const char *function, const MutexSites &sites, Operation operation) {
    const int32_t requested = lockTable(s_table, kTable);
    if (requested != 0) {
        const int error = errno;
        return fail(session, requested, static_cast<uint32_t>(error), {function, sites.request}, error);
    }
    if (session == nullptr) {
        if (sites.nullSession != 0)
            traceError({function, sites.nullSession});
        unlockTable(s_table);
        return TAVDB_ERR_NULL_ARGUMENT;
    }
    const int32_t code = operation();
    const int32_t released = unlockTable(s_table);
    if (code != 0 || released == 0)
        return code;
    const int error = errno;
    return fail(session, released, static_cast<uint32_t>(error), {function, sites.release}, error, released);
}

void showList(const char *title, IndexList<tavDBMSessionSlot, kSessions> list, bool byId) {
    printf("%s", title);
    list.find([&list, byId](const tavDBMSessionSlot &slot) {
        printf(" %x", byId ? slot.sessionId : list.indexOf(&slot));
        return false;
    });
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

int32_t session_init(const char *path) {
    const uint32_t attached = s_db_session_init;
    s_db_session_init += 1;
    return attached == 0 ? openTable(s_table, kTable, path) : 0;
}

int32_t session_term() {
    s_db_session_init -= 1;
    if (s_db_session_init != 0)
        return 0;
    if (closeTable(s_table, kTable) != 0) {
        traceError({__func__, 576}, errno);
        return TAVDB_ERR_UNMAP;
    }
    return misc_freeSems(&s_table.semaphores);
}

int32_t session_setError(tavDBMSession *session, int32_t code, uint32_t detail) {
    if (session != nullptr) {
        session->errorCode = static_cast<uint32_t>(code);
        session->errorDetail = detail;
    }
    return code;
}

int32_t tavDBMInitSession(tavDBMSession *session, uint32_t dbId) {
    return underMutex(session, __func__, {.request = 346, .nullSession = 322, .release = 335},
                      [session, dbId] { return openSession(session, dbId); });
}

int32_t tavDBMTermSession(tavDBMSession *session) {
    return underMutex(session, __func__, {.request = 448, .nullSession = 0, .release = 435},
                      [session] { return closeSession(session); });
}

void session_show(int32_t flags) {
    if (table() != nullptr && (flags & 2) != 0)
        showList("\nfree  head ->", {table()->slot, table()->freeHead}, false);
    if (table() != nullptr && (flags & 1) != 0)
        showList("\nsession  head ->", sessionList(*table()), true);
    printf("\n");
}

void dbs_me_db_session_add(uint32_t index) {
    if (table() != nullptr)
        sessionList(*table()).pushFront(index);
}

tavDBMSessionSlot *dbs_me_db_session_remove(uint32_t index, uint32_t predecessor) {
    return table() != nullptr ? sessionList(*table()).remove(index, predecessor) : nullptr;
}

tavDBMSessionSlot *dbs_me_db_session_get_entry() {
    return table() != nullptr ? freeQueue(*table()).popFront() : nullptr;
}

void dbs_me_db_session_free_entry(uint32_t index) {
    if (table() != nullptr)
        freeQueue(*table()).pushBack(index);
}

void dbs_me_db_session_init_table(tavDBMSessionTable *table, uint32_t count) {
    for (uint32_t index = 1; index < count && index <= kSessions; index++)
        table->slot[index].sessionId = index;
    table->sessionHead = 0;
    freeQueue(*table).fill(count);
}

namespace tavdb {
namespace {
void dumpSemaphores(int32_t level) {
    const tavDBMSemaphoreSet s_db_session_table_mutex = s_table.semaphores;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
    // deliberate: the set is handed over whole, and the field shows what the machine makes of that
    dbs_me_debug_trace(level, "[0x%8x]:s_db_session_table_mutex\n", s_db_session_table_mutex);
#pragma GCC diagnostic pop
    dumpWord(level, "s_db_session_init", s_db_session_init);
}
}  // namespace
}  // namespace tavdb

int32_t dbs_me_db_session_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpWord words[] = {TAVDB_DUMP_WORD(s_db_session_table_size)};
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(tavDBMInitSession),
        TAVDB_DUMP_FUNCTION(tavDBMTermSession),
        TAVDB_DUMP_FUNCTION(session_init),
        TAVDB_DUMP_FUNCTION(session_term),
        TAVDB_DUMP_FUNCTION(session_setError),
        TAVDB_DUMP_FUNCTION(session_show),
        TAVDB_DUMP_FUNCTION(dbs_me_db_session_add),
        TAVDB_DUMP_FUNCTION(dbs_me_db_session_remove),
        TAVDB_DUMP_FUNCTION(dbs_me_db_session_get_entry),
        TAVDB_DUMP_FUNCTION(dbs_me_db_session_free_entry),
        TAVDB_DUMP_FUNCTION(dbs_me_db_session_init_table),
        TAVDB_DUMP_FUNCTION(dbs_me_db_session_debug_info),
    };
    return dumpModule({.banner = "====(db_session)\n",
                       .debugSize = 0,
                       .ramSize = 20,
                       .words = words,
                       .functions = functions,
                       .moreStatics = dumpSemaphores},
                      level, debugSize, ramSize);
}
