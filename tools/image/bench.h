// SPDX-License-Identifier: Apache-2.0
// The workbench of a check: images in memory that are put right while they are
// looked at, who claims which bytes of them, and what was found on the way. What is
// right is known to those who work here, not to the bench.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "image/claim_map.h"
#include "image/finding.h"
#include "image/raw_image.h"
#include "image/record_layout.h"

namespace tavdb::image {

/// What the name begins with that a component gets in place of a lost one; its key follows.
inline constexpr const char *kRecovered = "recovered-";

/// @name Where the words of records stand that lead to others
/// @{
inline constexpr uint32_t kNamePlace = offsetof(tavDBMComponent, name);
inline constexpr uint32_t kParentPlace = offsetof(tavDBMComponent, parent);
inline constexpr uint32_t kNextPlace = offsetof(tavDBMComponent, next);
inline constexpr uint32_t kFirstChildPlace = offsetof(tavDBMNode, firstChild);
inline constexpr uint32_t kTierPlace = offsetof(tavDBMLeaf, currentValue);
/// @}

/// Where something was found.
struct FoundAt {
    int32_t medium = 0;
    RecordKind kind = RecordKind::header;
    uint32_t offset = 0;
    uint32_t component = 0;  ///< that the record belongs to
};

/// Bytes that a record says belong to it: the data of a value, the text of a string.
struct Area {
    int32_t medium = 0;
    ByteRange range;
    FoundAt holder;
    uint32_t usualBytes = 0;  ///< that such data have; 0: any number
    bool isClaimed = false;
};

class Bench {
public:
    explicit Bench(RawImages given) : images(std::move(given)) {}

    RawImages images;
    std::array<ClaimMap, kMediumEnd> claims;
    std::vector<Finding> findings;
    std::map<uint32_t, std::string> newNames;  ///< of components, to be written when all is known that is in use
    std::vector<Area> areas;
    std::vector<uint32_t> displaced;  ///< components that come to another path, with all below them
    std::set<int32_t> renewed;        ///< media whose free list has to be made anew

    ClaimMap &claimsOf(int32_t medium) {
        return claims[static_cast<size_t>(medium)];
    }
    uint64_t sizeOf(int32_t medium) const {
        return images.content(medium).size();
    }
    /// @return index of the finding
    size_t report(Gravity gravity, const FoundAt &at, std::string what, std::string remedy, std::string lost = {});

    /// A component whose name is lost is to be called after its key.
    void nameAfterKey(uint32_t component);
    /// "recovered-84", of a node with a "/" behind it.
    std::string keyName(uint32_t component) const;
    /// Gives an entry another text. @return whether there was room for it
    bool setText(uint32_t stringKey, const std::string &text);

    /// Whether a range of a medium lies on it, behind its header.
    bool isInside(int32_t medium, const ByteRange &range) const;
    /// Whether the record at an offset begins with that offset.
    bool namesItself(int32_t medium, uint32_t offset) const;

    /// The free blocks of a medium as far as its list makes sense, each up to the first claimed byte.
    std::vector<ByteRange> soundFreeBlocks(int32_t medium);
    /// Whether an offset lies in one of soundFreeBlocks() as they were before the check.
    bool wasFree(int32_t medium, uint32_t offset);
    /// Where the last of these blocks begins; 0 without one.
    uint32_t lastFree(int32_t medium);

    /// A place for a record, when everything in use has been claimed: where nobody
    /// claims anything, else at the end of the medium. Nothing when that is full.
    std::optional<uint32_t> allocate(int32_t medium, uint32_t sizeBytes);
    /// Appends data or a text, and claims it.
    std::optional<uint32_t> append(int32_t medium, std::string_view bytes);

private:
    const std::vector<ByteRange> &formerBlocks(int32_t medium);

    std::array<std::optional<std::vector<ByteRange>>, kMediumEnd> formerlyFree;
};

}  // namespace tavdb::image
