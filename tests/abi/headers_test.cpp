// SPDX-License-Identifier: Apache-2.0
// Each public header compiles alone, in C11 and in C++20, without a warning.
#include <gtest/gtest.h>

#include <string>

#include "abi/command_output.h"

namespace tavdb_test {
namespace {

const std::string kCheck = "'" TAVDB_TEST_C_COMPILER
                           "' -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Werror "
                           "-I'" TAVDB_TEST_SOURCE "/include' ";

class Header : public testing::TestWithParam<std::string> {
protected:
    int compile(const std::string &language) const {
        return runCommand("echo '#include <" + GetParam() + ".h>' | " + kCheck + language + " -").status;
    }
};

TEST_P(Header, CompilesAloneAsC) {
    EXPECT_EQ(compile("-x c -std=c11 -Wstrict-prototypes"), 0);
}

TEST_P(Header, CompilesAloneAsCxx) {
    EXPECT_EQ(compile("-x c++ -std=c++20"), 0);
}

INSTANTIATE_TEST_SUITE_P(All, Header,
                         testing::Values("tavdb", "tavdb_errors", "tavdb_modules", "tavdb_platform", "tavdb_plugin"),
                         [](const auto &header) { return header.param; });

}  // namespace
}  // namespace tavdb_test
