// SPDX-License-Identifier: Apache-2.0
#include "fakes/byte_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tavdb_test {
namespace {

using testing::ElementsAre;

TEST(ByteText, HexTextShowsEachByte) {
    EXPECT_EQ(hexText(Bytes{0, 10, 255}), "00 0a ff");
    EXPECT_EQ(hexText({}), "");
}

TEST(ByteText, WordsAreInTheMachinesOrder) {
    EXPECT_EQ(hexWords(0x01020304U), hexText(bytesOf(uint32_t{0x01020304})));
    EXPECT_EQ(bytesOf(uint16_t{1}, uint32_t{2}).size(), 6U);
    const bool littleEndian = bytesOf(uint16_t{1})[0] == 1;
    EXPECT_EQ(hexWords(16), littleEndian ? "10 00 00 00" : "00 00 00 10");
}

TEST(ByteText, DifferencesNameEachRun) {
    EXPECT_THAT(differences({0, 1, 2, 3}, {0, 9, 8, 3}), ElementsAre("1: 01 02 -> 09 08"));
    EXPECT_THAT(differences({0, 1, 2}, {9, 1, 8, 7}), ElementsAre("0: 00 -> 09", "2: 02 -> 08", "size: 3 -> 4"));
    EXPECT_THAT(differences({1, 2}, {1, 2}), ElementsAre());
}

}  // namespace
}  // namespace tavdb_test
