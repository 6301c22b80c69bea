// SPDX-License-Identifier: Apache-2.0
// The ten value types, once: everything that exists for each type is made from
// this list.
#pragma once

#include <cstdint>

#include "tavdb_modules.h"

/// X(suffix of constraint functions, suffix of typed reads and writes, C type)
#define TAVDB_VALUE_TYPES(X) \
    X(S8, Sint8, int8_t)     \
    X(S16, Sint16, int16_t)  \
    X(S32, Sint32, int32_t)  \
    X(S64, Sint64, int64_t)  \
    X(U8, Uint8, uint8_t)    \
    X(U16, Uint16, uint16_t) \
    X(U32, Uint32, uint32_t) \
    X(U64, Uint64, uint64_t) \
    X(F32, Float32, float)   \
    X(F64, Float64, double)

namespace tavdb {

template <typename T>
struct ValueType;

#define TAVDB_VALUE_TYPE(suffix, apiSuffix, type)                                     \
    template <>                                                                       \
    struct ValueType<type> {                                                          \
        using Range = tavDBMRange##suffix;                                            \
        static constexpr int32_t code = TAVDB_TYPE_##suffix;                          \
        static constexpr int32_t enumerationCode = code << TAVDB_ENUMERATION_SHIFT;   \
        static constexpr int32_t rangeBytes = 3 * static_cast<int32_t>(sizeof(type)); \
        static constexpr int32_t width = static_cast<int32_t>(sizeof(type));          \
    };
TAVDB_VALUE_TYPES(TAVDB_VALUE_TYPE)
#undef TAVDB_VALUE_TYPE

}  // namespace tavdb
