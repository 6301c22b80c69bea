// SPDX-License-Identifier: Apache-2.0
// Values: a record that says of which type and length a datum is, where it lies
// and which constraint guards it; and the datum itself, appended to its medium
// when the value is created and never moved.
#include "model/db_value_data.h"

#include <errno.h>
#include <string.h>

#include <cstddef>

#include "control/db_counter.h"
#include "control/db_dump.h"
#include "control/db_trace.h"
#include "platform/hook_library.h"
#include "platform/os_wrapper.h"
#include "storage/db_media.h"
#include "storage/db_medium_access.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

static_assert(sizeof(tavDBMValue) == 28);
static_assert(offsetof(tavDBMValue, key) == 0);
static_assert(offsetof(tavDBMValue, type) == 4);
static_assert(offsetof(tavDBMValue, dataMedia) == 8);
static_assert(offsetof(tavDBMValue, dataOffset) == 12);
static_assert(offsetof(tavDBMValue, length) == 16);
static_assert(offsetof(tavDBMValue, creationWord) == 20);
static_assert(offsetof(tavDBMValue, constraintKey) == 24);

constexpr int32_t kRecordBytes = sizeof(tavDBMValue);

constexpr RecordKind kValueRecord = {
    .media = &tavDBMDescription::valueMedia,
    .openCode = TAVDB_ERR_VALUE_OPEN,
    .readCode = TAVDB_ERR_VALUE_READ,
    .writeCode = TAVDB_ERR_VALUE_WRITE,
    .traceFields = TraceFields::keys,
    .acceptsShortRead = false,
    .clearsError = true,
    .tracesMedium = false,
    .tracesHint = true,
    .detailIsErrno = false,
};

uint32_t s_debug_db_value_init;
uint32_t s_debug_db_value_term;

int32_t smaller(int32_t a, int32_t b) {
    return a < b ? a : b;
}

/// Sites of an access to a value's data, behind that of its missing medium.
enum DataStep : int32_t { kDataMedium, kDataNotOpened, kDataTransfer };

int32_t failDataOpen(tavDBMSession *session, uint32_t key, int32_t descriptor, uint32_t error, Site site) {
    return fail(session, TAVDB_ERR_MEDIUM_OPEN, error, site + kDataNotOpened, key, descriptor, error);
}

/// Opens a value's data medium for one transfer: `transfer(medium, record)` gives the count.
/// @return the close's result, MEDIUM_OPEN, or 0 when record or medium cannot be had
template <typename Transfer>
int32_t accessData(tavDBMSession *session, const tavDBMValue &record, int32_t transferCode, Site site,
                   Transfer transfer) {
    const tavDBMMediaEntry *const entry = mediumOf(session, record.dataMedia);
    if (entry == nullptr) {
        traceError(site + kDataMedium, record.key, record.dataMedia);
        return 0;  // deliberate: the medium's error is in the session
    }
    OpenMedium medium(*entry);
    if (medium.failed())
        return failDataOpen(session, record.key, medium.descriptor(), medium.error(), site);
    const int32_t count = transfer(medium);
    // deliberate: the code stands in the session, a short count is accepted, the close decides the result
    if (count < 0)
        fail(session, transferCode, medium.error(), site + kDataTransfer, record.key, record.length, count,
             medium.error());
    return medium.close();
}

/// Appends a new value's data and writes its record. @return the key, or 0 with the failure recorded
uint32_t appendValue(tavDBMSession *session, tavDBMValue &record, const tavDBMMediaEntry &entry, const void *data,
                     Site site) {
    OpenMedium medium(entry);
    if (medium.descriptor() == -1) {
        failDataOpen(session, record.key, medium.descriptor(), medium.error(), site);
        return 0;
    }
    const int32_t position = medium.seekEnd();
    record.dataOffset = static_cast<uint32_t>(position);
    const int32_t count = position != -1 ? medium.write(data, record.length, record.dataOffset) : -1;
    if (count == -1) {
        fail(session, TAVDB_ERR_MEDIUM_WRITE, medium.error(), site + kDataTransfer, record.key, record.length, count,
             medium.error());
        return 0;
    }
    value_set(session, &record);
    return record.key;
}

/// Reads a copy's source into a buffer of the destination's length and hands it to
/// `use(buffer, length, destinationLength, sourceLength)`, which gives the result.
template <typename Use>
int32_t copyThrough(tavDBMSession *session, uint32_t destination, uint32_t source, Site site, Use use) {
    const int32_t destinationLength = value_getLength(session, destination);
    const int32_t sourceLength = value_getLength(session, source);
    if (destinationLength < 0 || sourceLength < 0)
        return 0;  // deliberate: the read's error is in the session
    if (sourceLength > destinationLength)
        return fail(session, TAVDB_ERR_COPY_LENGTH, 0, site, destinationLength, sourceLength);
    const Allocation buffer(static_cast<uint32_t>(destinationLength));
    if (!buffer) {
        const int error = errno;
        return fail(session, TAVDB_ERR_MEMORY, static_cast<uint32_t>(error), site + 1, destination, destinationLength,
                    error);
    }
    int32_t count = -1;
    if (readData(session, source, buffer.get(), destinationLength, count) != 0 || count < 0)
        return 0;  // deliberate: the read's error is in the session
    return use(buffer.get(), count, destinationLength, sourceLength);
}

