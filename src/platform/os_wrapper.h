// SPDX-License-Identifier: Apache-2.0
// The OS wrapper as the library uses it: memory with an owner, and the two
// functions that a platform may lack.
#pragma once

#include "tavdb_platform.h"

extern "C" {
__attribute__((weak)) void tavOSWSemAnnounce(const char *path, int32_t fd);
__attribute__((weak)) int32_t tavOSWMutexAbandoned(uint32_t handle);
}

namespace tavdb {

/// A block of the OS wrapper's memory, given back at the end of its scope.
class Allocation {
public:
    /// Nothing yet, and nothing to give back.
    Allocation() : block_(nullptr) {}
    explicit Allocation(uint32_t sizeBytes) : block_(tavOSWSubAllocMem(sizeBytes)) {}
    ~Allocation() {
        free();
    }
    Allocation(const Allocation &) = delete;
    Allocation &operator=(const Allocation &) = delete;

    explicit operator bool() const {
        return block_ != nullptr;
    }
    void *get() const {
        return block_;
    }
    template <typename T>
    T *as() const {
        return static_cast<T *>(block_);
    }
    /// Gives the block back before the end of the scope.
    void free() {
        if (block_ != nullptr)
            tavOSWOrgFreeMemPart(0, release());
    }
    /// Hands the block over to the caller.
    void *release() {
        void *const block = block_;
        block_ = nullptr;
        return block;
    }

private:
    void *block_;
};

}  // namespace tavdb
