// SPDX-License-Identifier: Apache-2.0
// What the tests of the fakes stand in: every fake at its beginning.
#pragma once

#include <gtest/gtest.h>

#include "fakes/fakes.h"

namespace tavdb_test {

class FakesTest : public testing::Test {
protected:
    FakesTest() {
        resetFakes();
    }
    ~FakesTest() override {
        resetFakes();
    }
};

}  // namespace tavdb_test
