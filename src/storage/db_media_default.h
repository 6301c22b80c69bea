// SPDX-License-Identifier: Apache-2.0
// The default medium's call counters, for the media module's dump.
#pragma once

#include <span>

#include "control/db_dump.h"

namespace tavdb {

inline constexpr uint32_t kDefaultMediumCounters = 6;

std::span<const DumpWord> defaultMediumCounters();

}  // namespace tavdb
