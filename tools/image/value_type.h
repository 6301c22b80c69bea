// SPDX-License-Identifier: Apache-2.0
// The value types by name, code, width and limits, and the in-memory form of a
// value. Says nothing about how values are written as text or stored as bytes.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "tavdb.h"

namespace tavdb::image {

/// The codes are the library's own.
enum class Type : int32_t {
    text = TAVDB_TYPE_TEXT,
    s8 = TAVDB_TYPE_S8,
    s16 = TAVDB_TYPE_S16,
    s32 = TAVDB_TYPE_S32,
    s64 = TAVDB_TYPE_S64,
    u8 = TAVDB_TYPE_U8,
    u16 = TAVDB_TYPE_U16,
    u32 = TAVDB_TYPE_U32,
    u64 = TAVDB_TYPE_U64,
    f32 = TAVDB_TYPE_F32,
    f64 = TAVDB_TYPE_F64,
    bytes = TAVDB_TYPE_BYTES,
};

enum class Family { signedInteger, unsignedInteger, floating, text, bytes };

/// A value's content. Which alternative it holds follows from the type's family:
/// int64_t, uint64_t, double (f32 values exactly), or the bytes of a text without
/// its NUL and of bytes without their padding.
using Value = std::variant<int64_t, uint64_t, double, std::string>;

struct TypeInfo {
    Type type;
    std::string_view name;
    Family family;
    uint32_t widthBytes;  ///< 0: the leaf says how long it is
    int64_t minimum;      ///< of integers
    uint64_t maximum;     ///< of integers

    bool isNumber() const {
        return widthBytes != 0;
    }
    bool isInteger() const {
        return family == Family::signedInteger || family == Family::unsignedInteger;
    }
};

/// Longest value data of one leaf; of a text that includes the NUL.
inline constexpr uint32_t kLengthBytesMax = 65536;

std::span<const TypeInfo> allTypes();
const TypeInfo &typeInfo(Type type);
/// Null for a name or a code that is no type.
const TypeInfo *findType(std::string_view name);
const TypeInfo *findType(int32_t code);

/// 0, or an empty text.
Value zeroValue(Type type);

/// The type's own limits; of floating types the finite ones.
Value lowestValue(Type type);
Value highestValue(Type type);

/// Calls `action` with a zero of the C++ type that stores `type`. Only for numbers.
template <typename Action>
decltype(auto) withNumber(Type type, Action action) {
    switch (type) {
        case Type::s8:
            return action(int8_t{});
        case Type::s16:
            return action(int16_t{});
        case Type::s32:
            return action(int32_t{});
        case Type::s64:
            return action(int64_t{});
        case Type::u8:
            return action(uint8_t{});
        case Type::u16:
            return action(uint16_t{});
        case Type::u32:
            return action(uint32_t{});
        case Type::f32:
            return action(float{});
        case Type::f64:
            return action(double{});
        default:
            return action(uint64_t{});
    }
}

/// The alternative of Value that holds numbers of C++ type T.
template <typename T>
using Wide =
    std::conditional_t<std::is_floating_point_v<T>, double, std::conditional_t<std::is_signed_v<T>, int64_t, uint64_t>>;

}  // namespace tavdb::image
