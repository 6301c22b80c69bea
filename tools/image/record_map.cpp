// SPDX-License-Identifier: Apache-2.0
#include "image/record_map.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <tuple>

#include "tavdb_modules.h"

namespace tavdb::image {

namespace {

constexpr LinkField kRoot{"root", offsetof(tavDBMMediumHeader, root)};
constexpr LinkField kFirstFree{"first free block", offsetof(tavDBMMediumHeader, firstFree)};
constexpr LinkField kNextFree{"next free block", offsetof(tavDBMFreeBlock, next)};
constexpr LinkField kName{"name", offsetof(tavDBMComponent, name)};
constexpr LinkField kNextSibling{"next sibling", offsetof(tavDBMComponent, next)};
constexpr LinkField kFirstChild{"first child", offsetof(tavDBMNode, firstChild)};
constexpr LinkField kCurrent{"current value", offsetof(tavDBMLeaf, currentValue)};
constexpr LinkField kDefault{"default value", offsetof(tavDBMLeaf, defaultValue)};
constexpr LinkField kFactory{"factory value", offsetof(tavDBMLeaf, factoryValue)};
constexpr LinkField kText{"text", offsetof(tavDBMString, textOffset)};
constexpr LinkField kData{"data", offsetof(tavDBMValue, dataOffset)};
constexpr LinkField kConstraint{"constraint", offsetof(tavDBMValue, constraintKey)};
constexpr LinkField kElements{"array of elements", offsetof(tavDBMEnumeration, arrayKey)};

std::string describe(const MappedRecord &record) {
    const std::string name(layoutOf(record.kind).name);
    return record.kind == RecordKind::header ? "the " + name
                                             : "the " + name + " at " + std::to_string(record.range.offset);
}

/// Indices of the records in the order of their places.
std::vector<uint32_t> byPlace(const std::vector<MappedRecord> &records) {
    std::vector<uint32_t> order(records.size());
    for (uint32_t i = 0; i < order.size(); i++)
        order[i] = i;
    std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
        const auto &first = records[a];
        const auto &second = records[b];
        return std::tuple(first.medium, first.range.offset, a) < std::tuple(second.medium, second.range.offset, b);
    });
    return order;
}

/// The records are their own queue: those that a record refers to are entered behind
/// it, each once, and the work ends when the last one has been looked at.
class Mapper {
public:
    explicit Mapper(const RawImages &given) : images(given) {}

    RecordMap run() {
        for (const auto &medium : kMediumNames)
            enterHeader(medium);
        for (uint32_t i = 0; i < map.records.size(); i++)
            visit(i);
        findOverlaps();
        return std::move(map);
    }

private:
    enum class Entered { outside, known, fresh };

    /// What leads to a record.
    struct Referrer {
        uint32_t record;
        LinkField field;
    };

    void enterHeader(const MediumName &medium) {
        const MappedRecord header{RecordKind::header, medium.id, {0, sizeof(tavDBMMediumHeader)}, 0};
        if (images.contains(medium.id, header.range))
            map.records.push_back(header);
        else
            map.faults.push_back({medium.id, 0, "the image is shorter than its header"});
    }

    Entered enter(const Referrer &from, const MappedRecord &record) {
        if (!images.contains(record.medium, record.range)) {
            blame(from, record.range.offset, "lies outside of its medium");
            return Entered::outside;
        }
        const auto number = static_cast<uint32_t>(map.records.size());
        const auto [place, isFresh] = known.try_emplace(
            {record.medium, record.range.offset, record.range.sizeBytes, record.kind, record.type}, number);
        if (isFresh)
            map.records.push_back(record);
        map.links.push_back({from.record, place->second, from.field});
        return isFresh ? Entered::fresh : Entered::known;
    }

    /// A record that begins with its own key.
    template <typename Record>
    std::optional<Record> readKeyed(const Referrer &from, int32_t medium, uint32_t key) {
        const auto record = images.read<Record>(medium, key);
        if (!record)
            blame(from, key, "lies outside of its medium");
        else if (*images.read<uint32_t>(medium, key) == key)
            return record;
        else
            blame(from, key, "is no record: it does not name itself");
        return std::nullopt;
    }

