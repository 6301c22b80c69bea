// SPDX-License-Identifier: Apache-2.0
// The counts of the hook library, for its dump. The caller holds LibraryLock.
#pragma once

#include <cstdint>

namespace tavdb {

struct HookState {
    uint32_t files;      ///< hook files that are loaded
    uint32_t initCount;  ///< hook_init calls without their hook_term
};

HookState hookState();

}  // namespace tavdb
