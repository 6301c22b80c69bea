// SPDX-License-Identifier: Apache-2.0
// The page of memory that the processes of one table share, and the file
// "<table>.sem" that holds it. It carries what a file lock cannot: the event, the
// count and the trace of a holder that died. The mutex works without it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "osw/table_file.h"

namespace tavdb::osw {

/// Fixed widths and offsets: processes of different word size may share it.
struct SemaphorePage {
    uint32_t magic;       //  0
    uint32_t layout;      //  4 number of this layout
    uint64_t device;      //  8 of the table
    uint64_t inode;       // 16 of the table
    uint32_t generation;  // 24 changes with every post of the event
    uint32_t dirty;       // 28 process id of the mutex's holder, 0 when it is free
    uint32_t count;       // 32 of the counting semaphore
    uint32_t origin;      // 36 the generation that the page was made with
    uint64_t bornNs;      // 40 when the table was made, where the file system knows; 0 elsewhere
};
static_assert(sizeof(SemaphorePage) == 48);
static_assert(offsetof(SemaphorePage, device) == 8);
static_assert(offsetof(SemaphorePage, inode) == 16);
static_assert(offsetof(SemaphorePage, generation) == 24);
static_assert(offsetof(SemaphorePage, dirty) == 28);
static_assert(offsetof(SemaphorePage, count) == 32);
static_assert(offsetof(SemaphorePage, origin) == 36);
static_assert(offsetof(SemaphorePage, bornNs) == 40);

inline constexpr uint32_t kPageBytes = 4096;

/// A process's view of a page. Changed only with the set's gate held.
struct PageView {
    SemaphorePage *page;  ///< always mapped, and at the same address as long as the process lives
    int fd;               ///< the page's file; -1 when it has none
    int error;            ///< 0, or why the page could not be shared and is this process's own
    FileIdentity file;
};

/// The table's lock was not free when the process attached; the page is looked for when it is.
inline constexpr int kNotLookedYet = -1;

inline int errorOf(const PageView &view) {
    return __atomic_load_n(&view.error, __ATOMIC_ACQUIRE);
}

inline bool isShared(const PageView &view) {
    return errorOf(view) == 0;
}

/// Gives the process a page of its own, in the place of a shared one. @return 0 or an error number
int mapOwnPage(PageView &view, int reason);

/// Maps the page of an anonymous table, which lies in the table's file itself. @return 0 or an error number
int mapAnonymousPage(PageView &view, const TableFile &table);

/// The process that holds the mutex, or died with it, according to the page; 0 when it is free.
inline uint32_t holderOn(const PageView &view) {
    return __atomic_load_n(&view.page->dirty, __ATOMIC_SEQ_CST);
}

/// Whether the page's file is still there, at a glance: for who does not hold the table's lock. May cry wolf.
bool looksCurrent(const PageView &view);

/// Whether a page that is missing or was left unfinished may be made.
enum class Making : uint8_t { refused, allowed };

/**
 * Makes sure of the table's page: finds it or makes it anew. Without one the
 * process gets its own. The caller holds the table's lock.
 * @return whether a holder of the mutex died, as far as a page tells
 */
bool inspectPage(PageView &view, const TableFile &table, Making making);

}  // namespace tavdb::osw
