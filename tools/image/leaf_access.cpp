// SPDX-License-Identifier: Apache-2.0
#include "image/leaf_access.h"

#include <cstring>

#include "image/library_call.h"
#include "image/stored_constraint.h"
#include "image/value_bytes.h"

namespace tavdb::image {

namespace {

/// Longer values are held against their medium before memory is taken for them.
constexpr int32_t kPlausibleBytes = 65536;

using Read = int32_t (*)(tavDBMSession *, uint32_t, void *, int32_t *);
using Write = int32_t (*)(tavDBMSession *, uint32_t, const void *, int32_t);

struct TierRow {
    std::string_view name;
    uint32_t tavDBMLeaf::*key;
    Read read;
    Write write;  ///< null: the library has none
};

constexpr std::array<TierRow, kTiers.size()> kTierRows = {{
    {"current", &tavDBMLeaf::currentValue, tavDBMGetGeneric, tavDBMSetGeneric},
    {"default", &tavDBMLeaf::defaultValue, tavDBMGetDefaultGeneric, tavDBMSetDefaultGeneric},
    {"factory", &tavDBMLeaf::factoryValue, tavDBMGetFactoryGeneric, nullptr},
}};

const TierRow &rowOf(Tier tier) {
    return kTierRows[static_cast<size_t>(tier)];
}

Status checkRecord(Database &database, const tavDBMValue &value, uint32_t key) {
    if (value.key != key)
        return damaged("the record says that it is at " + std::to_string(value.key));
    if (value.length < 0)
        return damaged("its length is " + std::to_string(value.length));
    if (value.length <= kPlausibleBytes)
        return std::nullopt;
    const auto size = mediumSize(database, value.dataMedia);
    if (!size)
        return size.error;
    if (uint64_t{value.dataOffset} + static_cast<uint32_t>(value.length) > *size.value)
        return damaged("its data lie outside of their medium");
    return std::nullopt;
}

Status readValueRecord(Database &database, uint32_t key, tavDBMValue &value) {
    if (key == 0)
        return std::nullopt;
    if (value_get(database.cleared(), key, &value) == nullptr)
        return database.knownFault();
    return checkRecord(database, value, key);
}

Status readValueRecords(Database &database, StoredLeaf &stored, const tavDBMLeaf &record) {
    for (const auto tier : kTiers) {
        const uint32_t key = record.*rowOf(tier).key;
        if (auto fault = readValueRecord(database, key, stored.values[static_cast<size_t>(tier)]))
            return faultIn("the " + std::string(tierName(tier)) + " value at " + std::to_string(key),
                           std::move(*fault));
    }
    return std::nullopt;
}

/// The value that says what the leaf is: the current one, else the next that is there.
const tavDBMValue *leadingValue(const StoredLeaf &stored) {
    for (const auto &value : stored.values)
        if (value.key != 0)
            return &value;
    return nullptr;
}

/// What cannot be what its type says is shown byte by byte.
Type typeOf(const tavDBMValue &value) {
    const auto *info = findType(value.type);
    const bool fits = info != nullptr && (!info->isNumber() || static_cast<int32_t>(info->widthBytes) == value.length);
    return fits ? info->type : Type::bytes;
}

Status fillLeaf(Database &database, StoredLeaf &stored, const SchemaEntry &entry) {
    const auto *value = leadingValue(stored);
    if (value == nullptr)
        return Fault{FaultKind::notFound, "has no value"};
    stored.typeCode = value->type;
    stored.leaf.type = typeOf(*value);
    stored.leaf.lengthBytes = static_cast<uint32_t>(value->length);
    auto constraint = readConstraint(database, value->constraintKey, stored.leaf.type);
    stored.leaf.constraint = std::move(constraint.constraint);
    stored.constraintType = constraint.type;
    stored.constraintFault = std::move(constraint.fault);
    if (auto *elements = std::get_if<Enumeration>(&stored.leaf.constraint))
        applyLabels(stored.leaf.type, entry, *elements);
    return std::nullopt;
}

}  // namespace

std::string_view tierName(Tier tier) {
    return rowOf(tier).name;
}

Result<StoredLeaf> readLeaf(Database &database, const StoredComponent &component, const SchemaEntry &entry) {
    using Answer = Result<StoredLeaf>;
    tavDBMLeaf record = {};
    if (comp_getLeaf(database.cleared(), component.key, &record) == nullptr)
        return Answer::bad(database.knownFault());
    StoredLeaf stored;
    stored.key = component.key;
    stored.leaf.name = component.name;
    stored.leaf.hookId = record.hookId;
    stored.leaf.secret = entry.secret;
    stored.leaf.description = entry.description;
    stored.leaf.units = entry.units;
    auto fault = readValueRecords(database, stored, record);
    if (!fault)
        fault = fillLeaf(database, stored, entry);
    return fault ? Answer::bad(std::move(*fault)) : Answer::good(std::move(stored));
}

Result<Value> readTier(Database &database, const StoredLeaf &stored, Tier tier) {
    const auto &record = stored.valueOf(tier);
    if (record.key == 0)
        return Result<Value>::bad({FaultKind::notFound, "has no " + std::string(tierName(tier)) + " value"});
    std::string bytes(static_cast<size_t>(record.length), '\0');
    int32_t length = record.length;
    if (auto fault = callLibrary(database, rowOf(tier).read, stored.key, static_cast<void *>(bytes.data()), &length))
        return Result<Value>::bad(std::move(*fault));
    if (length != record.length)
        return Result<Value>::bad(damaged("its data end behind " + std::to_string(length) + " of " +
                                          std::to_string(record.length) + " bytes"));
    auto value = decodeValue(typeOf(record), bytes);
    return value ? Result<Value>::good(std::move(*value.value)) : Result<Value>::bad(damaged(value.error));
}

Status writeTier(Database &database, const StoredLeaf &stored, Tier tier, const Value &value) {
    const auto &record = stored.valueOf(tier);
    if (rowOf(tier).write == nullptr)
        return Fault{FaultKind::refused, "the factory value is never written"};
    if (record.key == 0)
        return Fault{FaultKind::notFound, "has no " + std::string(tierName(tier)) + " value"};
    // The hooks may change the bytes, so they must not be anybody else's.
    auto bytes = encodeValue(stored.leaf.type, static_cast<uint32_t>(record.length), value);
    if (bytes.size() != static_cast<size_t>(record.length))
        return damaged("its " + std::string(tierName(tier)) + " value has another length than the leaf's type");
    return callLibrary(database, rowOf(tier).write, stored.key, static_cast<const void *>(bytes.data()), record.length);
}

std::string typeNameOf(const StoredLeaf &stored) {
    const auto *info = findType(stored.typeCode);
    return info != nullptr ? std::string(info->name) : "type " + std::to_string(stored.typeCode);
}

}  // namespace tavdb::image
