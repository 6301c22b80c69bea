// SPDX-License-Identifier: Apache-2.0
// The one lock of a port library: each library compiles this file in and so has
// a lock of its own. A child that is forked while another thread of its parent
// holds the lock can still take it.
#pragma once

namespace tavdb {

/// Holds the lock for its scope.
class LibraryLock {
public:
    LibraryLock();
    ~LibraryLock();
    LibraryLock(const LibraryLock &) = delete;
    LibraryLock &operator=(const LibraryLock &) = delete;
};

}  // namespace tavdb
