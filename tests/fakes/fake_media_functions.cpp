// SPDX-License-Identifier: Apache-2.0
// The media file library as the library under test sees it: every built-in name
// and the two functions around them, all handed on to the fake media.
#include "fakes/dump_calls.h"
#include "fakes/fake_media.h"
#include "tavdb_platform.h"

using tavdb_test::fakeMedia;

extern "C" {

int32_t dbs_me_db_media_file_init(const char *path, uint32_t arg) {
    return fakeMedia().init(path, arg);
}

int32_t dbs_me_db_media_file_debug_info(int32_t level, uint32_t * /*debugSize*/, uint32_t * /*ramSize*/) {
    return tavdb_test::dumpCall(tavdb_test::Operation::mediaDump, "dbs_me_db_media_file_debug_info", level);
}

#define TAVDB_TEST_SYNC(name)                               \
    int32_t name(int32_t fd, uint32_t *err, uint32_t arg) { \
        return fakeMedia().sync(#name, fd, err, arg);       \
    }
TAVDB_MEDIA_SYNC_LIST(TAVDB_TEST_SYNC)

#define TAVDB_TEST_SEEK(name)                                                 \
    int32_t name(int32_t fd, int32_t offset, int32_t whence, uint32_t *err) { \
        return fakeMedia().seek(#name, fd, offset, whence, err);              \
    }
TAVDB_MEDIA_SEEK_LIST(TAVDB_TEST_SEEK)

#define TAVDB_TEST_WRITE(name)                                                                     \
    int32_t name(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err) { \
        return fakeMedia().write(#name, fd, buffer, length, offset, err);                          \
    }
TAVDB_MEDIA_WRITE_LIST(TAVDB_TEST_WRITE)

#define TAVDB_TEST_READ(name)                                                                \
    int32_t name(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) { \
        return fakeMedia().read(#name, fd, buffer, length, offset, err);                     \
    }
TAVDB_MEDIA_READ_LIST(TAVDB_TEST_READ)

#define TAVDB_TEST_CLOSE(name)                    \
    int32_t name(int32_t fd, uint32_t *err) {     \
        return fakeMedia().close(#name, fd, err); \
    }
TAVDB_MEDIA_CLOSE_LIST(TAVDB_TEST_CLOSE)

#define TAVDB_TEST_OPEN(name)                                         \
    int32_t name(const char *hint, uint32_t openArg, uint32_t *err) { \
        return fakeMedia().open(#name, hint, openArg, err);           \
    }
TAVDB_TEST_OPEN(tavdbMemOpen)
TAVDB_TEST_OPEN(tavdbFileOpenHD)
TAVDB_TEST_OPEN(tavdbMsgOpen)

int32_t tavdbFileOpenRom(const char *hint, uint32_t openArg, uint32_t *err) {
    return fakeMedia().openReadOnly("tavdbFileOpenRom", hint, openArg, err);
}
}
