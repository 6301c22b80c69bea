// SPDX-License-Identifier: Apache-2.0
#include "image/stored_constraint.h"

#include "image/record_layout.h"
#include "image/value_bytes.h"

namespace tavdb::image {

namespace {

/// The numbers that lie packed in `bytes`.
std::vector<Value> unpack(Type type, std::string_view bytes) {
    const size_t width = typeInfo(type).widthBytes;
    std::vector<Value> numbers;
    for (size_t offset = 0; offset + width <= bytes.size(); offset += width)
        numbers.push_back(*decodeValue(type, bytes.substr(offset, width)).value);
    return numbers;
}

Status readData(Database &database, uint32_t key, std::string &bytes) {
    const int32_t code = constraint_getData(database.cleared(), key, bytes.data(), static_cast<int32_t>(bytes.size()));
    return code == 0 ? database.lastFault() : faultOfCode(static_cast<uint32_t>(code), database.session()->errorDetail);
}

Status readRange(Database &database, uint32_t key, Type type, Constraint &constraint) {
    std::string bytes(size_t{3} * typeInfo(type).widthBytes, '\0');
    if (auto fault = readData(database, key, bytes))
        return fault;
    const auto numbers = unpack(type, bytes);
    constraint = Range{numbers[0], numbers[1], numbers[2]};
    return std::nullopt;
}

/// Memory is taken only for an array that its medium can hold.
Status checkArray(Database &database, const tavDBMEnumeration &record, Type type) {
    if (record.elementSize != static_cast<int32_t>(typeInfo(type).widthBytes))
        return damaged("its elements have " + std::to_string(record.elementSize) + " bytes");
    const auto size = mediumSize(database, kConstraintMedium);
    if (!size)
        return size.error;
    const uint64_t bytes =
        uint64_t{static_cast<uint32_t>(record.elementSize)} * static_cast<uint32_t>(record.elementCount);
    if (record.arrayKey + bytes > *size.value)
        return damaged("its elements lie outside of their medium");
    return std::nullopt;
}

Status readEnumeration(Database &database, uint32_t key, Type type, Constraint &constraint) {
    tavDBMEnumeration record = {};
    if (enum_get(database.cleared(), key, &record) == nullptr)
        return database.knownFault();
    // A negative count admits every value.
    if (record.elementCount < 0)
        return std::nullopt;
    if (auto fault = checkArray(database, record, type))
        return fault;
    std::string bytes(static_cast<size_t>(record.elementSize) * static_cast<size_t>(record.elementCount), '\0');
    if (!bytes.empty())
        if (auto fault = readData(database, key, bytes))
            return fault;
    Enumeration elements;
    for (auto &number : unpack(type, bytes))
        elements.push_back({std::nullopt, std::move(number)});
    constraint = std::move(elements);
    return std::nullopt;
}

Status readTyped(Database &database, uint32_t key, Type type, StoredConstraint &stored) {
    stored.type = constraint_getType(database.cleared(), key);
    if (auto fault = database.lastFault())
        return fault;
    const auto kind = constraintTypeOf(stored.type);
    if (!kind)
        return faultOfCode(TAVDB_ERR_CONSTRAINT_TYPE, 0);
    if (kind->valueType != static_cast<int32_t>(type))
        return damaged("it is for values of type " + std::string(findType(kind->valueType)->name));
    return kind->kind == RecordKind::enumeration ? readEnumeration(database, key, type, stored.constraint)
                                                 : readRange(database, key, type, stored.constraint);
}

}  // namespace

StoredConstraint readConstraint(Database &database, uint32_t key, Type type) {
    StoredConstraint stored;
    if (key == 0)
        return stored;
    stored.fault = readTyped(database, key, type, stored);
    if (stored.fault)
        stored.fault = faultIn("the constraint at " + std::to_string(key), std::move(*stored.fault));
    return stored;
}

}  // namespace tavdb::image