    void visit(uint32_t index) {
        const auto record = map.records[index];
        switch (record.kind) {
            case RecordKind::header:
                return visitHeader(index, record);
            case RecordKind::freeBlock:
                return enterFreeBlock({index, kNextFree}, record, wordsOf<tavDBMFreeBlock>(record).next);
            case RecordKind::node:
                return visitNode(index, wordsOf<tavDBMNode>(record));
            case RecordKind::leaf:
                return visitLeaf(index, wordsOf<tavDBMLeaf>(record));
            case RecordKind::string:
                return visitString(index, wordsOf<tavDBMString>(record));
            case RecordKind::value:
                return visitValue(index, wordsOf<tavDBMValue>(record));
            case RecordKind::enumeration:
                return visitEnumeration(index, wordsOf<tavDBMEnumeration>(record), record.type);
            default:
                return;
        }
    }

    /// Of a record that was entered, so it lies on its medium.
    template <typename Record>
    Record wordsOf(const MappedRecord &record) const {
        return *images.read<Record>(record.medium, record.range.offset);
    }

    void visitHeader(uint32_t index, const MappedRecord &record) {
        const auto header = wordsOf<tavDBMMediumHeader>(record);
        if (record.medium == kComponentMedium && header.root == 0)
            complain(index, "it names no root");
        if (record.medium == kComponentMedium)
            enterComponent({index, kRoot}, header.root, 0);
        if (kMediumNames[static_cast<size_t>(record.medium) - 1].holdsRecords)
            enterFreeBlock({index, kFirstFree}, record, header.firstFree);
    }

    /// Blocks stand in ascending order, so their list cannot run in a circle.
    void enterFreeBlock(const Referrer &from, const MappedRecord &before, uint32_t offset) {
        if (offset == 0)
            return;
        if (offset < before.range.end())
            return blame(from, offset, "does not lie behind it");
        const auto block = images.read<tavDBMFreeBlock>(before.medium, offset);
        if (!block)
            return blame(from, offset, "lies outside of its medium");
        if (block->size < sizeof(tavDBMFreeBlock))
            return blame(from, offset, "says that it has " + std::to_string(block->size) + " bytes");
        enter(from, {RecordKind::freeBlock, before.medium, {offset, block->size}, 0});
    }

    void enterComponent(const Referrer &from, uint32_t key, uint32_t parent) {
        if (key == 0)
            return;
        const auto component = readKeyed<tavDBMComponent>(from, kComponentMedium, key);
        if (!component)
            return;
        const bool isNode = component->kind == TAVDB_KIND_NODE;
        if (!isNode && component->kind != TAVDB_KIND_LEAF)
            return blame(from, key, "is of kind " + std::to_string(component->kind) + ", which is none");
        if (component->parent != parent)
            return blame(from, key, "names " + std::to_string(component->parent) + " as its parent");
        const auto kind = isNode ? RecordKind::node : RecordKind::leaf;
        const uint32_t size = isNode ? sizeof(tavDBMNode) : sizeof(tavDBMLeaf);
        if (enter(from, {kind, kComponentMedium, {key, size}, 0}) == Entered::known)
            blame(from, key, "stands elsewhere in the tree as well");
    }

    void visitNode(uint32_t index, const tavDBMNode &node) {
        enterString({index, kName}, node.component.name);
        enterComponent({index, kFirstChild}, node.firstChild, node.component.key);
        enterSibling(index, node.component);
    }

    void visitLeaf(uint32_t index, const tavDBMLeaf &leaf) {
        enterString({index, kName}, leaf.component.name);
        enterValue({index, kCurrent}, leaf.currentValue);
        enterValue({index, kDefault}, leaf.defaultValue);
        enterValue({index, kFactory}, leaf.factoryValue);
        enterSibling(index, leaf.component);
    }

    /// What a root names as its sibling is read by nobody.
    void enterSibling(uint32_t index, const tavDBMComponent &component) {
        if (component.parent != 0)
            enterComponent({index, kNextSibling}, component.next, component.parent);
    }

    void enterString(const Referrer &from, uint32_t key) {
        if (key != 0 && readKeyed<tavDBMString>(from, kStringMedium, key))
            enter(from, {RecordKind::string, kStringMedium, {key, sizeof(tavDBMString)}, 0});
    }

    void visitString(uint32_t index, const tavDBMString &entry) {
        enterAppended({index, kText}, {RecordKind::text, entry.textMedia, {entry.textOffset, 0}, 0}, entry.textLength);
    }

    void enterValue(const Referrer &from, uint32_t key) {
        if (key == 0)
            return;
        if (const auto value = readKeyed<tavDBMValue>(from, kValueMedium, key))
            enter(from, {RecordKind::value, kValueMedium, {key, sizeof *value}, value->type});
    }

