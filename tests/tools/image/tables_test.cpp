// SPDX-License-Identifier: Apache-2.0
#include "image/tables.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>

namespace tavdb::image {
namespace {

TEST(Tables, ProcessesThatThereAreAreAlive) {
    EXPECT_TRUE(isAlive(getpid()));
    EXPECT_TRUE(isAlive(1)) << "also one of another user";
}

// For the system they stand for groups of processes.
TEST(Tables, NumbersOfADamagedTableAreNoProcesses) {
    EXPECT_FALSE(isAlive(0));
    EXPECT_FALSE(isAlive(-1));
    EXPECT_FALSE(isAlive(-getpgrp()));
    EXPECT_FALSE(isAlive(INT32_MAX));
}

}  // namespace
}  // namespace tavdb::image
