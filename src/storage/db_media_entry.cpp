// SPDX-License-Identifier: Apache-2.0
// Filling and releasing one media entry: its library, its seven functions by
// name, its hint. Built-in functions come from a constant table, those of a
// plug-in from the dynamic loader.
#include <dlfcn.h>
#include <errno.h>
#include <string.h>

#include "control/db_dump.h"
#include "control/db_trace.h"
#include "platform/os_wrapper.h"
#include "tavdb_modules.h"
#include "tavdb_platform.h"

namespace tavdb {
namespace {

constexpr const char *kBuiltInLibrary = "libtavdbfile.so";
constexpr size_t kErrorBytes = 512;

char s_debug_db_media_entry_set_error_message[kErrorBytes];

using AnyFunction = void (*)();

struct BuiltIn {
    char name[64];
    AnyFunction address;
};

#define TAVDB_ROW(function) {#function, reinterpret_cast<AnyFunction>(&function)},
const BuiltIn kBuiltIns[] = {
    TAVDB_ROW(dbs_me_db_media_file_debug_info)  //
    TAVDB_MEDIA_SYNC_LIST(TAVDB_ROW)            //
    TAVDB_MEDIA_SEEK_LIST(TAVDB_ROW)            //
    TAVDB_MEDIA_WRITE_LIST(TAVDB_ROW)           //
    TAVDB_MEDIA_READ_LIST(TAVDB_ROW)            //
    TAVDB_MEDIA_CLOSE_LIST(TAVDB_ROW)           //
    TAVDB_MEDIA_OPEN_LIST(TAVDB_ROW)            //
};
#undef TAVDB_ROW
static_assert(sizeof kBuiltIns / sizeof *kBuiltIns == 78);

/// The rows of one slot: a name is valid only there.
struct Group {
    size_t first;
    size_t last;
};
constexpr Group kDebugRows = {0, 0};
constexpr Group kSyncRows = {1, 61};
constexpr Group kSeekRows = {62, 64};
constexpr Group kWriteRows = {65, 67};
constexpr Group kReadRows = {68, 70};
constexpr Group kCloseRows = {71, 73};
constexpr Group kOpenRows = {74, 77};

template <typename Function>
int32_t setBuiltIn(Site site, Group rows, const char *name, Function &slot) {
    for (size_t i = rows.first; i <= rows.last; i++) {
        if (strcmp(kBuiltIns[i].name, name) != 0)
            continue;
        slot = reinterpret_cast<Function>(kBuiltIns[i].address);
        return 0;
    }
    traceErrorText(site, name);
    return -1;
}

/// Keeps the loader's text for the dump and traces it.
void loaderFailed(Site site) {
    const int error = errno;
    const char *const message = dlerror();
    memset(s_debug_db_media_entry_set_error_message, 0, kErrorBytes);
    if (message != nullptr)
        strncpy(s_debug_db_media_entry_set_error_message, message, kErrorBytes - 1);
    traceError(site, error);
    traceErrorText(site + 1, s_debug_db_media_entry_set_error_message);
}

/// What the six functions of a medium and its debug function differ in.
struct SlotRule {
    int32_t code;            ///< when the function is not found
    int32_t missingBuiltIn;  ///< result when the built-in table lacks it
};

template <typename Function>
int32_t setFunction(Site site, SlotRule rule, int32_t (*builtIn)(const char *, tavDBMMediaEntry *), const char *name,
                    tavDBMMediaEntry *entry, Function &slot) {
    if (entry->handle == nullptr) {
        const int32_t code = builtIn(name, entry);
        if (code == 0)
            return 0;
        traceError(site, code);
        return rule.missingBuiltIn;
    }
    void *const address = dlsym(entry->handle, name);
    if (address == nullptr) {
        loaderFailed(site + 1);
        return rule.code;
    }
    slot = reinterpret_cast<Function>(address);
    return 0;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

int32_t dbs_me_db_media_entry_init(const char *path, uint32_t arg) {
    const int32_t result = dbs_me_db_media_file_init(path, arg);
    if (result != 0)
        traceError({__func__, 100}, result, arg);
    return result;
}

int32_t dbs_me_db_media_entry_set_handle(const char *token, tavDBMMediaEntry *entry) {
    entry->handle = nullptr;
    if (strcmp(token, kBuiltInLibrary) == 0)
        return 0;
    entry->handle = dlopen(token, RTLD_NOW);
    if (entry->handle != nullptr)
        return 0;
    loaderFailed({__func__, 110});
    return TAVDB_ERR_PLUGIN;
}

#define TAVDB_SLOT(slot, group, site)                                                     \
    int32_t dbs_me_db_media_entry_set_##slot(const char *name, tavDBMMediaEntry *entry) { \
        return setBuiltIn({__func__, site}, group, name, entry->slot);                    \
    }
TAVDB_SLOT(open, kOpenRows, 120)
TAVDB_SLOT(close, kCloseRows, 130)
TAVDB_SLOT(read, kReadRows, 140)
TAVDB_SLOT(write, kWriteRows, 150)
TAVDB_SLOT(lseek, kSeekRows, 160)
TAVDB_SLOT(sync, kSyncRows, 170)
TAVDB_SLOT(debug, kDebugRows, 180)
#undef TAVDB_SLOT

#define TAVDB_SLOT_FUNCTION(slot, code, missing, site)                                                       \
    int32_t dbs_me_db_media_entry_set_##slot##_function(const char *name, tavDBMMediaEntry *entry) {         \
        return setFunction({__func__, site}, {code, missing}, dbs_me_db_media_entry_set_##slot, name, entry, \
                           entry->slot);                                                                     \
    }
TAVDB_SLOT_FUNCTION(open, TAVDB_ERR_FUNCTION_OPEN, TAVDB_ERR_FUNCTION_OPEN, 220)
TAVDB_SLOT_FUNCTION(close, TAVDB_ERR_FUNCTION_CLOSE, TAVDB_ERR_FUNCTION_CLOSE, 230)
TAVDB_SLOT_FUNCTION(read, TAVDB_ERR_FUNCTION_READ, TAVDB_ERR_FUNCTION_READ, 240)
TAVDB_SLOT_FUNCTION(write, TAVDB_ERR_FUNCTION_WRITE, TAVDB_ERR_FUNCTION_WRITE, 250)
TAVDB_SLOT_FUNCTION(lseek, TAVDB_ERR_FUNCTION_SEEK, TAVDB_ERR_FUNCTION_SEEK, 260)
TAVDB_SLOT_FUNCTION(sync, TAVDB_ERR_FUNCTION_SYNC, TAVDB_ERR_FUNCTION_SYNC, 270)
// deliberate: a built-in medium without a debug function is no failure
TAVDB_SLOT_FUNCTION(debug, TAVDB_ERR_FUNCTION_OPEN, 0, 280)
#undef TAVDB_SLOT_FUNCTION

int32_t dbs_me_db_media_entry_set_hint(const char *token, tavDBMMediaEntry *entry) {
    const size_t size = strlen(token) + 1;
    char *const copy = static_cast<char *>(tavOSWSubAllocMem(static_cast<uint32_t>(size)));
    entry->hint = copy;
    if (copy == nullptr)
        return -1;
    memcpy(copy, token, size);
    return 0;
}

int32_t dbs_me_db_media_entry_close(tavDBMMediaEntry *entry) {
    if (entry->handle != nullptr)
        dlclose(entry->handle);
    if (entry->hint != nullptr)
        tavOSWOrgFreeMemPart(0, const_cast<char *>(entry->hint));
    return 0;  // the words stay: the entry is out of reach once it is not counted
}

namespace tavdb {
namespace {
void dumpMessage(int32_t level) {
    dumpText(level, "s_debug_db_media_entry_set_error_message", s_debug_db_media_entry_set_error_message);
}
}  // namespace
}  // namespace tavdb

int32_t dbs_me_db_media_entry_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_init),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_handle),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_open_function),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_close_function),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_read_function),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_write_function),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_lseek_function),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_sync_function),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_debug_function),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_open),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_close),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_read),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_write),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_lseek),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_sync),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_debug),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_set_hint),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_close),
        TAVDB_DUMP_FUNCTION(dbs_me_db_media_entry_debug_info),
    };
    return dumpModule({.banner = "====(db_media_entry)\n",
                       .debugSize = kErrorBytes,
                       .ramSize = 0,
                       .words = {},
                       .functions = functions,
                       .moreStatics = dumpMessage},
                      level, debugSize, ramSize);
}
