// SPDX-License-Identifier: Apache-2.0
#include "osw/table_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavdb::osw {

namespace {

constexpr char kPageSuffix[] = ".sem";

/// Keeps both paths in one block: the table's first. @return 0 or an error number
int keepPaths(TableFile &table, const char *path) {
    const size_t length = strlen(path);
    char *const block = static_cast<char *>(malloc(2 * (length + 1) + sizeof kPageSuffix));
    if (block == nullptr)
        return ENOMEM;
    table.path = block;
    table.pagePath = block + length + 1;
    memcpy(table.path, path, length + 1);
    memcpy(table.pagePath, path, length);
    memcpy(table.pagePath + length, kPageSuffix, sizeof kPageSuffix);
    return 0;
}

/// Links are resolved, so that every way to the table leads to one page.
int keepResolvedPaths(TableFile &table, const char *path) {
    char *const resolved = realpath(path, nullptr);
    const int error = keepPaths(table, resolved != nullptr ? resolved : path);
    free(resolved);
    return error;
}

/// The last way, a duplicate, shares the caller's description; the caller is about to close its own.
int openDescription(const TableFile &table, int fd) {
    const int again = openAgain(fd);
    if (isOpenOn(again, table.identity))
        return again;
    if (again >= 0)
        ::close(again);
    const int byPath = openForLocking(table.path);
    if (isOpenOn(byPath, table.identity))
        return byPath;
    if (byPath >= 0)
        ::close(byPath);
    return ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
}

}  // namespace

int openTableFile(const char *path, int fd, TableFile &table) {
    table = {-1, {}, nullptr, nullptr};
    if (path == nullptr || path[0] == '\0')
        return EINVAL;
    int error = identify(fd, table.identity);
    if (error == 0)
        error = keepResolvedPaths(table, path);
    if (error != 0)
        return error;
    table.fd = openDescription(table, fd);
    if (table.fd >= 0)
        return 0;
    error = errno;
    closeTableFile(table);
    return error;
}

int openAnonymousFile(uint32_t sizeBytes, TableFile &table) {
    table = {::memfd_create("tavosw", MFD_CLOEXEC), {}, nullptr, nullptr};
    if (table.fd < 0)
        return errno;
    int error = ::posix_fallocate(table.fd, 0, sizeBytes);
    if (error == 0)
        error = identify(table.fd, table.identity);
    if (error != 0)
        ::close(table.fd);
    return error;
}

void closeTableFile(TableFile &table) {
    closeIfOpenOn(table.fd, table.identity);
    free(table.path);
    table = {-1, {}, nullptr, nullptr};
}

int ensureOpen(TableFile &table) {
    if (isOpenOn(table.fd, table.identity))
        return 0;
    if (table.path == nullptr)
        return EBADF;
    const int fd = openForLocking(table.path);
    if (fd < 0)
        return errno;
    if (!isOpenOn(fd, table.identity)) {
        ::close(fd);
        return ESTALE;
    }
    __atomic_store_n(&table.fd, fd, __ATOMIC_RELAXED);
    return 0;
}

void reopenInChild(TableFile &table) {
    const int inherited = table.fd;
    if (!isOpenOn(inherited, table.identity)) {
        table.fd = -1;
        return;
    }
    const int own = openAgain(inherited);
    ::close(inherited);
    table.fd = own;
}

bool hasSamePath(const TableFile &a, const TableFile &b) {
    return a.path != nullptr && b.path != nullptr && strcmp(a.path, b.path) == 0;
}

bool hasSeveralNames(const TableFile &table) {
    struct stat status;
    const int fd = __atomic_load_n(&table.fd, __ATOMIC_RELAXED);
    return fd >= 0 && ::fstat(fd, &status) == 0 && status.st_nlink > 1;
}

}  // namespace tavdb::osw
