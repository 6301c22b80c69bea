// SPDX-License-Identifier: Apache-2.0
// The free blocks of a medium that holds records, read and given back to. The
// library drops a range that lies behind the last free block and writes a block's
// head over whatever follows a range of less than 8 bytes; here neither happens.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "image/byte_range.h"
#include "image/database.h"

namespace tavdb::image {

/// Calls visit(block) for each block of the list, as its head describes it, until that returns a fault. A list that
/// leaves the medium or runs in a circle is one.
Status forEachFreeBlock(Database &database, int32_t medium, const std::function<Status(const ByteRange &)> &visit);

/// The free blocks in the order of the list. A list that leaves the medium, runs in
/// a circle or goes backwards is a fault.
Result<std::vector<ByteRange>> readFreeList(Database &database, int32_t medium);

/// In ascending order; ranges that touch become one.
std::vector<ByteRange> mergeRanges(std::vector<ByteRange> ranges);

/// Gives ranges back to the free list. A range that is free already is a fault, and
/// nothing is given back from there on; one of less than 8 bytes with no free
/// neighbour stays unused.
Status releaseRanges(Database &database, int32_t medium, std::vector<ByteRange> ranges);

}  // namespace tavdb::image
