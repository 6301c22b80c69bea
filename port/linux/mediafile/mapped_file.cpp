// SPDX-License-Identifier: Apache-2.0
// The slow half of a mapped image: opening, noticing growth, growing, and the
// accesses that the mapping cannot serve. All of it runs under LibraryLock.
//
// A mapping is made larger than its file, so that growth rarely needs a new one.
// A mapping that is outgrown stays until close(): another thread may be copying
// through it. A descriptor is kept for fstat, fallocate and the like; programs
// are known to close every descriptor when they become a daemon, so each use
// first makes sure that it still is the file's.
#include "mediafile/mapped_file.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include <limits>

#include "mediafile/media_path.h"
#include "mediafile/transfer.h"
#include "tavdb_platform.h"

static_assert(sizeof(off_t) == 8, "offsets above 2 GiB");

namespace tavdb {

struct MappedFile::OldMapping {
    char *base;
    size_t length;
    OldMapping *older;
};

namespace {

constexpr uint64_t kSlackMin = 1U << 20;
constexpr uint64_t kLargeGrowth = 1U << 20;
/// No access reaches further: the largest offset and the largest length.
constexpr uint64_t kReach = uint64_t{UINT32_MAX} + INT32_MAX;
constexpr int kOpenFlags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

uint64_t smaller(uint64_t a, uint64_t b) {
    return a < b ? a : b;
}

/// Whole pages, or 0 when the address space cannot hold them.
size_t wholePages(uint64_t size) {
    const uint64_t page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const uint64_t rounded = (size + page - 1) / page * page;
    return rounded <= std::numeric_limits<size_t>::max() / 2 ? static_cast<size_t>(rounded) : 0;
}

uint64_t withSlack(uint64_t size) {
    return size + (size > kSlackMin ? size : kSlackMin);
}

/// The errors of opening for writing after which opening for reading may succeed.
bool isOnlyForReading(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == ETXTBSY;
}

/// On tmpfs a page that was never written takes memory as soon as a mapping reads it.
bool holesTakeSpace(int fd) {
    struct statfs status = {};
    return fstatfs(fd, &status) == 0 && status.f_type == TMPFS_MAGIC;
}

/**
 * Some file systems keep what they found before they ran out. So a growth that is
 * hopeless, for example one to a damaged offset, is not tried: it would fill the disk.
 */
bool isHopeless(int fd, uint64_t growth) {
    struct statvfs status = {};
    if (growth <= kLargeGrowth || fstatvfs(fd, &status) != 0 || status.f_blocks == 0)
        return false;
    return growth > uint64_t{status.f_bavail} * status.f_frsize;
}

/**
 * Has the file system promise the space. Deliberately not posix_fallocate: where
 * the file system cannot, that writes zero bytes, possibly over what another
 * process has just written there.
 */
int promiseSpace(int fd, uint64_t from, uint64_t to) {
    const int result =
        retried([=] { return fallocate(fd, 0, static_cast<off_t>(from), static_cast<off_t>(to - from)); });
    if (result == 0)
        return 0;
    return errno == ENOSYS ? EOPNOTSUPP : errno;
}

}  // namespace

bool MappedFile::isOwnDescriptor(struct stat *status) const {
    return fd_ >= 0 && fstat(fd_, status) == 0 && status->st_dev == device_ && status->st_ino == inode_;
}

int MappedFile::openPath(const char *path) {
    int fd = retried([=] { return ::open(path, O_RDWR | kOpenFlags); });
    if (fd < 0 && isOnlyForReading(errno)) {
        refusal_ = errno;
        fd = retried([=] { return ::open(path, O_RDONLY | kOpenFlags); });
    }
    if (fd < 0)
        return errno;
    fd_ = fd;
    return 0;
}

/// The kept descriptor is somebody else's by now and not to be closed here.
int MappedFile::reopen(struct stat *status) {
    fd_ = -1;
    MediaPath path;
    const int error = path.resolve(hint_.text());
    if (error != 0)
        return error;
    const int access = refusal_ != 0 ? O_RDONLY : O_RDWR;
    fd_ = retried([&] { return ::open(path.text(), access | kOpenFlags); });
    if (fd_ < 0)
        return errno;
    if (isOwnDescriptor(status))
        return 0;
    ::close(fd_);
    fd_ = -1;
    return ESTALE;
}

int MappedFile::openRegular(const char *hint) {
    fd_ = -1;
    MediaPath path;
    int error = path.resolve(hint);
    if (error == 0)
        error = openPath(path.text());
    if (error != 0)
        return error;
    struct stat status = {};
    if (fstat(fd_, &status) != 0)
        return errno;
    device_ = status.st_dev;
    inode_ = status.st_ino;
    readsNeedSpace_ = holesTakeSpace(fd_);
    return S_ISREG(status.st_mode) ? 0 : ENODEV;
}

int MappedFile::open(const char *hint) {
    int error = openRegular(hint);
    if (error == 0)
        error = hint_.keep(hint);
    if (error == 0)
        error = refresh();
    if (error != 0)
        close();
    return error;
}

void MappedFile::close() {
    if (base() != nullptr)
        munmap(base(), capacity_);
    while (old_ != nullptr) {
        OldMapping *const mapping = old_;
        old_ = mapping->older;
        munmap(mapping->base, mapping->length);
        tavOSWOrgFreeMemPart(0, mapping);
    }
    struct stat status = {};
    if (isOwnDescriptor(&status))
        ::close(fd_);
    hint_.forget();
    *this = {};
}

uint64_t MappedFile::mappedBytes() const {
    return smaller(size_, capacity_);
}

bool MappedFile::keepOldMapping() {
    if (base() == nullptr)
        return true;
    auto *const mapping = static_cast<OldMapping *>(tavOSWSubAllocMem(sizeof(OldMapping)));
    if (mapping == nullptr)
        return false;
    *mapping = {base(), capacity_, old_};
    old_ = mapping;
    return true;
}

bool MappedFile::replaceMapping(size_t capacity) {
    if (capacity == 0)
        return false;
    const int access = refusal_ != 0 ? PROT_READ : PROT_READ | PROT_WRITE;
    void *const mapping = mmap(nullptr, capacity, access, MAP_SHARED, fd_, 0);
    if (mapping == MAP_FAILED)
        return false;
    if (!keepOldMapping()) {
        munmap(mapping, capacity);
        return false;
    }
    base_.set(static_cast<char *>(mapping));
    capacity_ = capacity;
    return true;
}

/// Where the address space does not suffice, the rest of the file is served through the descriptor.
void MappedFile::adoptSize(uint64_t size) {
    size_ = size;
    const uint64_t wanted = smaller(size, kReach);
    if (wanted > capacity_ && !replaceMapping(wholePages(withSlack(wanted))))
        replaceMapping(wholePages(wanted));
}

bool MappedFile::readsAreSafe(uint64_t from, uint64_t to) const {
    if (!readsNeedSpace_ || from >= to)
        return true;
    const off_t hole = lseek(fd_, static_cast<off_t>(from), SEEK_HOLE);
    return hole >= static_cast<off_t>(to) || promiseSpace(fd_, from, to) == 0;
}

int MappedFile::refresh() {
    struct stat status = {};
    const int error = isOwnDescriptor(&status) ? 0 : reopen(&status);
    const auto size = static_cast<uint64_t>(status.st_size);
    if (error != 0 || size == size_)
        return error;
    adoptSize(size);
    const uint64_t mapped = mappedBytes();
    const uint64_t safeBefore = smaller(readable_.get(), mapped);
    readable_.set(static_cast<size_t>(readsAreSafe(safeBefore, mapped) ? mapped : safeBefore));
    writable_.set(static_cast<size_t>(smaller(writable_.get(), mapped)));
    return 0;
}

/// Has all space up to `end` and up to the file's end promised, and the file at least that long.
int MappedFile::reserve(uint64_t end) {
    if (promisesNothing_)
        return EOPNOTSUPP;
    const uint64_t wanted = end > size_ ? end : smaller(size_, kReach);
    const uint64_t from = writable_.get();
    if (wanted > size_ && isHopeless(fd_, wanted - size_))
        return ENOSPC;
    const int error = wanted > from ? promiseSpace(fd_, from, wanted) : 0;
    promisesNothing_ = error == EOPNOTSUPP;
    if (error != 0)
        return error;
    if (wanted > size_)
        adoptSize(wanted);
    const auto mapped = static_cast<size_t>(smaller(wanted, capacity_));
    readable_.set(mapped);
    writable_.set(mapped);
    return 0;
}

int32_t MappedFile::read(void *buffer, int32_t length, uint32_t offset, int *error) {
    *error = refresh();
    if (*error != 0)
        return -1;
    if (const char *const bytes = readable(length, offset); bytes != nullptr)
        return copyBytes(static_cast<char *>(buffer), bytes, length);
    const int32_t count = readAt(fd_, buffer, length, offset);
    *error = count < 0 ? errno : 0;
    return count;
}

int32_t MappedFile::write(const void *buffer, int32_t length, uint32_t offset, int *error) {
    *error = refusal_ != 0 ? refusal_ : refresh();
    if (*error != 0)
        return -1;
    const uint64_t end = uint64_t{offset} + static_cast<uint32_t>(length);
    *error = reserve(end);
    if (char *const bytes = writable(length, offset); bytes != nullptr)
        return copyBytes(bytes, static_cast<const char *>(buffer), length);
    // Inside the file the bytes may have their space already, whatever the rest of it lacks.
    if (*error != 0 && *error != EOPNOTSUPP && end > size_)
        return -1;
    const int32_t count = writeAt(fd_, buffer, length, offset);
    *error = count < 0 ? errno : 0;
    refresh();
    return count;
}

MappedFile::Extent MappedFile::extent() const {
    return {base(), capacity_, size_ > capacity_ ? fd_ : -1};
}

}  // namespace tavdb
