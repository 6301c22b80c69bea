// SPDX-License-Identifier: Apache-2.0
// Whether a lock table is whole, for tests with the fakes and for those with the
// real platform. Says nothing about which locks should be in it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "tavdb_modules.h"

namespace tavdb_test {

inline constexpr uint32_t kLockCapacity = 1023;

/// Whether lists and links fit together: the list of locks sorted and doubly linked, and every
/// entry in exactly one of the two lists.
testing::AssertionResult isSound(const tavDBMLockTable &table);

}  // namespace tavdb_test
