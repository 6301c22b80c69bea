// SPDX-License-Identifier: Apache-2.0
// docs/ERRORS.md says what the list of codes says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "abi/command_output.h"

namespace tavdb_test {
namespace {

TEST(ErrorReference, IsThatOfTheListOfCodes) {
    std::ifstream document(TAVDB_TEST_SOURCE "/docs/ERRORS.md");
    std::vector<std::string> lines;
    for (std::string line; std::getline(document, line);)
        lines.push_back(line);
    const auto expected = runCommand(TAVDB_TEST_EMULATOR " '" TAVDB_TEST_ERROR_REFERENCE "'");
    ASSERT_EQ(expected.status, 0);
    EXPECT_THAT(lines, testing::ContainerEq(expected.lines)) << "build the target error_reference to renew it";
}

}  // namespace
}  // namespace tavdb_test
