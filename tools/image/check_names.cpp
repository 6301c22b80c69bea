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
    const bool isInside = entry && key >= sizeof(tavDBMMediumHeader);
    return judged[key] = isInside ? acceptEntry(owner, key, *entry) : lose(owner, key, "lies outside of its medium");
}

/// @return false
bool NameCheck::lose(const FoundAt &owner, uint32_t key, const std::string &what, Gravity gravity) {
    bench.report(gravity, owner, "its name, at " + std::to_string(key) + ", " + what, "it gets a new name", "its name");
    return false;
}

bool NameCheck::acceptEntry(const FoundAt &owner, uint32_t key, const tavDBMString &entry) {
    const bool isNamed = entry.key == key;
    const bool isFree = bench.wasFree(kStringMedium, key);
    const auto fault = faultOf(entry);
    if (!isNamed && isFree)
        return lose(owner, key, "was deleted", Gravity::oddity);
    if (!isNamed && fault)
        return lose(owner, key, "is no record: it does not name itself");
    if (!bench.claimsOf(kStringMedium).isFree({key, sizeof entry}))
        return lose(owner, key, "lies in another record");
    if (isFree)
        bench.report(Gravity::damage, owner, "its name, at " + std::to_string(key) + ", is free as well",
                     "it is taken out of the free list");
    const FoundAt at = {kStringMedium, RecordKind::string, key, owner.component};
    if (!isNamed)
        bench.report(Gravity::damage, at, "it says that it lies at " + std::to_string(entry.key),
                     "it says where it lies");
    const auto better = fault ? mended(entry) : std::optional(entry);
    if (fault)
        bench.report(Gravity::damage, at, *fault, better ? "it is put right" : "the component gets a new name",
                     better ? "" : "the name");
    if (better)
        keep(at, *better);
    return better.has_value();
}

void NameCheck::keep(const FoundAt &at, tavDBMString entry) {
    entry.key = at.offset;
    bench.images.write(kStringMedium, at.offset, entry);
    bench.claimsOf(kStringMedium).take({at.offset, sizeof entry});
    bench.areas.push_back({entry.textMedia, textRange(entry), at});
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
