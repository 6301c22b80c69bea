// SPDX-License-Identifier: Apache-2.0
#include "osw/file_identity.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>

namespace tavdb::osw {

namespace {

constexpr char kDescriptorFolder[] = "/proc/self/fd/";

/// "/proc/self/fd/N", made without the C library: a fork's child may call nothing that takes a lock.
class DescriptorPath {
public:
    explicit DescriptorPath(int fd) : text_{} {
        size_t length = 0;
        for (const char *from = kDescriptorFolder; *from != '\0'; ++from)
            text_[length++] = *from;
        const size_t first = length;
        for (unsigned rest = static_cast<unsigned>(fd); rest != 0 || length == first; rest /= 10)
            text_[length++] = static_cast<char>('0' + rest % 10);
        reverse(first, length);
    }
    const char *text() const {
        return text_;
    }

private:
    static constexpr size_t kDigitsMost = 10;

    void reverse(size_t first, size_t end) {
        for (; first + 1 < end; ++first) {
            const char digit = text_[first];
            text_[first] = text_[--end];
            text_[end] = digit;
        }
    }

    char text_[sizeof kDescriptorFolder + kDigitsMost];
};

}  // namespace

int identify(int fd, FileIdentity &identity) {
    struct stat status;
    if (::fstat(fd, &status) != 0)
        return errno;
    identity = identityOf(status);
    return 0;
}

bool isOpenOn(int fd, const FileIdentity &identity) {
    FileIdentity found = {};
    return fd >= 0 && identify(fd, found) == 0 && found == identity;
}

bool leadsTo(const char *path, const FileIdentity &identity) {
    struct stat status;
    return ::stat(path, &status) == 0 && identityOf(status) == identity;
}

int openForLocking(const char *path) {
    const int fd = ::open(path, O_RDWR | O_CLOEXEC);
    if (fd >= 0 || (errno != EACCES && errno != EROFS))
        return fd;
    return ::open(path, O_RDONLY | O_CLOEXEC);
}

int openAgain(int fd) {
    return openForLocking(DescriptorPath(fd).text());
}

void closeIfOpenOn(int fd, const FileIdentity &identity) {
    if (isOpenOn(fd, identity))
        ::close(fd);
}

}  // namespace tavdb::osw
