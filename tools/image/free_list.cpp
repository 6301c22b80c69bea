// SPDX-License-Identifier: Apache-2.0
#include "image/free_list.h"

#include <algorithm>
#include <cstring>

#include "image/library_call.h"

namespace tavdb::image {

namespace {

constexpr uint32_t kHeadBytes = sizeof(tavDBMFreeBlock);

template <typename Record>
Result<Record> readRecord(Database &database, int32_t medium, uint32_t offset) {
    const auto bytes = readMedium(database, medium, offset, sizeof(Record));
    if (!bytes)
        return Result<Record>::bad(bytes.error);
    if (bytes.value->size() < sizeof(Record))
        return Result<Record>::bad(damaged("its free list leaves the medium at " + std::to_string(offset)));
    Record record = {};
    std::memcpy(&record, bytes.value->data(), sizeof record);
    return Result<Record>::good(record);
}

/// Where a range comes to stand in the list: 0 for a neighbour that is not there.
struct Neighbours {
    ByteRange before;
    ByteRange behind;

    bool overlap(const ByteRange &range) const {
        return (before.offset != 0 && before.end() > range.offset) ||
               (behind.offset != 0 && range.end() > behind.offset);
    }
    bool touchBefore(const ByteRange &range) const {
        return before.offset != 0 && before.end() == range.offset;
    }
    bool touchBehind(const ByteRange &range) const {
        return behind.offset != 0 && range.end() == behind.offset;
    }
};

Neighbours neighboursOf(const std::vector<ByteRange> &blocks, const ByteRange &range) {
    const auto behind = std::find_if(blocks.begin(), blocks.end(),
                                     [&](const ByteRange &block) { return block.offset >= range.offset; });
    Neighbours found;
    if (behind != blocks.end())
        found.behind = *behind;
    if (behind != blocks.begin())
        found.before = *(behind - 1);
    return found;
}

/// Makes a range the last block of the list. The block is whole before it is linked.
Status append(Database &database, int32_t medium, const ByteRange &range, const Neighbours &around) {
    const auto &last = around.before;
    if (around.touchBefore(range)) {
        const tavDBMFreeBlock grown = {0, last.sizeBytes + range.sizeBytes};
        return callLibrary(database, flst_m_setElement, medium, last.offset, &grown);
    }
    const tavDBMFreeBlock block = {0, range.sizeBytes};
    if (auto fault = callLibrary(database, flst_m_setElement, medium, range.offset, &block))
        return fault;
    if (last.offset == 0)
        return callLibrary(database, flst_m_setFirstOffset, medium, range.offset);
    const tavDBMFreeBlock linked = {range.offset, last.sizeBytes};
    return callLibrary(database, flst_m_setElement, medium, last.offset, &linked);
}

Status releaseOne(Database &database, int32_t medium, const ByteRange &range) {
    const auto blocks = readFreeList(database, medium);
    if (!blocks)
        return blocks.error;
    const auto around = neighboursOf(*blocks.value, range);
    if (around.overlap(range))
        return damaged("what is released at " + std::to_string(range.offset) + " is free already");
    if (range.sizeBytes < kHeadBytes && !around.touchBefore(range) && !around.touchBehind(range))
        return std::nullopt;
    if (around.behind.offset == 0)
        return append(database, medium, range, around);
    return callLibrary(database, flst_m_release, medium, range.offset, range.sizeBytes);
}

}  // namespace

Status forEachFreeBlock(Database &database, int32_t medium, const std::function<Status(const ByteRange &)> &visit) {
    const auto header = readRecord<tavDBMMediumHeader>(database, medium, 0);
    if (!header)
        return header.error;
    Visited visited;
    for (uint32_t offset = header.value->firstFree; offset != 0;) {
        const auto block = readRecord<tavDBMFreeBlock>(database, medium, offset);
        if (!block)
            return block.error;
        if (!visited.insert(offset).second)
            return damaged("its free list runs in a circle");
        if (auto fault = visit({offset, block.value->size}))
            return fault;
        offset = block.value->next;
    }
    return std::nullopt;
}

Result<std::vector<ByteRange>> readFreeList(Database &database, int32_t medium) {
    using Blocks = Result<std::vector<ByteRange>>;
    const auto size = mediumSize(database, medium);
    if (!size)
        return Blocks::bad(size.error);
    std::vector<ByteRange> blocks;
    uint64_t end = kHeaderBytes;
    const auto fault = forEachFreeBlock(database, medium, [&](const ByteRange &block) -> Status {
        if (block.offset < end || block.sizeBytes < kHeadBytes || block.end() > *size.value)
            return damaged("its free list is damaged at " + std::to_string(block.offset));
        blocks.push_back(block);
        end = block.end();
        return std::nullopt;
    });
    return fault ? Blocks::bad(*fault) : Blocks::good(std::move(blocks));
}

std::vector<ByteRange> mergeRanges(std::vector<ByteRange> ranges) {
    std::sort(ranges.begin(), ranges.end(), [](const ByteRange &a, const ByteRange &b) { return a.offset < b.offset; });
    std::vector<ByteRange> merged;
    for (const auto &range : ranges)
        if (!merged.empty() && merged.back().end() == range.offset)
            merged.back().sizeBytes += range.sizeBytes;
        else if (range.sizeBytes != 0)
            merged.push_back(range);
    return merged;
}

Status releaseRanges(Database &database, int32_t medium, std::vector<ByteRange> ranges) {
    for (const auto &range : mergeRanges(std::move(ranges)))
        if (auto fault = releaseOne(database, medium, range))
            return fault;
    return std::nullopt;
}

}  // namespace tavdb::image
