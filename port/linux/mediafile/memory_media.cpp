// SPDX-License-Identifier: Apache-2.0
// Memory media: a table of mapped images; a descriptor is an index of the table.
// Opening is finding the hint's index and closing is nothing, so that the open,
// one transfer and close around each record cost a few nanoseconds.
#include "mediafile/memory_media.h"

#include <sys/mman.h>

#include "common/library_lock.h"
#include "mediafile/mapped_file.h"
#include "mediafile/transfer.h"
#include "tavdb_platform.h"

namespace tavdb {
namespace {

constexpr uint32_t kMediaMax = 128;
constexpr uint32_t kGuesses = 256;

/// Kept out of the callers, whose usual way then needs no registers saved.
#define TAVDB_SELDOM __attribute__((noinline, cold))

constinit MappedFile s_media[kMediaMax];
constinit Published<uint32_t> s_count;
/// What a hint at this address was found to name last. Only a guess: the texts are compared.
constinit MappedFile *s_guesses[kGuesses];

MappedFile *&guessFor(const char *hint) {
    return s_guesses[reinterpret_cast<uintptr_t>(hint) / 16 % kGuesses];
}

/// @return the index of the image with that hint, or kMediaMax
uint32_t find(const char *hint) {
    const uint32_t count = s_count.get();
    for (uint32_t i = 0; i < count; i++)
        if (strcmp(s_media[i].hint().text(), hint) == 0)
            return i;
    return kMediaMax;
}

/// Maps an image that is not in the table yet. @return its index, or kMediaMax with *error set
uint32_t add(const char *hint, int *error) {
    const LibraryLock lock;
    const uint32_t known = find(hint);
    if (known != kMediaMax)
        return known;
    const uint32_t count = s_count.get();
    *error = count == kMediaMax ? EMFILE : s_media[count].open(hint);
    if (*error != 0)
        return kMediaMax;
    s_count.set(count + 1);
    return count;
}

TAVDB_SELDOM int32_t openUnguessed(const char *hint, uint32_t *err) {
    int error = 0;
    uint32_t index = find(hint);
    if (index == kMediaMax)
        index = add(hint, &error);
    if (index == kMediaMax)
        return failWith(err, error);
    __atomic_store_n(&guessFor(hint), &s_media[index], __ATOMIC_RELEASE);
    return static_cast<int32_t>(index);
}

MappedFile *fileOf(int32_t fd) {
    const auto index = static_cast<uint32_t>(fd);
    return index < s_count.get() ? &s_media[index] : nullptr;
}

/// A transfer that moves nothing: of no bytes, or one that cannot be.
TAVDB_SELDOM int32_t transferNothing(const void *buffer, int32_t length, uint32_t *err) {
    const int error = checkTransfer(buffer, length);
    return error == 0 ? 0 : failWith(err, error);
}

TAVDB_SELDOM int32_t readUnmapped(MappedFile *file, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    const LibraryLock lock;
    int error = 0;
    const int32_t count = file->read(buffer, length, offset, &error);
    return error == 0 ? count : failWith(err, error);
}

TAVDB_SELDOM int32_t writeUnmapped(MappedFile *file, const void *buffer, int32_t length, uint32_t offset,
                                   uint32_t *err) {
    const LibraryLock lock;
    int error = 0;
    const int32_t count = file->write(buffer, length, offset, &error);
    return error == 0 ? count : failWith(err, error);
}

int32_t seekFromEnd(MappedFile *file, int32_t offset, uint32_t *err) {
    const LibraryLock lock;
    const int error = file->refresh();
    if (error != 0)
        return failWith(err, error);
    const int64_t position = static_cast<int64_t>(file->size()) + offset;
    if (position < 0)
        return failWith(err, EINVAL);
    return position <= INT32_MAX ? static_cast<int32_t>(position) : failWith(err, EOVERFLOW);
}

/// Growth by other processes is mapped first, so that the flush covers it.
int findExtent(MappedFile *file, MappedFile::Extent *extent) {
    const LibraryLock lock;
    const int error = file->refresh();
    *extent = file->extent();
    return error;
}

}  // namespace

void dropMemoryMedia() {
    const LibraryLock lock;
    const uint32_t count = s_count.get();
    s_count.set(0);
    for (MappedFile *&guess : s_guesses)
        __atomic_store_n(&guess, nullptr, __ATOMIC_RELAXED);
    for (uint32_t i = 0; i < count; i++)
        s_media[i].close();
}

int32_t syncMemoryMedium(int32_t fd, uint32_t *err) {
    MappedFile *const file = fileOf(fd);
    if (file == nullptr)
        return failWith(err, EBADF);
    MappedFile::Extent extent = {};
    int error = findExtent(file, &extent);
    // Flushing may take long; the lock is free meanwhile.
    if (extent.base != nullptr && retried([&] { return msync(extent.base, extent.length, MS_SYNC); }) != 0)
        error = errno;
    if (extent.fd >= 0 && error == 0 && retried([&] { return fdatasync(extent.fd); }) != 0)
        error = errno;
    return error == 0 ? 0 : failWith(err, error);
}

void dumpMemoryMedia(int32_t level) {
    const LibraryLock lock;
    const uint32_t count = s_count.get();
    for (uint32_t i = 0; i < count; i++) {
        const auto base = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(s_media[i].base()));
        const auto size = static_cast<uint32_t>(s_media[i].size());
        dbs_me_debug_trace(level, "[0x%8x]:[0x%8x][0x%8x][%s]\n", i, base, size, s_media[i].hint().text());
    }
}

