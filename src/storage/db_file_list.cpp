// SPDX-License-Identifier: Apache-2.0
// The file list of a medium: the root in its header, and record slots taken from
// and given back to its free list. No lock is taken: who keeps two writers of
// one medium apart holds it around a whole operation.
#include "storage/db_file_list.h"

#include <cstddef>

#include "control/db_dump.h"
#include "storage/db_file_list_path.h"

namespace tavdb {
namespace {

static_assert(sizeof(tavDBMMediumHeader) == 16);
static_assert(offsetof(tavDBMMediumHeader, preparer) == 0);
static_assert(offsetof(tavDBMMediumHeader, root) == kRootOffset);
static_assert(offsetof(tavDBMMediumHeader, firstFree) == kFirstFreeOffset);
static_assert(sizeof(tavDBMFreeBlock) == 8);
static_assert(offsetof(tavDBMFreeBlock, next) == 0);
static_assert(offsetof(tavDBMFreeBlock, size) == 4);

constexpr int32_t kHeaderBytes = sizeof(tavDBMMediumHeader);

uint32_t flst_m_getFirstOffset(tavDBMSession *session, int32_t mediaId);
tavDBMFreeBlock *flst_m_getElement(tavDBMSession *session, int32_t mediaId, uint32_t offset, tavDBMFreeBlock *element);
int32_t flst_m_setNext(tavDBMSession *session, int32_t mediaId, uint32_t offset, uint32_t next);
int32_t flst_m_fillFlagmented(tavDBMSession *session, int32_t mediaId, uint32_t offset, uint32_t length);

FileListAccess access(tavDBMSession *session, int32_t mediaId) {
    return {session, getMedia(session, mediaId), TAVDB_ERR_MEDIUM_OPEN, TAVDB_ERR_MEDIUM_WRITE, TAVDB_ERR_MEDIUM_READ};
}

/// The functions of this family, for the search for space.
struct OnMedium {
    static constexpr bool showsSplitFailure = true;

    tavDBMSession *session;
    int32_t mediaId;

    uint32_t getFirstOffset() const {
        return flst_m_getFirstOffset(session, mediaId);
    }
    bool getElement(uint32_t offset, tavDBMFreeBlock &element) const {
        return flst_m_getElement(session, mediaId, offset, &element) != nullptr;
    }
    int32_t setElement(uint32_t offset, const tavDBMFreeBlock &element) const {
        return flst_m_setElement(session, mediaId, offset, &element);
    }
    int32_t setNext(uint32_t offset, uint32_t next) const {
        return flst_m_setNext(session, mediaId, offset, next);
    }
    int32_t fillFragment(uint32_t offset, uint32_t length) const {
        return flst_m_fillFlagmented(session, mediaId, offset, length);
    }
};

uint32_t flst_m_getFirstOffset(tavDBMSession *session, int32_t mediaId) {
    return readFirstOffset(access(session, mediaId), {__func__, 100});
}

tavDBMFreeBlock *flst_m_getElement(tavDBMSession *session, int32_t mediaId, uint32_t offset, tavDBMFreeBlock *element) {
    return readElement(access(session, mediaId), offset, element, {__func__, 110});
}

int32_t flst_m_setNext(tavDBMSession *session, int32_t mediaId, uint32_t offset, uint32_t next) {
    return writeFileList(access(session, mediaId), offset, &next, sizeof next, {__func__, 120});
}

int32_t flst_m_fillFlagmented(tavDBMSession *session, int32_t mediaId, uint32_t offset, uint32_t length) {
    return fillFragment(access(session, mediaId), offset, length, {__func__, 130});
}

/// A range on its way back into the list. The comparisons are signed.
struct Range {
    uint32_t offset;
    uint32_t size;

    int32_t begin() const {
        return static_cast<int32_t>(offset);
    }
    int32_t end() const {
        return static_cast<int32_t>(offset + size);
    }
};

/// The block in front of the range; the list's head counts as one of size 0.
struct Previous {
    uint32_t offset = kFirstFreeOffset;
    uint32_t size = 0;

