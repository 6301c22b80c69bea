// SPDX-License-Identifier: Apache-2.0
// File media: the image is a plain file, a descriptor is a file descriptor and
// every function is its system call. Nothing is created, cached or remembered.
#include <fcntl.h>

#include "mediafile/media_path.h"
#include "mediafile/transfer.h"
#include "tavdb_platform.h"

static_assert(sizeof(off_t) == 8, "offsets above 2 GiB");

namespace tavdb {
namespace {

/// Without O_NONBLOCK a hint that names a FIFO would hang; files and block devices do not mind it.
constexpr int kOpenFlags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

int32_t openFile(const char *hint, int access, uint32_t *err) {
    MediaPath path;
    const int error = path.resolve(hint);
    if (error != 0)
        return failWith(err, error);
    const int fd = retried([&] { return open(path.text(), access | kOpenFlags); });
    return fd >= 0 ? fd : failWith(err, errno);
}

}  // namespace
}  // namespace tavdb

int32_t tavdbFileOpenHD(const char *hint, uint32_t, uint32_t *err) {
    return tavdb::openFile(hint, O_RDWR, err);
}

int32_t tavdbFileOpenRom(const char *hint, uint32_t, uint32_t *err) {
    return tavdb::openFile(hint, O_RDONLY, err);
}

int32_t tavdbFileClose(int32_t fd, uint32_t *err) {
    // An interrupted close has closed the descriptor: trying again could close another thread's.
    return close(fd) == 0 || errno == EINTR ? 0 : tavdb::failWith(err, errno);
}

int32_t tavdbFileRead(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    const int error = tavdb::checkTransfer(buffer, length);
    if (error != 0)
        return tavdb::failWith(err, error);
    const int32_t count = tavdb::readAt(fd, buffer, length, offset);
    return count >= 0 ? count : tavdb::failWith(err, errno);
}

int32_t tavdbFileWrite(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    const int error = tavdb::checkTransfer(buffer, length);
    if (error != 0)
        return tavdb::failWith(err, error);
    const int32_t count = tavdb::writeAt(fd, buffer, length, offset);
    return count >= 0 ? count : tavdb::failWith(err, errno);
}

int32_t tavdbFileSeek(int32_t fd, int32_t offset, int32_t whence, uint32_t *err) {
    const off_t position = lseek(fd, offset, whence);
    if (position > INT32_MAX)
        return tavdb::failWith(err, EOVERFLOW);
    return position >= 0 ? static_cast<int32_t>(position) : tavdb::failWith(err, errno);
}
