// SPDX-License-Identifier: Apache-2.0
// Values as stored bytes: widths, byte order, padding, and back.
#include "image/value_bytes.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>

namespace tavdb::image {
namespace {

std::string ordered(std::string bigEndian) {
    if constexpr (std::endian::native == std::endian::little)
        return {bigEndian.rbegin(), bigEndian.rend()};
    return bigEndian;
}

TEST(ValueBytes, NumbersStandInTheMachinesOrderAndTheirTypesWidth) {
    EXPECT_EQ(encodeValue(Type::u32, 4, uint64_t{0x01020304}), ordered("\x01\x02\x03\x04"));
    EXPECT_EQ(encodeValue(Type::s16, 2, int64_t{-2}), ordered("\xFF\xFE"));
    EXPECT_EQ(encodeValue(Type::u64, 8, uint64_t{0x0102030405060708}), ordered("\x01\x02\x03\x04\x05\x06\x07\x08"));
    EXPECT_EQ(encodeValue(Type::f32, 4, 1.5), ordered(std::string("\x3F\xC0\0\0", 4)));
    EXPECT_EQ(encodeValue(Type::f64, 8, -2.0), ordered(std::string("\xC0\0\0\0\0\0\0\0", 8)));
}

TEST(ValueBytes, TextKeepsItsNulAndIsFilledWithZeros) {
    EXPECT_EQ(encodeValue(Type::text, 6, std::string("abc")), std::string("abc\0\0\0", 6));
    EXPECT_EQ(decodeValue(Type::text, std::string("abc\0xy", 6)).value, Value(std::string("abc")));
    EXPECT_EQ(decodeValue(Type::text, "abc").value, Value(std::string("abc"))) << "no NUL: the length ends it";
}

TEST(ValueBytes, BytesKeepTheirFullLength) {
    EXPECT_EQ(encodeValue(Type::bytes, 4, std::string("\xAB")), std::string("\xAB\0\0\0", 4));
    EXPECT_EQ(decodeValue(Type::bytes, std::string("\0\1\0", 3)).value, Value(std::string("\0\1\0", 3)));
}

TEST(ValueBytes, LimitsOfEveryNumberSurviveTheWayThere) {
    for (const auto &info : allTypes()) {
        if (!info.isNumber())
            continue;
        for (const auto &value : {lowestValue(info.type), highestValue(info.type), zeroValue(info.type)}) {
            const auto bytes = encodeValue(info.type, info.widthBytes, value);
            EXPECT_EQ(bytes.size(), info.widthBytes) << info.name;
            EXPECT_EQ(decodeValue(info.type, bytes).value, value) << info.name;
        }
    }
}

TEST(ValueBytes, NumberOfAnotherWidthIsRefused) {
    EXPECT_EQ(decodeValue(Type::u32, "abc").error, "there are 3 bytes, u32 has 4");
    EXPECT_EQ(decodeValue(Type::u8, "").error, "there are 0 bytes, u8 has 1");
    EXPECT_EQ(decodeValue(Type::f64, "123456789").error, "there are 9 bytes, f64 has 8");
}

TEST(ValueBytes, TypesAreFoundByNameAndByCode) {
    for (const auto &info : allTypes()) {
        EXPECT_EQ(findType(info.name), &info);
        EXPECT_EQ(findType(static_cast<int32_t>(info.type)), &info);
    }
    EXPECT_EQ(findType("U8"), nullptr);
    EXPECT_EQ(findType(0), nullptr);
    EXPECT_EQ(findType(13), nullptr);
}

}  // namespace
}  // namespace tavdb::image
