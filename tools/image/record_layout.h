// SPDX-License-Identifier: Apache-2.0
// What the bytes of each kind of record are made of: how many words lead, how many
// numbers of the record's own type follow them, and what is left as characters or
// padding. Nothing about what the words mean, and nothing about where records lie.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tavdb::image {

enum class RecordKind : uint8_t {
    header,
    freeBlock,
    node,
    leaf,
    string,
    text,
    value,
    data,
    range,
    enumeration,
    elements
};

/// As many numbers as there is room for.
inline constexpr uint32_t kAllNumbers = UINT32_MAX;

struct RecordLayout {
    RecordKind kind;
    std::string_view name;  ///< for people
    uint32_t words;         ///< of 4 bytes, at the beginning
    uint32_t numbers;       ///< behind them, as wide as the record's type
    bool isAllocated;       ///< taken from the free list of its medium
};

const RecordLayout &layoutOf(RecordKind kind);

/// Bytes of a number of a value type, 0 for types that are no numbers.
uint32_t numberBytes(int32_t typeCode);

/// Bytes of the record of a range of that value type, 0 for a type without ranges.
uint32_t rangeBytes(int32_t typeCode);

/// A constraint's type code, taken apart.
struct ConstraintType {
    RecordKind kind = RecordKind::range;  ///< or enumeration
    int32_t valueType = 0;                ///< of what is constrained, a number
};

/// Nothing for a code that is none.
std::optional<ConstraintType> constraintTypeOf(int32_t code);

}  // namespace tavdb::image
