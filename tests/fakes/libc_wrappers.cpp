// SPDX-License-Identifier: Apache-2.0
// The libc calls of the library under test, defined by the test program and
// handed on to the next definition, that of libc or of a sanitizer. What is
// noted and what fails is the LibcRecorder's matter; getenv, kill, dlsym and
// everything else reach libc untouched.

// Each call and its 64-bit variant are defined here, so neither may be renamed to the other.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fakes/libc_recorder.h"

using tavdb_test::Event;
using tavdb_test::LibcRecorder;
using tavdb_test::Operation;
using tavdb_test::Recording;

namespace {

template <typename Function>
Function nextDefinition(const char *name) {
    void *const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) {
        fprintf(stderr, "no definition of %s behind the test program's\n", name);
        abort();
    }
    return reinterpret_cast<Function>(found);
}

LibcRecorder &recorder() {
    return LibcRecorder::instance();
}

template <typename Pointer>
int64_t toResult(Pointer *pointer) {
    return static_cast<int64_t>(reinterpret_cast<intptr_t>(pointer));
}

template <typename Pointer>
Pointer *toPointer(int64_t result) {
    return reinterpret_cast<Pointer *>(static_cast<intptr_t>(result));
}

using Open = int (*)(const char *, int, ...);
using OpenAt = int (*)(int, const char *, int, ...);

int recordedOpen(Open next, const char *path, int flags, mode_t mode) {
    if (!Recording::isActive())
        return next(path, flags, mode);
    return static_cast<int>(recorder().open(path, flags, mode, [&](int64_t) { return next(path, flags, mode); }));
}

int recordedOpenAt(OpenAt next, int folder, const char *path, int flags, mode_t mode) {
    if (!Recording::isActive())
        return next(folder, path, flags, mode);
    return static_cast<int>(
        recorder().open(path, flags, mode, [&](int64_t) { return next(folder, path, flags, mode); }));
}

template <typename Offset>
using Map = void *(*)(void *, size_t, int, int, int, Offset);

template <typename Offset>
void *recordedMap(Map<Offset> next, void *address, size_t length, int protection, int flags, int fd, Offset offset) {
    if (!Recording::isActive() || fd < 0)
        return next(address, length, protection, flags, fd, offset);
    return toPointer<void>(recorder().map(
        fd, length, offset, [&](int64_t) { return toResult(next(address, length, protection, flags, fd, offset)); }));
}

template <typename Offset>
using Read = ssize_t (*)(int, void *, size_t, Offset);

template <typename Offset>
ssize_t recordedRead(Read<Offset> next, int fd, void *buffer, size_t length, Offset offset) {
    if (!Recording::isActive())
        return next(fd, buffer, length, offset);
    const Event event{.operation = Operation::sysRead,
                      .details = tavdb_test::transferText(static_cast<int64_t>(length), static_cast<uint64_t>(offset)),
                      .fd = fd,
                      .length = static_cast<int64_t>(length),
                      .offset = static_cast<uint64_t>(offset)};
    return static_cast<ssize_t>(recorder().onDescriptor(
        event, [&](int64_t count) { return next(fd, buffer, static_cast<size_t>(count), offset); }));
}

template <typename Offset>
using Write = ssize_t (*)(int, const void *, size_t, Offset);

template <typename Offset>
ssize_t recordedWrite(Write<Offset> next, int fd, const void *buffer, size_t length, Offset offset) {
    if (!Recording::isActive())
        return next(fd, buffer, length, offset);
    const Event event{.operation = Operation::sysPwrite,
                      .details = tavdb_test::transferText(static_cast<int64_t>(length), static_cast<uint64_t>(offset)),
                      .fd = fd,
                      .length = static_cast<int64_t>(length),
                      .offset = static_cast<uint64_t>(offset)};
    return static_cast<ssize_t>(recorder().onDescriptor(
        event, [&](int64_t count) { return next(fd, buffer, static_cast<size_t>(count), offset); }));
}

template <typename Offset>
Offset recordedSeek(Offset (*next)(int, Offset, int), int fd, Offset offset, int whence) {
    if (!Recording::isActive())
        return next(fd, offset, whence);
    const Event event{
        .operation = Operation::sysSeek, .details = tavdb_test::seekText(offset, whence), .fd = fd, .argument = whence};
    return static_cast<Offset>(recorder().onDescriptor(event, [&](int64_t) { return next(fd, offset, whence); }));
}