    void visitValue(uint32_t index, const tavDBMValue &value) {
        enterAppended({index, kData}, {RecordKind::data, value.dataMedia, {value.dataOffset, 0}, value.type},
                      value.length);
        enterConstraint({index, kConstraint}, value.constraintKey);
    }

    /// Texts and data: the records that refer to them say where they are.
    void enterAppended(const Referrer &from, MappedRecord record, int32_t length) {
        if (!RawImages::isMedium(record.medium))
            return complain(from.record, "it names medium " + std::to_string(record.medium) + ", which is none");
        if (length < 0)
            return complain(from.record, "it says that it has " + std::to_string(length) + " bytes");
        record.range.sizeBytes = static_cast<uint32_t>(length);
        if (length > 0)
            enter(from, record);
    }

    void enterConstraint(const Referrer &from, uint32_t key) {
        if (key == 0)
            return;
        const auto header = readKeyed<tavDBMConstraint>(from, kConstraintMedium, key);
        if (!header)
            return;
        const auto type = constraintTypeOf(header->type);
        if (!type)
            return blame(from, key, "is of type " + std::to_string(header->type) + ", which is none");
        const uint32_t size =
            type->kind == RecordKind::range ? rangeBytes(type->valueType) : uint32_t{sizeof(tavDBMEnumeration)};
        enter(from, {type->kind, kConstraintMedium, {key, size}, type->valueType});
    }

    void visitEnumeration(uint32_t index, const tavDBMEnumeration &record, int32_t type) {
        // A negative count admits every value, and nobody reads the elements.
        if (record.elementCount <= 0)
            return;
        if (record.elementSize < 0)
            return complain(index, "its elements have " + std::to_string(record.elementSize) + " bytes");
        const uint64_t bytes =
            uint64_t{static_cast<uint32_t>(record.elementSize)} * static_cast<uint32_t>(record.elementCount);
        const auto size = static_cast<uint32_t>(std::min<uint64_t>(bytes, UINT32_MAX));
        if (size > 0)
            enter({index, kElements}, {RecordKind::elements, kConstraintMedium, {record.arrayKey, size}, type});
    }

    void findOverlaps() {
        const MappedRecord *reaching = nullptr;
        for (const uint32_t index : byPlace(map.records)) {
            const auto &record = map.records[index];
            const bool isSameMedium = reaching != nullptr && reaching->medium == record.medium;
            if (isSameMedium && record.range.offset < reaching->range.end())
                map.faults.push_back({record.medium, record.range.offset,
                                      describe(*reaching) + " and " + describe(record) + " overlap"});
            if (!isSameMedium || record.range.end() > reaching->range.end())
                reaching = &record;
        }
    }

    void complain(uint32_t index, const std::string &sentence) {
        const auto &record = map.records[index];
        map.faults.push_back({record.medium, record.range.offset, describe(record) + ": " + sentence});
    }

    void blame(const Referrer &from, uint32_t offset, const std::string &what) {
        complain(from.record, "its " + std::string(from.field.name) + ", at " + std::to_string(offset) + ", " + what);
    }

    using Place = std::tuple<int32_t, uint32_t, uint32_t, RecordKind, int32_t>;

    const RawImages &images;
    RecordMap map;
    std::map<Place, uint32_t> known;
};

}  // namespace

RecordMap mapRecords(const RawImages &images) {
    return Mapper(images).run();
}

std::vector<ByteRange> unclaimedRanges(const RawImages &images, const RecordMap &map, int32_t medium) {
    std::vector<ByteRange> gaps;
    uint64_t end = 0;
    const auto closeGap = [&](uint64_t offset) {
        if (offset > end)
            gaps.push_back({static_cast<uint32_t>(end), static_cast<uint32_t>(offset - end)});
    };
    for (const uint32_t index : byPlace(map.records)) {
        const auto &record = map.records[index];
        if (record.medium != medium)
            continue;
        closeGap(record.range.offset);
        end = std::max(end, record.range.end());
    }
    closeGap(images.content(medium).size());
    return gaps;
}

Fault faultOf(const MapFault &found) {
    const auto &medium = kMediumNames[static_cast<size_t>(found.medium) - 1];
    return faultIn(std::string(medium.file), damaged(found.sentence));
}

}  // namespace tavdb::image
