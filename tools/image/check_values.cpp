// SPDX-License-Identifier: Apache-2.0
#include "image/check_values.h"

#include <algorithm>
#include <cstddef>

#include "image/record_layout.h"

namespace tavdb::image {

namespace {

constexpr std::array<const char *, kTierCount> kTierNames = {"current", "default", "factory"};
/// What stands in for a value that is lost, the best first.
constexpr size_t kSubstitutes[kTierCount][2] = {{1, 2}, {2, 0}, {1, 0}};
constexpr uint32_t kTypePlace = offsetof(tavDBMValue, type);
constexpr uint32_t kConstraintPlace = offsetof(tavDBMValue, constraintKey);

uint32_t placeOfTier(uint32_t leaf, size_t tier) {
    return leaf + kTierPlace + static_cast<uint32_t>(tier * sizeof(uint32_t));
}

ByteRange dataRange(const tavDBMValue &value) {
    return {value.dataOffset, static_cast<uint32_t>(value.length)};
}

bool isKnownType(int32_t type) {
    return type >= TAVDB_TYPE_TEXT && type <= TAVDB_TYPE_BYTES;
}

}  // namespace

void ValueCheck::run(const TreeCheck &tree) {
    for (const auto &component : tree.components())
        if (!component.isNode)
            checkLeaf(component.key);
    // A type that was put right may be what tells another one.
    for (bool isChanged = true; isChanged;) {
        isChanged = false;
        for (const auto &[leaf, keys] : leafKeys)
            for (const uint32_t key : keys)
                isChanged |= key != 0 && mendType(leaf, keys, key);
    }
}

void ValueCheck::checkLeaf(uint32_t leaf) {
    const auto record = *bench.images.read<tavDBMLeaf>(kComponentMedium, leaf);
    const FoundAt at = {kComponentMedium, RecordKind::leaf, leaf, leaf};
    Keys keys = {record.currentValue, record.defaultValue, record.factoryValue};
    std::array<std::optional<size_t>, kTierCount> findings;
    for (size_t tier = 0; tier < kTierCount; tier++) {
        findings[tier] = keys[tier] != 0 ? accept(at, tier, keys[tier]) : std::nullopt;
        if (findings[tier])
            keys[tier] = 0;
    }
    for (const uint32_t key : keys)
        if (key != 0)
            checkConstraint(leaf, keys, key);
    leafKeys.emplace_back(leaf, keys);
    for (size_t tier = 0; tier < kTierCount; tier++)
        if (findings[tier])
            replaceTier(at, keys, tier, *findings[tier]);
}

void ValueCheck::replaceTier(const FoundAt &leaf, const Keys &keys, size_t tier, size_t finding) {
    bench.images.write(kComponentMedium, placeOfTier(leaf.offset, tier), uint32_t{0});
    auto &found = bench.findings[finding];
    found.lost = std::string("its ") + kTierNames[tier] + " value";
    found.remedy = std::string("the leaf is left without its ") + kTierNames[tier] + " value";
    for (const size_t substitute : kSubstitutes[tier]) {
        if (keys[substitute] == 0)
            continue;
        found.remedy = std::string("a copy of its ") + kTierNames[substitute] + " value takes its place";
        return wanted.push_back({leaf.offset, tier, keys[substitute]});
    }
}

/// @return the finding, when the value cannot be had
std::optional<size_t> ValueCheck::accept(const FoundAt &leaf, size_t tier, uint32_t key) {
    const auto its = std::string("its ") + kTierNames[tier] + " value, at " + std::to_string(key) + ", ";
    const auto known = judged.find(key);
    if (known != judged.end() && known->second)
        return std::nullopt;
    const auto fault = acceptRecord(leaf, key, its);
    judged[key] = fault ? std::nullopt : std::optional(leaf.offset);
    if (!fault)
        return std::nullopt;
    const bool wasDeleted = !bench.namesItself(kValueMedium, key) && bench.wasFree(kValueMedium, key);
    return bench.report(wasDeleted ? Gravity::oddity : Gravity::damage, leaf,
                        its + (wasDeleted ? "was deleted" : *fault), {});
}

std::optional<std::string> ValueCheck::acceptRecord(const FoundAt &leaf, uint32_t key, const std::string &its) {
    const auto record = bench.images.read<tavDBMValue>(kValueMedium, key);
    if (!record || key < sizeof(tavDBMMediumHeader))
        return "lies outside of its medium";
    const bool isNamed = record->key == key;
    const auto fault = faultOf(*record);
    const bool wasDeleted = bench.wasFree(kValueMedium, key);
    if (!isNamed && (fault || wasDeleted || !isKnownType(record->type)))
        return "is no record: it does not name itself";
    if (!bench.claimsOf(kValueMedium).isFree({key, sizeof *record}))
        return "lies in another record";
    auto value = fault ? mended(*record) : *record;
    if (fault && faultOf(value))
        return "is damaged: " + *fault;
    const FoundAt at = {kValueMedium, RecordKind::value, key, leaf.offset};
    if (fault)
        bench.report(Gravity::damage, at, *fault, "it is put right");
    if (!isNamed)
        bench.report(Gravity::damage, at, "it says that it lies at " + std::to_string(value.key),
                     "it says where it lies");
    if (wasDeleted)
        bench.report(Gravity::damage, leaf, its + "is free as well", "it is taken out of the free list");
    value.key = key;
    bench.images.write(kValueMedium, key, value);
    bench.claimsOf(kValueMedium).take({key, sizeof value});
    const uint32_t width = numberBytes(value.type);
    bench.areas.push_back({value.dataMedia, dataRange(value), at, width});
    return std::nullopt;
}

std::optional<std::string> ValueCheck::faultOf(const tavDBMValue &value) const {
    if (!RawImages::isMedium(value.dataMedia))
        return "it names medium " + std::to_string(value.dataMedia) + ", which is none";
    if (value.length < 0)
        return "it says that it has " + std::to_string(value.length) + " bytes";
    if (value.length > 0 && !bench.isInside(value.dataMedia, dataRange(value)))
        return "its data, at " + std::to_string(value.dataOffset) + ", lie outside of their medium";
    return std::nullopt;
}

/// One wrong word that the others tell.
tavDBMValue ValueCheck::mended(tavDBMValue value) const {
    const auto width = static_cast<int32_t>(numberBytes(value.type));
    if (!RawImages::isMedium(value.dataMedia))
        value.dataMedia = kDataMedium;
    else if (width != 0 && value.length != width)
        value.length = width;
    return value;
}

void ValueCheck::checkConstraint(uint32_t leaf, const Keys &keys, uint32_t key) {
    if (!constrained.emplace(key, true).second)
        return;
    const auto value = *bench.images.read<tavDBMValue>(kValueMedium, key);
    const auto fault =
        value.constraintKey != 0 ? acceptConstraint(leaf, value.constraintKey, value.type) : std::nullopt;
    if (!fault)
        return;
    uint32_t other = 0;
    for (const uint32_t sibling : keys) {
        const auto record = bench.images.read<tavDBMValue>(kValueMedium, sibling);
        const bool isCandidate = other == 0 && sibling != key && sibling != 0 && record && record->type == value.type &&
                                 record->constraintKey != 0 && record->constraintKey != value.constraintKey;
        if (isCandidate && !acceptConstraint(leaf, record->constraintKey, record->type))
            other = record->constraintKey;
    }
    bench.report(Gravity::damage, {kValueMedium, RecordKind::value, key, leaf},
                 "its constraint, at " + std::to_string(value.constraintKey) + ", " + *fault,
                 other != 0 ? "it takes that of another value of the leaf" : "it has none any more",
                 other != 0 ? "" : "its constraint");
    bench.images.write(kValueMedium, key + kConstraintPlace, other);
}

/// A type that is none, or not the one that constraint and other values tell. A value
/// becomes one of a known type at most once, and then one of its constraint's type.
/// @return whether it was put right
bool ValueCheck::mendType(uint32_t leaf, const Keys &keys, uint32_t key) {
    const auto value = *bench.images.read<tavDBMValue>(kValueMedium, key);
    const auto header = value.constraintKey == 0
                            ? std::nullopt
                            : bench.images.read<tavDBMConstraint>(kConstraintMedium, value.constraintKey);
    const auto constraint = header ? constraintTypeOf(header->type) : std::nullopt;
    int32_t common = constraint ? constraint->valueType : 0;
    bool isAgreed = false;
    for (const uint32_t sibling : keys) {
        const auto other = bench.images.read<tavDBMValue>(kValueMedium, sibling);
        if (sibling == key || sibling == 0 || !other || other->length != value.length)
            continue;
        common = common == 0 ? other->type : common;
        isAgreed = true;
        if (other->type != common)
            return false;
    }
    // A known type needs both witnesses against it: every combination is stated to be possible.
    const bool isTold = isKnownType(value.type) ? constraint && isAgreed : constraint || isAgreed;
    const bool fits = numberBytes(common) == 0 || value.length == static_cast<int32_t>(numberBytes(common));
    if (value.type == common || !isKnownType(common) || !isTold || !fits)
        return false;
    bench.report(Gravity::damage, {kValueMedium, RecordKind::value, key, leaf},
                 "it says that it is of type " + std::to_string(value.type), "it is of type " + std::to_string(common));
    bench.images.write(kValueMedium, key + kTypePlace, common);
    return true;
}

std::optional<std::string> ValueCheck::acceptConstraint(uint32_t leaf, uint32_t key, int32_t valueType) {
    const auto known = constraints.find(key);
    if (known != constraints.end())
        return known->second;
    return constraints[key] = constraintFault(leaf, key, valueType);
}

std::optional<std::string> ValueCheck::constraintFault(uint32_t leaf, uint32_t key, int32_t valueType) {
    const auto header = bench.images.read<tavDBMConstraint>(kConstraintMedium, key);
    if (!header || key < sizeof(tavDBMMediumHeader))
        return "lies outside of its medium";
    const auto type = constraintTypeOf(header->type);
    const bool isNamed = header->key == key;
    const bool wasDeleted = bench.wasFree(kConstraintMedium, key);
    if (!isNamed && (!type || type->valueType != valueType || wasDeleted))
        return "is no record: it does not name itself";
    if (!type)
        return "is of type " + std::to_string(header->type) + ", which is none";
    const FoundAt at = {kConstraintMedium, type->kind, key, leaf};
    auto fault = claimConstraint(at, *type);
    if (fault)
        return fault;
    if (!isNamed) {
        bench.report(Gravity::damage, at, "it says that it lies at " + std::to_string(header->key),
                     "it says where it lies");
        bench.images.write(kConstraintMedium, key, key);
    }
    if (wasDeleted)
        bench.report(Gravity::damage, at, "it is free as well", "it is taken out of the free list");
    return std::nullopt;
}

std::optional<std::string> ValueCheck::claimConstraint(const FoundAt &at, const ConstraintType &type) {
    const bool isRange = type.kind == RecordKind::range;
    const uint32_t size = isRange ? rangeBytes(type.valueType) : uint32_t{sizeof(tavDBMEnumeration)};
    auto &claims = bench.claimsOf(kConstraintMedium);
    if (!bench.isInside(kConstraintMedium, {at.offset, size}))
        return "does not end on its medium";
    if (!claims.take({at.offset, size}))
        return "lies in another record";
    if (isRange)
        return std::nullopt;
    std::string fault;
    const auto array = elementsOf(at, type.valueType, fault);
    const auto shared = array ? elements.find(array->offset) : elements.end();
    if (shared != elements.end() && shared->second == array->sizeBytes)
        return std::nullopt;
    if (array && claims.take(*array)) {
        elements.emplace(array->offset, array->sizeBytes);
        return std::nullopt;
    }
    claims.giveBack({at.offset, size});
    return array ? "has elements that lie in another record" : fault;
}

/// Where the elements of an enumeration lie; puts their size right.
std::optional<ByteRange> ValueCheck::elementsOf(const FoundAt &at, int32_t valueType, std::string &fault) {
    auto record = *bench.images.read<tavDBMEnumeration>(kConstraintMedium, at.offset);
    const uint32_t width = numberBytes(valueType);
    // A negative count admits every value, and nobody reads the elements: deliberate in the library.
    if (record.elementCount < 0)
        bench.report(Gravity::oddity, at, "it has " + std::to_string(record.elementCount) + " elements and admits all",
                     "it stays as it is");
    if (record.elementCount <= 0)
        return ByteRange{};
    const uint64_t bytes = uint64_t{width} * static_cast<uint32_t>(record.elementCount);
    if (bytes > bench.sizeOf(kConstraintMedium) ||
        !bench.isInside(kConstraintMedium, {record.arrayKey, static_cast<uint32_t>(bytes)})) {
        fault = "has elements that lie outside of its medium";
        return std::nullopt;
    }
    if (record.elementSize != static_cast<int32_t>(width)) {
        bench.report(Gravity::damage, at, "its elements have " + std::to_string(record.elementSize) + " bytes",
                     "they have " + std::to_string(width));
        record.elementSize = static_cast<int32_t>(width);
        bench.images.write(kConstraintMedium, at.offset, record);
    }
    return ByteRange{record.arrayKey, static_cast<uint32_t>(bytes)};
}

}  // namespace tavdb::image
