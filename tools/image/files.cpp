// SPDX-License-Identifier: Apache-2.0
#include "image/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace tavdb::image {

namespace {

/// A system call, repeated while signals interrupt it.
template <typename Call>
auto retried(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

constexpr size_t kChunkBytes = 65536;
constexpr mode_t kModeBits = 07777;

Result<std::string> readOpened(int fd, size_t limitBytes) {
    std::string content;
    std::array<char, kChunkBytes> buffer;
    for (;;) {
        const auto count = retried([&] { return read(fd, buffer.data(), buffer.size()); });
        if (count < 0)
            return Result<std::string>::bad(faultOfError(errno, "cannot be read"));
        if (count == 0)
            return Result<std::string>::good(std::move(content));
        content.append(buffer.data(), static_cast<size_t>(count));
        if (content.size() > limitBytes)
            return Result<std::string>::bad(
                {FaultKind::usage, "is longer than " + std::to_string(limitBytes) + " bytes"});
    }
}

}  // namespace

Descriptor::~Descriptor() {
    if (fd >= 0)
        close(fd);
}

int Descriptor::release() {
    return std::exchange(fd, -1);
}

Descriptor openFile(const std::string &path, int flags, mode_t mode) {
    return Descriptor(retried([&] { return open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

Status checkRegular(int fd) {
    struct stat status = {};
    if (fstat(fd, &status) != 0)
        return faultOfError(errno, "cannot be opened");
    return S_ISREG(status.st_mode) ? Status{} : damaged("is no regular file");
}

Result<std::string> readFile(const std::string &path, size_t limitBytes) {
    const auto file = openFile(path, O_RDONLY);
    return file.isOpen() ? readOpened(file.get(), limitBytes)
                         : Result<std::string>::bad(faultOfError(errno, "cannot be opened"));
}

Result<std::string> readRegularFile(const std::string &path, size_t limitBytes) {
    const auto file = openFile(path, O_RDONLY | O_NONBLOCK);
    if (!file.isOpen())
        return Result<std::string>::bad(faultOfError(errno, "cannot be opened"));
    auto fault = checkRegular(file.get());
    return fault ? Result<std::string>::bad(std::move(*fault)) : readOpened(file.get(), limitBytes);
}

Result<std::string> readPart(int fd, size_t sizeBytes, uint64_t offset) {
    std::string content(sizeBytes, '\0');
    size_t done = 0;
    while (done < sizeBytes) {
        const auto count = retried(
            [&] { return pread(fd, content.data() + done, sizeBytes - done, static_cast<off_t>(offset + done)); });
        if (count < 0)
            return Result<std::string>::bad(faultOfError(errno, "cannot be read"));
        if (count == 0)
            break;
        done += static_cast<size_t>(count);
    }
    content.resize(done);
    return Result<std::string>::good(std::move(content));
}

Status writeAll(int fd, std::string_view content) {
    while (!content.empty()) {
        const auto count = retried([&] { return write(fd, content.data(), content.size()); });
        if (count < 0)
            return faultOfError(errno, "cannot be written");
        content.remove_prefix(static_cast<size_t>(count));
    }
    return std::nullopt;
}

Status writeNewFile(const std::string &path, std::string_view content, mode_t mode) {
    auto file = openFile(path, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (!file.isOpen())
        return faultOfError(errno, "cannot be made");
    if (auto fault = writeAll(file.get(), content))
        return fault;
    if (close(file.release()) != 0)
        return faultOfError(errno, "cannot be written");
    return std::nullopt;
}

Status takeRights(const std::string &from, const std::string &to) {
    struct stat status = {};
    if (stat(from.c_str(), &status) != 0)
        return faultOfError(errno, "cannot be opened");
    const bool isGiven = chown(to.c_str(), status.st_uid, status.st_gid) == 0 || errno == EPERM;
    if (!isGiven || chmod(to.c_str(), status.st_mode & kModeBits) != 0)
        return faultOfError(errno, "cannot be given its rights");
    return std::nullopt;
}

Status syncPath(const std::string &path) {
    const auto file = openFile(path, O_RDONLY);
    if (!file.isOpen())
        return faultOfError(errno, "cannot be opened");
    if (retried([&] { return fsync(file.get()); }) != 0)
        return faultOfError(errno, "cannot be flushed to its device");
    return std::nullopt;
}

Result<std::string> realPath(const std::string &path) {
    char *const resolved = realpath(path.c_str(), nullptr);
    if (resolved == nullptr)
        return Result<std::string>::bad(faultOfError(errno, "cannot be reached"));
    std::string real = resolved;
    std::free(resolved);
    return Result<std::string>::good(std::move(real));
}

std::string joinPath(std::string_view folder, std::string_view name) {
    std::string path(folder);
    if (!path.ends_with('/'))
        path += '/';
    return path.append(name);
}

}  // namespace tavdb::image
