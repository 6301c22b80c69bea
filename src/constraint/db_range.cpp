// SPDX-License-Identifier: Apache-2.0
// The range records of the ten value types: minimum, maximum and step of the
// value's own type behind the common header. No relation between the three is
// checked here.
#include <string.h>

#include <cstddef>

#include "constraint/db_constraint_record.h"
#include "constraint/db_value_types.h"
#include "control/db_trace.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

static_assert(sizeof(tavDBMConstraint) == 8);
static_assert(offsetof(tavDBMConstraint, key) == 0 && offsetof(tavDBMConstraint, type) == 4);

#define TAVDB_RANGE_LAYOUT(range, size, width)                                               \
    static_assert(sizeof(range) == (size));                                                  \
    static_assert(offsetof(range, key) == 0 && offsetof(range, type) == 4);                  \
    static_assert(offsetof(range, minimum) == 8 && offsetof(range, maximum) == 8 + (width)); \
    static_assert(offsetof(range, step) == 8 + 2 * (width));
TAVDB_RANGE_LAYOUT(tavDBMRangeS8, 12, 1)
TAVDB_RANGE_LAYOUT(tavDBMRangeU8, 12, 1)
TAVDB_RANGE_LAYOUT(tavDBMRangeS16, 16, 2)
TAVDB_RANGE_LAYOUT(tavDBMRangeU16, 16, 2)
TAVDB_RANGE_LAYOUT(tavDBMRangeS32, 20, 4)
TAVDB_RANGE_LAYOUT(tavDBMRangeU32, 20, 4)
TAVDB_RANGE_LAYOUT(tavDBMRangeF32, 20, 4)
TAVDB_RANGE_LAYOUT(tavDBMRangeS64, 32, 8)
TAVDB_RANGE_LAYOUT(tavDBMRangeU64, 32, 8)
TAVDB_RANGE_LAYOUT(tavDBMRangeF64, 32, 8)
#undef TAVDB_RANGE_LAYOUT

/// The first site of each function; each type has a hundred of its own.
enum RangeSite : int32_t { kNew = 0, kGet = 20, kSet = 30, kGetData = 40, kSetData = 50 };

/// One type's ranges: minimum, maximum and step follow the header without a gap.
struct RangeShape {
    int32_t dataBytes;
    void *(*get)(tavDBMSession *session, uint32_t key, void *buffer);
    int32_t (*set)(tavDBMSession *session, const void *record);
};

constexpr size_t kDataOffset = sizeof(tavDBMConstraint);

/// Room for the record of any type.
struct AnyRange {
    alignas(tavDBMRangeU64) uint8_t bytes[sizeof(tavDBMRangeU64)];
};

int32_t copyOut(const RangeShape &shape, tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength,
                Site site) {
    if (bufferLength < shape.dataBytes || buffer == nullptr)
        return fail(session, TAVDB_ERR_BUFFER, 0, site, key, bufferLength, shape.dataBytes);
    AnyRange record;
    if (shape.get(session, key, &record) == nullptr)
        return lastError(session);
    memcpy(buffer, record.bytes + kDataOffset, static_cast<size_t>(shape.dataBytes));
    return 0;
}

int32_t copyIn(const RangeShape &shape, tavDBMSession *session, uint32_t key, const void *data, int32_t length,
               Site site) {
    if (length != shape.dataBytes || data == nullptr)
        return fail(session, TAVDB_ERR_LENGTH, 0, site, key, length, shape.dataBytes);
    AnyRange record;
    if (shape.get(session, key, &record) == nullptr)
        return lastError(session);
    memcpy(record.bytes + kDataOffset, data, static_cast<size_t>(shape.dataBytes));
    shape.set(session, &record);
    return 0;  // deliberate: a failed write stands in the session only
}

#define TAVDB_RANGE_SHAPE(suffix, apiSuffix, type) \
    constexpr RangeShape k##suffix = {ValueType<type>::rangeBytes, range##suffix##_get, range##suffix##_set};
TAVDB_VALUE_TYPES(TAVDB_RANGE_SHAPE)
#undef TAVDB_RANGE_SHAPE

}  // namespace
}  // namespace tavdb

using namespace tavdb;

#define TAVDB_RANGE(suffix, apiSuffix, type)                                                                    \
    void *range##suffix##_new(tavDBMSession *session, void *record) {                                           \
        return newConstraint(session, record, sizeof(tavDBMRange##suffix),                                      \
                             {__func__, 100 * TAVDB_TYPE_##suffix + kNew});                                     \
    }                                                                                                           \
    void *range##suffix##_get(tavDBMSession *session, uint32_t key, void *buffer) {                             \
        static constexpr RecordAccess access = {                                                                \
            kTypedConstraint, sizeof(tavDBMRange##suffix), {__func__, 100 * TAVDB_TYPE_##suffix + kGet}};       \
        return readRecord(session, access, key, buffer);                                                        \
    }                                                                                                           \
    int32_t range##suffix##_set(tavDBMSession *session, const void *record) {                                   \
        static constexpr RecordAccess access = {                                                                \
            kTypedConstraint, sizeof(tavDBMRange##suffix), {__func__, 100 * TAVDB_TYPE_##suffix + kSet}};       \
        return writeRecord(session, access, record).closed;                                                     \
    }                                                                                                           \
    int32_t range##suffix##_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength) { \
        return copyOut(k##suffix, session, key, buffer, bufferLength,                                           \
                       {__func__, 100 * TAVDB_TYPE_##suffix + kGetData});                                       \
    }                                                                                                           \
    int32_t range##suffix##_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length) {   \
        return copyIn(k##suffix, session, key, data, length, {__func__, 100 * TAVDB_TYPE_##suffix + kSetData}); \
    }
TAVDB_VALUE_TYPES(TAVDB_RANGE)
#undef TAVDB_RANGE
