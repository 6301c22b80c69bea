// SPDX-License-Identifier: Apache-2.0
#include "constraint/db_value_types.h"
#include "faults/fault_rows.h"
#include "tavdb_platform.h"

namespace tavdb_test {

namespace {

using tavdb::ValueType;

enum TypeIndex : size_t {
#define TAVDB_TYPE_INDEX(suffix, apiSuffix, type) k##suffix,
    TAVDB_VALUE_TYPES(TAVDB_TYPE_INDEX)
#undef TAVDB_TYPE_INDEX
};

template <typename T>
typename ValueType<T>::Range rangeAt(uint32_t key) {
    typename ValueType<T>::Range range{};
    range.key = key;
    range.type = ValueType<T>::code;
    range.minimum = T{1};
    range.maximum = T{9};
    range.step = T{2};
    return range;
}

template <typename T, auto New>
int64_t newRange(World &w) {
    auto range = rangeAt<T>(0);
    return given(New(w.session, &range));
}

template <auto Get, size_t Type>
int64_t getRange(World &w) {
    tavDBMRangeU64 range;
    return given(Get(w.session, w.ranges[Type], &range));
}

template <typename T, auto Set, size_t Type>
int64_t setRange(World &w) {
    const auto range = rangeAt<T>(w.ranges[Type]);
    return Set(w.session, &range);
}

template <typename T, auto GetData, size_t Type>
int64_t getRangeData(World &w) {
    T data[3];
    return GetData(w.session, w.ranges[Type], data, sizeof data);
}

template <typename T, auto SetData, size_t Type>
int64_t setRangeData(World &w) {
    const T data[3] = {2, 8, 3};
    return SetData(w.session, w.ranges[Type], data, sizeof data);
}

/// A value that passes in the plain world, and is refused in the crowded one.
template <typename T>
T valueToCheck(const World &w) {
    return w.form == WorldForm::plain ? T{1} : T{11};
}

template <typename T, auto Check, auto Keys, size_t Type>
int64_t check(World &w) {
    const T value = valueToCheck<T>(w);
    return Check(w.session, (w.*Keys)[Type], ValueType<T>::code, &value, sizeof value);
}

template <auto Keys>
int64_t checkAny(World &w) {
    return check<int32_t, constraint_check, Keys, kS32>(w);
}

template <auto Keys>
int64_t getData(World &w) {
    uint8_t data[24];
    return constraint_getData(w.session, (w.*Keys)[kU32], data, sizeof data);
}

template <auto Keys>
int64_t setData(World &w) {
    const uint32_t data[3] = {1, 2, 3};
    return constraint_setData(w.session, (w.*Keys)[kU32], data, sizeof data);
}

tavDBMEnumeration enumerationAt(uint32_t key, const World &w) {
    return {.key = key,
            .type = ValueType<int8_t>::enumerationCode,
            .arrayKey = w.array,
            .elementSize = 1,
            .elementCount = 3};
}

constexpr auto kRanges = &World::ranges;
constexpr auto kEnumerations = &World::enumerations;

#define TAVDB_TYPE_ROWS(suffix, apiSuffix, type)                                              \
    {"range" #suffix "_new", newRange<type, range##suffix##_new>},                            \
        {"range" #suffix "_get", getRange<range##suffix##_get, k##suffix>},                   \
        {"range" #suffix "_set", setRange<type, range##suffix##_set, k##suffix>},             \
        {"range" #suffix "_getData", getRangeData<type, range##suffix##_getData, k##suffix>}, \
        {"range" #suffix "_setData", setRangeData<type, range##suffix##_setData, k##suffix>}, \
        {"checkRange" #suffix, check<type, checkRange##suffix, kRanges, k##suffix>},          \
        {"checkEnum" #suffix, check<type, checkEnum##suffix, kEnumerations, k##suffix>},

constexpr FaultRow kConstraintRows[] = {
    // clang-format off
    TAVDB_VALUE_TYPES(TAVDB_TYPE_ROWS)
    // clang-format on
    {"constraint_new",
     [](World &w) {
         uint32_t key = 0;
         return given(constraint_new(w.session, &key));
     }},
    {"constraint_set",
     [](World &w) {
         const tavDBMConstraint header = {w.ranges[kS8], TAVDB_TYPE_U8};
         return int64_t{constraint_set(w.session, &header)};
     }},
    {"constraint_get",
     [](World &w) {
         tavDBMConstraint header;
         return given(constraint_get(w.session, w.ranges[kS8], &header));
     }},
    {"constraint_getType", [](World &w) { return int64_t{constraint_getType(w.session, w.ranges[kS8])}; }},
    {"constraint_getLength", [](World &w) { return int64_t{constraint_getLength(w.session, w.ranges[kS8])}; }},
    {"constraint_getLength/enumeration",
     [](World &w) { return int64_t{constraint_getLength(w.session, w.enumerations[kS8])}; }},
    {"constraint_getData", getData<kRanges>},
    {"constraint_getData/enumeration", getData<kEnumerations>},
    {"constraint_setData", setData<kRanges>},
    {"constraint_setData/enumeration", setData<kEnumerations>},
    {"constraint_check", checkAny<kRanges>},
    {"constraint_check/enumeration", checkAny<kEnumerations>},
    {"constraint_newEnumArray", [](World &w) { return int64_t{constraint_newEnumArray(w.session, 4, 3)}; }},
    {"constraint_setEnumArray",
     [](World &w) { return int64_t{constraint_setEnumArray(w.session, w.array, 1, 3, "abc")}; }},
    {"constraint_getEnumArray",
     [](World &w) {
         w.block = constraint_getEnumArray(w.session, w.array, 1, 3);
         return given(w.block);
     },
     nullptr,
     [](World &w) {
         if (w.block != nullptr)
             tavOSWOrgFreeMemPart(0, w.block);
     }},
    {"enum_new",
     [](World &w) {
         tavDBMEnumeration record = enumerationAt(0, w);
         return given(enum_new(w.session, &record));
     }},
    {"enum_get",
     [](World &w) {
         tavDBMEnumeration record;
         return given(enum_get(w.session, w.enumerations[kS8], &record));
     }},
    {"enum_set",
     [](World &w) {
         const tavDBMEnumeration record = enumerationAt(w.enumerations[kS8], w);
         return int64_t{enum_set(w.session, &record)};
     }},
    {"enum_setData", [](World &w) { return int64_t{enum_setData(w.session, w.enumerations[kS8], 1, 3, "abc")}; }},
};

}  // namespace

std::span<const FaultRow> constraintRows() {
    return kConstraintRows;
}

}  // namespace tavdb_test
