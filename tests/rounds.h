// SPDX-License-Identifier: Apache-2.0
// How much a test of many rounds does: fewer where each costs many times as much,
// under sanitizers and emulation.
#pragma once

namespace tavdb_test {

#ifdef TAVDB_TEST_SLOW
inline constexpr bool kSlow = true;
#else
inline constexpr bool kSlow = false;
#endif

#ifdef TAVDB_TEST_EMULATED
inline constexpr bool kEmulated = true;
#else
inline constexpr bool kEmulated = false;
#endif

}  // namespace tavdb_test
