// SPDX-License-Identifier: Apache-2.0
#include "image/value_type.h"

#include <algorithm>
#include <array>
#include <limits>

namespace tavdb::image {

namespace {

template <typename T>
constexpr TypeInfo number(Type type, std::string_view name, Family family) {
    if constexpr (std::is_integral_v<T>)
        return {type, name, family, sizeof(T), std::numeric_limits<T>::min(), std::numeric_limits<T>::max()};
    else
        return {type, name, family, sizeof(T), 0, 0};
}

constexpr std::array<TypeInfo, 12> kTypes = {{
    number<int8_t>(Type::s8, "s8", Family::signedInteger),
    number<int16_t>(Type::s16, "s16", Family::signedInteger),
    number<int32_t>(Type::s32, "s32", Family::signedInteger),
    number<int64_t>(Type::s64, "s64", Family::signedInteger),
    number<uint8_t>(Type::u8, "u8", Family::unsignedInteger),
    number<uint16_t>(Type::u16, "u16", Family::unsignedInteger),
    number<uint32_t>(Type::u32, "u32", Family::unsignedInteger),
    number<uint64_t>(Type::u64, "u64", Family::unsignedInteger),
    number<float>(Type::f32, "f32", Family::floating),
    number<double>(Type::f64, "f64", Family::floating),
    {Type::text, "text", Family::text, 0, 0, 0},
    {Type::bytes, "bytes", Family::bytes, 0, 0, 0},
}};

double floatLimit(Type type) {
    return type == Type::f32 ? static_cast<double>(std::numeric_limits<float>::max())
                             : std::numeric_limits<double>::max();
}

}  // namespace

std::span<const TypeInfo> allTypes() {
    return kTypes;
}

const TypeInfo &typeInfo(Type type) {
    return *findType(static_cast<int32_t>(type));
}

const TypeInfo *findType(std::string_view name) {
    const auto *found = std::find_if(kTypes.begin(), kTypes.end(), [&](const auto &info) { return info.name == name; });
    return found == kTypes.end() ? nullptr : found;
}

const TypeInfo *findType(int32_t code) {
    const auto *found = std::find_if(kTypes.begin(), kTypes.end(),
                                     [&](const auto &info) { return static_cast<int32_t>(info.type) == code; });
    return found == kTypes.end() ? nullptr : found;
}

Value zeroValue(Type type) {
    switch (typeInfo(type).family) {
        case Family::signedInteger:
            return int64_t{0};
        case Family::unsignedInteger:
            return uint64_t{0};
        case Family::floating:
            return 0.0;
        default:
            return std::string{};
    }
}

Value lowestValue(Type type) {
    const auto &info = typeInfo(type);
    if (info.family == Family::signedInteger)
        return info.minimum;
    return info.family == Family::floating ? Value(-floatLimit(type)) : zeroValue(type);
}

Value highestValue(Type type) {
    const auto &info = typeInfo(type);
    if (info.family == Family::signedInteger)
        return static_cast<int64_t>(info.maximum);
    if (info.family == Family::unsignedInteger)
        return info.maximum;
    return info.family == Family::floating ? Value(floatLimit(type)) : zeroValue(type);
}

}  // namespace tavdb::image
