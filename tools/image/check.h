// SPDX-License-Identifier: Apache-2.0
// The check of a database's images in memory: what is wrong with them, and the same
// images put right. Reads no file and writes none. However damaged the images are,
// it ends, and what it gives back is sound: a second check finds nothing but
// oddities that stay.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "image/finding.h"
#include "image/model.h"
#include "image/raw_image.h"

namespace tavdb::image {

/// Where components go that no link leads to.
inline constexpr const char *kLostAndFound = "lost+found";

struct Examination {
    std::vector<Finding> findings;
    RawImages images;  ///< put right
    /// New paths of leaves that were, or may have been, to be found by another path.
    std::vector<std::string> displaced;
    std::set<std::string> settled;  ///< paths of the other leaves; not filled when none is displaced
    Counts counts;                  ///< of the tree that was put right

    bool isDamaged() const;
    bool hasLosses() const;
};

Examination examine(RawImages images);

/// "value.med: the value at 44 of /a: what is wrong (damage): what repair does; lost: what".
std::string formatFinding(const Finding &finding);

}  // namespace tavdb::image
