// SPDX-License-Identifier: Apache-2.0
// Values as text: the extremes of every type, both ways, and every complaint.
#include "image/value_text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tavdb::image {
namespace {

struct Extreme {
    Type type;
    const char *text;
    Value value;
};

const Extreme kExtremes[] = {
    {Type::s8, "-128", int64_t{-128}},
    {Type::s8, "127", int64_t{127}},
    {Type::s16, "-32768", int64_t{-32768}},
    {Type::s16, "32767", int64_t{32767}},
    {Type::s32, "-2147483648", int64_t{INT32_MIN}},
    {Type::s32, "2147483647", int64_t{INT32_MAX}},
    {Type::s64, "-9223372036854775808", INT64_MIN},
    {Type::s64, "9223372036854775807", INT64_MAX},
    {Type::u8, "255", uint64_t{255}},
    {Type::u16, "65535", uint64_t{65535}},
    {Type::u32, "4294967295", uint64_t{UINT32_MAX}},
    {Type::u64, "0", uint64_t{0}},
    {Type::u64, "18446744073709551615", UINT64_MAX},
    {Type::f32, "3.4028235e+38", static_cast<double>(std::numeric_limits<float>::max())},
    {Type::f32, "1e-45", static_cast<double>(std::numeric_limits<float>::denorm_min())},
    {Type::f32, "0.1", static_cast<double>(0.1F)},
    {Type::f64, "1.7976931348623157e+308", std::numeric_limits<double>::max()},
    {Type::f64, "-5e-324", -std::numeric_limits<double>::denorm_min()},
    {Type::f64, "0.1", 0.1},
    {Type::f64, "inf", std::numeric_limits<double>::infinity()},
    {Type::f32, "-inf", -std::numeric_limits<double>::infinity()},
    {Type::text, "", std::string{}},
    {Type::text, "a b\xC3\xA9", std::string("a b\xC3\xA9")},
    {Type::bytes, "", std::string{}},
    {Type::bytes, "00ff7e", std::string("\0\xFF\x7E", 3)},
};

TEST(ValueText, ExtremesReadAndWriteTheSame) {
    for (const auto &extreme : kExtremes) {
        const auto parsed = parseValue(extreme.type, 100, extreme.text);
        ASSERT_TRUE(parsed) << extreme.text << ": " << parsed.error;
        EXPECT_EQ(*parsed.value, extreme.value) << extreme.text;
        EXPECT_EQ(formatValue(extreme.type, extreme.value), extreme.text);
    }
}

struct Beyond {
    Type type;
    const char *text;
    const char *sentence;
};

TEST(ValueText, OneBeyondTheLimitsOfEveryIntegerIsRefused) {
    const Beyond cases[] = {
        {Type::s8, "-129", "value -129 is not a signed 8-bit integer (-128..127)"},
        {Type::s8, "128", "value 128 is not a signed 8-bit integer (-128..127)"},
        {Type::s16, "-32769", "value -32769 is not a signed 16-bit integer (-32768..32767)"},
        {Type::s16, "32768", "value 32768 is not a signed 16-bit integer (-32768..32767)"},
        {Type::s32, "-2147483649", "value -2147483649 is not a signed 32-bit integer (-2147483648..2147483647)"},
        {Type::s32, "2147483648", "value 2147483648 is not a signed 32-bit integer (-2147483648..2147483647)"},
        {Type::s64, "-9223372036854775809",
         "value -9223372036854775809 is not a signed 64-bit integer (-9223372036854775808..9223372036854775807)"},
        {Type::s64, "9223372036854775808",
         "value 9223372036854775808 is not a signed 64-bit integer (-9223372036854775808..9223372036854775807)"},
        {Type::u8, "256", "value 256 is not an unsigned 8-bit integer (0..255)"},
        {Type::u8, "-1", "value -1 is not an unsigned 8-bit integer (0..255)"},
        {Type::u16, "65536", "value 65536 is not an unsigned 16-bit integer (0..65535)"},
        {Type::u32, "4294967296", "value 4294967296 is not an unsigned 32-bit integer (0..4294967295)"},
        {Type::u64, "18446744073709551616",
         "value 18446744073709551616 is not an unsigned 64-bit integer (0..18446744073709551615)"},
        {Type::u64, "-1", "value -1 is not an unsigned 64-bit integer (0..18446744073709551615)"},
        {Type::u64, "0x10000000000000000",
         "value '0x10000000000000000' is not an unsigned 64-bit integer (0..18446744073709551615)"},
    };
    for (const auto &[type, text, sentence] : cases) {
        const auto parsed = parseValue(type, 0, text);
        EXPECT_FALSE(parsed) << text;
        EXPECT_EQ(parsed.error, sentence);
    }
}

TEST(ValueText, IntegersComeInDecimalAndHexWithASign) {
    EXPECT_EQ(parseValue(Type::s16, 0, "0x7F").value, Value(int64_t{127}));
    EXPECT_EQ(parseValue(Type::s16, 0, "-0X8000").value, Value(int64_t{-32768}));
    EXPECT_EQ(parseValue(Type::u8, 0, "+12").value, Value(uint64_t{12}));
    EXPECT_EQ(parseValue(Type::u8, 0, "-0").value, Value(uint64_t{0}));
    EXPECT_EQ(parseValue(Type::u8, 0, "010").value, Value(uint64_t{10})) << "a leading zero is not octal";
}

TEST(ValueText, FloatsComeWithAndWithoutPointAndExponent) {
    EXPECT_EQ(parseValue(Type::f64, 0, "5").value, Value(5.0));
    EXPECT_EQ(parseValue(Type::f64, 0, "+.5").value, Value(0.5));
    EXPECT_EQ(parseValue(Type::f64, 0, "-2.5E-1").value, Value(-0.25));
    EXPECT_EQ(parseValue(Type::f64, 0, "-.inf").value, Value(-std::numeric_limits<double>::infinity()));
    const auto nan = parseValue(Type::f32, 0, ".NaN");
    ASSERT_TRUE(nan);
    EXPECT_TRUE(std::isnan(std::get<double>(*nan.value)));
    EXPECT_EQ(formatValue(Type::f32, *nan.value), "nan");
}

TEST(ValueText, FloatIsReadWithoutRoundingTwice) {
    // Read as double and rounded again this would become 1.
    const auto parsed = parseValue(Type::f32, 0, "1.00000005960464477540");
    EXPECT_EQ(parsed.value, Value(static_cast<double>(std::nextafter(1.0F, 2.0F))));
}

struct Complaint {
    Type type;
    std::string text;
    std::string sentence;
};

const Complaint kComplaints[] = {
    {Type::u8, "", "value '' is not an unsigned 8-bit integer"},
    {Type::f64, "", "value '' is not a number"},
    {Type::u8, "abc", "value 'abc' is not an unsigned 8-bit integer"},
    {Type::u8, "1.5", "value 1.5 is not an unsigned 8-bit integer"},
    {Type::s32, "1e3", "value 1e3 is not a signed 32-bit integer"},
    {Type::u8, "0x", "value '0x' is not an unsigned 8-bit integer"},
    {Type::u8, "0xg1", "value '0xg1' is not an unsigned 8-bit integer"},
    {Type::u8, "--5", "value '--5' is not an unsigned 8-bit integer"},
    {Type::u8, " 5", "value ' 5' is not an unsigned 8-bit integer"},
    {Type::u8, "5 ", "value '5 ' is not an unsigned 8-bit integer"},
    {Type::u8, "1\n2", "value '1\\x0a2' is not an unsigned 8-bit integer"},
    {Type::f64, "1,5", "value '1,5' is not a number"},
    {Type::f64, "0x10", "value '0x10' is not a number"},
    {Type::f64, "infinity", "value 'infinity' is not a number"},
    {Type::f64, "1e400", "value 1e400 is too big or too small for f64"},
    {Type::f64, "1e-400", "value 1e-400 is too big or too small for f64"},
    {Type::f32, "1e39", "value 1e39 is too big or too small for f32"},
    {Type::text, "12345678", "value '12345678' is longer than 7 characters"},
    {Type::text, "123456\xC3\xA9", "value '123456\xC3\xA9' is longer than 7 bytes"},
    {Type::text, std::string("a\0b", 3), "value 'a\\x00b' holds a NUL"},
    {Type::bytes, "abc", "value 'abc' has an odd number of hex digits"},
    {Type::bytes, "ab 1", "value 'ab 1' is not made of pairs of hex digits"},
    {Type::bytes, "0x", "value '0x' is not made of pairs of hex digits"},
    {Type::bytes, "001122334455667788", "value '001122334455667788' is longer than 8 bytes"},
};

TEST(ValueText, EveryComplaintNamesWhatIsWrong) {
    for (const auto &complaint : kComplaints) {
        const auto parsed = parseValue(complaint.type, 8, complaint.text);
        EXPECT_FALSE(parsed) << complaint.text;
        EXPECT_EQ(parsed.error, complaint.sentence);
    }
}

TEST(ValueText, AbsurdlyLongNumberIsCutInTheMessage) {
    const auto parsed = parseValue(Type::u8, 0, std::string(1000000, '9'));
    EXPECT_FALSE(parsed);
    EXPECT_LT(parsed.error.size(), 120U);
}

Leaf enumerated() {
    Leaf leaf;
    leaf.type = Type::u8;
    leaf.lengthBytes = 1;
    leaf.constraint =
        Enumeration{{"off", uint64_t{0}}, {"on", uint64_t{1}}, {std::nullopt, uint64_t{7}}, {"0", uint64_t{9}}};
    return leaf;
}

TEST(ValueText, LabelStandsForItsNumber) {
    EXPECT_EQ(parseForLeaf(enumerated(), "on").value, Value(uint64_t{1}));
    EXPECT_EQ(parseForLeaf(enumerated(), "1").value, Value(uint64_t{1}));
    EXPECT_EQ(parseForLeaf(enumerated(), "7").value, Value(uint64_t{7}));
    EXPECT_EQ(formatForLeaf(enumerated(), uint64_t{1}), "on");
    EXPECT_EQ(formatForLeaf(enumerated(), uint64_t{7}), "7");
}

TEST(ValueText, LabelGoesBeforeANumberOfTheSameSpelling) {
    EXPECT_EQ(parseForLeaf(enumerated(), "0").value, Value(uint64_t{9}));
}

TEST(ValueText, ValueOutsideTheEnumerationIsRefusedWithWhatIsAllowed) {
    EXPECT_EQ(parseForLeaf(enumerated(), "2").error, "value 2 is not one of off, on, 7, 0");
    EXPECT_EQ(parseForLeaf(enumerated(), "onn").error, "value 'onn' is not one of off, on, 7, 0");
    EXPECT_EQ(parseForLeaf(enumerated(), "").error, "value '' is not one of off, on, 7, 0");
}

TEST(ValueText, ComplaintAboutASecretDoesNotShowIt) {
    auto leaf = enumerated();
    leaf.secret = true;
    EXPECT_EQ(parseForLeaf(leaf, "hunter2").error, "the value is not one of off, on, 7, 0");
}

TEST(ValueText, ValueOutsideTheRangeIsRefusedWithTheRange) {
    Leaf leaf;
    leaf.type = Type::u32;
    leaf.lengthBytes = 4;
    leaf.constraint = Range{uint64_t{300}, uint64_t{4000000}, uint64_t{100}};
    EXPECT_EQ(parseForLeaf(leaf, "5").error, "value 5 is outside 300..4000000 step 100");
    EXPECT_EQ(parseForLeaf(leaf, "350").error, "value 350 is not on the step of 300..4000000 step 100");
    EXPECT_EQ(parseForLeaf(leaf, "400").value, Value(uint64_t{400}));
}

}  // namespace
}  // namespace tavdb::image
