// SPDX-License-Identifier: Apache-2.0
// A stand-in for the library, for the fakes' own tests: attaching takes memory,
// a mapping and a mutex, detaching gives them back, unless it is told to forget
// one of them.
#pragma once

#include <cstdint>

namespace tavdb_test {

/// What the stand-in does not give back when it is detached from.
enum class Forgotten : uint8_t { nothing, memory, descriptor, mapping, mutex, mediumDescriptor };

void letStandInForget(Forgotten what);

}  // namespace tavdb_test
