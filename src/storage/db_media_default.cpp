// SPDX-License-Identifier: Apache-2.0
// The default medium, entry 0 of the media table: the plain file that the
// environment names, written synchronously.
#include "storage/db_media_default.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "control/db_counter.h"
#include "control/db_trace.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

constexpr const char *kVariable = "TAVDB_DEFMEDIA";

uint32_t s_debug_db_media_def_open;
uint32_t s_debug_db_media_def_close;
uint32_t s_debug_db_media_def_read;
uint32_t s_debug_db_media_def_write;
uint32_t s_debug_db_media_def_seek;
uint32_t s_debug_db_media_def_sync;

/// Hands errno on when a system call failed. @return the call's result
template <typename Result>
int32_t checked(Site site, Result result, uint32_t *err) {
    if (result == -1) {
        const int error = errno;
        *err = static_cast<uint32_t>(error);
        traceError(site, error);
    }
    return static_cast<int32_t>(result);
}

}  // namespace

std::span<const DumpWord> defaultMediumCounters() {
    static const DumpWord words[kDefaultMediumCounters] = {
        TAVDB_DUMP_WORD(s_debug_db_media_def_open), TAVDB_DUMP_WORD(s_debug_db_media_def_close),
        TAVDB_DUMP_WORD(s_debug_db_media_def_read), TAVDB_DUMP_WORD(s_debug_db_media_def_write),
        TAVDB_DUMP_WORD(s_debug_db_media_def_seek), TAVDB_DUMP_WORD(s_debug_db_media_def_sync),
    };
    return words;
}

}  // namespace tavdb

using namespace tavdb;

int32_t dbs_me_db_media_def_open(const char *, uint32_t, uint32_t *err) {
    const char *const path = getenv(kVariable);
    if (path == nullptr)
        return -1;  // deliberate: neither counted nor traced, and the error word stays
    const CountedScope scope(s_debug_db_media_def_open);
    const int fd = open(path, O_RDWR | O_SYNC | O_CLOEXEC);
    if (fd == -1) {
        const int error = errno;
        *err = static_cast<uint32_t>(error);
        traceErrorCodeText({__func__, 410}, error, kVariable);
    }
    return fd;
}

int32_t dbs_me_db_media_def_close(int32_t fd, uint32_t *err) {
    const CountedScope scope(s_debug_db_media_def_close);
    return checked({__func__, 420}, close(fd), err);
}

int32_t dbs_me_db_media_def_read(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    const CountedScope scope(s_debug_db_media_def_read);
    return checked({__func__, 430}, pread(fd, buffer, static_cast<size_t>(length), static_cast<off_t>(offset)), err);
}

int32_t dbs_me_db_media_def_write(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    const CountedScope scope(s_debug_db_media_def_write);
    return checked({__func__, 440}, pwrite(fd, buffer, static_cast<size_t>(length), static_cast<off_t>(offset)), err);
}

int32_t dbs_me_db_media_def_seek(int32_t fd, int32_t offset, int32_t whence, uint32_t *err) {
    const CountedScope scope(s_debug_db_media_def_seek);
    return checked({__func__, 450}, lseek(fd, offset, whence), err);
}

int32_t dbs_me_db_media_def_sync(int32_t fd, uint32_t *err, uint32_t) {
    const CountedScope scope(s_debug_db_media_def_sync);
    return checked({__func__, 460}, fsync(fd), err);
}
