// SPDX-License-Identifier: Apache-2.0
// Positions in a text, its lines, and what makes a file no text.
#include "image/source_text.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace tavdb::image {
namespace {

TEST(SourceText, OffsetsBecomePositionsAndBack) {
    const std::string text = "ab\n\ncde";
    const SourceText source(text);
    const std::pair<size_t, Position> places[] = {{0, {1, 1}}, {2, {1, 3}}, {3, {2, 1}},
                                                  {4, {3, 1}}, {6, {3, 3}}, {7, {3, 4}}};
    for (const auto &[offset, position] : places) {
        EXPECT_EQ(source.positionAt(offset), position) << offset;
        EXPECT_EQ(source.offsetOf(position), offset);
    }
    EXPECT_EQ(source.positionAt(99), (Position{3, 4}));
    EXPECT_EQ(source.offsetOf({9, 1}), text.size());
}

TEST(SourceText, LinesComeWithoutTheirEnd) {
    const SourceText source("ab\n\ncde");
    EXPECT_EQ(source.lineCount(), 3U);
    EXPECT_EQ(source.line(1), "ab");
    EXPECT_EQ(source.line(2), "");
    EXPECT_EQ(source.line(3), "cde");
    EXPECT_EQ(source.line(4), "");
}

TEST(SourceText, NulAndBadUtf8AreFaultsWhicheverComesFirst) {
    EXPECT_FALSE(findTextFault("a: 1\n\xC3\xA9"));
    EXPECT_EQ(findTextFault(std::string("ab\0\xFF", 4))->sentence, "the file holds a NUL byte, so it is no text");
    EXPECT_EQ(findTextFault(std::string("ab\0\xFF", 4))->offset, 2U);
    EXPECT_EQ(findTextFault(std::string("a\xFF\0", 3))->sentence, "the file is not UTF-8 text here");
    EXPECT_EQ(findTextFault(std::string("a\xFF\0", 3))->offset, 1U);
}

}  // namespace
}  // namespace tavdb::image
