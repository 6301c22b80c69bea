// SPDX-License-Identifier: Apache-2.0
#include "image/check_space.h"

#include <algorithm>
#include <cstddef>

#include "tavdb_modules.h"

namespace tavdb::image {

namespace {

constexpr uint32_t kBlockBytes = sizeof(tavDBMFreeBlock);

void checkHeader(Bench &bench, const MediumName &medium) {
    const FoundAt at = {medium.id, RecordKind::header, 0, 0};
    const auto report = [&](const std::string &what, const std::string &remedy) {
        bench.report(Gravity::damage, at, what, remedy);
    };
    if (bench.sizeOf(medium.id) < kHeaderBytes) {
        report("the image is shorter than its header", "it gets a new header");
        bench.images.append(medium.id, std::string(static_cast<size_t>(kHeaderBytes - bench.sizeOf(medium.id)), '\0'));
        bench.images.write(medium.id, 0, tavDBMMediumHeader{{kMagic, roleWord(medium.id)}, 0, 0});
    }
    const auto found = *bench.images.read<tavDBMMediumHeader>(medium.id, 0);
    auto header = found;
    header.preparer[0] = kMagic;
    header.preparer[1] = roleWord(medium.id);
    if (header.preparer[0] != found.preparer[0])
        report("it does not begin with TAVD", "it does");
    if (header.preparer[1] != found.preparer[1])
        report("it does not say that it is the " + std::string(medium.kind) + " medium", "it does");
    if (medium.id != kComponentMedium && header.root != 0) {
        report("it names a root, which only the component medium has", "it names none");
        header.root = 0;
    }
    if (!medium.holdsRecords && header.firstFree != 0) {
        report("it names a free block, which this medium does not have", "it names none");
        header.firstFree = 0;
    }
    bench.images.write(medium.id, 0, header);
    bench.claimsOf(medium.id).take({0, kHeaderBytes});
}

class FreeList {
public:
    FreeList(Bench &place, const MediumName &name) : bench(place), medium(name.id) {}

    void run() {
        walk();
        findLeaks();
    }

private:
    void walk() {
        uint64_t end = kHeaderBytes;
        FoundAt from = {medium, RecordKind::header, 0, 0};
        uint32_t offset = bench.images.read<tavDBMMediumHeader>(medium, 0)->firstFree;
        while (offset != 0) {
            const auto block = bench.images.read<tavDBMFreeBlock>(medium, offset);
            const auto fault = faultOf(offset, end, block);
            if (!fault.empty()) {
                const auto name = from.offset == 0 ? "its first free block, at " : "its next free block, at ";
                return blame(Gravity::damage, from, name + std::to_string(offset) + ", " + fault);
            }
            from = {medium, RecordKind::freeBlock, offset, 0};
            const ByteRange range = {offset, block->size};
            if (from.offset != kHeaderBytes && offset == end && !blocks.empty())
                blame(Gravity::oddity, from, "it begins where the block before it ends");
            blocks.push_back(range);
            checkOverlap(from, range);
            end = range.end();
            offset = block->next;
        }
    }

    std::string faultOf(uint32_t offset, uint64_t end, const std::optional<tavDBMFreeBlock> &block) const {
        if (offset < end)
            return "does not lie behind it";
        if (!block)
            return "lies outside of its medium";
        if (block->size < kBlockBytes)
            return "says that it has " + std::to_string(block->size) + " bytes";
        return bench.images.contains(medium, {offset, block->size}) ? "" : "does not end on its medium";
    }

    void checkOverlap(const FoundAt &at, const ByteRange &range) {
        const auto taken = bench.claimsOf(medium).takenIn(range);
        if (!taken.empty())
            blame(Gravity::damage, at,
                  "it is free, and what lies at " + std::to_string(taken[0].offset) + " is in use");
    }

    /// A rest that is too short for a block is no loss: deliberate in the library.
    void findLeaks() {
        auto claims = bench.claimsOf(medium);
        for (const auto &block : blocks)
            for (const auto &gap : gapsIn(claims, block))
                claims.take(gap);
        uint64_t bytes = 0;
        uint32_t first = 0;
        for (const auto &gap : claims.gaps(bench.sizeOf(medium)))
            if (gap.sizeBytes >= kBlockBytes) {
                first = bytes == 0 ? gap.offset : first;
                bytes += gap.sizeBytes;
            }
        if (bytes != 0 && !isCut)
            blame(Gravity::oddity, {medium, RecordKind::header, 0, 0},
                  std::to_string(bytes) + " bytes, from " + std::to_string(first) + " on, are neither in use nor free");
    }

    static std::vector<ByteRange> gapsIn(const ClaimMap &claims, const ByteRange &block) {
        std::vector<ByteRange> gaps;
        uint64_t end = block.offset;
        for (const auto &taken : claims.takenIn(block)) {
            if (taken.offset > end)
                gaps.push_back({static_cast<uint32_t>(end), static_cast<uint32_t>(taken.offset - end)});
            end = taken.end();
        }
        if (block.end() > end)
            gaps.push_back({static_cast<uint32_t>(end), static_cast<uint32_t>(block.end() - end)});
        return gaps;
    }

    void blame(Gravity gravity, const FoundAt &at, const std::string &what) {
        bench.report(gravity, at, what, "the free list is made anew");
        bench.renewed.insert(medium);
        isCut = isCut || gravity == Gravity::damage;
    }

    Bench &bench;
    const int32_t medium;
    std::vector<ByteRange> blocks;
    bool isCut = false;  ///< by damage: what is not in the list was perhaps part of it
};

/// Every gap that is long enough becomes a block.
void renew(Bench &bench, int32_t medium) {
    auto gaps = bench.claimsOf(medium).gaps(bench.sizeOf(medium));
    std::erase_if(gaps, [](const ByteRange &gap) { return gap.sizeBytes < kBlockBytes; });
    bench.images.write(medium, offsetof(tavDBMMediumHeader, firstFree), gaps.empty() ? 0 : gaps[0].offset);
    for (size_t i = 0; i < gaps.size(); i++)
        bench.images.write(medium, gaps[i].offset,
                           tavDBMFreeBlock{i + 1 < gaps.size() ? gaps[i + 1].offset : 0, gaps[i].sizeBytes});
}

}  // namespace

void checkHeaders(Bench &bench) {
    for (const auto &medium : kMediumNames)
        checkHeader(bench, medium);
}

void checkFreeLists(Bench &bench) {
    for (const auto &medium : kMediumNames)
        if (medium.holdsRecords)
            FreeList(bench, medium).run();
}

void renewFreeLists(Bench &bench) {
    for (const int32_t medium : bench.renewed)
        renew(bench, medium);
}

}  // namespace tavdb::image
