// SPDX-License-Identifier: Apache-2.0
// The handles given out: which set, and which of its three objects. They carry a
// mark and the kind, so that a wrong one is told apart; whether the set exists is
// not known here.
#pragma once

#include <cstdint>

namespace tavdb::osw {

inline constexpr uint32_t kSetCapacity = 64;

enum class Kind : uint32_t { mutex = 1, count = 2, event = 3 };

inline constexpr uint32_t kHandleMark = 0x5E3A0000;
inline constexpr uint32_t kKindShift = 8;

/// Never 0.
constexpr uint32_t handleOf(uint32_t setIndex, Kind kind) {
    return kHandleMark | static_cast<uint32_t>(kind) << kKindShift | setIndex;
}

/// @return the set's index; the capacity or more when it is no handle of that kind
constexpr uint32_t setIndexOf(uint32_t handle, Kind kind) {
    return handle - handleOf(0, kind);
}

}  // namespace tavdb::osw
