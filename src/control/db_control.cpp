// SPDX-License-Identifier: Apache-2.0
// The control table: the databases that are open anywhere on the machine, with
// their reference counts, in a file that all processes map.
#include "control/db_control.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <cstddef>

#include "control/db_dump.h"
#include "control/db_index_list.h"
#include "control/db_mapped_table.h"
#include "control/db_trace.h"

namespace tavdb {
namespace {

constexpr uint32_t kDatabases = 31;  // deliberate: the file has room for 33 entries, 31 are ever used
constexpr const char *kDefaultFile = "/tmp/tavdb_dbTable";

static_assert(sizeof(tavDBMDescription) == 16404);
static_assert(offsetof(tavDBMDescription, sessionPath) == 0);
static_assert(offsetof(tavDBMDescription, lockPath) == 4096);
static_assert(offsetof(tavDBMDescription, mediaPath) == 8192);
static_assert(offsetof(tavDBMDescription, hookPath) == 12288);
static_assert(offsetof(tavDBMDescription, componentMedia) == 16384);
static_assert(offsetof(tavDBMDescription, valueMedia) == 16388);
static_assert(offsetof(tavDBMDescription, constraintMedia) == 16392);
static_assert(offsetof(tavDBMDescription, stringMedia) == 16396);
static_assert(offsetof(tavDBMDescription, fifthWord) == 16400);
static_assert(sizeof(tavDBMControlEntry) == 16416);
static_assert(offsetof(tavDBMControlEntry, dbId) == 0);
static_assert(offsetof(tavDBMControlEntry, description) == 4);
static_assert(offsetof(tavDBMControlEntry, refCount) == 16408);
static_assert(offsetof(tavDBMControlEntry, next) == 16412);
static_assert(sizeof(tavDBMControlTable) == 541740);
static_assert(offsetof(tavDBMControlTable, freeHead) == 0);
static_assert(offsetof(tavDBMControlTable, freeTail) == 4);
static_assert(offsetof(tavDBMControlTable, usedHead) == 8);
static_assert(offsetof(tavDBMControlTable, entry) == 12);

constexpr uint32_t s_db_control_table_size = sizeof(tavDBMControlTable);
uint32_t s_db_control_init;
MappedTable s_table;

tavDBMControlTable *table() {
    return static_cast<tavDBMControlTable *>(s_table.address);
}

IndexList<tavDBMControlEntry, kDatabases> usedList(tavDBMControlTable &t) {
    return {t.entry, t.usedHead};
}

IndexQueue<tavDBMControlEntry, kDatabases> freeQueue(tavDBMControlTable &t) {
    return {t.entry, t.freeHead, t.freeTail};
}

auto hasId(uint32_t dbId) {
    return [dbId](const tavDBMControlEntry &entry) { return entry.dbId == dbId; };
}

void build(void *address) {
    dbs_me_db_control_set_table_entry(static_cast<tavDBMControlTable *>(address), kDatabases + 1);
}

void mendTable(void *address) {
    auto &t = *static_cast<tavDBMControlTable *>(address);
    mend<tavDBMControlEntry, kDatabases>(t.entry, t.usedHead, t.freeHead, t.freeTail,
                                         [](const tavDBMControlEntry &entry) { return entry.refCount > 0; });
}

constexpr TableKind kTable = {
    .initFunction = "dbs_me_db_control_init_table",
    .sizeBytes = s_db_control_table_size,
    .shortWriteCode = TAVDB_ERR_CONTROL_FILE,
    .sites = {{337, 339}, {378, 380}, {392, 394}, {406, 408}, {423, 425}},
    .build = build,
    .mend = mendTable,
    .record = nullptr,
};

bool endsInField(const char *path) {
    return memchr(path, '\0', TAVDB_PATH_SIZE) != nullptr;
}

/// A path that fills its field without a NUL is compared within the field.
bool samePath(const char *a, const char *b) {
    if (endsInField(a) && endsInField(b))
        return misc_pathCompare(a, b) == 0;
    return strncmp(a, b, TAVDB_PATH_SIZE) == 0;
}

bool sameDatabase(const tavDBMDescription &a, const tavDBMDescription &b) {
    return samePath(a.sessionPath, b.sessionPath) && samePath(a.lockPath, b.lockPath) &&
           samePath(a.mediaPath, b.mediaPath) && samePath(a.hookPath, b.hookPath) &&
           a.componentMedia == b.componentMedia && a.valueMedia == b.valueMedia &&
           a.constraintMedia == b.constraintMedia && a.stringMedia == b.stringMedia && a.fifthWord == b.fifthWord;
}

void setError(int32_t *error, int32_t code) {
    if (error != nullptr)
        *error = code;
}

/// Puts a database into a free entry. The count comes last: an entry without it is free again after a death.
int32_t addDatabase(const tavDBMDescription &description) {
    tavDBMControlEntry *const entry = dbs_me_db_control_get_table_entry();
    if (entry == nullptr)
        return -1;
    dbs_me_db_control_add_table_entry(usedList(*table()).indexOf(entry));
    entry->description = description;
    publish(entry->refCount, 1);
    return static_cast<int32_t>(entry->dbId);
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

const tavDBMDescription *db_getDb(uint32_t dbId) {
    if (table() == nullptr)
        return nullptr;
    const tavDBMControlEntry *const entry = usedList(*table()).find(hasId(dbId));
    return entry != nullptr ? &entry->description : nullptr;
}

const char *dbs_me_db_control_get_file_name() {
    const char *const variable = getenv("TAVDB_DBTABLE");
    const char *const path = variable != nullptr ? variable : kDefaultFile;
    traceDebugText({__func__, 282}, path);
    return path;
}

int32_t dbs_me_db_control_init_table() {
    return openTable(s_table, kTable, dbs_me_db_control_get_file_name());
}

int32_t dbs_me_db_control_search_table_entry(const tavDBMDescription *description) {
    if (table() == nullptr || description == nullptr)
        return -1;
    const tavDBMControlEntry *const entry = usedList(*table()).find(
        [description](const tavDBMControlEntry &e) { return sameDatabase(e.description, *description); });
    return entry != nullptr ? static_cast<int32_t>(entry->dbId) : -1;
}

int32_t dbs_me_db_control_init_table_entry(const tavDBMDescription *description, int32_t *error) {
    const int32_t mutexCode = lockTable(s_table, kTable);
    if (mutexCode != 0) {
        traceError({__func__, 693}, mutexCode, -1);
        setError(error, TAVDB_ERR_CONTROL_MUTEX);
        return -1;
    }
    const TableUnlock unlock(s_table);
    if (description == nullptr) {
        traceError({__func__, 675});
        setError(error, TAVDB_ERR_NULL_ARGUMENT);
        return -1;
    }
    const int32_t known = dbs_me_db_control_search_table_entry(description);
    if (known != -1) {
        dbs_me_db_control_inclement_ref_count(static_cast<uint32_t>(known));
        return known;
    }
    const int32_t added = addDatabase(*description);
    if (added == -1) {
        traceError({__func__, 653});
        setError(error, TAVDB_ERR_DATABASES_FULL);
    }
    return added;
}

int32_t dbs_me_db_control_term_table_entry(uint32_t dbId) {
    const int32_t mutexCode = lockTable(s_table, kTable);
    if (mutexCode != 0) {
        traceError({__func__, 588}, mutexCode, 0, dbId);
        return mutexCode;
    }
    const TableUnlock unlock(s_table);
    uint32_t predecessor = 0;
    tavDBMControlEntry *const entry = table() != nullptr ? usedList(*table()).find(hasId(dbId), &predecessor) : nullptr;
    if (entry == nullptr) {
        traceError({__func__, 574}, TAVDB_ERR_DATABASE_ID, dbId);
        return TAVDB_ERR_DATABASE_ID;
    }
    if (entry->refCount > 1) {
        entry->refCount -= 1;
        return 0;
    }
    publish(entry->refCount, 0);
    const uint32_t index = usedList(*table()).indexOf(entry);
    dbs_me_db_control_remove_table_entry(index, predecessor);
    dbs_me_db_control_free_table_entry(index);
    return 0;
}

int32_t dbs_me_db_control_init(const tavDBMDescription *description, int32_t *error) {
    const TracedScope scope(__func__);
    int32_t code = s_db_control_init == 0 ? dbs_me_db_control_init_table() : 0;
    const int32_t dbId = code == 0 ? dbs_me_db_control_init_table_entry(description, &code) : -1;
    s_db_control_init += 1;  // deliberate: a failed attach counts too and is not tried again
    if (code == 0)
        return dbId;
    traceError({__func__, 732}, code);
    setError(error, code);
    return -1;
}

int32_t dbs_me_db_control_term(uint32_t dbId) {
    const TracedScope scope(__func__);
    dbs_me_db_control_term_table_entry(dbId);
    s_db_control_init -= 1;
    if (s_db_control_init != 0)
        return 0;
    const int32_t result = closeTable(s_table, kTable);
    if (result != 0) {
        traceError({__func__, 788}, result, errno);
        return TAVDB_ERR_UNMAP;
    }
    return misc_freeSems(&s_table.semaphores);
}

void dbs_me_db_control_inclement_ref_count(uint32_t dbId) {
    if (table() == nullptr)
        return;
    usedList(*table()).find([dbId](tavDBMControlEntry &entry) {
        if (entry.dbId == dbId)
            entry.refCount += 1;
        return false;  // every entry with that id, so the walk never stops early
    });
}

void dbs_me_db_control_set_table_entry(tavDBMControlTable *table, uint32_t count) {
    for (uint32_t index = 1; index < count && index <= kDatabases; index++) {
        table->entry[index].dbId = index;
        table->entry[index].refCount = 0;
    }
    table->usedHead = 0;
    freeQueue(*table).fill(count);
}

tavDBMControlEntry *dbs_me_db_control_get_table_entry() {
    return table() != nullptr ? freeQueue(*table()).popFront() : nullptr;
}

void dbs_me_db_control_free_table_entry(uint32_t index) {
    if (table() != nullptr)
        freeQueue(*table()).pushBack(index);
}

void dbs_me_db_control_add_table_entry(uint32_t index) {
    if (table() != nullptr)
        usedList(*table()).pushFront(index);
}

tavDBMControlEntry *dbs_me_db_control_remove_table_entry(uint32_t index, uint32_t predecessor) {
    return table() != nullptr ? usedList(*table()).remove(index, predecessor) : nullptr;
}

int32_t dbs_me_db_control_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpWord words[] = {
        TAVDB_DUMP_WORD(s_db_control_table_size),
        TAVDB_DUMP_WORD(s_db_control_init),
    };
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_debug_info),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_inclement_ref_count),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_set_table_entry),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_get_table_entry),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_free_table_entry),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_add_table_entry),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_remove_table_entry),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_get_file_name),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_init_table),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_search_table_entry),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_term_table_entry),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_init_table_entry),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_init),
        TAVDB_DUMP_FUNCTION(dbs_me_db_control_term),
        TAVDB_DUMP_FUNCTION(db_getDb),
        TAVDB_DUMP_FUNCTION(tavDBMInit),
        TAVDB_DUMP_FUNCTION(tavDBMTerm),
    };
    return dumpModule({"====(db_control)\n", 0, 8, words, functions}, level, debugSize, ramSize);
}
