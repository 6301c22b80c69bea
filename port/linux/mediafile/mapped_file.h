// SPDX-License-Identifier: Apache-2.0
// One image, mapped shared. Accesses inside the bytes that are known to be safe
// are copies and need neither lock nor system call; everything else goes through
// the functions in the second half, under LibraryLock. Knows nothing of hints that
// are opened twice or of descriptors that callers hold (memory_media.cpp).
//
// What is safe: a byte may be read through the mapping when the file reaches
// that far, and written when the file system has promised the space for it. A
// full disk then meets a system call, which can say so, and never a store, which
// can only end the process. Where no promise can be had, the access is a pread
// or pwrite; both see the same bytes as the mapping.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <sys/stat.h>
#include <sys/types.h>

#include "mediafile/hint_text.h"

namespace tavdb {

/// A word that one thread writes, with all it has prepared before, and any thread reads.
template <typename T>
class Published {
public:
    T get() const {
        return __atomic_load_n(&value_, __ATOMIC_ACQUIRE);
    }
    void set(T value) {
        __atomic_store_n(&value_, value, __ATOMIC_RELEASE);
    }

private:
    T value_ = {};
};

/// Copies size to 2 * size bytes as two blocks that may overlap, without a call.
template <size_t size>
void copyEnds(char *to, const char *from, size_t length) {
    struct Block {
        char bytes[size];
    };
    Block head;
    Block tail;
    memcpy(&head, from, size);
    memcpy(&tail, from + (length - size), size);
    memcpy(to, &head, size);
    memcpy(to + (length - size), &tail, size);
}

/// memcpy. Kept out of its callers, whose usual way then needs no registers saved. @return length
__attribute__((noinline)) inline int32_t copyMany(char *to, const char *from, int32_t length) {
    memcpy(to, from, static_cast<size_t>(length));
    return length;
}

/// memcpy of more than 0 bytes, with the lengths of records and of most numbers done in place. @return length
inline int32_t copyBytes(char *to, const char *from, int32_t length) {
    const auto size = static_cast<size_t>(length);
    if (size >= 16 && size <= 32) {
        copyEnds<16>(to, from, size);
    } else if (size >= 4 && size <= 8) {
        copyEnds<4>(to, from, size);
    } else if (size > 32 && size <= 64) {
        copyEnds<16>(to, from, 32);
        copyEnds<16>(to + (size - 32), from + (size - 32), 32);
    } else {
        return copyMany(to, from, length);
    }
    return length;
}

class alignas(64) MappedFile {
public:
    /// @name Any thread, no lock. @return where the bytes are, null: not to be reached without the lock
    /// @{
    const char *readable(int32_t length, uint32_t offset) const {
        // The size first: a mapping that is published is never smaller than a size published after it.
        return endOf(length, offset) <= readable_.get() ? base_.get() + offset : nullptr;
    }
    char *writable(int32_t length, uint32_t offset) const {
        return endOf(length, offset) <= writable_.get() ? base_.get() + offset : nullptr;
    }
    /// The text that it was opened with.
    const HintText &hint() const {
        return hint_;
    }
    /// @}

    /// @name The caller holds LibraryLock
    /// @{
    /// Opens and maps a regular file. @return 0 or an error number; nothing is held then
    int open(const char *hint);
    /// Unmaps and forgets everything. No thread may be copying.
    void close();

    /// @return the bytes read, fewer at the end, or -1 with *error set
    int32_t read(void *buffer, int32_t length, uint32_t offset, int *error);
    /// Writes, and makes the file longer where it must. @return length, or -1 with *error set
    int32_t write(const void *buffer, int32_t length, uint32_t offset, int *error);
    /// Takes note of the file's true size. @return 0 or an error number
    int refresh();
    /// The size that refresh() found.
    uint64_t size() const {
        return size_;
    }
    char *base() const {
        return base_.get();
    }
    /// @}

    /// What must be flushed so that the whole file is on its device.
    struct Extent {
        char *base;
        size_t length;
        int fd;  ///< where not all of the file is mapped, else -1
    };
    /// The caller holds LibraryLock; the extent stays valid without it, until close().
    Extent extent() const;

private:
    struct OldMapping;

    static uint64_t endOf(int32_t length, uint32_t offset) {
        return uint64_t{offset} + static_cast<uint32_t>(length);
    }

    bool isOwnDescriptor(struct stat *status) const;
    int openRegular(const char *hint);
    int openPath(const char *path);
    int reopen(struct stat *status);
    void adoptSize(uint64_t size);
    bool replaceMapping(size_t capacity);
    bool keepOldMapping();
    bool readsAreSafe(uint64_t from, uint64_t to) const;
    int reserve(uint64_t end);
    uint64_t mappedBytes() const;

    HintText hint_;
    Published<char *> base_;
    Published<size_t> readable_;
    Published<size_t> writable_;

    uint64_t size_ = 0;
    size_t capacity_ = 0;  ///< bytes of address space; may reach beyond the file's end
    OldMapping *old_ = nullptr;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    int fd_ = 0;                    ///< set by open(); -1: none
    int refusal_ = 0;               ///< what a write gets to hear; 0 when the file is writable
    bool promisesNothing_ = false;  ///< the file system gives no space on request
    bool readsNeedSpace_ = false;   ///< reading a hole through the mapping takes space too
};

}  // namespace tavdb
