// SPDX-License-Identifier: Apache-2.0
// The media table of this process: loaded once from the media configuration
// file, then only read. Entry 0, the default medium, is there from the start.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <cstddef>

#include "control/db_dump.h"
#include "control/db_ring.h"
#include "control/db_trace.h"
#include "platform/os_wrapper.h"
#include "platform/system_error.h"
#include "storage/db_media.h"
#include "storage/db_media_default.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

constexpr int32_t kMediaMax = 127;
constexpr uint32_t kLineBytes = 4096;
constexpr uint32_t kTokenBytes = 512;
constexpr const char *kDelimiters = " \t\n";
constexpr const char *kDebugFunction = "dbs_me_db_media_file_debug_info";

static_assert(sizeof(void *) != 4 || sizeof(tavDBMMediaEntry) == 40);
static_assert(offsetof(tavDBMMediaTable, count) == 128 * sizeof(tavDBMMediaEntry));

uint32_t s_media_init;
char s_debug_db_media_fill_media_entry_error_token[kTokenBytes];
DiagnosticRing<3, 64> s_debug_db_media_get_media_error;
DiagnosticRing<3, 64> s_debug_db_media_init_error;
DiagnosticRing<6, 64> s_debug_db_media_sync_error;

/// What a negative media id gives: a medium, but none that opens.
tavDBMMediaEntry s_inert = {
    .handle = nullptr,
    .hint = "",
    .openArg = 0,
    .open =
        [](const char *, uint32_t, uint32_t *err) {
            *err = ENODEV;
            return -1;
        },
    .close = [](int32_t, uint32_t *) { return -1; },
    .read = [](int32_t, void *, int32_t, uint32_t, uint32_t *) { return -1; },
    .write = [](int32_t, const void *, int32_t, uint32_t, uint32_t *) { return -1; },
    .lseek = [](int32_t, int32_t, int32_t, uint32_t *) { return -1; },
    .sync = [](int32_t, uint32_t *, uint32_t) { return -1; },
    .debug = nullptr,
};

void keepToken(const char *token) {
    strncpy(s_debug_db_media_fill_media_entry_error_token, token, kTokenBytes - 1);
}

/// One function of a line: where it goes, and its code when it is not found.
struct Slot {
    int32_t (*fill)(const char *name, tavDBMMediaEntry *entry);
    int32_t code;
    int32_t site;  ///< a missing token's; a rejected token's is one higher
};

constexpr Slot kSlots[] = {
    {dbs_me_db_media_entry_set_open_function, TAVDB_ERR_FUNCTION_OPEN, 310},
    {dbs_me_db_media_entry_set_close_function, TAVDB_ERR_FUNCTION_CLOSE, 320},
    {dbs_me_db_media_entry_set_read_function, TAVDB_ERR_FUNCTION_READ, 330},
    {dbs_me_db_media_entry_set_write_function, TAVDB_ERR_FUNCTION_WRITE, 340},
    {dbs_me_db_media_entry_set_lseek_function, TAVDB_ERR_FUNCTION_SEEK, 350},
    {dbs_me_db_media_entry_set_sync_function, TAVDB_ERR_FUNCTION_SYNC, 360},
};

constexpr const char *kFill = "dbs_me_db_media_fill_media_entry";

int32_t fillLibrary(tavDBMMediaEntry *entry, const char *token) {
    const int32_t code = dbs_me_db_media_entry_set_handle(token, entry);
    if (code != 0) {
        keepToken(token);
        traceErrorCodeText({kFill, 290}, code, token);
        notifyMediaError(MediaError::library, code);
        return TAVDB_ERR_LIBRARY;
    }
    const int32_t debugCode = dbs_me_db_media_entry_set_debug_function(kDebugFunction, entry);
    if (debugCode != 0) {
        keepToken(token);
        traceErrorCodeText({kFill, 300}, debugCode, kDebugFunction);
        entry->debug = nullptr;
    }
    return debugCode;
}

