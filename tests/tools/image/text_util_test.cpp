// SPDX-License-Identifier: Apache-2.0
// Quoting, UTF-8, folding, and the rule for names.
#include "image/text_util.h"

#include <gtest/gtest.h>

namespace tavdb::image {
namespace {

TEST(TextUtil, QuoteEscapesAndCutsBetweenCharacters) {
    EXPECT_EQ(quote("a b"), "'a b'");
    EXPECT_EQ(quote("a\tb\x7F"), "'a\\x09b\\x7f'");
    EXPECT_EQ(quote(std::string(48, 'x')), "'" + std::string(48, 'x') + "'");
    EXPECT_EQ(quote(std::string(49, 'x')), "'" + std::string(48, 'x') + "...'");
    EXPECT_EQ(quote(std::string(47, 'x') + "\xC3\xA9y"), "'" + std::string(47, 'x') + "...'");
}

TEST(TextUtil, ValidUtf8HasNoBadByte) {
    for (const auto *good :
         {"", "abc", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xEF\xBF\xBF", "\xF4\x8F\xBF\xBF"})
        EXPECT_EQ(firstBadUtf8(good), std::string_view::npos) << good;
}

TEST(TextUtil, FirstBadByteIsFound) {
    const std::pair<std::string, size_t> bad[] = {
        {"\x80", 0},              // continuation without a lead
        {"ab\xFFz", 2},           // never valid
        {"a\xC3", 1},             // cut off
        {"a\xC3z", 1},            // wrong continuation
        {"\xC0\x80", 0},          // overlong NUL
        {"\xE0\x80\xAF", 0},      // overlong
        {"\xF0\x80\x80\xAF", 0},  // overlong
        {"x\xED\xA0\x80", 1},     // surrogate
        {"\xF4\x90\x80\x80", 0},  // beyond the last code point
        {"\xC3\xA9\xE9", 2},      // Latin-1 behind good UTF-8
    };
    for (const auto &[text, offset] : bad)
        EXPECT_EQ(firstBadUtf8(text), offset) << text;
}

TEST(TextUtil, WordsStandBetweenAnyWhiteSpace) {
    using Words = std::vector<std::string>;
    EXPECT_EQ(splitWords(" a\tbc \v\f\r\n d"), (Words{"a", "bc", "d"}));
    EXPECT_EQ(splitWords("one"), Words{"one"});
    EXPECT_EQ(splitWords(" \n"), Words{});
    EXPECT_EQ(splitWords(""), Words{});
}

TEST(TextUtil, PartsMayBeEmptyButNotTheLast) {
    using Parts = std::vector<std::string>;
    EXPECT_EQ(splitAt("a,,b", ','), (Parts{"a", "", "b"}));
    EXPECT_EQ(splitAt(",a,", ','), (Parts{"", "a"}));
    EXPECT_EQ(splitAt("a", ','), Parts{"a"});
    EXPECT_EQ(splitAt("", ','), Parts{});
}

TEST(TextUtil, FoldingLeavesSingleBlanks) {
    EXPECT_EQ(foldSpace("  a \n\t b\r\n"), "a b");
    EXPECT_EQ(foldSpace(" \n "), "");
}

TEST(TextUtil, NamesMayBeAlmostAnything) {
    for (const auto *good : {"a", "a.b", "802.1q", "\xC3\xA9", "a b", "-", "{i}"})
        EXPECT_EQ(nameFault(good), "") << good;
    EXPECT_EQ(nameFault(std::string(254, 'n')), "");
}

TEST(TextUtil, FaultyNamesAreToldApart) {
    EXPECT_EQ(nameFault(""), "a name is empty");
    EXPECT_EQ(nameFault("a/b"), "the name 'a/b' holds a '/'");
    EXPECT_EQ(nameFault("a\nb"), "the name 'a\\x0ab' holds a control character");
    EXPECT_EQ(nameFault(std::string(255, 'n')),
              "the name '" + std::string(48, 'n') + "...' has 255 bytes, 254 are allowed");
    EXPECT_EQ(nameFault("\xED\xA0\x80"), "a name is not UTF-8 text");
}

}  // namespace
}  // namespace tavdb::image
