// SPDX-License-Identifier: Apache-2.0
// The check of a value against a range or an enumeration, made before every
// write. Nothing is cached: the constraint counts as it stands on its medium.
#include <string.h>

#include <type_traits>

#include "constraint/db_value_types.h"
#include "control/db_trace.h"
#include "platform/os_wrapper.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

/// What a check is asked.
struct Question {
    tavDBMSession *session;
    uint32_t key;
    int32_t valueType;
    const void *value;
    int32_t length;

    int32_t refuse(int32_t code, Site site) const {
        return fail(session, code, 0, site, key, valueType, length, code);
    }
};

/// Whether the value stands on the range's step grid; a step of 0 admits every value.
template <typename T>
bool onGrid(T value, T minimum, T step) {
    if constexpr (std::is_floating_point_v<T>) {
        return true;  // deliberate: a floating-point step is stored but never checked
    } else if constexpr (sizeof(T) < sizeof(int32_t)) {
        return step == 0 || (int32_t{value} - int32_t{minimum}) % int32_t{step} == 0;
    } else {
        using Unsigned = std::make_unsigned_t<T>;
        const T distance = static_cast<T>(static_cast<Unsigned>(value) - static_cast<Unsigned>(minimum));
        if (std::is_signed_v<T> && step == static_cast<T>(-1))
            return true;  // divides everything; the division itself would trap for the smallest integer
        return step == 0 || distance % step == 0;
    }
}

/// What a range says of a value: 0, or the code that refuses it.
template <typename T>
int32_t judge(const void *record, const void *bytes) {
    const auto &range = *static_cast<const typename ValueType<T>::Range *>(record);
    T value;
    memcpy(&value, bytes, sizeof value);
    if (!(value >= range.minimum))  // a NaN is not above any minimum
        return TAVDB_ERR_BELOW_MINIMUM;
    if (value > range.maximum)
        return TAVDB_ERR_ABOVE_MAXIMUM;
    return onGrid<T>(value, range.minimum, range.step) ? 0 : TAVDB_ERR_OFF_STEP;
}

/// Integers are equal when their bits are; floating-point numbers when they compare equal.
template <typename T>
bool equal(const void *a, const void *b) {
    T first;
    T second;
    memcpy(&first, a, sizeof first);
    memcpy(&second, b, sizeof second);
    return first == second;
}

/// How values of one type are checked.
struct Rules {
    int32_t code;
    int32_t width;
    void *(*getRange)(tavDBMSession *session, uint32_t key, void *buffer);
    int32_t (*judge)(const void *record, const void *value);
    bool (*equal)(const void *a, const void *b);
};

/// Room for the range record of any type.
struct AnyRange {
    alignas(tavDBMRangeU64) uint8_t bytes[sizeof(tavDBMRangeU64)];
};

int32_t checkRange(const Rules &rules, const Question &q, Site site) {
    if (q.valueType != rules.code)
        return q.refuse(TAVDB_ERR_VALUE_TYPE, site);
    if (q.length != rules.width || q.value == nullptr)
        return q.refuse(TAVDB_ERR_LENGTH, site + 1);
    AnyRange range;
    if (rules.getRange(q.session, q.key, &range) == nullptr)
        return lastError(q.session);
    const int32_t code = rules.judge(&range, q.value);
    return code == 0 ? 0 : q.refuse(code, site + (2 + code - TAVDB_ERR_BELOW_MINIMUM));
}

/// Elements are compared by the type's width and never outside the array or the value.
bool isListed(const Rules &rules, const Question &q, const tavDBMEnumeration &record, const void *elements) {
    if (q.length < rules.width)
        return false;
    const auto *element = static_cast<const uint8_t *>(elements);
    int64_t left = int64_t{record.elementSize} * record.elementCount;
    for (int32_t i = 0; i < record.elementCount && left >= rules.width; i++, left -= rules.width) {
        if (rules.equal(element, q.value))
            return true;
        element += rules.width;
    }
    return false;
}