int32_t fillSlot(tavDBMMediaEntry *entry, const Slot &slot, const char *token) {
    if (token == nullptr) {
        traceError({kFill, slot.site});
        return -1;
    }
    if (slot.fill(token, entry) == 0)
        return 0;
    keepToken(token);
    traceErrorCodeText({kFill, slot.site + 1}, slot.code, token);
    return slot.code;
}

int32_t fillHint(tavDBMMediaEntry *entry, const char *token) {
    if (token != nullptr && dbs_me_db_media_entry_set_hint(token, entry) == 0)
        return 0;
    traceError({kFill, token == nullptr ? 370 : 371});
    return -1;
}

/// Takes the lines in; a rejected one leaves its place to the next. @return the code of the last rejected
/// line when no line was accepted after it
int32_t loadLines(FILE *file, char *line, const char *path) {
    int32_t result = 0;
    while (media_table.count <= kMediaMax && fgets(line, kLineBytes, file) != nullptr) {
        line[strcspn(line, "#")] = '\0';
        const int32_t code = dbs_me_db_media_fill_media_entry(&media_table.entry[media_table.count], line);
        if (code < 0)
            continue;
        if (code == 0)
            media_table.count += 1;
        else
            traceErrorCodeText({"media_init", 230}, code, path);
        result = code;
    }
    return result;
}

