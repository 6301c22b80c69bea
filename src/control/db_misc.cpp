// SPDX-License-Identifier: Apache-2.0
// The semaphore sets of the shared tables: every operation counted and traced in
// one way. Also the comparison of two file paths.
#include <stdlib.h>
#include <string.h>

#include "control/db_counter.h"
#include "control/db_dump.h"
#include "control/db_trace.h"
#include "platform/os_wrapper.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

constexpr size_t kPathLengthMax = 4096;

uint32_t s_debug_db_misc_wait;
uint32_t s_debug_db_misc_post;
uint32_t s_debug_db_misc_wait_count;
uint32_t s_debug_db_misc_post_count;
uint32_t s_debug_db_misc_wait_event;
uint32_t s_debug_db_misc_post_event;
uint32_t s_debug_db_misc_reset_event;

/// One operation on one object: counted before and after, traced when it fails.
template <typename Operation>
int32_t counted(uint32_t &counter, Site site, uint32_t handle, Operation operation) {
    const CountedScope scope(counter);
    const int32_t code = operation(handle);
    if (code != 0)
        traceError(site, code, handle);
    return code;
}

/// The first failing creation is traced at its own site; mutex and count once more.
int32_t creationFailed(const char *function, int32_t site, int32_t code) {
    constexpr int32_t kEventSite = 126;
    constexpr int32_t kSecondSite = 138;
    traceError({function, site}, code);
    if (site != kEventSite)
        traceError({function, kSecondSite}, code);
    return code;
}

/// A path as it is compared: a relative one with the working folder in front.
class ComparablePath {
public:
    explicit ComparablePath(const char *path)
        : path_(path), joined_(path[0] == '/' ? Allocation() : Allocation(kPathLengthMax + 1)) {
        if (joined_)
            join(joined_.as<char>());
    }
    const char *text() const {
        return joined_ ? joined_.as<char>() : path_;
    }

private:
    void join(char *buffer) const {
        const char *const variable = getenv("PWD");
        const char *const folder = variable != nullptr ? variable : "";
        const size_t folderLength = strnlen(folder, kPathLengthMax);
        memcpy(buffer, folder, folderLength);
        // deliberate: no "/" between folder and path; databases are told apart by it
        const size_t pathLength = strnlen(path_, kPathLengthMax - folderLength);
        memcpy(buffer + folderLength, path_, pathLength);
        buffer[folderLength + pathLength] = '\0';
    }

    const char *path_;
    Allocation joined_;
};

}  // namespace
}  // namespace tavdb

using namespace tavdb;

int32_t misc_getSems(tavDBMSemaphoreSet *set, const char *) {
    int32_t code = tavOSWCreateMutexSem(&set->mutex, 0, 1);
    if (code != 0)
        return creationFailed(__func__, 111, code);
    code = tavOSWCreateCountSem(&set->count, 0, 0);
    if (code != 0)
        return creationFailed(__func__, 101, code);
    code = tavOSWCreateEventSem(&set->event, 0, 0);
    if (code != 0)
        return creationFailed(__func__, 126, code);
    return 0;
}

int32_t misc_waitMtx(tavDBMSemaphoreSet *set) {
    return counted(s_debug_db_misc_wait, {__func__, 174}, set->mutex,
                   [](uint32_t mutex) { return tavOSWRequestMutexSem(mutex, -1); });
}

int32_t misc_postMtx(tavDBMSemaphoreSet *set) {
    return counted(s_debug_db_misc_post, {__func__, 209}, set->mutex, tavOSWReleaseMutexSem);
}

int32_t misc_waitCount(tavDBMSemaphoreSet *set) {
    return counted(s_debug_db_misc_wait_count, {__func__, 244}, set->count,
                   [](uint32_t count) { return tavOSWWaitCountSem(count, 0); });
}

int32_t misc_postCount(tavDBMSemaphoreSet *set) {
    return counted(s_debug_db_misc_post_count, {__func__, 279}, set->count, tavOSWPostCountSem);
}

int32_t misc_waitEvent(tavDBMSemaphoreSet *set) {
    counted(s_debug_db_misc_wait_event, {__func__, 314}, set->event,
            [](uint32_t event) { return tavOSWWaitEventSem(event, 0); });
    return 0;  // deliberate: a failed wait is only traced
}

int32_t misc_postEvent(tavDBMSemaphoreSet *set) {
    return counted(s_debug_db_misc_post_event, {__func__, 347}, set->event, tavOSWPostEventSem);
}

int32_t misc_resetEvent(tavDBMSemaphoreSet *set) {
    // deliberate: posts, since the OS wrapper offers no reset of an event
    return counted(s_debug_db_misc_reset_event, {__func__, 382}, set->event, tavOSWPostEventSem);
}

int32_t misc_freeSems(tavDBMSemaphoreSet *) {
    return 0;  // deliberate: the objects belong to the table, not to one process
}

int32_t misc_pathCompare(const char *a, const char *b) {
    const ComparablePath first(a);
    const ComparablePath second(b);
    return strcmp(first.text(), second.text());
}

int32_t dbs_me_db_misc_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpWord words[] = {
        TAVDB_DUMP_WORD(s_debug_db_misc_wait),        TAVDB_DUMP_WORD(s_debug_db_misc_post),
        TAVDB_DUMP_WORD(s_debug_db_misc_wait_count),  TAVDB_DUMP_WORD(s_debug_db_misc_post_count),
        TAVDB_DUMP_WORD(s_debug_db_misc_wait_event),  TAVDB_DUMP_WORD(s_debug_db_misc_post_event),
        TAVDB_DUMP_WORD(s_debug_db_misc_reset_event),
    };
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(misc_getSems),
        TAVDB_DUMP_FUNCTION(misc_waitMtx),
        TAVDB_DUMP_FUNCTION(misc_postMtx),
        TAVDB_DUMP_FUNCTION(misc_waitCount),
        TAVDB_DUMP_FUNCTION(misc_postCount),
        TAVDB_DUMP_FUNCTION(misc_waitEvent),
        TAVDB_DUMP_FUNCTION(misc_postEvent),
        TAVDB_DUMP_FUNCTION(misc_resetEvent),
        TAVDB_DUMP_FUNCTION(misc_freeSems),
        TAVDB_DUMP_FUNCTION(misc_pathCompare),
        TAVDB_DUMP_FUNCTION(dbs_me_db_misc_debug_info),
    };
    return dumpModule({"====(db_misc)\n", sizeof words / sizeof *words * sizeof(uint32_t), 0, words, functions}, level,
                      debugSize, ramSize);
}
