// SPDX-License-Identifier: Apache-2.0
#include "image/media_image.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "image/files.h"
#include "image/record_layout.h"

namespace tavdb::image {

namespace {

static_assert(kHeaderBytes == 16);

uint64_t constraintBytes(const Leaf &leaf) {
    if (std::holds_alternative<Range>(leaf.constraint))
        return rangeBytes(static_cast<int32_t>(leaf.type));
    const auto *elements = std::get_if<Enumeration>(&leaf.constraint);
    return elements == nullptr
               ? 0
               : sizeof(tavDBMEnumeration) + uint64_t{typeInfo(leaf.type).widthBytes} * elements->size();
}

/// Counts what each component takes on every medium.
struct ByteCounter {
    MediumBytes &bytes;

    void operator()(const std::string &, const Node &node) const {
        bytes[kComponentMedium] += sizeof(tavDBMNode);
        addName(node.name.size() + 1);
    }
    void operator()(const std::string &, const Leaf &leaf) const {
        bytes[kComponentMedium] += sizeof(tavDBMLeaf);
        bytes[kValueMedium] += 3 * sizeof(tavDBMValue);
        bytes[kDataMedium] += 3 * uint64_t{leaf.lengthBytes};
        bytes[kConstraintMedium] += constraintBytes(leaf);
        addName(leaf.name.size());
    }
    void addName(size_t length) const {
        bytes[kStringMedium] += sizeof(tavDBMString);
        bytes[kTextMedium] += length + 1;
    }
};

/// The header, and behind it one free block that is all the rest.
std::string imageStart(const MediumName &medium, uint64_t sizeBytes) {
    const bool hasBlock = medium.holdsRecords;
    const tavDBMMediumHeader header = {{kMagic, roleWord(medium.id)}, 0, hasBlock ? kHeaderBytes : 0};
    const tavDBMFreeBlock block = {0, static_cast<uint32_t>(sizeBytes - kHeaderBytes)};
    std::string start(kHeaderBytes + (hasBlock ? sizeof block : 0), '\0');
    std::memcpy(start.data(), &header, sizeof header);
    if (hasBlock)
        std::memcpy(start.data() + kHeaderBytes, &block, sizeof block);
    return start;
}

Status writeEmptyImage(const std::string &path, const MediumName &medium, uint64_t sizeBytes) {
    auto file = openFile(path, O_WRONLY | O_CREAT | O_EXCL, 0664);
    if (!file.isOpen())
        return faultOfError(errno, "cannot be made");
    if (auto fault = writeAll(file.get(), imageStart(medium, sizeBytes)))
        return fault;
    if (const int error = posix_fallocate(file.get(), 0, static_cast<off_t>(sizeBytes)); error != 0)
        return faultOfError(error, "cannot be made");
    return close(file.release()) == 0 ? Status{} : faultOfError(errno, "cannot be written");
}

}  // namespace

MediumBytes contentBytes(const Model &model) {
    MediumBytes bytes = {};
    for (const auto &medium : kMediumNames)
        bytes[static_cast<size_t>(medium.id)] = kHeaderBytes;
    const ByteCounter count{bytes};
    count("/", model.root);
    forEachBelow(model.root, "/", count);
    return bytes;
}

Result<MediumBytes> imageBytes(const MediumBytes &content, uint32_t slackPercent) {
    MediumBytes sizes = {};
    for (const auto &medium : kMediumNames) {
        const uint64_t needed = content[static_cast<size_t>(medium.id)];
        const uint64_t slack =
            std::max(needed / 100 * slackPercent + needed % 100 * slackPercent / 100, kSlackBytesMin);
        // A multiple of 8 keeps the free block from ending in an odd rest.
        const uint64_t whole = medium.holdsRecords ? (needed + slack + 7) / 8 * 8 : needed;
        if (whole > kMediumBytesMax)
            return Result<MediumBytes>::bad(
                {FaultKind::failed, "the " + std::string(medium.kind) + " medium would have " + std::to_string(whole) +
                                        " bytes, " + std::to_string(kMediumBytesMax) + " are possible"});
        sizes[static_cast<size_t>(medium.id)] = medium.holdsRecords ? whole : kHeaderBytes;
    }
    return Result<MediumBytes>::good(sizes);
}

Status writeEmptyImages(const std::string &folder, const MediumBytes &sizes) {
    for (const auto &medium : kMediumNames) {
        const auto path = joinPath(folder, medium.file);
        if (auto fault = writeEmptyImage(path, medium, sizes[static_cast<size_t>(medium.id)]))
            return faultIn(std::string(medium.file), std::move(*fault));
    }
    return std::nullopt;
}

std::string formatMediaFile(MediaKind kind) {
    struct Row {
        std::string_view functions;
        bool namesSockets;
    };
    static constexpr std::array kRows = {
        Row{"tavdbMemOpen tavdbMemClose tavdbMemRead tavdbMemWrite tavdbMemSeek tavdbMemSync1", false},
        Row{"tavdbFileOpenHD tavdbFileClose tavdbFileRead tavdbFileWrite tavdbFileSeek tavdbFileSync3", false},
        Row{"tavdbMsgOpen tavdbMsgClose tavdbMsgRead tavdbMsgWrite tavdbMsgSeek tavdbMsgSync", true},
    };
    const auto &row = kRows[static_cast<size_t>(kind)];
    std::string text;
    for (const auto &medium : kMediumNames)
        text += "libtavdbfile.so " + std::string(row.functions) + " " +
                (row.namesSockets ? socketName(medium) : std::string(medium.file)) + "\n";
    return text;
}

}  // namespace tavdb::image
