// SPDX-License-Identifier: Apache-2.0
// Constraints whatever their kind: the header that all of them share, and the
// reading and writing of their data by the type code in it.
#include <string.h>

#include "constraint/db_constraint_record.h"
#include "constraint/db_value_types.h"
#include "control/db_dump.h"
#include "control/db_trace.h"
#include "platform/os_wrapper.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

constexpr int32_t kHeaderBytes = sizeof(tavDBMConstraint);

/// What the data of one value type's constraints are.
struct TypeData {
    int32_t code;
    int32_t width;
    int32_t rangeBytes;
    int32_t (*getRange)(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
    int32_t (*setRange)(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
};

constexpr TypeData kTypes[] = {
#define TAVDB_TYPE_DATA(suffix, apiSuffix, type)                                                          \
    {ValueType<type>::code, ValueType<type>::width, ValueType<type>::rangeBytes, range##suffix##_getData, \
     range##suffix##_setData},
    TAVDB_VALUE_TYPES(TAVDB_TYPE_DATA)
#undef TAVDB_TYPE_DATA
};

/// A constraint's type code taken apart.
struct Kind {
    const TypeData *type;  ///< null for a code that no constraint has
    bool isEnumeration;
};

Kind kindOf(int32_t constraintType) {
    for (const TypeData &type : kTypes) {
        if (constraintType == type.code)
            return {&type, false};
        if (constraintType == type.code << TAVDB_ENUMERATION_SHIFT)
            return {&type, true};
    }
    return {nullptr, false};
}

/// Size times count as the interface states it: wrapped to 32 bits.
int32_t wrappedProduct(int32_t elementSize, int32_t elementCount) {
    return static_cast<int32_t>(static_cast<uint32_t>(elementSize) * static_cast<uint32_t>(elementCount));
}

int32_t getElements(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength, Site site) {
    tavDBMEnumeration record;
    if (enum_get(session, key, &record) == nullptr)
        return lastError(session);
    const int32_t bytes = wrappedProduct(record.elementSize, record.elementCount);
    if (bufferLength < bytes || buffer == nullptr)
        return fail(session, TAVDB_ERR_BUFFER, 0, site, key, bufferLength, bytes);
    void *const elements = constraint_getEnumArray(session, record.arrayKey, record.elementSize, record.elementCount);
    if (elements == nullptr)
        return lastError(session);
    memcpy(buffer, elements, static_cast<size_t>(bytes));
    tavOSWOrgFreeMemPart(0, elements);
    return 0;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

int32_t constraint_init() {
    return 0;
}

int32_t constraint_term() {
    return 0;
}

uint32_t *constraint_new(tavDBMSession *session, uint32_t *key) {
    const auto keep = [key](OpenMedium &, const tavDBMMediaEntry &, uint32_t slot) -> void * {
        *key = slot;
        return key;
    };
    return static_cast<uint32_t *>(reserveConstraint(session, key, kHeaderBytes, {__func__, 100}, keep));
}

int32_t constraint_set(tavDBMSession *session, const void *header) {
    static constexpr RecordAccess access = {kConstraintHeader, kHeaderBytes, {__func__, 110}};
    return writeRecord(session, access, header).closed;
}

void *constraint_get(tavDBMSession *session, uint32_t key, void *buffer) {
    static constexpr RecordAccess access = {kConstraintHeader, kHeaderBytes, {__func__, 120}};
    return readRecord(session, access, key, buffer);
}

int32_t constraint_getType(tavDBMSession *session, uint32_t key) {
    tavDBMConstraint header;
    return constraint_get(session, key, &header) != nullptr ? header.type : 0;
}

int32_t constraint_getLength(tavDBMSession *session, uint32_t key) {
    tavDBMConstraint header;
    if (constraint_get(session, key, &header) == nullptr)
        return 0;
    const Kind kind = kindOf(header.type);
    if (kind.type == nullptr) {
        fail(session, TAVDB_ERR_CONSTRAINT_TYPE, 0, {__func__, 130}, key, header.type);
        return 0;
    }
    if (!kind.isEnumeration)
        return kind.type->rangeBytes;
    tavDBMEnumeration record;
    return enum_get(session, key, &record) != nullptr ? wrappedProduct(record.elementSize, record.elementCount) : 0;
}

int32_t constraint_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength) {
    tavDBMConstraint header;
    if (constraint_get(session, key, &header) == nullptr)
        return lastError(session);
    const Kind kind = kindOf(header.type);
    if (kind.type == nullptr)
        return fail(session, TAVDB_ERR_CONSTRAINT_TYPE, 0, {__func__, 140}, key, bufferLength, header.type);
    if (kind.isEnumeration)
        return getElements(session, key, buffer, bufferLength, {__func__, 141});
    return kind.type->getRange(session, key, buffer, bufferLength);
}

int32_t constraint_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length) {
    tavDBMConstraint header;
    if (constraint_get(session, key, &header) == nullptr)
        return lastError(session);
    const Kind kind = kindOf(header.type);
    if (kind.type == nullptr)
        return fail(session, TAVDB_ERR_CONSTRAINT_TYPE, 0, {__func__, 150}, key, length, header.type);
    if (kind.isEnumeration)
        return enum_setData(session, key, kind.type->width, length / kind.type->width, data);
    return kind.type->setRange(session, key, data, length);
}

int32_t dbs_me_db_constraint_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(constraint_init),
        TAVDB_DUMP_FUNCTION(constraint_term),
        TAVDB_DUMP_FUNCTION(constraint_new),
        TAVDB_DUMP_FUNCTION(constraint_set),
        TAVDB_DUMP_FUNCTION(constraint_get),
        TAVDB_DUMP_FUNCTION(constraint_getType),
        TAVDB_DUMP_FUNCTION(constraint_getLength),
        TAVDB_DUMP_FUNCTION(constraint_getData),
        TAVDB_DUMP_FUNCTION(constraint_setData),
#define TAVDB_DUMP_NEW(suffix, apiSuffix, type) TAVDB_DUMP_FUNCTION(range##suffix##_new),
#define TAVDB_DUMP_GET(suffix, apiSuffix, type) TAVDB_DUMP_FUNCTION(range##suffix##_get),
#define TAVDB_DUMP_SET(suffix, apiSuffix, type) TAVDB_DUMP_FUNCTION(range##suffix##_set),
#define TAVDB_DUMP_GET_DATA(suffix, apiSuffix, type) TAVDB_DUMP_FUNCTION(range##suffix##_getData),
#define TAVDB_DUMP_SET_DATA(suffix, apiSuffix, type) TAVDB_DUMP_FUNCTION(range##suffix##_setData),
#define TAVDB_DUMP_CHECK_RANGE(suffix, apiSuffix, type) TAVDB_DUMP_FUNCTION(checkRange##suffix),
#define TAVDB_DUMP_CHECK_ENUM(suffix, apiSuffix, type) TAVDB_DUMP_FUNCTION(checkEnum##suffix),
        // clang-format off
        TAVDB_VALUE_TYPES(TAVDB_DUMP_NEW)
        TAVDB_VALUE_TYPES(TAVDB_DUMP_GET)
        TAVDB_VALUE_TYPES(TAVDB_DUMP_SET)
        TAVDB_VALUE_TYPES(TAVDB_DUMP_GET_DATA)
        TAVDB_VALUE_TYPES(TAVDB_DUMP_SET_DATA)
        // clang-format on
        TAVDB_DUMP_FUNCTION(constraint_newEnumArray),
        TAVDB_DUMP_FUNCTION(constraint_setEnumArray),
        TAVDB_DUMP_FUNCTION(constraint_getEnumArray),
        TAVDB_DUMP_FUNCTION(enum_new),
        TAVDB_DUMP_FUNCTION(enum_get),
        TAVDB_DUMP_FUNCTION(enum_set),
        TAVDB_DUMP_FUNCTION(enum_setData),
        // clang-format off
        TAVDB_VALUE_TYPES(TAVDB_DUMP_CHECK_RANGE)
        TAVDB_VALUE_TYPES(TAVDB_DUMP_CHECK_ENUM)
        // clang-format on
        TAVDB_DUMP_FUNCTION(constraint_check),
        TAVDB_DUMP_FUNCTION(dbs_me_db_constraint_debug_info),
    };
    return dumpModule({"====(db_constraint)\n", 0, 0, {}, functions}, level, debugSize, ramSize);
}