/// Writes a copy through the write functions of a hook.
int32_t writeThroughHook(tavDBMSession *session, const tavDBMHook &hook, uint32_t destination, void *data,
                         int32_t length, Site site) {
    const int32_t refused = runHook(hook.preWrite, destination, data, &length);
    if (refused != 0)
        return fail(session, TAVDB_ERR_PRE_WRITE, static_cast<uint32_t>(refused), site, destination, refused);
    const int32_t code = value_setGeneric(session, destination, data, length);
    if (code != 0)
        return code;
    const int32_t failed = runHook(hook.postWrite, destination, data, &length);
    if (failed != 0)
        return fail(session, TAVDB_ERR_POST_WRITE, static_cast<uint32_t>(failed), site + 1, destination, failed);
    return 0;
}

void refuseKey0(tavDBMSession *session, Site site) {
    fail(session, TAVDB_ERR_NO_VALUE, 0, site, 0, session->dbId);
}

/// A counter of calls that are entered and left in one go.
void countCall(uint32_t &counter) {
    const CountedScope scope(counter);
}

}  // namespace

int32_t readData(tavDBMSession *session, uint32_t key, void *buffer, int32_t length, int32_t &count) {
    tavDBMValue record;
    if (value_get(session, key, &record) == nullptr)
        return 0;  // deliberate: the read's error is in the session
    return accessData(session, record, TAVDB_ERR_MEDIUM_READ, {"value_getGeneric", 170}, [&](OpenMedium &medium) {
        count = medium.read(buffer, smaller(length, record.length), record.dataOffset);
        return count;
    });
}

}  // namespace tavdb

using namespace tavdb;

int32_t value_init() {
    countCall(s_debug_db_value_init);
    return 0;
}

int32_t value_term() {
    countCall(s_debug_db_value_term);
    return 0;
}

void *value_new(tavDBMSession *session, void *buffer) {
    int32_t mediaId = 0;
    const Site site = {__func__, 100};
    if (!hasBuffer(session, buffer, site) || !findMediaId(session, kValueRecord, 0, site, mediaId))
        return nullptr;
    const uint32_t key = flst_m_get(session, mediaId, kRecordBytes);
    if (!isSlot(key)) {
        traceError(site + kNoSlot, key, mediaId);
        return nullptr;
    }
    memcpy(buffer, &key, sizeof key);
    return buffer;
}

uint32_t value_create(tavDBMSession *session, int32_t type, uint32_t creationWord, const void *data, int32_t length,
                      int32_t mediaId) {
    const Site site = {__func__, 120};
    if (length < 0) {
        fail(session, TAVDB_ERR_MEDIUM_WRITE, EINVAL, site + 4, length, mediaId);
        return 0;
    }
    const Allocation zeros = data == nullptr ? Allocation(static_cast<uint32_t>(length)) : Allocation();
    if (data == nullptr) {
        if (!zeros) {
            const int error = errno;
            fail(session, TAVDB_ERR_MEMORY, static_cast<uint32_t>(error), site + 3, length, error);
            return 0;
        }
        memset(zeros.get(), 0, static_cast<size_t>(length));
        data = zeros.get();
    }
    tavDBMValue record = {.key = 0,
                          .type = type,
                          .dataMedia = mediaId,
                          .dataOffset = 0,
                          .length = length,
                          .creationWord = creationWord,
                          .constraintKey = 0};
    if (value_new(session, &record) == nullptr)
        return 0;
    const tavDBMMediaEntry *const entry = getMedia(session, mediaId);
    return entry != nullptr ? appendValue(session, record, *entry, data, site) : 0;
}

int32_t value_set(tavDBMSession *session, const void *record) {
    static constexpr RecordAccess access = {kValueRecord, kRecordBytes, {__func__, 140}};
    return writeRecord(session, access, record).code;
}

void *value_get(tavDBMSession *session, uint32_t key, void *buffer) {
    static constexpr RecordAccess access = {kValueRecord, kRecordBytes, {__func__, 150}, refuseKey0};
    return readRecord(session, access, key, buffer);
}

int32_t value_getType(tavDBMSession *session, uint32_t key) {
    tavDBMValue record;
    return value_get(session, key, &record) != nullptr ? record.type : -1;
}

int32_t value_getLength(tavDBMSession *session, uint32_t key) {
    tavDBMValue record;
    return value_get(session, key, &record) != nullptr ? record.length : -1;
}

int32_t value_setConstraintKey(tavDBMSession *session, uint32_t key, uint32_t constraintKey) {
    tavDBMValue record;
    if (value_get(session, key, &record) == nullptr)
        return lastError(session);
    record.constraintKey = constraintKey;
    value_set(session, &record);
    return 0;  // deliberate: a failed write stands in the session only
}

