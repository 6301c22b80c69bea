// SPDX-License-Identifier: Apache-2.0
// The ranges of a data model's number as one constraint that a database can
// hold: exact where possible, else the hull that admits them all, with a word
// about what was lost.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "image/model.h"
#include "image/report.h"

namespace tavdb::image {

struct RangeText {
    std::optional<std::string> minimum;
    std::optional<std::string> maximum;
    std::optional<std::string> step;
};

/// Most values that separate ranges may have together to become a list.
inline constexpr uint64_t kListedValuesMax = 16;

/// No constraint when the ranges admit every value of the type.
Constraint mergeRanges(Type type, const std::vector<RangeText> &ranges, std::vector<LossDetail> &losses);

}  // namespace tavdb::image
