// SPDX-License-Identifier: Apache-2.0
// The platform's own dumps: in a test they print nothing, they are only noted.
#pragma once

#include <cstdint>

#include "fakes/operation.h"

namespace tavdb_test {

/// Logs "dump function level". @return 0, or what a rule of the fault plan says for the function
int32_t dumpCall(Operation operation, const char *function, int32_t level);

}  // namespace tavdb_test
