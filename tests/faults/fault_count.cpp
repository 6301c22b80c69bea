// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_count.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "rounds.h"

namespace tavdb_test {

namespace {

constexpr uint64_t kFewestFaults = kEmulated ? 30000 : kSlow ? 36000 : 58000;

uint64_t s_faults;

class FaultCount : public testing::Environment {
public:
    void TearDown() override {
        std::printf("injected faults: %llu\n", static_cast<unsigned long long>(s_faults));
        const testing::UnitTest &unit = *testing::UnitTest::GetInstance();
        if (unit.test_to_run_count() == unit.total_test_count()) {
            EXPECT_GE(s_faults, kFewestFaults) << "fewer operations fail than there are";
        }
    }
};

[[maybe_unused]] const testing::Environment *const kEnvironment =
    testing::AddGlobalTestEnvironment(new FaultCount);  // the framework deletes it

}  // namespace

void countFaults(uint64_t faults) {
    s_faults += faults;
}

}  // namespace tavdb_test
