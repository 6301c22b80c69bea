// SPDX-License-Identifier: Apache-2.0
// What a constraint admits, by the library's own arithmetic.
#include "image/constraint_check.h"

#include <gtest/gtest.h>

#include <limits>

namespace tavdb::image {
namespace {

Constraint signedRange(int64_t minimum, int64_t maximum, int64_t step) {
    return Range{minimum, maximum, step};
}

Constraint unsignedRange(uint64_t minimum, uint64_t maximum, uint64_t step) {
    return Range{minimum, maximum, step};
}

Constraint floatRange(double minimum, double maximum, double step) {
    return Range{minimum, maximum, step};
}

TEST(ConstraintCheck, BoundsAreInclusiveAndTheGridStartsAtTheMinimum) {
    const auto range = signedRange(10, 20, 5);
    for (const int64_t good : {10, 15, 20})
        EXPECT_EQ(judge(Type::s32, range, good), Verdict::admitted) << good;
    EXPECT_EQ(judge(Type::s32, range, int64_t{9}), Verdict::outside);
    EXPECT_EQ(judge(Type::s32, range, int64_t{21}), Verdict::outside);
    EXPECT_EQ(judge(Type::s32, range, int64_t{12}), Verdict::offStep);
}

TEST(ConstraintCheck, NarrowSignedTypesTakeTheDifferenceOfTheExtendedValues) {
    const auto range = signedRange(-100, 100, 7);
    EXPECT_EQ(judge(Type::s8, range, int64_t{-93}), Verdict::admitted);
    EXPECT_EQ(judge(Type::s8, range, int64_t{-92}), Verdict::offStep);
    EXPECT_EQ(judge(Type::s8, range, int64_t{96}), Verdict::admitted) << "196 is 28 steps, and more than an s8 holds";
}

TEST(ConstraintCheck, WideSignedTypesWrapAsTheLibraryDoes) {
    // The difference 2^32 - 1 is -1 in 32 bits: no multiple of 3, though 2^32 - 1 is one.
    const auto range = signedRange(INT32_MIN, INT32_MAX, 3);
    EXPECT_EQ(judge(Type::s32, range, int64_t{INT32_MAX}), Verdict::offStep);
    EXPECT_EQ(judge(Type::s64, signedRange(INT64_MIN, INT64_MAX, 3), INT64_MAX), Verdict::offStep);
    EXPECT_EQ(judge(Type::s64, signedRange(INT64_MIN, INT64_MAX, 4), INT64_MAX - 3), Verdict::admitted);
}

TEST(ConstraintCheck, SmallestNumberMeetsStepMinusOneWithoutATrap) {
    EXPECT_EQ(judge(Type::s32, signedRange(0, INT32_MAX, -1), int64_t{5}), Verdict::admitted);
    EXPECT_EQ(judge(Type::s32, signedRange(INT32_MIN, INT32_MAX, -1), int64_t{0}), Verdict::admitted);
    EXPECT_EQ(judge(Type::s64, signedRange(INT64_MIN, INT64_MAX, -1), int64_t{0}), Verdict::admitted);
}

TEST(ConstraintCheck, UnsignedTypesReachTheirFullWidth) {
    EXPECT_EQ(judge(Type::u32, unsignedRange(0, UINT32_MAX, 5), uint64_t{UINT32_MAX}), Verdict::admitted);
    EXPECT_EQ(judge(Type::u64, unsignedRange(0, UINT64_MAX, 5), UINT64_MAX), Verdict::admitted);
    EXPECT_EQ(judge(Type::u64, unsignedRange(1, UINT64_MAX, 5), UINT64_MAX), Verdict::offStep);
    EXPECT_EQ(judge(Type::u8, unsignedRange(0, 255, 51), uint64_t{204}), Verdict::admitted);
}

TEST(ConstraintCheck, FloatsIgnoreTheStepAndRefuseNan) {
    const auto range = floatRange(0.0, 1.0, 0.25);
    EXPECT_EQ(judge(Type::f32, range, 0.3), Verdict::admitted);
    EXPECT_EQ(judge(Type::f32, range, 1.5), Verdict::outside);
    EXPECT_EQ(judge(Type::f64, range, std::numeric_limits<double>::quiet_NaN()), Verdict::outside);
    EXPECT_EQ(judge(Type::f64, range, -0.0), Verdict::admitted);
}

TEST(ConstraintCheck, EnumerationsCompareFloatsAsNumbers) {
    const Constraint elements = Enumeration{{std::nullopt, -0.0}, {"half", 0.5}};
    EXPECT_EQ(judge(Type::f64, elements, 0.0), Verdict::admitted);
    EXPECT_EQ(judge(Type::f64, elements, std::numeric_limits<double>::quiet_NaN()), Verdict::notListed);
}

TEST(ConstraintCheck, NoConstraintAdmitsEverything) {
    EXPECT_EQ(judge(Type::text, {}, std::string("x")), Verdict::admitted);
    EXPECT_EQ(refusal(Type::u8, {}, uint64_t{255}), "");
    EXPECT_EQ(formatConstraint(Type::u8, {}), "");
}

TEST(ConstraintCheck, EmptyEnumerationAdmitsNothing) {
    EXPECT_EQ(judge(Type::u8, Enumeration{}, uint64_t{0}), Verdict::notListed);
}

TEST(ConstraintCheck, LongEnumerationIsCutInTheSentence) {
    Enumeration elements;
    for (uint64_t i = 0; i < 100; i++)
        elements.push_back({std::nullopt, i * 2});
    EXPECT_EQ(refusal(Type::u16, elements, uint64_t{1}),
              "value 1 is not one of 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, ...");
}

TEST(ConstraintCheck, RangeWithoutStepIsWrittenWithoutOne) {
    EXPECT_EQ(formatConstraint(Type::s32, signedRange(-5, 5, 0)), "-5..5");
    EXPECT_EQ(formatConstraint(Type::f32, floatRange(-0.5, static_cast<double>(0.1F), 0)), "-0.5..0.1");
}

}  // namespace
}  // namespace tavdb::image
