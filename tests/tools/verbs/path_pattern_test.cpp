// SPDX-License-Identifier: Apache-2.0
#include "tavdb/path_pattern.h"

#include <gtest/gtest.h>

#include <chrono>

namespace tavdb::command {
namespace {

bool matches(const char *pattern, const std::string &path, bool isNode = false) {
    return PathPattern(pattern).matches(path, isNode);
}

TEST(PathPattern, LevelsInTheMiddleMayBeNone) {
    EXPECT_TRUE(matches("/a/**/b", "/a/b"));
    EXPECT_TRUE(matches("/a/**/b", "/a/x/y/b"));
    EXPECT_FALSE(matches("/a/**/b", "/a/x/y/c"));
    EXPECT_FALSE(matches("/a/*/b", "/a/b"));
}

TEST(PathPattern, RootIsMatchedByItselfAndByAllLevels) {
    EXPECT_TRUE(matches("/", "/", true));
    EXPECT_TRUE(matches("/**", "/", true));
    EXPECT_FALSE(matches("*", "/", true));
    EXPECT_FALSE(matches("/", "/a", true));
}

TEST(PathPattern, EscapedCharactersStandForThemselves) {
    EXPECT_TRUE(matches("a\\*", "/a*"));
    EXPECT_FALSE(matches("a\\*", "/ab"));
}

TEST(PathPattern, ManyStarsTakeNoTime) {
    std::string pattern;
    std::string path;
    for (int i = 0; i < 60; i++) {
        pattern += "/**/a";
        path += "/a/b";
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(matches(pattern.c_str(), path));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

}  // namespace
}  // namespace tavdb::command
