// SPDX-License-Identifier: Apache-2.0
// Strings: an entry that says where a text lies, and the text with its NUL,
// appended to its medium and never changed in place.
#include <errno.h>
#include <string.h>

#include <cstddef>

#include "control/db_counter.h"
#include "control/db_dump.h"
#include "control/db_trace.h"
#include "storage/db_medium_access.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

static_assert(sizeof(tavDBMString) == 16);
static_assert(offsetof(tavDBMString, key) == 0);
static_assert(offsetof(tavDBMString, textMedia) == 4);
static_assert(offsetof(tavDBMString, textOffset) == 8);
static_assert(offsetof(tavDBMString, textLength) == 12);

constexpr int32_t kEntryBytes = sizeof(tavDBMString);

constexpr RecordKind kStringEntry = {
    .media = &tavDBMDescription::stringMedia,
    .openCode = TAVDB_ERR_STRING_OPEN,
    .readCode = TAVDB_ERR_STRING_READ,
    .writeCode = TAVDB_ERR_STRING_WRITE,
    .traceFields = TraceFields::errors,
    .acceptsShortRead = true,
    .clearsError = true,
    .tracesMedium = true,
    .tracesHint = false,
    .detailIsErrno = false,
};

uint32_t s_debug_db_string_delete;

/// Appends a new entry's text and writes the entry. @return the key, or 0 with the failure recorded
uint32_t appendText(tavDBMSession *session, tavDBMString &entry, const tavDBMMediaEntry &media, const char *text,
                    Site site) {
    OpenMedium medium(media);
    if (medium.descriptor() == -1) {
        fail(session, TAVDB_ERR_MEDIUM_OPEN, medium.error(), site, medium.error(), medium.descriptor());
        return 0;
    }
    const int32_t position = medium.seekEnd();
    entry.textOffset = static_cast<uint32_t>(position);
    const int32_t count = position != -1 ? medium.write(text, entry.textLength, entry.textOffset) : -1;
    if (count == -1) {
        fail(session, TAVDB_ERR_MEDIUM_WRITE, medium.error(), site + 1, medium.error(), count);
        return 0;
    }
    str_setEntry(session, &entry);
    return entry.key;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

void *str_newEntry(tavDBMSession *session, void *buffer) {
    const Site site = {__func__, 100};
    if (!hasBuffer(session, buffer, site))
        return nullptr;
    const FoundMedium found = findMedium(session, kStringEntry, 0, site);
    if (found.entry == nullptr)
        return nullptr;
    OpenMedium medium(*found.entry);
    if (medium.failed()) {
        failOpen(session, kStringEntry, 0, medium, site);
        return nullptr;
    }
    const uint32_t key = flst_m_get(session, found.id, kEntryBytes);
    if (!isSlot(key)) {
        const int error = errno;
        fail(session, TAVDB_ERR_STRING_SLOT, static_cast<uint32_t>(error), site + kNoSlot, error);
        return nullptr;
    }
    memcpy(buffer, &key, sizeof key);
    return buffer;
}

int32_t str_setEntry(tavDBMSession *session, const void *entry) {
    static constexpr RecordAccess access = {kStringEntry, kEntryBytes, {__func__, 110}};
    const Written written = writeRecord(session, access, entry);
    // deliberate: without a medium nothing is written and nothing is returned
    return written.code == TAVDB_ERR_MEDIA_ID ? 0 : written.closed;
}

void *tavdb_getStrEntry(tavDBMSession *session, uint32_t key, void *buffer) {
    static constexpr RecordAccess access = {kStringEntry, kEntryBytes, {__func__, 120}};
    return readRecord(session, access, key, buffer);
}

char *tavdb_getString(tavDBMSession *session, uint32_t key, char *buffer, int32_t size) {
    const Site site = {__func__, 130};
    tavDBMString entry = {};
    if (tavdb_getStrEntry(session, key, &entry) == nullptr) {
        traceError(site, lastError(session));
        return nullptr;
    }
    const tavDBMMediaEntry *const media = getMedia(session, entry.textMedia);
    if (media == nullptr)
        return nullptr;
    OpenMedium medium(*media);
    if (medium.failed()) {
        fail(session, TAVDB_ERR_MEDIUM_OPEN, medium.error(), site + 1, medium.error(), medium.descriptor());
        return nullptr;
    }
    const int32_t length = size < entry.textLength ? size : entry.textLength;
    const int32_t count = medium.read(buffer, length, entry.textOffset);
    if (count >= 0)
        return buffer;
    fail(session, TAVDB_ERR_MEDIUM_READ, medium.error(), site + 2, medium.error(), count);
    return nullptr;
}

uint32_t str_create(tavDBMSession *session, const char *text, int32_t mediaId) {
    const Site site = {__func__, 140};
    if (text == nullptr) {
        fail(session, TAVDB_ERR_NULL_ARGUMENT, 0, site + 4);
        return 0;
    }
    const size_t length = strlen(text) + 1;
    if (length > INT32_MAX) {
        fail(session, TAVDB_ERR_MEDIUM_WRITE, EOVERFLOW, site + 5, EOVERFLOW);
        return 0;
    }
    tavDBMString entry = {.key = 0, .textMedia = mediaId, .textOffset = 0, .textLength = static_cast<int32_t>(length)};
    if (str_newEntry(session, &entry) == nullptr) {
        traceError(site + 2, lastError(session));
        return 0;
    }
    const tavDBMMediaEntry *const media = getMedia(session, mediaId);
    if (media == nullptr) {
        traceError(site + 3);
        return 0;
    }
    return appendText(session, entry, *media, text, site);
}

int32_t str_setDeleted(tavDBMSession *session, const void *entry) {
    int32_t mediaId = 0;
    const uint32_t key = recordKey(entry);
    if (!findMediaId(session, kStringEntry, key, {__func__, 150}, mediaId))
        return lastError(session);
    return flst_m_release(session, mediaId, key, kEntryBytes);
}

int32_t tavDBMDeleteString(tavDBMSession *session, uint32_t string) {
    return dbs_me_db_string_delete(session, string);
}

int32_t dbs_me_db_string_delete(tavDBMSession *session, uint32_t key) {
    tavDBMString entry = {};
    if (tavdb_getStrEntry(session, key, &entry) == nullptr) {
        const int32_t code = lastError(session);
        traceError({__func__, 160}, code);
        return code;
    }
    const CountedScope scope(s_debug_db_string_delete);
    str_setDeleted(session, &entry);
    return 0;
}

int32_t dbs_me_db_string_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpWord words[] = {TAVDB_DUMP_WORD(s_debug_db_string_delete)};
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(dbs_me_db_string_debug_info),
        TAVDB_DUMP_FUNCTION(tavdb_getStrEntry),
        TAVDB_DUMP_FUNCTION(tavdb_getString),
        TAVDB_DUMP_FUNCTION(str_setEntry),
        TAVDB_DUMP_FUNCTION(str_newEntry),
        TAVDB_DUMP_FUNCTION(str_create),
        TAVDB_DUMP_FUNCTION(str_setDeleted),
        TAVDB_DUMP_FUNCTION(tavDBMDeleteString),
        TAVDB_DUMP_FUNCTION(dbs_me_db_string_delete),
    };
    return dumpModule({.banner = "====(db_string)\n",
                       .debugSize = sizeof(uint32_t),
                       .ramSize = 0,
                       .words = words,
                       .functions = functions,
                       .atLevel98 = AtLevel98::nothing},
                      level, debugSize, ramSize);
}
