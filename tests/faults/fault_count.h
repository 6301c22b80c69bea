// SPDX-License-Identifier: Apache-2.0
// The number of faults that this program injected, printed at its end. When all of
// its tests ran, it fails below a number that is close to the real one, so that
// faults cannot get lost unnoticed.
#pragma once

#include <cstdint>

namespace tavdb_test {

void countFaults(uint64_t faults);

}  // namespace tavdb_test