uint32_t value_getConstraintKey(tavDBMSession *session, uint32_t key) {
    tavDBMValue record;
    return value_get(session, key, &record) != nullptr ? record.constraintKey : 0;
}

int32_t value_setGeneric(tavDBMSession *session, uint32_t key, const void *data, int32_t length) {
    tavDBMValue record;
    if (value_get(session, key, &record) == nullptr)
        return 0;  // deliberate: the read's error is in the session
    if (record.constraintKey != 0) {
        const int32_t refused = constraint_check(session, record.constraintKey, record.type, data, length);
        if (refused != 0)
            return refused;
    }
    return accessData(session, record, TAVDB_ERR_MEDIUM_WRITE, {__func__, 160}, [&](OpenMedium &medium) {
        return medium.write(data, smaller(length, record.length), record.dataOffset);
    });
}

int32_t value_getGeneric(tavDBMSession *session, uint32_t key, void *buffer, int32_t *length) {
    if (length == nullptr)
        return fail(session, TAVDB_ERR_NULL_ARGUMENT, 0, {__func__, 173}, key);
    return readData(session, key, buffer, *length, *length);
}

int32_t value_getCreateListGeneric(tavDBMSession *session, uint32_t key, void *buffer, int32_t length) {
    tavDBMValue record;
    if (value_get(session, key, &record) == nullptr)
        return 0;  // deliberate: the read's error is in the session
    return accessData(session, record, TAVDB_ERR_MEDIUM_READ, {__func__, 180},
                      [&](OpenMedium &medium) { return medium.read(buffer, length, record.dataOffset); });
}

int32_t value_copy(tavDBMSession *session, uint32_t destination, uint32_t source) {
    return copyThrough(session, destination, source, {__func__, 190},
                       [&](const void *buffer, int32_t length, int32_t, int32_t) {
                           return value_setGeneric(session, destination, buffer, length);
                       });
}

int32_t value_copy2(tavDBMSession *session, uint32_t destination, uint32_t source, uint32_t hookId) {
    const Site site = {__func__, 200};
    return copyThrough(session, destination, source, site,
                       [&](void *buffer, int32_t length, int32_t destinationLength, int32_t sourceLength) {
                           const tavDBMHook *const hook = findHook(session, hookId);
                           if (hook != nullptr)
                               return writeThroughHook(session, *hook, destination, buffer, length, site + 2);
                           // deliberate: an error line although nothing failed
                           traceError(site + 4, destinationLength, sourceLength);
                           return value_setGeneric(session, destination, buffer, length);
                       });
}

int32_t value_setDeleted(tavDBMSession *session, const void *record) {
    int32_t mediaId = 0;
    const uint32_t key = recordKey(record);
    if (!findMediaId(session, kValueRecord, key, {__func__, 210}, mediaId))
        return lastError(session);
    return flst_m_release(session, mediaId, key, kRecordBytes);
}

int32_t value_delete(tavDBMSession *session, uint32_t key) {
    tavDBMValue record;
    if (value_get(session, key, &record) == nullptr)
        return lastError(session);
    value_setDeleted(session, &record);
    return 0;
}

void value_print(tavDBMSession *, uint32_t) {}

int32_t dbs_me_db_value_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpWord words[] = {
        TAVDB_DUMP_WORD(s_debug_db_value_init),
        TAVDB_DUMP_WORD(s_debug_db_value_term),
    };
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(dbs_me_db_value_debug_info),
        TAVDB_DUMP_FUNCTION(value_setConstraintKey),
        TAVDB_DUMP_FUNCTION(value_getConstraintKey),
        TAVDB_DUMP_FUNCTION(value_delete),
        TAVDB_DUMP_FUNCTION(value_create),
        TAVDB_DUMP_FUNCTION(value_print),
        TAVDB_DUMP_FUNCTION(value_copy2),
        TAVDB_DUMP_FUNCTION(value_copy),
        TAVDB_DUMP_FUNCTION(value_setGeneric),
        TAVDB_DUMP_FUNCTION(value_getGeneric),
        TAVDB_DUMP_FUNCTION(value_getType),
        TAVDB_DUMP_FUNCTION(value_getLength),
        TAVDB_DUMP_FUNCTION(value_new),
        TAVDB_DUMP_FUNCTION(value_setDeleted),
        TAVDB_DUMP_FUNCTION(value_set),
        TAVDB_DUMP_FUNCTION(value_get),
        TAVDB_DUMP_FUNCTION(value_term),
        TAVDB_DUMP_FUNCTION(value_init),
        TAVDB_DUMP_FUNCTION(value_getCreateListGeneric),
    };
    return dumpModule({.banner = "====(db_value)\n",
                       .debugSize = sizeof words / sizeof *words * sizeof(uint32_t),
                       .ramSize = 0,
                       .words = words,
                       .functions = functions,
                       .atLevel98 = AtLevel98::nothing},
                      level, debugSize, ramSize);
}
