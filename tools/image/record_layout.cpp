// SPDX-License-Identifier: Apache-2.0
#include "image/record_layout.h"

#include <array>
#include <cstddef>

#include "image/value_type.h"
#include "tavdb_modules.h"

namespace tavdb::image {

namespace {

constexpr std::array kLayouts = {
    RecordLayout{RecordKind::header, "header", 4, 0, false},
    RecordLayout{RecordKind::freeBlock, "free block", 2, 0, false},
    RecordLayout{RecordKind::node, "node", 7, 0, true},
    RecordLayout{RecordKind::leaf, "leaf", 10, 0, true},
    RecordLayout{RecordKind::string, "name", 4, 0, true},
    RecordLayout{RecordKind::text, "text", 0, 0, false},
    RecordLayout{RecordKind::value, "value", 7, 0, true},
    RecordLayout{RecordKind::data, "data", 0, kAllNumbers, false},
    RecordLayout{RecordKind::range, "range", 2, 3, true},
    RecordLayout{RecordKind::enumeration, "enumeration", 5, 0, true},
    RecordLayout{RecordKind::elements, "elements", 0, kAllNumbers, true},
};

constexpr const RecordLayout &rowOf(RecordKind kind) {
    return kLayouts[static_cast<size_t>(kind)];
}

constexpr bool standInOrder() {
    for (size_t i = 0; i < kLayouts.size(); i++)
        if (static_cast<size_t>(kLayouts[i].kind) != i)
            return false;
    return true;
}
static_assert(standInOrder());

/// Records that are nothing but words.
template <typename Record>
constexpr bool isAllWords(RecordKind kind) {
    return sizeof(Record) == rowOf(kind).words * sizeof(uint32_t);
}
static_assert(isAllWords<tavDBMMediumHeader>(RecordKind::header));
static_assert(isAllWords<tavDBMFreeBlock>(RecordKind::freeBlock));
static_assert(isAllWords<tavDBMNode>(RecordKind::node));
static_assert(isAllWords<tavDBMLeaf>(RecordKind::leaf));
static_assert(isAllWords<tavDBMString>(RecordKind::string));
static_assert(isAllWords<tavDBMValue>(RecordKind::value));
static_assert(isAllWords<tavDBMConstraint>(RecordKind::range));
static_assert(isAllWords<tavDBMEnumeration>(RecordKind::enumeration));

/// The three numbers of a range stand packed behind its words, whatever their width.
template <typename Range>
constexpr bool isPacked() {
    return offsetof(Range, minimum) == sizeof(tavDBMConstraint) &&
           offsetof(Range, step) == sizeof(tavDBMConstraint) + 2 * sizeof(Range::step);
}
static_assert(isPacked<tavDBMRangeU8>() && isPacked<tavDBMRangeU16>() && isPacked<tavDBMRangeU32>());
static_assert(isPacked<tavDBMRangeU64>() && isPacked<tavDBMRangeF32>() && isPacked<tavDBMRangeF64>());

}  // namespace

const RecordLayout &layoutOf(RecordKind kind) {
    return rowOf(kind);
}

uint32_t numberBytes(int32_t typeCode) {
    const auto *info = findType(typeCode);
    return info != nullptr ? info->widthBytes : 0;
}

uint32_t rangeBytes(int32_t typeCode) {
    switch (numberBytes(typeCode)) {
        case 1:
            return sizeof(tavDBMRangeU8);
        case 2:
            return sizeof(tavDBMRangeU16);
        case 4:
            return sizeof(tavDBMRangeU32);
        case 8:
            return sizeof(tavDBMRangeU64);
        default:
            return 0;
    }
}

std::optional<ConstraintType> constraintTypeOf(int32_t code) {
    const bool isEnumeration = code >= 1 << TAVDB_ENUMERATION_SHIFT;
    const int32_t valueType = isEnumeration ? code >> TAVDB_ENUMERATION_SHIFT : code;
    const bool isWhole = !isEnumeration || valueType << TAVDB_ENUMERATION_SHIFT == code;
    if (numberBytes(valueType) == 0 || !isWhole)
        return std::nullopt;
    return ConstraintType{isEnumeration ? RecordKind::enumeration : RecordKind::range, valueType};
}

}  // namespace tavdb::image
