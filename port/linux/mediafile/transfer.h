// SPDX-License-Identifier: Apache-2.0
// What all kinds of media share: how a failure is reported, and transfers
// through a descriptor that a signal cannot cut short. Knows no kind of medium.
#pragma once

#include <errno.h>
#include <unistd.h>

#include <cstdint>

namespace tavdb {

/// Hands the error number to a caller that wants it. @return -1
inline int32_t failWith(uint32_t *err, int error) {
    if (err != nullptr)
        *err = static_cast<uint32_t>(error);
    return -1;
}

/// Repeats a system call for as long as signals interrupt it.
template <typename Call>
auto retried(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR)
        result = call();
    return result;
}

/// @return 0, or the error number of a transfer that cannot be one
inline int checkTransfer(const void *buffer, int32_t length) {
    if (length < 0)
        return EINVAL;
    return buffer == nullptr && length > 0 ? EFAULT : 0;
}

/**
 * Repeats transfer(bytes done, bytes left) until all is done, the medium ends or
 * the call fails.
 * @return the bytes transferred, or -1 with errno also when a part was done
 */
template <typename Transfer>
int32_t transferAll(int32_t length, Transfer transfer) {
    int32_t done = 0;
    while (done < length) {
        const ssize_t count = retried([&] { return transfer(done, static_cast<size_t>(length - done)); });
        if (count < 0)
            return -1;
        if (count == 0)
            break;
        done += static_cast<int32_t>(count);
    }
    return done;
}

inline int32_t readAt(int fd, void *buffer, int32_t length, uint32_t offset) {
    return transferAll(length, [=](int32_t done, size_t left) {
        return pread(fd, static_cast<char *>(buffer) + done, left, static_cast<off_t>(offset) + done);
    });
}

inline int32_t writeAt(int fd, const void *buffer, int32_t length, uint32_t offset) {
    return transferAll(length, [=](int32_t done, size_t left) {
        return pwrite(fd, static_cast<const char *>(buffer) + done, left, static_cast<off_t>(offset) + done);
    });
}

}  // namespace tavdb