int32_t checkEnumeration(const Rules &rules, const Question &q, Site site) {
    if (q.valueType != rules.code)
        return q.refuse(TAVDB_ERR_VALUE_TYPE, site);
    tavDBMEnumeration record;
    if (enum_get(q.session, q.key, &record) == nullptr)
        return lastError(q.session);
    if (record.elementSize != q.length || q.value == nullptr)
        return q.refuse(TAVDB_ERR_LENGTH, site + 1);
    if (record.elementCount < 0)
        return 0;  // deliberate: a negative count admits every value
    if (record.elementCount == 0)
        return q.refuse(TAVDB_ERR_NOT_ENUMERATED, site + 2);
    void *const elements = constraint_getEnumArray(q.session, record.arrayKey, q.length, record.elementCount);
    if (elements == nullptr)
        return lastError(q.session);
    const int32_t code = isListed(rules, q, record, elements) ? 0 : q.refuse(TAVDB_ERR_NOT_ENUMERATED, site + 2);
    tavOSWOrgFreeMemPart(0, elements);
    return code;
}

#define TAVDB_RULES(suffix, apiSuffix, type)                                                                      \
    constexpr Rules k##suffix = {ValueType<type>::code, ValueType<type>::width, range##suffix##_get, judge<type>, \
                                 equal<type>};
TAVDB_VALUE_TYPES(TAVDB_RULES)
#undef TAVDB_RULES

using Check = int32_t (*)(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value, int32_t length);

struct TypeChecks {
    Check range;
    Check enumeration;
};

/// By type code, from kFirstCode on.
constexpr TypeChecks kChecks[] = {
#define TAVDB_CHECKS(suffix, apiSuffix, type) {checkRange##suffix, checkEnum##suffix},
    TAVDB_VALUE_TYPES(TAVDB_CHECKS)
#undef TAVDB_CHECKS
};

constexpr uint32_t kFirstCode = TAVDB_TYPE_S8;
constexpr uint32_t kNextCode = kFirstCode + sizeof kChecks / sizeof kChecks[0];

/// Whether the types stand in kChecks by their codes.
constexpr bool areInOrder() {
    uint32_t code = kFirstCode;
    bool isOrdered = true;
#define TAVDB_IN_ORDER(suffix, apiSuffix, type) \
    isOrdered = isOrdered && ValueType<type>::code == static_cast<int32_t>(code++);
    TAVDB_VALUE_TYPES(TAVDB_IN_ORDER)
#undef TAVDB_IN_ORDER
    return isOrdered;
}
static_assert(areInOrder());

Check findCheck(int32_t constraintType) {
    const auto type = static_cast<uint32_t>(constraintType);
    if (type >= kFirstCode && type < kNextCode)
        return kChecks[type - kFirstCode].range;
    const uint32_t code = type >> TAVDB_ENUMERATION_SHIFT;
    const bool isEnumeration = code << TAVDB_ENUMERATION_SHIFT == type && code >= kFirstCode && code < kNextCode;
    return isEnumeration ? kChecks[code - kFirstCode].enumeration : nullptr;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

// Each type has twenty sites of its own: ten for its range, ten for its enumeration.
#define TAVDB_CHECK(suffix, apiSuffix, type)                                                               \
    int32_t checkRange##suffix(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value, \
                               int32_t length) {                                                           \
        return checkRange(k##suffix, {session, key, valueType, value, length},                             \
                          {__func__, 100 + 20 * TAVDB_TYPE_##suffix});                                     \
    }                                                                                                      \
    int32_t checkEnum##suffix(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,  \
                              int32_t length) {                                                            \
        return checkEnumeration(k##suffix, {session, key, valueType, value, length},                       \
                                {__func__, 110 + 20 * TAVDB_TYPE_##suffix});                               \
    }
TAVDB_VALUE_TYPES(TAVDB_CHECK)
#undef TAVDB_CHECK

int32_t constraint_check(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value, int32_t length) {
    tavDBMConstraint header;
    if (constraint_get(session, key, &header) == nullptr)
        return 0;  // deliberate: what cannot be read refuses nothing; the read's error is in the session
    const Check check = findCheck(header.type);
    if (check != nullptr)
        return check(session, key, valueType, value, length);
    return fail(session, TAVDB_ERR_CHECK_CONSTRAINT, 0, {__func__, 100}, key, valueType, length, header.type);
}
