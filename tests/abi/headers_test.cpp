// SPDX-License-Identifier: Apache-2.0
// Each public header compiles alone, in C11 and in C++20, without a warning; the
// C++ face in C++20, without a macro of its own.
#include <gmock/gmock.h>

#include <set>
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

/// The names of the project's macros that are defined behind these includes.
std::set<std::string> macrosBehind(const std::string &includes) {
    const auto output =
        runCommand("printf '" + includes +
                   "' | '" TAVDB_TEST_CXX_COMPILER "' -std=c++20 -dM -E -I'" TAVDB_TEST_SOURCE "/include' -x c++ -");
    EXPECT_EQ(output.status, 0);
    std::set<std::string> names;
    for (const std::string &line : output.lines) {
        const std::string name = line.substr(0, line.find_first_of(" (", 8));
        if (name.starts_with("#define TAVDB") || name.starts_with("#define tavdb"))
            names.insert(name);
    }
    return names;
}

TEST(CxxHeader, CompilesAlone) {
    EXPECT_EQ(runCommand("echo '#include <tavdb.hpp>' | '" TAVDB_TEST_CXX_COMPILER
                         "' -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion "
                         "-Wold-style-cast -Werror -I'" TAVDB_TEST_SOURCE "/include' -std=c++20 -x c++ -")
                  .status,
              0);
}

TEST(CxxHeader, LeavesNoMacroBesidesThoseOfTheCHeaders) {
    const auto ofTheCHeaders = macrosBehind("#include <tavdb.h>\\n");
    ASSERT_TRUE(ofTheCHeaders.contains("#define TAVDB_PATH_SIZE"));
    EXPECT_EQ(macrosBehind("#include <tavdb.h>\\n#include <tavdb.hpp>\\n"), ofTheCHeaders);
}

}  // namespace
}  // namespace tavdb_test
