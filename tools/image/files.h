// SPDX-License-Identifier: Apache-2.0
// Whole files, read and written with every error seen: a short write or a failed
// close is a fault, never a shorter file. Faults do not name the path.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "image/fault.h"

namespace tavdb::image {

/// A file descriptor, closed at the end of its scope.
class Descriptor {
public:
    explicit Descriptor(int opened = -1) : fd(opened) {}
    Descriptor(Descriptor &&other) noexcept : fd(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    ~Descriptor();

    bool isOpen() const {
        return fd >= 0;
    }
    int get() const {
        return fd;
    }
    int release();

private:
    int fd;
};

/// open() with O_CLOEXEC, repeated when a signal interrupts it.
Descriptor openFile(const std::string &path, int flags, mode_t mode = 0);

/// The bytes of a file of at most `limitBytes`.
Result<std::string> readFile(const std::string &path, size_t limitBytes);

/// A fault unless a regular file is open: a pipe would be waited for.
Status checkRegular(int fd);

/// As readFile(), for files of a database, which are never anything but regular.
Result<std::string> readRegularFile(const std::string &path, size_t limitBytes);

/// At most `sizeBytes` bytes from `offset`; fewer where the file ends.
Result<std::string> readPart(int fd, size_t sizeBytes, uint64_t offset);

/// Everything, or a fault.
Status writeAll(int fd, std::string_view content);

/// Makes a file that must not be there yet.
Status writeNewFile(const std::string &path, std::string_view content, mode_t mode = 0664);

/// Gives a file the owner and the rights of the one that it replaces. Who may not give
/// a file away keeps it, as with every other way of editing it.
Status takeRights(const std::string &from, const std::string &to);

/// Flushes a file or a folder to its device.
Status syncPath(const std::string &path);

/// Absolute and without symbolic links.
Result<std::string> realPath(const std::string &path);

/// "/a" and "b" give "/a/b".
std::string joinPath(std::string_view folder, std::string_view name);

}  // namespace tavdb::image
