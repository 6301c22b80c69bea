// SPDX-License-Identifier: Apache-2.0
#include "control/db_mapped_table.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/os_wrapper.h"

namespace tavdb {

namespace {

constexpr mode_t kTableMode = 0664;
constexpr blkcnt_t kBlockBytes = 512;

/// An open table file; closed at the end of its scope, which also ends a flock.
class TableFile {
public:
    TableFile(const char *path, int flags) : fd_(::open(path != nullptr ? path : "", flags | O_CLOEXEC, kTableMode)) {}
    ~TableFile() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    TableFile(const TableFile &) = delete;
    TableFile &operator=(const TableFile &) = delete;

    bool opened() const {
        return fd_ >= 0;
    }
    int descriptor() const {
        return fd_;
    }

private:
    int fd_;
};

/// Keeps other processes from making the same file meanwhile; where the file
/// system has no locks the making is unguarded. It must end before the
/// semaphores are made: they may lock the same file.
class MakingGuard {
public:
    explicit MakingGuard(int fd) : fd_(fd) {
        while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~MakingGuard() {
        end();
    }
    MakingGuard(const MakingGuard &) = delete;
    MakingGuard &operator=(const MakingGuard &) = delete;

    void end() {
        if (fd_ >= 0)
            ::flock(fd_, LOCK_UN);
        fd_ = -1;
    }

private:
    int fd_;
};

void report(const TableKind &kind, TableFailure failure, const char *path, int fd) {
    const int error = errno;
    const TableFailureSites &sites = kind.sites[static_cast<int>(failure)];
    traceError({kind.initFunction, sites.errnoSite}, error);
    if (sites.pathSite != 0)
        traceErrorText({kind.initFunction, sites.pathSite}, path);
    errno = error;
    if (kind.record != nullptr)
        kind.record(failure, fd);
}

/// A short or sparse file gets its space first, so that touching the mapping cannot end the process.
bool haveSpace(int fd, uint32_t sizeBytes) {
    struct stat status;
    if (::fstat(fd, &status) != 0)
        return false;
    const bool isShort = status.st_size < static_cast<off_t>(sizeBytes);
    if (!isShort && status.st_blocks * kBlockBytes >= static_cast<blkcnt_t>(sizeBytes))
        return true;
    const int error = ::posix_fallocate(fd, 0, static_cast<off_t>(sizeBytes));
    if (error == 0 || !isShort)
        return true;
    errno = error;
    return false;
}

bool map(MappedTable &table, const TableKind &kind, int fd) {
    void *const address = ::mmap(nullptr, kind.sizeBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED)
        return false;
    table.address = address;
    return true;
}

/// In a built table the first free and the first used record are never both none.
bool isBuilt(const MappedTable &table) {
    const uint32_t *const words = static_cast<const uint32_t *>(table.address);
    return (__atomic_load_n(&words[0], __ATOMIC_ACQUIRE) | __atomic_load_n(&words[2], __ATOMIC_ACQUIRE)) != 0;
}

int32_t createSemaphores(MappedTable &table, const char *path, int fd) {
    if (tavOSWSemAnnounce != nullptr)
        tavOSWSemAnnounce(path, fd);
    return misc_getSems(&table.semaphores, path);
}

/// Maps a file that is there. One that is still all zeros was left by a process
/// that died while making it, or has not come to it yet: it is built here.
int32_t useExisting(MappedTable &table, const TableKind &kind, const char *path, int fd) {
    if (!haveSpace(fd, kind.sizeBytes) || !map(table, kind, fd)) {
        report(kind, TableFailure::mapExisting, path, fd);
        return TAVDB_ERR_MAP;
    }
    if (!isBuilt(table)) {
        const MakingGuard guard(fd);
        if (!isBuilt(table))
            kind.build(table.address);
    }
    return createSemaphores(table, path, fd);
}

bool madeByAnother(int fd, uint32_t sizeBytes) {
    struct stat status;
    return ::fstat(fd, &status) == 0 && status.st_size >= static_cast<off_t>(sizeBytes);
}

int32_t makeNew(MappedTable &table, const TableKind &kind, const char *path, int fd) {
    MakingGuard guard(fd);
    if (madeByAnother(fd, kind.sizeBytes)) {
        guard.end();
        return useExisting(table, kind, path, fd);
    }
    const Allocation zeros(kind.sizeBytes);
    if (!zeros) {
        report(kind, TableFailure::allocate, path, fd);
        return TAVDB_ERR_MEMORY;
    }
    memset(zeros.get(), 0, kind.sizeBytes);
    if (::write(fd, zeros.get(), kind.sizeBytes) != static_cast<ssize_t>(kind.sizeBytes)) {
        report(kind, TableFailure::write, path, fd);
        return kind.shortWriteCode;
    }
    if (!map(table, kind, fd)) {
        report(kind, TableFailure::mapNew, path, fd);
        return TAVDB_ERR_MAP;
    }
    kind.build(table.address);
    guard.end();
    return createSemaphores(table, path, fd);
}

}  // namespace

int32_t openTable(MappedTable &table, const TableKind &kind, const char *path) {
    const TableFile existing(path, O_RDWR);
    if (existing.opened())
        return useExisting(table, kind, path, existing.descriptor());
    const TableFile created(path, O_RDWR | O_CREAT);
    if (!created.opened()) {
        report(kind, TableFailure::open, path, created.descriptor());
        return 0;  // deliberate: the module is attached without a table
    }
    return makeNew(table, kind, path, created.descriptor());
}

int32_t closeTable(MappedTable &table, const TableKind &kind) {
    if (table.address == nullptr)
        return 0;
    const int32_t result = ::munmap(table.address, kind.sizeBytes);
    if (result == 0)
        table.address = nullptr;
    return result;
}

int32_t lockTable(MappedTable &table, const TableKind &kind) {
    const int32_t code = misc_waitMtx(&table.semaphores);
    if (code != 0 || table.address == nullptr || tavOSWMutexAbandoned == nullptr)
        return code;
    if (tavOSWMutexAbandoned(table.semaphores.mutex) != 0) {
        kind.mend(table.address);
        misc_postEvent(&table.semaphores);
    }
    return 0;
}

int32_t unlockTable(MappedTable &table) {
    return misc_postMtx(&table.semaphores);
}

}  // namespace tavdb
