// SPDX-License-Identifier: Apache-2.0
// The free list inside a medium, once for both places it can lie in: a medium of
// the media table and a file named by its path. The two families of functions
// differ in how the place is opened, in the codes of their failures and in a few
// stated details; the transfers and the search for space are the same.
#pragma once

#include <cstdint>

#include "control/db_trace.h"
#include "storage/db_cycle.h"
#include "storage/db_medium_access.h"
#include "tavdb_modules.h"

namespace tavdb {

inline constexpr uint32_t kRootOffset = 8;
inline constexpr uint32_t kFirstFreeOffset = 12;  ///< the word that heads the free list
inline constexpr uint32_t kSplitFailed = UINT32_MAX;

/// One way to a free list: the medium it lies on and the codes its failures are recorded with.
struct FileListAccess {
    tavDBMSession *session;
    const tavDBMMediaEntry *entry;  ///< null when the medium cannot be had: nothing happens
    int32_t openCode;
    int32_t writeCode;
    int32_t readCode;
};

/// Work on a medium that a write has left open.
using AfterWrite = void (*)(OpenMedium &medium, uint32_t offset, const void *written);

/// Reads length bytes. @return whether at least `minimum` of them came; else the failure is recorded
bool readFileList(const FileListAccess &access, uint32_t offset, void *buffer, int32_t length, int32_t minimum,
                  Site site);
/// Writes length bytes, and runs `after` when they were written. @return 0, or the code recorded
int32_t writeFileList(const FileListAccess &access, uint32_t offset, const void *data, int32_t length, Site site,
                      AfterWrite after = nullptr);

/// @return the offset of the first free block, 0 on any failure
uint32_t readFirstOffset(const FileListAccess &access, Site site);
/// Reads a block's head; one that came only in part, but with its link, is accepted. @return element or null
tavDBMFreeBlock *readElement(const FileListAccess &access, uint32_t offset, tavDBMFreeBlock *element, Site site);
/// Overwrites the rest of a block that is too short for a head of its own.
int32_t fillFragment(const FileListAccess &access, uint32_t offset, uint32_t length, Site site);

/// Records a transfer that failed on an open medium. @return code
int32_t failFileList(const FileListAccess &access, int32_t code, const OpenMedium &medium, uint32_t offset,
                     int32_t count, Site site);

/// Takes `size` bytes from the block at `offset`, whose link stands at `previous`.
template <typename Place>
uint32_t takeFrom(const Place &place, uint32_t previous, uint32_t offset, const tavDBMFreeBlock &block, uint32_t size) {
    const uint32_t rest = block.size - size;
    if (rest >= sizeof block) {
        place.setNext(previous, offset + size);
        const int32_t code = place.setElement(offset + size, {block.next, rest});
        return code != 0 && Place::showsSplitFailure ? kSplitFailed : offset;
    }
    if (rest > 0)
        place.fillFragment(offset + size, rest);
    place.setNext(previous, block.next);
    return offset;
}

/// First fit. @return the offset; 0 when nothing fits or a read failed; kSplitFailed
template <typename Place>
uint32_t allocate(const Place &place, uint32_t size, Site circle) {
    uint32_t previous = kFirstFreeOffset;
    uint32_t offset = place.getFirstOffset();
    CycleGuard guard(circle);
    while (offset != 0 && !guard.meetsAgain(offset)) {
        tavDBMFreeBlock block;
        if (!place.getElement(offset, block))
            return 0;
        if (block.size >= size)
            return takeFrom(place, previous, offset, block, size);
        previous = offset;
        offset = block.next;
    }
    return 0;
}

}  // namespace tavdb
