// SPDX-License-Identifier: Apache-2.0
// File media that count what the library asks of them: a plug-in library, which a
// program that measures links as well.
#pragma once

#include <cstdint>

extern "C" {

/// Each of the four is one system call.
struct MediumCalls {
    uint64_t opens;
    uint64_t transfers;
    uint64_t seeks;
    uint64_t closes;
    uint64_t bytes;  ///< transferred
};

/// Since the process began. All 0 where no such medium is used.
extern MediumCalls countedCalls;
}
