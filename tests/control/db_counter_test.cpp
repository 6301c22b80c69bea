// SPDX-License-Identifier: Apache-2.0
// The arithmetic of the progress counters, at their top too, where no test that
// goes through the library ever comes.
#include "control/db_counter.h"

#include <gtest/gtest.h>

#include "control/control_test_support.h"

namespace tavdb {
namespace {

using tavdb_test::byName;

struct Step {
    uint32_t before;
    uint32_t after;
    const char *name;
};

class EnteredCounter : public testing::TestWithParam<Step> {};

TEST_P(EnteredCounter, StepsByTwoBelowTheTopAndRestartsAtOneFromThere) {
    uint32_t counter = GetParam().before;
    enterCounter(counter);
    EXPECT_EQ(counter, GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(Counter, EnteredCounter,
                         testing::Values(Step{0, 2, "New"}, Step{2, 4, "EnteredTwice"}, Step{3, 5, "AfterACall"},
                                         Step{0xFFFFFEFD, 0xFFFFFEFF, "StillBelowTheTop"},
                                         Step{0xFFFFFEFE, 0xFFFFFF00, "LastStepByTwo"}, Step{0xFFFFFEFF, 1, "AtTheTop"},
                                         Step{0xFFFFFF00, 1, "AboveTheTop"}, Step{0xFFFFFFFE, 1, "OneBelowTheLargest"},
                                         Step{0xFFFFFFFF, 1, "Largest"}),
                         byName);

TEST(Counter, LeavingAddsOne) {
    uint32_t counter = 2;
    leaveCounter(counter);
    EXPECT_EQ(counter, 3U);
}

TEST(Counter, AScopeMovesItByThreeAndShowsTwoWhileInside) {
    uint32_t counter = 3;
    {
        const CountedScope scope(counter);
        EXPECT_EQ(counter, 5U);
    }
    EXPECT_EQ(counter, 6U);
}

TEST(Counter, AScopeAtTheTopLeavesTwo) {
    for (uint32_t counter : {0xFFFFFEFFu, 0xFFFFFFFFu}) {
        { const CountedScope scope(counter); }
        EXPECT_EQ(counter, 2U);
    }
}

}  // namespace
}  // namespace tavdb