template <typename Status>
int recordedStat(int (*next)(int, Status *), int fd, Status *status) {
    if (!Recording::isActive())
        return next(fd, status);
    const Event event{.operation = Operation::sysStat, .fd = fd};
    return static_cast<int>(recorder().onDescriptor(event, [&](int64_t) { return next(fd, status); }));
}

template <typename Offset>
int recordedAllocate(int (*next)(int, Offset, Offset), int fd, Offset offset, Offset length) {
    if (!Recording::isActive())
        return next(fd, offset, length);
    const Event event{.operation = Operation::sysAllocate,
                      .details = tavdb_test::transferText(length, static_cast<uint64_t>(offset)),
                      .fd = fd,
                      .length = length,
                      .offset = static_cast<uint64_t>(offset)};
    return static_cast<int>(recorder().onDescriptor(event, [&](int64_t) { return next(fd, offset, length); }));
}

using OpenFile = FILE *(*)(const char *, const char *);

FILE *recordedOpenFile(OpenFile next, const char *path, const char *mode) {
    if (!Recording::isActive())
        return next(path, mode);
    return toPointer<FILE>(recorder().openFile(path, mode, [&](int64_t) { return toResult(next(path, mode)); }));
}

std::string lockText(int operation) {
    const std::string waiting = (operation & LOCK_NB) != 0 ? " try" : "";
    const int kind = operation & ~LOCK_NB;
    if (kind == LOCK_EX)
        return "exclusive" + waiting;
    return kind == LOCK_UN ? "unlock" : "shared" + waiting;
}

