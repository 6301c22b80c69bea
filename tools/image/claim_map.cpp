// SPDX-License-Identifier: Apache-2.0
#include "image/claim_map.h"

#include <algorithm>

namespace tavdb::image {

bool ClaimMap::isFree(const ByteRange &range) const {
    return range.sizeBytes == 0 || firstTakenIn(range) >= range.end();
}

bool ClaimMap::take(const ByteRange &range) {
    if (range.sizeBytes == 0 || !isFree(range))
        return range.sizeBytes == 0;
    ends.emplace(range.offset, range.end());
    return true;
}

void ClaimMap::giveBack(const ByteRange &range) {
    const auto found = ends.find(range.offset);
    if (found != ends.end() && found->second == range.end())
        ends.erase(found);
}

std::vector<ByteRange> ClaimMap::gaps(uint64_t sizeBytes) const {
    std::vector<ByteRange> found;
    uint64_t end = 0;
    for (const auto &[offset, claimEnd] : ends) {
        if (offset >= sizeBytes)
            break;
        if (offset > end)
            found.push_back({static_cast<uint32_t>(end), static_cast<uint32_t>(offset - end)});
        end = claimEnd;
    }
    if (sizeBytes > end)
        found.push_back({static_cast<uint32_t>(end), static_cast<uint32_t>(sizeBytes - end)});
    return found;
}

uint64_t ClaimMap::firstTakenIn(const ByteRange &range) const {
    auto next = ends.upper_bound(range.offset);
    if (next != ends.begin() && std::prev(next)->second > range.offset)
        return range.offset;
    return next == ends.end() ? range.end() : std::min<uint64_t>(next->first, range.end());
}

std::vector<ByteRange> ClaimMap::takenIn(const ByteRange &range) const {
    std::vector<ByteRange> found;
    auto next = ends.upper_bound(range.offset);
    if (next != ends.begin() && std::prev(next)->second > range.offset)
        --next;
    for (; next != ends.end() && next->first < range.end(); ++next)
        found.push_back({static_cast<uint32_t>(next->first), static_cast<uint32_t>(next->second - next->first)});
    return found;
}

}  // namespace tavdb::image
