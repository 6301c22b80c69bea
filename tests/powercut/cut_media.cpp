// SPDX-License-Identifier: Apache-2.0
#include "powercut/cut_media.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tavdb_modules.h"

namespace tavdb_test {

namespace {

namespace image = tavdb::image;

constexpr size_t kRecordMediumBytes = 1200;

int32_t openMedium(const char *hint, uint32_t, uint32_t *) {
    for (const auto &medium : image::kMediumNames)
        if (std::string(hint).ends_with(medium.file))
            return medium.id;
    return -1;
}

int32_t closeMedium(int32_t, uint32_t *) {
    return 0;
}

int32_t readMedium(int32_t medium, void *buffer, int32_t length, uint32_t offset, uint32_t *) {
    const auto &content = cutMedia().contents[static_cast<size_t>(medium)];
    if (length < 0)
        return -1;
    const size_t count =
        offset >= content.size() ? 0 : std::min<size_t>(content.size() - offset, static_cast<size_t>(length));
    std::memcpy(buffer, content.data() + std::min<size_t>(offset, content.size()), count);
    return static_cast<int32_t>(count);
}

int32_t writeMedium(int32_t medium, const void *buffer, int32_t length, uint32_t offset, uint32_t *) {
    constexpr uint32_t kOffsetMax = 1 << 20;
    if (length < 0 || offset > kOffsetMax)
        return -1;
    const MediumWrite write = {medium, offset, {static_cast<const char *>(buffer), static_cast<size_t>(length)}};
    CutMedia::apply(cutMedia().contents, write, write.bytes.size());
    cutMedia().writes.push_back(write);
    return length;
}

int32_t seekMedium(int32_t medium, int32_t offset, int32_t whence, uint32_t *) {
    return whence == SEEK_END ? static_cast<int32_t>(cutMedia().contents[static_cast<size_t>(medium)].size()) + offset
                              : offset;
}

std::string imageOf(const image::MediumName &medium, uint32_t root, const std::string &records) {
    const auto used = static_cast<uint32_t>(sizeof(tavDBMMediumHeader) + records.size());
    tavDBMMediumHeader header = {{image::kMagic, image::roleWord(medium.id)}, root, 0};
    if (medium.holdsRecords)
        header.firstFree = used;
    const tavDBMFreeBlock block = {0, static_cast<uint32_t>(kRecordMediumBytes) - used};
    std::string content(reinterpret_cast<const char *>(&header), sizeof header);
    content += records;
    if (!medium.holdsRecords)
        return content;
    content.append(reinterpret_cast<const char *>(&block), sizeof block);
    content.resize(kRecordMediumBytes);
    return content;
}

}  // namespace

void CutMedia::apply(Contents &contents, const MediumWrite &write, size_t sizeBytes) {
    auto &content = contents[static_cast<size_t>(write.medium)];
    if (content.size() < write.offset + sizeBytes)
        content.resize(write.offset + sizeBytes);
    content.replace(write.offset, sizeBytes, write.bytes, 0, sizeBytes);
}

void CutMedia::restart(Contents given) {
    contents = std::move(given);
    writes.clear();
}

CutMedia &cutMedia() {
    static CutMedia media;
    return media;
}

void useCutMedia() {
    for (const auto &medium : image::kMediumNames) {
        auto &entry = media_table.entry[medium.id];
        entry.open = openMedium;
        entry.close = closeMedium;
        entry.read = readMedium;
        entry.write = writeMedium;
        entry.lseek = seekMedium;
    }
}

Contents emptyContents() {
    constexpr uint32_t kFirst = sizeof(tavDBMMediumHeader);
    const tavDBMNode root = {{kFirst, kFirst, 0, 0, 0, TAVDB_KIND_NODE}, 0};
    const tavDBMString name = {kFirst, image::kTextMedium, kFirst, 2};
    Contents contents;
    for (const auto &medium : image::kMediumNames) {
        std::string records;
        if (medium.id == image::kComponentMedium)
            records.assign(reinterpret_cast<const char *>(&root), sizeof root);
        else if (medium.id == image::kStringMedium)
            records.assign(reinterpret_cast<const char *>(&name), sizeof name);
        else if (medium.id == image::kTextMedium)
            records.assign("/", 2);
        contents[static_cast<size_t>(medium.id)] =
            imageOf(medium, medium.id == image::kComponentMedium ? kFirst : 0, records);
    }
    return contents;
}

}  // namespace tavdb_test
