// SPDX-License-Identifier: Apache-2.0
// A medium whose open can be made to block: while a file HINT.stop exists, a
// process that opens the medium leaves a file HINT.stopped and goes no further.
// For stopping a process inside an access, to kill it there.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "tavdb_plugin.h"

namespace {

bool exists(const char *hint, const char *suffix) {
    char path[4200];
    snprintf(path, sizeof path, "%s%s", hint, suffix);
    return access(path, F_OK) == 0;
}

void make(const char *hint, const char *suffix) {
    char path[4200];
    snprintf(path, sizeof path, "%s%s", hint, suffix);
    const int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd >= 0)
        close(fd);
}

int32_t failed(int64_t result, uint32_t *err) {
    if (result == -1)
        *err = static_cast<uint32_t>(errno);
    return static_cast<int32_t>(result);
}

}  // namespace

#define TAVDB_TEST_MEDIUM extern "C" __attribute__((visibility("default"))) int32_t

TAVDB_TEST_MEDIUM blockingOpen(const char *hint, uint32_t, uint32_t *err) {
    if (exists(hint, ".stop")) {
        make(hint, ".stopped");
        while (exists(hint, ".stop"))
            pause();
    }
    return failed(open(hint, O_RDWR | O_CLOEXEC), err);
}

TAVDB_TEST_MEDIUM blockingClose(int32_t fd, uint32_t *err) {
    return failed(close(fd), err);
}

TAVDB_TEST_MEDIUM blockingRead(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    return failed(pread(fd, buffer, static_cast<size_t>(length), static_cast<off_t>(offset)), err);
}

TAVDB_TEST_MEDIUM blockingWrite(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    return failed(pwrite(fd, buffer, static_cast<size_t>(length), static_cast<off_t>(offset)), err);
}

TAVDB_TEST_MEDIUM blockingSeek(int32_t fd, int32_t offset, int32_t whence, uint32_t *err) {
    return failed(lseek(fd, offset, whence), err);
}

TAVDB_TEST_MEDIUM blockingSync(int32_t fd, uint32_t *err, uint32_t) {
    return failed(fsync(fd), err);
}

TAVDB_TEST_MEDIUM dbs_me_db_media_file_debug_info(int32_t, uint32_t *, uint32_t *) {
    return 0;
}
