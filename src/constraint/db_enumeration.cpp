// SPDX-License-Identifier: Apache-2.0
// Enumeration records and their element arrays. The array's slot is reserved
// once; its elements are neither sorted nor unique.
#include <string.h>

#include <cstddef>

#include "constraint/db_constraint_record.h"
#include "control/db_trace.h"
#include "platform/os_wrapper.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

static_assert(sizeof(tavDBMEnumeration) == 20);
static_assert(offsetof(tavDBMEnumeration, key) == 0);
static_assert(offsetof(tavDBMEnumeration, type) == 4);
static_assert(offsetof(tavDBMEnumeration, arrayKey) == 8);
static_assert(offsetof(tavDBMEnumeration, elementSize) == 12);
static_assert(offsetof(tavDBMEnumeration, elementCount) == 16);

/// Writing an element array: a short write is recorded with the code of reads.
constexpr RecordKind kElementArray = [] {
    RecordKind kind = kConstraintHeader;
    kind.writeCode = TAVDB_ERR_CONSTRAINT_READ;  // deliberate: 61 and not 60, unlike every other writer
    kind.clearsError = false;
    return kind;
}();

/// The array's bytes; -1 when the product is negative or overflows.
int32_t arrayBytes(int32_t elementSize, int32_t elementCount) {
    int32_t bytes = 0;
    const bool overflows = __builtin_mul_overflow(elementSize, elementCount, &bytes);
    return overflows || bytes < 0 ? -1 : bytes;
}

/// Fills a new array with zeros; a failure is left in the session.
void zeroFill(OpenMedium &medium, const tavDBMMediaEntry &entry, tavDBMSession *session, uint32_t key, int32_t bytes,
              Site site) {
    const Allocation zeros(static_cast<uint32_t>(bytes));
    if (!zeros) {
        const int error = errno;
        fail(session, TAVDB_ERR_MEMORY, static_cast<uint32_t>(error), site + kNoSlot + 1, key, bytes, error);
        return;
    }
    memset(zeros.get(), 0, static_cast<size_t>(bytes));
    writeTo(medium, entry, session, kNewConstraint, key, zeros.get(), bytes, site);
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

uint32_t constraint_newEnumArray(tavDBMSession *session, int32_t elementSize, int32_t elementCount) {
    constexpr uint32_t kNone = UINT32_MAX;
    const Site site = {__func__, 100};
    const FoundMedium found = findMedium(session, kConstraintHeader, 0, site);
    if (found.entry == nullptr)
        return kNone;
    OpenMedium medium(*found.entry);
    if (medium.failed()) {
        failOpen(session, kConstraintHeader, 0, medium, site);
        return kNone;
    }
    const int32_t bytes = arrayBytes(elementSize, elementCount);
    const uint32_t key = bytes >= 0 ? flst_m_get(session, found.id, static_cast<uint32_t>(bytes)) : kNone;
    if (!isSlot(key)) {
        const int error = bytes >= 0 ? errno : EOVERFLOW;
        fail(session, TAVDB_ERR_CONSTRAINT_SLOT, static_cast<uint32_t>(error), site + kNoSlot, elementSize,
             elementCount, error);
        return kNone;
    }
    zeroFill(medium, *found.entry, session, key, bytes, site);
    return key;
}

int32_t constraint_setEnumArray(tavDBMSession *session, uint32_t arrayKey, int32_t elementSize, int32_t elementCount,
                                const void *data) {
    const int32_t bytes = arrayBytes(elementSize, elementCount);
    return writeAt(session, kElementArray, arrayKey, data, bytes, {__func__, 120}).code;
}

void *constraint_getEnumArray(tavDBMSession *session, uint32_t arrayKey, int32_t elementSize, int32_t elementCount) {
    const Site site = {__func__, 130};
    const tavDBMMediaEntry *const entry = findMedium(session, kConstraintHeader, arrayKey, site).entry;
    if (entry == nullptr)
        return nullptr;
    OpenMedium medium(*entry);
    if (medium.failed()) {
        failOpen(session, kConstraintHeader, arrayKey, medium, site);
        return nullptr;
    }
    const int32_t bytes = arrayBytes(elementSize, elementCount);
    Allocation elements = bytes >= 0 ? Allocation(static_cast<uint32_t>(bytes)) : Allocation();
    if (!elements) {
        const int error = bytes >= 0 ? errno : EOVERFLOW;
        fail(session, TAVDB_ERR_MEMORY, static_cast<uint32_t>(error), site + kNoSlot, arrayKey, elementSize,
             elementCount, error);
        return nullptr;
    }
    const int32_t count = medium.read(elements.get(), bytes, arrayKey);
    if (count == bytes)
        return elements.release();
    fail(session, TAVDB_ERR_CONSTRAINT_READ, medium.error(), site + kTransfer, arrayKey, bytes, count, medium.error());
    return nullptr;
}

void *enum_new(tavDBMSession *session, void *record) {
    return newConstraint(session, record, sizeof(tavDBMEnumeration), {__func__, 150});
}

void *enum_get(tavDBMSession *session, uint32_t key, void *buffer) {
    static constexpr RecordAccess access = {kTypedConstraint, sizeof(tavDBMEnumeration), {__func__, 160}};
    return readRecord(session, access, key, buffer);
}

int32_t enum_set(tavDBMSession *session, const void *record) {
    static constexpr RecordAccess access = {kTypedConstraint, sizeof(tavDBMEnumeration), {__func__, 170}};
    return writeRecord(session, access, record).closed;
}

int32_t enum_setData(tavDBMSession *session, uint32_t key, int32_t elementSize, int32_t elementCount,
                     const void *data) {
    tavDBMEnumeration record;
    if (enum_get(session, key, &record) == nullptr) {
        traceError({__func__, 180}, key, lastError(session));
        return 0;  // deliberate: the read's error is in the session
    }
    // deliberate: the record's own size and count are neither compared nor changed
    return constraint_setEnumArray(session, record.arrayKey, elementSize, elementCount, data);
}