    int32_t end() const {
        return static_cast<int32_t>(offset + size);
    }
};

/// Puts the range between two free blocks, merged with those it touches. @return false when it lies elsewhere
bool insertBetween(const OnMedium &place, Range range, Previous previous, uint32_t offset,
                   const tavDBMFreeBlock &block) {
    const bool touchesNext = range.end() == static_cast<int32_t>(offset);
    const bool endsBefore = range.end() < static_cast<int32_t>(offset);
    if ((!touchesNext && !endsBefore) || previous.end() > range.begin())
        return false;
    const tavDBMFreeBlock merged =
        touchesNext ? tavDBMFreeBlock{block.next, range.size + block.size} : tavDBMFreeBlock{offset, range.size};
    if (previous.end() == range.begin()) {
        place.setElement(previous.offset, {merged.next, previous.size + merged.size});
        return true;
    }
    place.setNext(previous.offset, range.offset);
    place.setElement(range.offset, merged);
    return true;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

uint32_t flst_m_get(tavDBMSession *session, int32_t mediaId, uint32_t size) {
    return allocate(OnMedium{session, mediaId}, size, {__func__, 140});
}

int32_t flst_m_release(tavDBMSession *session, int32_t mediaId, uint32_t offset, uint32_t size) {
    const OnMedium place = {session, mediaId};
    Previous previous;
    uint32_t current = place.getFirstOffset();
    CycleGuard guard({__func__, 150});
    while (current != 0 && !guard.meetsAgain(current)) {
        tavDBMFreeBlock block;
        if (!place.getElement(current, block) || insertBetween(place, {offset, size}, previous, current, block))
            return 0;
        previous = {current, block.size};
        current = block.next;
    }
    return 0;  // deliberate: a range behind the last free block, or with an empty list, is dropped
}

int32_t flst_m_setFirstOffset(tavDBMSession *session, int32_t mediaId, uint32_t offset) {
    return writeFileList(access(session, mediaId), kFirstFreeOffset, &offset, sizeof offset, {__func__, 160});
}

int32_t flst_m_setElement(tavDBMSession *session, int32_t mediaId, uint32_t offset, const tavDBMFreeBlock *element) {
    if (boadj_type() == 1) {
        tavDBMFreeBlock reversed = *element;
        boadj_wordx2(&reversed, 1, nullptr);  // deliberate: nothing reversed ever reaches a medium
    }
    return writeFileList(access(session, mediaId), offset, element, sizeof *element, {__func__, 170});
}

uint32_t flst_m_getRoot(tavDBMSession *session, int32_t mediaId) {
    tavDBMMediumHeader header = {};
    readFileList(access(session, mediaId), 0, &header, kHeaderBytes, kHeaderBytes, {__func__, 180});
    return header.root;  // deliberate: whatever a failed read left there
}

int32_t flst_m_setRoot(tavDBMSession *session, int32_t mediaId, uint32_t root) {
    const Site site = {__func__, 190};
    const FileListAccess place = access(session, mediaId);
    if (place.entry == nullptr)
        return 0;
    OpenMedium medium(*place.entry);
    if (medium.failed())
        return failFileList(place, place.openCode, medium, 0, 0, site);
    tavDBMMediumHeader header = {};
    int32_t count = medium.read(&header, kHeaderBytes, 0);
    if (count != kHeaderBytes)
        return failFileList(place, place.readCode, medium, 0, count, site + 1);
    header.root = root;
    count = medium.write(&header, kHeaderBytes, 0);
    // deliberate: the count of the whole header is compared with one word's, so a complete write reports 23
    return count == sizeof root ? 0 : failFileList(place, place.writeCode, medium, 0, count, site + 2);
}

int32_t dbs_me_db_file_list_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(flst_m_getFirstOffset),
        TAVDB_DUMP_FUNCTION(flst_m_setFirstOffset),
        TAVDB_DUMP_FUNCTION(flst_m_getElement),
        TAVDB_DUMP_FUNCTION(flst_m_setElement),
        TAVDB_DUMP_FUNCTION(flst_m_setNext),
        TAVDB_DUMP_FUNCTION(flst_m_fillFlagmented),
        TAVDB_DUMP_FUNCTION(flst_m_getRoot),
        TAVDB_DUMP_FUNCTION(flst_m_setRoot),
        TAVDB_DUMP_FUNCTION(flst_m_get),
        TAVDB_DUMP_FUNCTION(flst_m_release),
        TAVDB_DUMP_FUNCTION(flst_getFirstOffset),
        TAVDB_DUMP_FUNCTION(flst_getElement),
        TAVDB_DUMP_FUNCTION(flst_setNext),
        TAVDB_DUMP_FUNCTION(flst_fillFlagmented),
        TAVDB_DUMP_FUNCTION(flst_setFirstOffset),
        TAVDB_DUMP_FUNCTION(flst_setElement),
        TAVDB_DUMP_FUNCTION(flst_get),
        TAVDB_DUMP_FUNCTION(flst_release),
        TAVDB_DUMP_FUNCTION(boadj_judge),
        TAVDB_DUMP_FUNCTION(boadj_type),
        TAVDB_DUMP_FUNCTION(boadj_word),
        TAVDB_DUMP_FUNCTION(boadj_wordx2),
        TAVDB_DUMP_FUNCTION(dbs_me_db_file_list_debug_info),
    };
    return dumpModule({"====(db_file_list)\n", 0, 0, {}, functions}, level, debugSize, ramSize);
}