uint32_t memoryMediaSize() {
    return sizeof s_media + sizeof s_count + sizeof s_guesses;
}

}  // namespace tavdb

int32_t tavdbMemOpen(const char *hint, uint32_t, uint32_t *err) {
    if (hint == nullptr)
        return tavdb::failWith(err, EFAULT);
    const tavdb::MappedFile *const guess = __atomic_load_n(&tavdb::guessFor(hint), __ATOMIC_ACQUIRE);
    if (guess != nullptr && tavdb::HintText::isComparable(hint) && guess->hint().equals(hint))
        return static_cast<int32_t>(guess - tavdb::s_media);
    return tavdb::openUnguessed(hint, err);
}

int32_t tavdbMemClose(int32_t fd, uint32_t *err) {
    return tavdb::fileOf(fd) != nullptr ? 0 : tavdb::failWith(err, EBADF);
}

int32_t tavdbMemRead(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    tavdb::MappedFile *const file = tavdb::fileOf(fd);
    if (file == nullptr)
        return tavdb::failWith(err, EBADF);
    if (buffer == nullptr || length <= 0)
        return tavdb::transferNothing(buffer, length, err);
    const char *const bytes = file->readable(length, offset);
    if (bytes == nullptr)
        return tavdb::readUnmapped(file, buffer, length, offset, err);
    return tavdb::copyBytes(static_cast<char *>(buffer), bytes, length);
}

int32_t tavdbMemWrite(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    tavdb::MappedFile *const file = tavdb::fileOf(fd);
    if (file == nullptr)
        return tavdb::failWith(err, EBADF);
    if (buffer == nullptr || length <= 0)
        return tavdb::transferNothing(buffer, length, err);
    char *const bytes = file->writable(length, offset);
    if (bytes == nullptr)
        return tavdb::writeUnmapped(file, buffer, length, offset, err);
    return tavdb::copyBytes(bytes, static_cast<const char *>(buffer), length);
}

int32_t tavdbMemSeek(int32_t fd, int32_t offset, int32_t whence, uint32_t *err) {
    tavdb::MappedFile *const file = tavdb::fileOf(fd);
    if (file == nullptr)
        return tavdb::failWith(err, EBADF);
    if (whence == SEEK_END)
        return tavdb::seekFromEnd(file, offset, err);
    // Every access names its offset, so there is no position that could move.
    const bool isAnswerable = whence == SEEK_SET && offset >= 0;
    return isAnswerable ? offset : tavdb::failWith(err, EINVAL);
}
