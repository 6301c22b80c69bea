// SPDX-License-Identifier: Apache-2.0
// What an attached database holds in numbers, and how full its media are.
#pragma once

#include <array>
#include <cstdint>

#include "image/database.h"

namespace tavdb::image {

/// What can be reached from the root.
struct Census {
    size_t nodes = 0;  ///< without the root
    size_t leaves = 0;
    size_t values = 0;
    size_t constraints = 0;
    size_t strings = 0;
};

/// Counts everything below the root, and the root's name.
Result<Census> takeCensus(Database &database);

struct FreeSpace {
    uint64_t bytes = 0;
    uint32_t largestBlock = 0;
    uint32_t blocks = 0;
};

/// The free list of a medium that holds records.
Result<FreeSpace> measureFreeSpace(Database &database, int32_t medium);

}  // namespace tavdb::image
