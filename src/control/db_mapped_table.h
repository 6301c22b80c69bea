// SPDX-License-Identifier: Apache-2.0
// A table file of fixed size that every process maps: opened or made by the
// first, used as it stands by the others, guarded by a semaphore set. The
// control, session and lock tables are three of them; what differs is data.
#pragma once

#include <cstdint>

#include "control/db_trace.h"
#include "tavdb_modules.h"

namespace tavdb {

/// What can go wrong on the way to a mapped table.
enum class TableFailure : uint8_t { mapExisting, mapNew, write, allocate, open };
inline constexpr int kTableFailures = 5;

/// The trace sites of one failure; a path site of 0 writes no second line.
struct TableFailureSites {
    int32_t errnoSite;
    int32_t pathSite;
};

/// How one table differs from the others.
struct TableKind {
    const char *initFunction;  ///< named in the traces
    uint32_t sizeBytes;
    int32_t shortWriteCode;
    TableFailureSites sites[kTableFailures];  ///< by TableFailure
    void (*build)(void *table);               ///< fills a table of zeros; words 0 and 2 are never both 0 after it
    void (*mend)(void *table);                ///< makes the lists sound after a mutex holder died
    void (*record)(TableFailure failure, int32_t fd);  ///< keeps a failure for the dump; may be null
};

/// A process's view of one table.
struct MappedTable {
    void *address;  ///< null when not mapped
    tavDBMSemaphoreSet semaphores;
};

/**
 * Opens the table, or makes it when the file is missing, and maps it.
 * @return 0, also when the file can be neither opened nor made: the table is
 *   then not mapped; the kind's short-write code; MAP; MEMORY; an OS wrapper code
 */
int32_t openTable(MappedTable &table, const TableKind &kind, const char *path);

/// Unmaps the table; nothing happens without one. @return munmap's result
int32_t closeTable(MappedTable &table, const TableKind &kind);

/// Takes the table's mutex and mends the table if the mutex's last holder died with it. @return misc_waitMtx's code
int32_t lockTable(MappedTable &table, const TableKind &kind);

/// Releases the table's mutex. @return misc_postMtx's code
int32_t unlockTable(MappedTable &table);

/// Releases the mutex at the end of a scope whose result the release does not change.
class TableUnlock {
public:
    explicit TableUnlock(MappedTable &table) : table_(table) {}
    ~TableUnlock() {
        unlockTable(table_);
    }
    TableUnlock(const TableUnlock &) = delete;
    TableUnlock &operator=(const TableUnlock &) = delete;

private:
    MappedTable &table_;
};

}  // namespace tavdb
