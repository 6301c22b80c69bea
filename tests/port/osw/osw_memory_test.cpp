// SPDX-License-Identifier: Apache-2.0
// The library's heap beyond its contract.
#include <gtest/gtest.h>

#include "tavdb_platform.h"

namespace tavdb::test {
namespace {

TEST(OswMemory, NothingCanBeGivenBack) {
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, nullptr), 0);
}

}  // namespace
}  // namespace tavdb::test
