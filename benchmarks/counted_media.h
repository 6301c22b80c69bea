// SPDX-License-Identifier: Apache-2.0
// File media that count what the library asks of them: a plug-in library, which a
// program that measures links as well.
#pragma once

#include <cstdint>

extern "C" {

struct MediumCalls {
    uint64_t accesses;  ///< each opens a medium
    uint64_t systemCalls;
    uint64_t bytes;  ///< transferred
};

/// Since the process began. All 0 where no such medium is used.
extern MediumCalls countedCalls;
}
