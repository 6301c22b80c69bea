// SPDX-License-Identifier: Apache-2.0
#include "system_call_faults.h"

#include <dlfcn.h>
#include <sys/mman.h>

#include <cerrno>

FaultPlan faultPlan;
std::vector<Flush> flushes;
int fileFlushes;

namespace {

template <typename Function>
Function *next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

bool fails(int error) {
    if (error != 0)
        errno = error;
    return error != 0;
}

bool isInterrupted() {
    if (faultPlan.interruptions == 0)
        return false;
    faultPlan.interruptions--;
    errno = EINTR;
    return true;
}

bool transferFails() {
    if (isInterrupted())
        return true;
    if (faultPlan.transfersUntilFail < 0)
        return false;
    if (faultPlan.transfersUntilFail > 0) {
        faultPlan.transfersUntilFail--;
        return false;
    }
    return fails(EIO);
}

size_t shortened(size_t length) {
    return faultPlan.transferMax != 0 && length > faultPlan.transferMax ? faultPlan.transferMax : length;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int fallocate64(int fd, int mode, off64_t offset, off64_t length) {
    static auto *const real = next<int(int, int, off64_t, off64_t)>("fallocate64");
    return fails(faultPlan.fallocateError) ? -1 : real(fd, mode, offset, length);
}

__attribute__((visibility("default"))) void *mmap64(void *address, size_t length, int protection, int flags, int fd,
                                                    off64_t offset) noexcept {
    static auto *const real = next<void *(void *, size_t, int, int, int, off64_t)>("mmap64");
    if (fd >= 0 && fails(faultPlan.mmapError))
        return MAP_FAILED;
    return real(address, length, protection, flags, fd, offset);
}

__attribute__((visibility("default"))) int msync(void *base, size_t length, int flags) {
    static auto *const real = next<int(void *, size_t, int)>("msync");
    flushes.push_back({base, length});
    return fails(faultPlan.msyncError) ? -1 : real(base, length, flags);
}

__attribute__((visibility("default"))) int fdatasync(int fd) {
    static auto *const real = next<int(int)>("fdatasync");
    fileFlushes++;
    return real(fd);
}

__attribute__((visibility("default"))) int fsync(int fd) {
    static auto *const real = next<int(int)>("fsync");
    fileFlushes++;
    return isInterrupted() ? -1 : real(fd);
}

__attribute__((visibility("default"))) ssize_t pread64(int fd, void *buffer, size_t length, off64_t offset) {
    static auto *const real = next<ssize_t(int, void *, size_t, off64_t)>("pread64");
    return transferFails() ? -1 : real(fd, buffer, shortened(length), offset);
}

__attribute__((visibility("default"))) ssize_t pwrite64(int fd, const void *buffer, size_t length, off64_t offset) {
    static auto *const real = next<ssize_t(int, const void *, size_t, off64_t)>("pwrite64");
    return transferFails() ? -1 : real(fd, buffer, shortened(length), offset);
}
}
