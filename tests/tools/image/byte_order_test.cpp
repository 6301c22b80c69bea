// SPDX-License-Identifier: Apache-2.0
// What is reversed in a record of each kind, to the byte, and what stays.
#include "image/byte_order.h"

#include <gtest/gtest.h>

#include "image/convert.h"

namespace tavdb::image {
namespace {

/// "0a0b 0c" as bytes.
std::string hex(std::string_view digits) {
    std::string bytes;
    std::string pair;
    for (const char digit : digits) {
        pair += digit == ' ' ? "" : std::string(1, digit);
        if (pair.size() == 2)
            bytes += static_cast<char>(std::stoi(std::exchange(pair, {}), nullptr, 16));
    }
    return bytes;
}

TEST(ByteOrder, NumbersAreReversedAndWhatIsLeftOverStays) {
    auto bytes = hex("0102 0304 05");
    reverseNumbers(bytes, 2);
    EXPECT_EQ(bytes, hex("0201 0403 05"));
    reverseNumbers(bytes, 8);
    EXPECT_EQ(bytes, hex("0201 0403 05"));
    reverseNumbers(bytes, 1);
    EXPECT_EQ(bytes, hex("0201 0403 05"));
    reverseNumbers(bytes, 0);
    EXPECT_EQ(bytes, hex("0201 0403 05"));
}

TEST(ByteOrder, OrdersHaveNames) {
    EXPECT_STREQ(nameOf(ByteOrder::little), "little-endian");
    EXPECT_STREQ(nameOf(ByteOrder::big), "big-endian");
    EXPECT_EQ(opposite(ByteOrder::little), ByteOrder::big);
    EXPECT_EQ(opposite(ByteOrder::big), ByteOrder::little);
}

struct RecordBytes {
    const char *name;
    RecordKind kind;
    int32_t type;
    const char *before;
    const char *after;
};

void PrintTo(const RecordBytes &record, std::ostream *out) {
    *out << record.name;
}

class ReversedRecord : public testing::TestWithParam<RecordBytes> {};

TEST_P(ReversedRecord, HasItsNumbersReversedAndNothingElse) {
    const auto &expected = GetParam();
    const auto before = hex(expected.before);
    RawImages::Contents contents;
    contents[kValueMedium] = "ABC" + before + "XYZ";
    RawImages images(ByteOrder::little, contents);
    const auto size = static_cast<uint32_t>(before.size());
    RecordMap map;
    map.records.push_back({expected.kind, kValueMedium, {3, size}, expected.type});
    reverseRecords(images, map);
    EXPECT_EQ(images.content(kValueMedium), "ABC" + hex(expected.after) + "XYZ");
    EXPECT_EQ(images.order(), ByteOrder::big);
    reverseRecords(images, map);
    EXPECT_EQ(images.content(kValueMedium), contents[kValueMedium]);
    EXPECT_EQ(images.order(), ByteOrder::little);
}

constexpr const char *kFourWords = "01020304 11121314 21222324 31323334";
constexpr const char *kFourReversed = "04030201 14131211 24232221 34333231";

const RecordBytes kRecords[] = {
    {"Header", RecordKind::header, 0, kFourWords, kFourReversed},
    {"FreeBlock", RecordKind::freeBlock, 0, "01020304 11121314 21222324 31", "04030201 14131211 21222324 31"},
    {"Node", RecordKind::node, 0, "01020304 11121314 21222324 31323334 41424344 51525354 61626364",
     "04030201 14131211 24232221 34333231 44434241 54535251 64636261"},
    {"Leaf", RecordKind::leaf, 0,
     "01020304 11121314 21222324 31323334 41424344 51525354 61626364 71727374 81828384 91929394",
     "04030201 14131211 24232221 34333231 44434241 54535251 64636261 74737271 84838281 94939291"},
    {"Name", RecordKind::string, 0, kFourWords, kFourReversed},
    {"Text", RecordKind::text, 0, "01020304 11121314", "01020304 11121314"},
    {"Value", RecordKind::value, TAVDB_TYPE_U8, "01020304 11121314 21222324 31323334 41424344 51525354 61626364",
     "04030201 14131211 24232221 34333231 44434241 54535251 64636261"},
    {"DataS8", RecordKind::data, TAVDB_TYPE_S8, "01", "01"},
    {"DataU8", RecordKind::data, TAVDB_TYPE_U8, "01", "01"},
    {"DataS16", RecordKind::data, TAVDB_TYPE_S16, "0102", "0201"},
    {"DataU16", RecordKind::data, TAVDB_TYPE_U16, "0102", "0201"},
    {"DataS32", RecordKind::data, TAVDB_TYPE_S32, "01020304", "04030201"},
    {"DataU32", RecordKind::data, TAVDB_TYPE_U32, "01020304", "04030201"},
    {"DataF32", RecordKind::data, TAVDB_TYPE_F32, "01020304", "04030201"},
    {"DataS64", RecordKind::data, TAVDB_TYPE_S64, "0102030405060708", "0807060504030201"},
    {"DataU64", RecordKind::data, TAVDB_TYPE_U64, "0102030405060708", "0807060504030201"},
    {"DataF64", RecordKind::data, TAVDB_TYPE_F64, "0102030405060708", "0807060504030201"},
    {"DataText", RecordKind::data, TAVDB_TYPE_TEXT, "0102030405060708", "0102030405060708"},
    {"DataBytes", RecordKind::data, TAVDB_TYPE_BYTES, "0102030405060708", "0102030405060708"},
    {"DataUnknown", RecordKind::data, 77, "0102030405060708", "0102030405060708"},
    {"DataLongerThanItsType", RecordKind::data, TAVDB_TYPE_U16, "0102 0304 05", "0201 0403 05"},
    {"DataShorterThanItsType", RecordKind::data, TAVDB_TYPE_U32, "0102", "0102"},
    {"RangeS8", RecordKind::range, TAVDB_TYPE_S8, "01020304 11121314 21 31 41 51", "04030201 14131211 21 31 41 51"},
    {"RangeU8", RecordKind::range, TAVDB_TYPE_U8, "01020304 11121314 21 31 41 51", "04030201 14131211 21 31 41 51"},
    {"RangeS16", RecordKind::range, TAVDB_TYPE_S16, "01020304 11121314 2122 3132 4142 5152",
     "04030201 14131211 2221 3231 4241 5152"},
    {"RangeU16", RecordKind::range, TAVDB_TYPE_U16, "01020304 11121314 2122 3132 4142 5152",
     "04030201 14131211 2221 3231 4241 5152"},
    {"RangeS32", RecordKind::range, TAVDB_TYPE_S32, "01020304 11121314 21222324 31323334 41424344",
     "04030201 14131211 24232221 34333231 44434241"},
    {"RangeF32", RecordKind::range, TAVDB_TYPE_F32, "01020304 11121314 21222324 31323334 41424344",
     "04030201 14131211 24232221 34333231 44434241"},
    {"RangeU64", RecordKind::range, TAVDB_TYPE_U64,
     "01020304 11121314 2122232425262728 3132333435363738 4142434445464748",
     "04030201 14131211 2827262524232221 3837363534333231 4847464544434241"},
    {"RangeF64", RecordKind::range, TAVDB_TYPE_F64,
     "01020304 11121314 2122232425262728 3132333435363738 4142434445464748",
     "04030201 14131211 2827262524232221 3837363534333231 4847464544434241"},
    {"Enumeration", RecordKind::enumeration, TAVDB_TYPE_U8, "01020304 11121314 21222324 31323334 41424344",
     "04030201 14131211 24232221 34333231 44434241"},
    {"ElementsU8", RecordKind::elements, TAVDB_TYPE_U8, "010203", "010203"},
    {"ElementsS16", RecordKind::elements, TAVDB_TYPE_S16, "0102 0304 0506", "0201 0403 0605"},
    {"ElementsF32", RecordKind::elements, TAVDB_TYPE_F32, "01020304 11121314", "04030201 14131211"},
    {"ElementsU64", RecordKind::elements, TAVDB_TYPE_U64, "0102030405060708 1112131415161718",
     "0807060504030201 1817161514131211"},
};

INSTANTIATE_TEST_SUITE_P(Kinds, ReversedRecord, testing::ValuesIn(kRecords),
                         [](const auto &record) { return std::string(record.param.name); });

TEST(RecordLayout, ConstraintTypesAreTakenApart) {
    const auto range = constraintTypeOf(TAVDB_TYPE_F64);
    ASSERT_TRUE(range);
    EXPECT_EQ(range->kind, RecordKind::range);
    EXPECT_EQ(range->valueType, TAVDB_TYPE_F64);
    const auto enumeration = constraintTypeOf(TAVDB_TYPE_S8 << 8);
    ASSERT_TRUE(enumeration);
    EXPECT_EQ(enumeration->kind, RecordKind::enumeration);
    EXPECT_EQ(enumeration->valueType, TAVDB_TYPE_S8);
    for (const int32_t code : {0, 1, 12, 13, 256, 513, 3072, -2, INT32_MIN, INT32_MAX})
        EXPECT_FALSE(constraintTypeOf(code)) << code;
}

TEST(RecordLayout, RangesAreAsLongAsTheLibrarysRecords) {
    EXPECT_EQ(rangeBytes(TAVDB_TYPE_S8), sizeof(tavDBMRangeS8));
    EXPECT_EQ(rangeBytes(TAVDB_TYPE_U16), sizeof(tavDBMRangeU16));
    EXPECT_EQ(rangeBytes(TAVDB_TYPE_F32), sizeof(tavDBMRangeF32));
    EXPECT_EQ(rangeBytes(TAVDB_TYPE_S64), sizeof(tavDBMRangeS64));
    EXPECT_EQ(rangeBytes(TAVDB_TYPE_TEXT), 0U);
    EXPECT_EQ(rangeBytes(0), 0U);
}

}  // namespace
}  // namespace tavdb::image
