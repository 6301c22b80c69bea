// SPDX-License-Identifier: Apache-2.0
#include "osw/semaphore_page.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace tavdb::osw {

namespace {

constexpr uint32_t kMagic = 0x5441564F;  // "TAVO"
constexpr uint32_t kLayout = 1;
constexpr mode_t kPageMode = 0664;
constexpr mode_t kRightsToShare = 0666;

/// A descriptor that is closed at the end of its scope unless it is released.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const {
        return fd_;
    }
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

/// Replaces what was mapped before; then the address stays, for other threads may be using it.
int mapPage(PageView &view, int flags, int fd) {
    const int place = view.page != nullptr ? MAP_FIXED : 0;
    void *const address = ::mmap(view.page, kPageBytes, PROT_READ | PROT_WRITE, flags | place, fd, 0);
    if (address == MAP_FAILED)
        return errno;
    view.page = static_cast<SemaphorePage *>(address);
    return 0;
}

/// A new page starts at a generation that hardly any thread remembers from the page before it.
void startGenerations(SemaphorePage &page) {
    struct timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    constexpr uint32_t kSpread = 2654435761U;
    page.origin = static_cast<uint32_t>(now.tv_nsec) * kSpread + static_cast<uint32_t>(now.tv_sec);
    page.generation = page.origin;
}

/// Tells a table from one that was deleted and whose inode number it got.
uint64_t birthOf(int fd) {
    struct statx status;
    if (::statx(fd, "", AT_EMPTY_PATH, STATX_BTIME, &status) != 0 || (status.stx_mask & STATX_BTIME) == 0)
        return 0;
    constexpr uint64_t kNsPerSecond = 1'000'000'000;
    return static_cast<uint64_t>(status.stx_btime.tv_sec) * kNsPerSecond + status.stx_btime.tv_nsec;
}

SemaphorePage headerFor(const TableFile &table) {
    SemaphorePage header = {};
    header.magic = kMagic;
    header.layout = kLayout;
    header.device = table.identity.device;
    header.inode = table.identity.inode;
    header.bornNs = birthOf(table.fd);
    startGenerations(header);
    return header;
}

bool readHeader(int fd, SemaphorePage &header) {
    return ::pread(fd, &header, sizeof header, 0) == static_cast<ssize_t>(sizeof header);
}

bool belongsTo(const SemaphorePage &header, const TableFile &table) {
    return header.magic == kMagic && header.layout == kLayout && header.device == table.identity.device &&
           header.inode == table.identity.inode && header.bornNs == birthOf(table.fd);
}

/// Space on the medium for the whole page, so that touching it cannot end the process.
int allocate(int fd) {
    int error = EINTR;
    while (error == EINTR)
        error = ::posix_fallocate(fd, 0, kPageBytes);
    return error;
}

bool haveSameRights(const struct stat &a, const struct stat &b) {
    return a.st_uid == b.st_uid && a.st_gid == b.st_gid && ((a.st_mode ^ b.st_mode) & kRightsToShare) == 0;
}

/// Who may use the table may use its page, as far as this process can see to it.
void copyRights(int fd, const TableFile &table) {
    struct stat page;
    struct stat status;
    if (::fstat(fd, &page) != 0 || ::fstat(table.fd, &status) != 0 || haveSameRights(page, status))
        return;
    // Only a privileged process can give the owner; the group alone is worth a try then.
    [[maybe_unused]] const bool given =
        ::fchown(fd, status.st_uid, status.st_gid) == 0 || ::fchown(fd, static_cast<uid_t>(-1), status.st_gid) == 0;
    ::fchmod(fd, status.st_mode & kRightsToShare);
}

int fillPage(int fd, const TableFile &table) {
    const int error = allocate(fd);
    if (error != 0)
        return error;
    copyRights(fd, table);
    const SemaphorePage header = headerFor(table);
    errno = EIO;
    return ::pwrite(fd, &header, sizeof header, 0) == static_cast<ssize_t>(sizeof header) ? 0 : errno;
}

/// @return a descriptor, or a negative error number
int makePage(const TableFile &table) {
    Descriptor made(::open(table.pagePath, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPageMode));
    if (made.get() < 0)
        return -errno;
    const int error = fillPage(made.get(), table);
    if (error == 0)
        return made.release();
    ::unlink(table.pagePath);
    return -error;
}

/// A page of a deleted table, or one whose making was cut short, makes room for a new one. Any other file is
/// somebody's property.
bool isReplaceable(const struct stat &status, int fd) {
    SemaphorePage header;
    return status.st_size <= kPageBytes || (readHeader(fd, header) && header.magic == kMagic);
}