int32_t loadFile(const char *path) {
    FILE *const file = fopen(path != nullptr ? path : "", "re");
    if (file == nullptr) {
        traceErrorCodeText({"media_init", 210}, errno, path);
        s_debug_db_media_init_error.put(1, 0);
        return TAVDB_ERR_MEDIA_FILE;
    }
    Allocation line(kLineBytes);
    int32_t result = TAVDB_ERR_MEMORY;
    if (line) {
        result = loadLines(file, line.as<char>(), path);
    } else {
        const int error = errno;
        traceError({"media_init", 220}, error);
        s_debug_db_media_init_error.put(1, 0);
        notifyMediaError(MediaError::lineBuffer, error);
    }
    line.free();
    fclose(file);
    return result;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

tavDBMMediaTable media_table = {
    .entry = {{.handle = nullptr,
               .hint = "",
               .openArg = 0,
               .open = dbs_me_db_media_def_open,
               .close = dbs_me_db_media_def_close,
               .read = dbs_me_db_media_def_read,
               .write = dbs_me_db_media_def_write,
               .lseek = dbs_me_db_media_def_seek,
               .sync = dbs_me_db_media_def_sync,
               .debug = nullptr}},
    .count = 1,
};

int32_t media_init(const char *path, uint32_t arg) {
    const uint32_t attached = s_media_init;
    s_media_init += 1;
    if (attached != 0)
        return 0;
    const int32_t result = dbs_me_db_media_entry_init(path, arg);
    if (result == 0)
        return loadFile(path);
    traceError({__func__, 200}, result);
    notifyMediaError(MediaError::mediaLibrary, result);
    return result;
}

int32_t media_term() {
    s_media_init -= 1;
    if (s_media_init != 0)
        return 0;
    for (int32_t id = 1; id < media_table.count; id++)
        dbs_me_db_media_entry_close(&media_table.entry[id]);
    media_table.count = 1;
    return 0;
}

tavDBMMediaEntry *getMedia(tavDBMSession *session, int32_t mediaId) {
    if (mediaId < 0)
        return &s_inert;  // deliberate: only the upper bound is an error
    if (tavDBMMediaEntry *const entry = configuredMedium(mediaId); entry != nullptr)
        return entry;
    traceError({__func__, 240}, mediaId);
    s_debug_db_media_get_media_error.put(1, mediaId);
    session_setError(session, TAVDB_ERR_MEDIA_ID, 0);
    return nullptr;
}

uint32_t media_getCount() {
    return static_cast<uint32_t>(media_table.count);
}

int32_t dbs_me_db_media_fill_media_entry(tavDBMMediaEntry *entry, char *line) {
    char *rest = nullptr;
    const char *const library = strtok_r(line, kDelimiters, &rest);
    if (library == nullptr)
        return -1;
    int32_t code = fillLibrary(entry, library);
    for (const Slot &slot : kSlots) {
        if (code != 0)
            return code;
        code = fillSlot(entry, slot, strtok_r(nullptr, kDelimiters, &rest));
    }
    return code != 0 ? code : fillHint(entry, strtok_r(nullptr, kDelimiters, &rest));
}

int32_t tavDBMSync(tavDBMSession *session, int32_t mediaId, uint32_t arg) {
    return dbs_me_db_media_sync(session, mediaId, arg);
}

int32_t dbs_me_db_media_sync(tavDBMSession *session, int32_t mediaId, uint32_t arg) {
    const tavDBMMediaEntry *const entry = getMedia(session, mediaId);
    if (entry == nullptr)
        return 0;
    uint32_t error = 0;
    const int32_t fd = entry->open(entry->hint, entry->openArg, &error);
    if (fd < 0) {
        traceError({__func__, 250}, 0, mediaId, error);
        s_debug_db_media_sync_error.put(2, 0, mediaId, error, fd);
        return session_setError(session, TAVDB_ERR_MEDIUM_OPEN, error);
    }
    int32_t result = 0;
    if (entry->sync(fd, &error, arg) != 0) {
        traceError({__func__, 260}, 0, mediaId, error, fd);
        s_debug_db_media_sync_error.put(1, 0, mediaId, error, fd);
        dbs_me_syserr_notify_system_error_async(kMediaModule, static_cast<int32_t>(MediaError::sync),
                                                static_cast<int32_t>(error));
        result = session_setError(session, TAVDB_ERR_MEDIUM_SYNC, error);
    }
    entry->close(fd, &error);
    return result;
}

namespace tavdb {
namespace {
void dumpDiagnostics(int32_t level) {
    dumpText(level, "s_debug_db_media_fill_media_entry_error_token", s_debug_db_media_fill_media_entry_error_token);
    const auto address = [](const void *ring) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(ring)); };
    dumpWord(level, "s_debug_db_media_get_media_error", address(&s_debug_db_media_get_media_error));
    s_debug_db_media_get_media_error.dump(level);
    dumpWord(level, "s_debug_db_media_init_error", address(&s_debug_db_media_init_error));
    s_debug_db_media_init_error.dump(level);
    dumpWord(level, "s_debug_db_media_sync_error", address(&s_debug_db_media_sync_error));
    s_debug_db_media_sync_error.dump(level);
}

constexpr uint32_t kDebugBytes = kDefaultMediumCounters * sizeof(uint32_t) + kTokenBytes +
                                 sizeof s_debug_db_media_get_media_error + sizeof s_debug_db_media_init_error +
                                 sizeof s_debug_db_media_sync_error;
}  // namespace
}  // namespace tavdb

int32_t dbs_me_db_media_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(media_init),
        TAVDB_DUMP_FUNCTION(media_term),
        TAVDB_DUMP_FUNCTION(getMedia),
        TAVDB_DUMP_FUNCTION(media_getCount),
        TAVDB_DUMP_FUNCTION(tavDBMSync),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_sync),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_fill_media_entry),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_debug_info),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_def_open),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_def_close),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_def_read),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_def_write),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_def_seek),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_def_sync),
    };
    return dumpModule({.banner = "====(db_media)\n",
                       .debugSize = kDebugBytes,
                       .ramSize = sizeof media_table + sizeof s_media_init,
                       .words = defaultMediumCounters(),
                       .functions = functions,
                       .moreStatics = dumpDiagnostics},
                      level, debugSize, ramSize);
}