/// The mode that follows the flags where a file may be made.
mode_t modeAfter(int flags, va_list arguments) {
    const bool makes = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return makes ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

extern "C" {

int open(const char *path, int flags, ...) {
    static const auto next = nextDefinition<Open>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeAfter(flags, arguments);
    va_end(arguments);
    return recordedOpen(next, path, flags, mode);
}

int open64(const char *path, int flags, ...) {
    static const auto next = nextDefinition<Open>("open64");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeAfter(flags, arguments);
    va_end(arguments);
    return recordedOpen(next, path, flags, mode);
}

int openat(int folder, const char *path, int flags, ...) {
    static const auto next = nextDefinition<OpenAt>("openat");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeAfter(flags, arguments);
    va_end(arguments);
    return recordedOpenAt(next, folder, path, flags, mode);
}

int openat64(int folder, const char *path, int flags, ...) {
    static const auto next = nextDefinition<OpenAt>("openat64");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeAfter(flags, arguments);
    va_end(arguments);
    return recordedOpenAt(next, folder, path, flags, mode);
}

int close(int fd) {
    static const auto next = nextDefinition<int (*)(int)>("close");
    if (Recording::isActive())
        return static_cast<int>(recorder().close(fd, [&](int64_t) { return next(fd); }));
    if (LibcRecorder *const any = LibcRecorder::ifAny())
        any->forgetDescriptor(fd);
    return next(fd);
}

void *mmap(void *address, size_t length, int protection, int flags, int fd, off_t offset) noexcept {
    static const auto next = nextDefinition<Map<off_t>>("mmap");
    return recordedMap(next, address, length, protection, flags, fd, offset);
}

void *mmap64(void *address, size_t length, int protection, int flags, int fd, off64_t offset) noexcept {
    static const auto next = nextDefinition<Map<off64_t>>("mmap64");
    return recordedMap(next, address, length, protection, flags, fd, offset);
}

int munmap(void *address, size_t length) noexcept {
    static const auto next = nextDefinition<int (*)(void *, size_t)>("munmap");
    if (Recording::isActive())
        return static_cast<int>(recorder().unmap(address, length, [&](int64_t) { return next(address, length); }));
    if (LibcRecorder *const any = LibcRecorder::ifAny())
        any->forgetMapping(address);
    return next(address, length);
}

ssize_t write(int fd, const void *buffer, size_t length) {
    static const auto next = nextDefinition<ssize_t (*)(int, const void *, size_t)>("write");
    if (!Recording::isActive())
        return next(fd, buffer, length);
    const Event event{.operation = Operation::sysWrite,
                      .details = std::to_string(length),
                      .fd = fd,
                      .length = static_cast<int64_t>(length)};
    return static_cast<ssize_t>(
        recorder().onDescriptor(event, [&](int64_t count) { return next(fd, buffer, static_cast<size_t>(count)); }));
}

ssize_t pread(int fd, void *buffer, size_t length, off_t offset) {
    static const auto next = nextDefinition<Read<off_t>>("pread");
    return recordedRead(next, fd, buffer, length, offset);
}

ssize_t pread64(int fd, void *buffer, size_t length, off64_t offset) {
    static const auto next = nextDefinition<Read<off64_t>>("pread64");
    return recordedRead(next, fd, buffer, length, offset);
}

ssize_t pwrite(int fd, const void *buffer, size_t length, off_t offset) {
    static const auto next = nextDefinition<Write<off_t>>("pwrite");
    return recordedWrite(next, fd, buffer, length, offset);
}

ssize_t pwrite64(int fd, const void *buffer, size_t length, off64_t offset) {
    static const auto next = nextDefinition<Write<off64_t>>("pwrite64");
    return recordedWrite(next, fd, buffer, length, offset);
}

off_t lseek(int fd, off_t offset, int whence) noexcept {
    static const auto next = nextDefinition<off_t (*)(int, off_t, int)>("lseek");
    return recordedSeek(next, fd, offset, whence);
}

off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
    static const auto next = nextDefinition<off64_t (*)(int, off64_t, int)>("lseek64");
    return recordedSeek(next, fd, offset, whence);
}

int fsync(int fd) {
    static const auto next = nextDefinition<int (*)(int)>("fsync");
    if (!Recording::isActive())
        return next(fd);
    const Event event{.operation = Operation::sysSync, .fd = fd};
    return static_cast<int>(recorder().onDescriptor(event, [&](int64_t) { return next(fd); }));
}

int fstat(int fd, struct stat *status) noexcept {
    static const auto next = nextDefinition<int (*)(int, struct stat *)>("fstat");
    return recordedStat(next, fd, status);
}

int fstat64(int fd, struct stat64 *status) noexcept {
    static const auto next = nextDefinition<int (*)(int, struct stat64 *)>("fstat64");
    return recordedStat(next, fd, status);
}

int flock(int fd, int operation) noexcept {
    static const auto next = nextDefinition<int (*)(int, int)>("flock");
    if (!Recording::isActive())
        return next(fd, operation);
    const Event event{
        .operation = Operation::sysFlock, .details = lockText(operation), .fd = fd, .argument = operation};
    return static_cast<int>(recorder().onDescriptor(event, [&](int64_t) { return next(fd, operation); }));
}

int posix_fallocate(int fd, off_t offset, off_t length) {
    static const auto next = nextDefinition<int (*)(int, off_t, off_t)>("posix_fallocate");
    return recordedAllocate(next, fd, offset, length);
}

int posix_fallocate64(int fd, off64_t offset, off64_t length) {
    static const auto next = nextDefinition<int (*)(int, off64_t, off64_t)>("posix_fallocate64");
    return recordedAllocate(next, fd, offset, length);
}

FILE *fopen(const char *path, const char *mode) {
    static const auto next = nextDefinition<OpenFile>("fopen");
    return recordedOpenFile(next, path, mode);
}

FILE *fopen64(const char *path, const char *mode) {
    static const auto next = nextDefinition<OpenFile>("fopen64");
    return recordedOpenFile(next, path, mode);
}

int fclose(FILE *file) {
    static const auto next = nextDefinition<int (*)(FILE *)>("fclose");
    if (Recording::isActive())
        return static_cast<int>(recorder().closeFile(file, [&](int64_t) { return next(file); }));
    if (LibcRecorder *const any = LibcRecorder::ifAny())
        any->forgetFile(file);
    return next(file);
}

void *dlopen(const char *path, int flags) noexcept {
    static const auto next = nextDefinition<void *(*)(const char *, int)>("dlopen");
    if (!Recording::isActive())
        return next(path, flags);
    return toPointer<void>(recorder().openLibrary(path, flags, [&](int64_t) { return toResult(next(path, flags)); }));
}

int dlclose(void *library) noexcept {
    static const auto next = nextDefinition<int (*)(void *)>("dlclose");
    if (!Recording::isActive())
        return next(library);
    return static_cast<int>(recorder().closeLibrary(library, [&](int64_t) { return next(library); }));
}
}