/// @return a descriptor of the table's page, or a negative error number
int usePage(int fd, const TableFile &table, Making making) {
    Descriptor found(fd);
    struct stat status;
    if (::fstat(fd, &status) != 0)
        return -errno;
    if (!S_ISREG(status.st_mode))
        return -ENOTSUP;
    SemaphorePage header;
    if (status.st_size == kPageBytes && readHeader(fd, header) && belongsTo(header, table)) {
        copyRights(fd, table);
        const int error = allocate(fd);
        return error == 0 ? found.release() : -error;
    }
    if (making == Making::refused || !isReplaceable(status, fd))
        return -EEXIST;
    if (::unlink(table.pagePath) != 0)
        return -errno;
    return makePage(table);
}

/// @return a descriptor, or a negative error number
int openPage(const TableFile &table, Making making) {
    // O_NONBLOCK: a pipe in the page's place must not stop anybody.
    const int fd = ::open(table.pagePath, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0)
        return usePage(fd, table, making);
    if (errno == ENOENT && making == Making::allowed)
        return makePage(table);
    return -errno;
}

/// Notes the page's file and closes the one before it; a reader without a lock never meets a closed number.
void keepFile(PageView &view, int fd, FileIdentity file) {
    const int before = view.fd;
    const FileIdentity fileBefore = view.file;
    __atomic_store_n(&view.fd, fd, __ATOMIC_RELAXED);
    view.file = file;
    closeIfOpenOn(before, fileBefore);
}

void setError(PageView &view, int error) {
    __atomic_store_n(&view.error, error, __ATOMIC_RELEASE);
}

enum class PageState : uint8_t {
    current,
    detached,  // its file was deleted, or its descriptor closed; who has it mapped still shares it
    unusable   // not shared, or cut short from outside: not to be touched
};

PageState stateOf(const PageView &view) {
    if (!isShared(view))
        return PageState::unusable;
    if (view.fd < 0)
        return PageState::current;
    struct stat status;
    if (::fstat(view.fd, &status) != 0 || !(identityOf(status) == view.file))
        return PageState::detached;
    if (status.st_size < kPageBytes)
        return PageState::unusable;
    return status.st_nlink != 0 ? PageState::current : PageState::detached;
}

int sharePage(PageView &view, int fd) {
    Descriptor file(fd);
    FileIdentity identity;
    int error = identify(fd, identity);
    if (error == 0)
        error = mapPage(view, MAP_SHARED, fd);
    if (error != 0)
        return error;
    keepFile(view, file.release(), identity);
    setError(view, 0);
    return 0;
}

/// In a deleted table's page nothing is put right: its name belongs to others by now.
void refreshPage(PageView &view, const TableFile &table, PageState state, Making making) {
    if (!leadsTo(table.path, table.identity)) {
        if (state == PageState::unusable)
            mapOwnPage(view, ESTALE);
        return;
    }
    const int fd = openPage(table, making);
    const int error = fd < 0 ? -fd : sharePage(view, fd);
    // Where making was refused, the reason why it failed before is the one to keep.
    if (error != 0 && making == Making::allowed)
        mapOwnPage(view, error);
}

}  // namespace

int mapOwnPage(PageView &view, int reason) {
    const bool isOwn = view.page != nullptr && !isShared(view);
    setError(view, reason);
    if (isOwn)
        return 0;
    const int error = mapPage(view, MAP_PRIVATE | MAP_ANONYMOUS, -1);
    if (error != 0)
        return error;
    startGenerations(*view.page);
    keepFile(view, -1, {});
    return 0;
}

int mapAnonymousPage(PageView &view, const TableFile &table) {
    const int error = mapPage(view, MAP_SHARED, table.fd);
    if (error != 0)
        return error;
    startGenerations(*view.page);
    setError(view, 0);
    return 0;
}

bool looksCurrent(const PageView &view) {
    const int fd = __atomic_load_n(&view.fd, __ATOMIC_RELAXED);
    struct stat status;
    return fd < 0 || (::fstat(fd, &status) == 0 && status.st_nlink != 0 && status.st_size >= kPageBytes);
}

bool inspectPage(PageView &view, const TableFile &table, Making making) {
    const PageState state = stateOf(view);
    const uint32_t deadHolder = state != PageState::unusable ? holderOn(view) : 0;
    if (state == PageState::current || table.path == nullptr)
        return deadHolder != 0;
    refreshPage(view, table, state, making);
    // A death that the old page tells of and nobody was told yet goes over to the new one.
    if (deadHolder != 0 && isShared(view))
        __atomic_store_n(&view.page->dirty, deadHolder, __ATOMIC_SEQ_CST);
    return deadHolder != 0 || (isShared(view) && holderOn(view) != 0);
}

}  // namespace tavdb::osw
