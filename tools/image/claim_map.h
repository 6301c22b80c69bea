// SPDX-License-Identifier: Apache-2.0
// Which bytes of one medium belong to something. A range is taken once: whoever
// comes second is told. By whom it was taken is not kept.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "image/byte_range.h"

namespace tavdb::image {

class ClaimMap {
public:
    bool isFree(const ByteRange &range) const;
    /// Takes a range, or nothing when some of it is taken.
    bool take(const ByteRange &range);
    /// Gives back what take() took.
    void giveBack(const ByteRange &range);
    /// What nobody took of the first `sizeBytes` bytes, in ascending order.
    std::vector<ByteRange> gaps(uint64_t sizeBytes) const;
    /// Where the first range that reaches into `range` begins, its end when there is none.
    uint64_t firstTakenIn(const ByteRange &range) const;
    /// The ranges that reach into `range`, in ascending order.
    std::vector<ByteRange> takenIn(const ByteRange &range) const;

private:
    std::map<uint64_t, uint64_t> ends;  ///< by offset; ranges do not overlap
};

}  // namespace tavdb::image
