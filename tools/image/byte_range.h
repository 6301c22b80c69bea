// SPDX-License-Identifier: Apache-2.0
// Some bytes of a medium, by their offset. Which medium is known from elsewhere.
#pragma once

#include <cstdint>

namespace tavdb::image {

struct ByteRange {
    uint32_t offset = 0;
    uint32_t sizeBytes = 0;

    uint64_t end() const {
        return uint64_t{offset} + sizeBytes;
    }
    bool operator==(const ByteRange &) const = default;
};

}  // namespace tavdb::image
