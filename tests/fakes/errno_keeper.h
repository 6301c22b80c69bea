// SPDX-License-Identifier: Apache-2.0
// Keeps errno as the faked operation leaves it: the library reports it, so the
// bookkeeping of a fake must not change it.
#pragma once

#include <errno.h>

namespace tavdb_test {

/// Puts back errno at the end of its scope: as it was, or as it was told.
class ErrnoKeeper {
public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() {
        errno = value_;
    }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

    /// The operation failed with that number; 0 leaves errno as it was.
    void set(int error) {
        if (error != 0)
            value_ = error;
    }

private:
    int value_ = errno;
};

}  // namespace tavdb_test
