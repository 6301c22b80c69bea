// SPDX-License-Identifier: Apache-2.0
#include "image/check_names.h"

#include <algorithm>
#include <cstddef>

#include "image/text_util.h"

namespace tavdb::image {

namespace {

ByteRange textRange(const tavDBMString &entry) {
    return {entry.textOffset, static_cast<uint32_t>(entry.textLength)};
}

}  // namespace

std::string textOf(const RawImages &images, uint32_t stringKey) {
    const auto entry = images.read<tavDBMString>(kStringMedium, stringKey);
    if (!entry || entry->textLength < 0 || !images.contains(entry->textMedia, textRange(*entry)))
        return {};
    const auto text =
        images.content(entry->textMedia).substr(entry->textOffset, static_cast<size_t>(entry->textLength));
    return text.substr(0, text.find('\0'));
}

void NameCheck::run(const TreeCheck &tree) {
    for (const auto &component : tree.components()) {
        const auto header = *bench.images.read<tavDBMComponent>(kComponentMedium, component.key);
        const FoundAt owner = {kComponentMedium, component.isNode ? RecordKind::node : RecordKind::leaf, component.key,
                               component.key};
        if (header.name == 0 || accept(owner, header.name))
            continue;
        if (component.key == tree.root())
            bench.newNames[component.key] = "/";
        else
            bench.nameAfterKey(component.key);
    }
}

bool NameCheck::accept(const FoundAt &owner, uint32_t key) {
    const auto known = judged.find(key);
    if (known != judged.end())
        return known->second;
    const auto entry = bench.images.read<tavDBMString>(kStringMedium, key);
    bool isSound = false;
    if (!entry || key < sizeof(tavDBMMediumHeader))
        bench.report(Gravity::damage, owner, "its name, at " + std::to_string(key) + ", lies outside of its medium",
                     "it gets a new name", "its name");
    else
        isSound = acceptEntry(owner, key, *entry);
    return judged[key] = isSound;
}

bool NameCheck::acceptEntry(const FoundAt &owner, uint32_t key, tavDBMString entry) {
    const auto its = "its name, at " + std::to_string(key) + ", ";
    const FoundAt at = {kStringMedium, RecordKind::string, key, owner.component};
    const bool isNamed = entry.key == key;
    const bool wasDeleted = bench.wasFree(kStringMedium, key);
    auto fault = faultOf(entry);
    if (!isNamed && (fault || wasDeleted)) {
        bench.report(wasDeleted ? Gravity::oddity : Gravity::damage, owner,
                     its + (wasDeleted ? "was deleted" : "is no record: it does not name itself"), "it gets a new name",
                     "its name");
        return false;
    }
    if (!bench.claimsOf(kStringMedium).isFree({key, sizeof entry})) {
        bench.report(Gravity::damage, owner, its + "lies in another record", "it gets a new name", "its name");
        return false;
    }
    const auto better = fault ? mended(entry) : std::optional(entry);
    if (fault)
        bench.report(Gravity::damage, at, *fault, better ? "it is put right" : "the component gets a new name",
                     better ? "" : "the name");
    if (!better)
        return false;
    if (!isNamed)
        bench.report(Gravity::damage, at, "it says that it lies at " + std::to_string(entry.key),
                     "it says where it lies");
    if (wasDeleted)
        bench.report(Gravity::damage, owner, its + "is free as well", "it is taken out of the free list");
    entry = *better;
    entry.key = key;
    bench.images.write(kStringMedium, key, entry);
    bench.claimsOf(kStringMedium).take({key, sizeof entry});
    bench.areas.push_back({entry.textMedia, textRange(entry), at});
    return true;
}

std::optional<std::string> NameCheck::faultOf(const tavDBMString &entry) const {
    if (!RawImages::isMedium(entry.textMedia))
        return "it names medium " + std::to_string(entry.textMedia) + ", which is none";
    if (entry.textLength < 1)
        return "it says that it has " + std::to_string(entry.textLength) + " bytes";
    if (!bench.isInside(entry.textMedia, textRange(entry)))
        return "its text, at " + std::to_string(entry.textOffset) + ", lies outside of its medium";
    const auto &content = bench.images.content(entry.textMedia);
    const auto end = content.find('\0', entry.textOffset);
    const size_t last = entry.textOffset + static_cast<size_t>(entry.textLength) - 1;
    if (end == last)
        return std::nullopt;
    return end < last ? "its text ends before its last byte" : std::string("its text has no end");
}

/// What the text itself tells when one word of its entry is wrong.
std::optional<tavDBMString> NameCheck::mended(const tavDBMString &entry) const {
    auto better = entry;
    if (!RawImages::isMedium(better.textMedia))
        better.textMedia = kTextMedium;
    if (!faultOf(better))
        return better;
    if (!bench.isInside(better.textMedia, {better.textOffset, 1}))
        return std::nullopt;
    // A text begins behind the NUL of another, or behind the header.
    const auto &content = bench.images.content(better.textMedia);
    const bool isStart = better.textOffset == sizeof(tavDBMMediumHeader) || content[better.textOffset - 1] == '\0';
    const auto end = content.find('\0', better.textOffset);
    if (!isStart || end == std::string::npos || end == better.textOffset || end - better.textOffset > kNameBytesMax)
        return std::nullopt;
    better.textLength = static_cast<int32_t>(end - better.textOffset + 1);
    const auto text = content.substr(better.textOffset, end - better.textOffset);
    return hasControlCharacter(text) ? std::nullopt : std::optional(better);
}

}  // namespace tavdb::image
