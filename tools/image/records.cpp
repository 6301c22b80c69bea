// SPDX-License-Identifier: Apache-2.0
#include "image/records.h"

#include <algorithm>

#include "image/value_type.h"

namespace tavdb::image {

namespace {

class Collector {
public:
    explicit Collector(Database &place) : database(place) {}

    Result<std::vector<StoredRecord>> run(const StoredComponent &component) {
        const auto kind = component.isNode ? RecordKind::node : RecordKind::leaf;
        const uint32_t size = component.isNode ? sizeof(tavDBMNode) : sizeof(tavDBMLeaf);
        add(kind, kComponentMedium, {component.key, size}, 0, true);
        addName(component.nameKey);
        if (!component.isNode)
            addValues(component.key);
        return fault ? Result<std::vector<StoredRecord>>::bad(std::move(*fault))
                     : Result<std::vector<StoredRecord>>::good(std::move(records));
    }

private:
    /// @return whether it is the first one of its place
    bool add(RecordKind kind, int32_t medium, ByteRange range, int32_t type, bool namesItself) {
        const bool isKnown = std::any_of(records.begin(), records.end(), [&](const StoredRecord &record) {
            return record.kind == kind && record.medium == medium && record.range.offset == range.offset;
        });
        if (isKnown || fault)
            return false;
        const auto size = mediumSize(database, medium);
        if (!size)
            fault = size.error;
        const bool liesInside =
            size && range.offset >= sizeof(tavDBMMediumHeader) && range.end() <= uint64_t{*size.value};
        records.push_back({kind, medium, range, type, namesItself && liesInside});
        return true;
    }

    void addName(uint32_t key) {
        tavDBMString entry = {};
        if (key == 0 || fault)
            return;
        if (tavdb_getStrEntry(database.cleared(), key, &entry) == nullptr) {
            fault = faultIn("the name at " + std::to_string(key), database.knownFault());
            return;
        }
        add(RecordKind::string, kStringMedium, {key, sizeof entry}, 0, entry.key == key);
        if (entry.key == key && entry.textLength > 0)
            add(RecordKind::text, entry.textMedia, {entry.textOffset, static_cast<uint32_t>(entry.textLength)}, 0,
                false);
    }

    void addValues(uint32_t component) {
        tavDBMLeaf leaf = {};
        if (comp_getLeaf(database.cleared(), component, &leaf) == nullptr)
            fault = database.knownFault();
        for (const uint32_t key : {leaf.currentValue, leaf.defaultValue, leaf.factoryValue})
            addValue(key);
    }

    void addValue(uint32_t key) {
        tavDBMValue value = {};
        if (key == 0 || fault)
            return;
        if (value_get(database.cleared(), key, &value) == nullptr) {
            fault = faultIn("the value at " + std::to_string(key), database.knownFault());
            return;
        }
        const bool namesItself = value.key == key;
        if (!add(RecordKind::value, kValueMedium, {key, sizeof value}, value.type, namesItself) || !namesItself)
            return;
        if (value.length > 0)
            add(RecordKind::data, value.dataMedia, {value.dataOffset, static_cast<uint32_t>(value.length)}, value.type,
                false);
        addConstraint(value.constraintKey);
    }

    void addConstraint(uint32_t key) {
        tavDBMConstraint header = {};
        if (key == 0 || fault)
            return;
        if (constraint_get(database.cleared(), key, &header) == nullptr) {
            fault = faultIn("the constraint at " + std::to_string(key), database.knownFault());
            return;
        }
        if (header.type >= 1 << TAVDB_ENUMERATION_SHIFT) {
            addEnumeration(key);
            return;
        }
        const uint32_t size = rangeBytes(header.type);
        add(RecordKind::range, kConstraintMedium, {key, size != 0 ? size : uint32_t{sizeof header}}, header.type,
            header.key == key && size != 0);
    }

    void addEnumeration(uint32_t key) {
        tavDBMEnumeration record = {};
        if (enum_get(database.cleared(), key, &record) == nullptr) {
            fault = faultIn("the constraint at " + std::to_string(key), database.knownFault());
            return;
        }
        const int32_t type = record.type >> TAVDB_ENUMERATION_SHIFT;
        const bool isNew =
            add(RecordKind::enumeration, kConstraintMedium, {key, sizeof record}, type, record.key == key);
        const auto *info = findType(type);
        const bool isPlausible =
            info != nullptr && info->isNumber() && record.elementSize == static_cast<int32_t>(info->widthBytes);
        if (!isNew || record.key != key || !isPlausible || record.elementCount <= 0)
            return;
        const uint64_t bytes = uint64_t{info->widthBytes} * static_cast<uint32_t>(record.elementCount);
        if (bytes <= INT32_MAX)
            add(RecordKind::elements, kConstraintMedium, {record.arrayKey, static_cast<uint32_t>(bytes)}, type, true);
    }

    Database &database;
    std::vector<StoredRecord> records;
    Status fault;
};

}  // namespace

Result<std::vector<StoredRecord>> recordsOf(Database &database, const StoredComponent &component) {
    return Collector(database).run(component);
}

}  // namespace tavdb::image
