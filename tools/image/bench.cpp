// SPDX-License-Identifier: Apache-2.0
#include "image/bench.h"

#include <algorithm>

#include "image/media_image.h"

namespace tavdb::image {

namespace {

constexpr uint64_t kAlignment = 4;

std::string recordName(const FoundAt &at) {
    const std::string name(layoutOf(at.kind).name);
    return at.kind == RecordKind::header ? "the " + name : "the " + name + " at " + std::to_string(at.offset);
}

}  // namespace

size_t Bench::report(Gravity gravity, const FoundAt &at, std::string what, std::string remedy, std::string lost) {
    const auto &medium = kMediumNames[static_cast<size_t>(at.medium) - 1];
    findings.push_back({gravity,
                        std::string(medium.file),
                        recordName(at),
                        at.offset,
                        at.component,
                        {},
                        std::move(what),
                        std::move(remedy),
                        std::move(lost)});
    return findings.size() - 1;
}

void Bench::nameAfterKey(uint32_t component) {
    newNames[component] = keyName(component);
    displaced.push_back(component);
}

std::string Bench::keyName(uint32_t component) const {
    const auto record = images.read<tavDBMComponent>(kComponentMedium, component);
    const bool isNode = record && record->kind == TAVDB_KIND_NODE;
    return kRecovered + std::to_string(component) + (isNode ? "/" : "");
}

bool Bench::setText(uint32_t stringKey, const std::string &text) {
    const auto place = append(kTextMedium, std::string_view(text.c_str(), text.size() + 1));
    if (!place)
        return false;
    images.write(kStringMedium, stringKey,
                 tavDBMString{stringKey, kTextMedium, *place, static_cast<int32_t>(text.size() + 1)});
    for (auto &area : areas)
        if (area.isClaimed && area.holder.kind == RecordKind::string && area.holder.offset == stringKey) {
            claimsOf(area.medium).giveBack(area.range);
            area.isClaimed = false;
        }
    return true;
}

bool Bench::isInside(int32_t medium, const ByteRange &range) const {
    return range.offset >= kHeaderBytes && images.contains(medium, range);
}

bool Bench::namesItself(int32_t medium, uint32_t offset) const {
    return offset >= kHeaderBytes && images.read<uint32_t>(medium, offset) == offset;
}

std::vector<ByteRange> Bench::soundFreeBlocks(int32_t medium) {
    std::vector<ByteRange> blocks;
    const auto header = images.read<tavDBMMediumHeader>(medium, 0);
    uint64_t end = kHeaderBytes;
    for (uint32_t offset = header ? header->firstFree : 0; offset != 0;) {
        const auto block = images.read<tavDBMFreeBlock>(medium, offset);
        if (offset < end || !block || block->size < sizeof *block || !images.contains(medium, {offset, block->size}))
            break;
        const auto taken = claimsOf(medium).firstTakenIn({offset, block->size});
        if (taken > offset)
            blocks.push_back({offset, static_cast<uint32_t>(taken - offset)});
        end = uint64_t{offset} + block->size;
        offset = block->next;
    }
    return blocks;
}

const std::vector<ByteRange> &Bench::formerBlocks(int32_t medium) {
    auto &blocks = formerlyFree[static_cast<size_t>(medium)];
    if (!blocks)
        blocks = soundFreeBlocks(medium);
    return *blocks;
}

bool Bench::wasFree(int32_t medium, uint32_t offset) {
    const auto &blocks = formerBlocks(medium);
    const auto behind = std::upper_bound(blocks.begin(), blocks.end(), offset,
                                         [](uint32_t at, const ByteRange &block) { return at < block.offset; });
    return behind != blocks.begin() && offset < std::prev(behind)->end();
}

uint32_t Bench::lastFree(int32_t medium) {
    const auto &blocks = formerBlocks(medium);
    return blocks.empty() ? 0 : blocks.back().offset;
}

std::optional<uint32_t> Bench::allocate(int32_t medium, uint32_t sizeBytes) {
    const auto gaps = claimsOf(medium).gaps(sizeOf(medium));
    const auto gap =
        std::find_if(gaps.begin(), gaps.end(), [&](const ByteRange &each) { return each.sizeBytes >= sizeBytes; });
    std::optional<uint32_t> offset;
    if (gap != gaps.end() && claimsOf(medium).take({gap->offset, sizeBytes}))
        offset = gap->offset;
    else if (sizeOf(medium) + kAlignment + sizeBytes <= kMediumBytesMax) {
        images.append(medium, std::string((kAlignment - sizeOf(medium) % kAlignment) % kAlignment, '\0'));
        offset = append(medium, std::string(sizeBytes, '\0'));
    }
    renewed.insert(medium);
    return offset;
}

std::optional<uint32_t> Bench::append(int32_t medium, std::string_view bytes) {
    if (sizeOf(medium) + bytes.size() > kMediumBytesMax)
        return std::nullopt;
    const uint32_t offset = images.append(medium, bytes);
    claimsOf(medium).take({offset, static_cast<uint32_t>(bytes.size())});
    return offset;
}

}  // namespace tavdb::image
