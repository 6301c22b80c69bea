// SPDX-License-Identifier: Apache-2.0
// What each thread remembers: the table announced to it, the set it is creating
// the objects of, and the event's generation when it last took each mutex.
#pragma once

#include <cstdint>

#include "osw/handle.h"

namespace tavdb::osw {

struct ThreadState {
    const char *announcedPath;  ///< the caller's text
    int announcedFd;
    bool isAnnounced;
    uint32_t createdSet;   ///< the set of the last creation
    uint32_t createdKind;  ///< the kind of the last creation; 0 before the first
    uint32_t generations[kSetCapacity];
};

// The loader's own library is needed for every other model, on x86 at least.
#define TAVOSW_STATIC_TLS __attribute__((tls_model("initial-exec")))

// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): constinit, so it is not
TAVOSW_STATIC_TLS extern constinit thread_local ThreadState threadState;

/// A name for the calling thread, valid as long as it lives.
inline const void *thisThread() {
    return &threadState;
}

}  // namespace tavdb::osw
