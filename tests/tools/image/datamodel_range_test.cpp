// SPDX-License-Identifier: Apache-2.0
// Ranges of a data model as one constraint: exact, a list, or the hull.
#include "image/datamodel_range.h"

#include <gtest/gtest.h>

#include "image/constraint_check.h"

namespace tavdb::image {
namespace {

struct Merged {
    std::string constraint;
    std::string losses;
};

std::optional<std::string> part(const std::string &text) {
    return text.empty() ? std::nullopt : std::optional(text);
}

Merged merge(Type type, const std::vector<std::array<std::string, 3>> &ranges) {
    std::vector<RangeText> texts;
    for (const auto &[minimum, maximum, step] : ranges)
        texts.push_back({part(minimum), part(maximum), part(step)});
    std::vector<LossDetail> losses;
    Merged merged;
    merged.constraint = formatConstraint(type, mergeRanges(type, texts, losses));
    for (const auto &loss : losses)
        merged.losses += std::string(describe(loss.kind).key) + ": " + loss.what + "\n";
    return merged;
}

void expectExact(const std::string &constraint, Type type, const std::vector<std::array<std::string, 3>> &ranges) {
    const auto merged = merge(type, ranges);
    EXPECT_EQ(merged.constraint, constraint);
    EXPECT_EQ(merged.losses, "");
}

TEST(DataModelRange, OneRangeIsKeptAsItIs) {
    expectExact("-10..10", Type::s32, {{"-10", "10", ""}});
    expectExact("0..91800 step 360", Type::u32, {{"0", "91800", "360"}});
    expectExact("5..5", Type::u32, {{"5", "5", ""}});
    expectExact("0.5..1.5", Type::f64, {{"0.5", "1.5", ""}});
}

TEST(DataModelRange, MissingBoundIsTheTypesOwnLimit) {
    expectExact("1..4294967295", Type::u32, {{"1", "", ""}});
    expectExact("-2147483648..5", Type::s32, {{"", "5", ""}});
    expectExact("-1..9223372036854775807", Type::s64, {{"-1", "", ""}});
    expectExact("-1.7976931348623157e+308..0", Type::f64, {{"", "0", ""}});
}

TEST(DataModelRange, RangeThatAdmitsEverythingIsNoConstraint) {
    expectExact("", Type::u32, {});
    expectExact("", Type::u32, {{"0", "", ""}});
    expectExact("", Type::s64, {{"-9223372036854775808", "9223372036854775807", "1"}});
    expectExact("", Type::u64, {{"0", "18446744073709551615", ""}});
}

TEST(DataModelRange, RangesThatTouchBecomeOne) {
    expectExact("-1..31", Type::s32, {{"16", "31", ""}, {"-1", "15", ""}});
    expectExact("0..9", Type::u32, {{"0", "5", ""}, {"3", "9", ""}, {"4", "4", ""}});
    expectExact("", Type::u64, {{"1", "18446744073709551615", ""}, {"0", "0", ""}});
    expectExact("0..2", Type::f64, {{"0", "1", ""}, {"1", "2", ""}});
}

TEST(DataModelRange, FewValuesBecomeAList) {
    expectExact("-1, 5, 10, 30", Type::s32, {{"30", "30", ""}, {"-1", "-1", ""}, {"5", "5", ""}, {"10", "10", ""}});
    expectExact("0, 3, 6, 100", Type::u32, {{"0", "6", "3"}, {"100", "100", ""}});
    expectExact(
        "-9223372036854775808, 0, 9223372036854775807", Type::s64,
        {{"-9223372036854775808", "-9223372036854775808", ""}, {"0", "9223372036854775807", "9223372036854775807"}});
    expectExact("0.5, 2", Type::f64, {{"2", "2", ""}, {"0.5", "0.5", ""}});
}

TEST(DataModelRange, SixteenValuesAreAListAndSeventeenAHull) {
    const auto sixteen = merge(Type::u32, {{"0", "14", ""}, {"100", "100", ""}});
    EXPECT_EQ(sixteen.losses, "");
    const auto seventeen = merge(Type::u32, {{"0", "15", ""}, {"100", "100", ""}});
    EXPECT_EQ(seventeen.constraint, "0..100");
    EXPECT_EQ(seventeen.losses, "range-gaps: 2 ranges became 0..100\n");
}

TEST(DataModelRange, HullAdmitsAllRanges) {
    EXPECT_EQ(merge(Type::s32, {{"255", "255", ""}, {"-10", "70", ""}}).constraint, "-10..255");
    const auto everything = merge(Type::u64, {{"0", "0", ""}, {"2", "18446744073709551615", ""}});
    EXPECT_EQ(everything.constraint, "") << "a hull that is the whole type";
    EXPECT_EQ(everything.losses, "range-gaps: 2 ranges became 0..18446744073709551615\n");
}

TEST(DataModelRange, BoundsOutsideTheTypeAreItsLimits) {
    expectExact("5..4294967295", Type::u32, {{"5", "99999999999999999999", ""}});
    expectExact("0..9", Type::u32, {{"-5", "9", ""}});
}

TEST(DataModelRange, RangeThatAdmitsNothingIsLeftOut) {
    EXPECT_EQ(merge(Type::u32, {{"9", "5", ""}}).constraint, "");
    EXPECT_EQ(merge(Type::u32, {{"9", "5", ""}}).losses, "facet-ignored: range 9..5: it admits no value of the type\n");
    EXPECT_EQ(merge(Type::u32, {{"4294967296", "", ""}, {"1", "3", ""}}).constraint, "1..3");
    EXPECT_EQ(merge(Type::u32, {{"", "-1", ""}}).losses, "facet-ignored: range ..-1: it admits no value of the type\n");
}

TEST(DataModelRange, RangeThatCannotBeReadLeavesTheValueFree) {
    const auto merged = merge(Type::u32, {{"1", "3", ""}, {"x", "9", ""}});
    EXPECT_EQ(merged.constraint, "");
    EXPECT_EQ(merged.losses, "facet-ignored: range x..9: its bounds are no numbers of the type\n");
    EXPECT_EQ(merge(Type::s32, {{"1.5", "3", ""}}).constraint, "");
    EXPECT_EQ(merge(Type::f64, {{"0", "INF", ""}}).constraint, "");
}

TEST(DataModelRange, StepThatCannotBeCheckedIsLeftOutAndTold) {
    const auto zero = merge(Type::u32, {{"0", "9", "0"}});
    EXPECT_EQ(zero.constraint, "0..9");
    EXPECT_EQ(zero.losses, "facet-ignored: range 0..9 step 0: the step is not a positive number of the type\n");
    EXPECT_EQ(merge(Type::s32, {{"0", "9", "-2"}}).constraint, "0..9");
    const auto decimal = merge(Type::f64, {{"0", "1", "0.5"}});
    EXPECT_EQ(decimal.constraint, "0..1");
    EXPECT_EQ(decimal.losses, "facet-ignored: range 0..1 step 0.5: the step of a floating number is never checked\n");
}

TEST(DataModelRange, StepOverMoreThanHalfOfASignedTypeMustBeAPowerOfTwo) {
    expectExact("-2147483648..2147483647 step 4", Type::s32, {{"", "", "4"}});
    const auto three = merge(Type::s32, {{"-2147483648", "2147483645", "3"}});
    EXPECT_EQ(three.constraint, "-2147483648..2147483645");
    EXPECT_EQ(three.losses,
              "facet-ignored: range -2147483648..2147483645 step 3: the step cannot be checked over so "
              "wide a range\n");
    expectExact("0..2147483646 step 3", Type::s32, {{"0", "2147483646", "3"}});
}

}  // namespace
}  // namespace tavdb::image
