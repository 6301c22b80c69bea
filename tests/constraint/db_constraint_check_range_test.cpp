// SPDX-License-Identifier: Apache-2.0
// A value against a range, for each of the ten types: bounds, step grid, the
// order of the questions, and the numbers at the edges of each type.
#include <cmath>
#include <limits>

#include "constraint/constraint_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CheckRangeBase : public CheckTest {
protected:
    CheckRangeBase() : CheckTest(Kind::range) {}
};

class CheckRangeTest : public CheckRangeBase, public testing::WithParamInterface<TypeRow> {
protected:
    const TypeRow &type() const {
        return GetParam();
    }
    Bytes number(int32_t value) const {
        return type().pack(value);
    }
    bool isFloat() const {
        return type().code >= TAVDB_TYPE_F32;
    }
};

INSTANTIATE_TEST_SUITE_P(Types, CheckRangeTest, testing::ValuesIn(typeRows()), nameOfType);

TEST_P(CheckRangeTest, BothBoundsAreInclusive) {
    putRange(type(), 10, 20, 0);
    EXPECT_TRUE(accepts(type(), number(10)));
    EXPECT_TRUE(accepts(type(), number(20)));
}

TEST_P(CheckRangeTest, OneBelowTheMinimumIsRefusedWith66) {
    putRange(type(), 10, 20, 5);
    EXPECT_TRUE(refuses(type(), number(9), 66));
}

TEST_P(CheckRangeTest, OneAboveTheMaximumIsRefusedWith67) {
    putRange(type(), 10, 20, 5);
    EXPECT_TRUE(refuses(type(), number(21), 67));
}

TEST_P(CheckRangeTest, EveryValueOnTheGridIsAccepted) {
    putRange(type(), 10, 20, 5);
    for (const int32_t value : {10, 15, 20})
        EXPECT_TRUE(accepts(type(), number(value)));
}

TEST_P(CheckRangeTest, OffTheGridIsRefusedWith68AndDeliberatelyAcceptedForFloatingPoint) {
    putRange(type(), 10, 20, 5);
    for (const int32_t value : {11, 12, 14, 16, 19})
        EXPECT_TRUE(isFloat() ? accepts(type(), number(value)) : refuses(type(), number(value), 68));
}

TEST_P(CheckRangeTest, AStepOf0AcceptsEveryValueBetweenTheBounds) {
    putRange(type(), 10, 20, 0);
    for (int32_t value = 10; value <= 20; ++value)
        EXPECT_TRUE(accepts(type(), number(value)));
}

TEST_P(CheckRangeTest, TheWholeTypeAcceptsItsLowestAndItsHighestValue) {
    putRange(type(), type().lowest(), type().highest(), number(0));
    EXPECT_TRUE(accepts(type(), type().lowest()));
    EXPECT_TRUE(accepts(type(), number(100)));
    EXPECT_TRUE(accepts(type(), type().highest()));
}

TEST_P(CheckRangeTest, ARangeOfTheHighestValueAloneRefusesTheLowestWith66) {
    putRange(type(), type().highest(), type().highest(), number(0));
    EXPECT_TRUE(refuses(type(), type().lowest(), 66));
    EXPECT_TRUE(accepts(type(), type().highest()));
}

TEST_P(CheckRangeTest, ARangeOfTheLowestValueAloneRefusesTheHighestWith67) {
    putRange(type(), type().lowest(), type().lowest(), number(0));
    EXPECT_TRUE(refuses(type(), type().highest(), 67));
    EXPECT_TRUE(accepts(type(), type().lowest()));
}

TEST_P(CheckRangeTest, AMinimumAboveTheMaximumRefusesEveryValue) {
    putRange(type(), 20, 10, 5);
    for (const int32_t value : {9, 10, 15, 19})
        EXPECT_TRUE(refuses(type(), number(value), 66));
    for (const int32_t value : {20, 21, 25})
        EXPECT_TRUE(refuses(type(), number(value), 67));
}

TEST_P(CheckRangeTest, AValueOfAnotherTypeIsRefusedWith64BeforeAnythingIsRead) {
    putRange(type(), 10, 20, 5);
    for (int32_t code = -1; code <= 13; ++code) {
        if (code == type().code)
            continue;
        EXPECT_TRUE(refuses(type(), code, number(15).data(), type().width, 64)) << code;
        EXPECT_THAT(mediumLines(), IsEmpty());
    }
}

TEST_P(CheckRangeTest, TheEnumerationsCodeIsNoValueType) {
    putRange(type(), 10, 20, 5);
    EXPECT_EQ(check(type(), type().enumerationCode(), number(15).data(), type().width), 64);
}

TEST_P(CheckRangeTest, AValueOfAnotherLengthIsRefusedWith65BeforeAnythingIsRead) {
    putRange(type(), 10, 20, 5);
    const Bytes value = joined({number(15), Bytes(1)});
    for (const int32_t length : {0, -1, -type().width, type().width - 1, type().width + 1, 3 * type().width,
                                 std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()}) {
        EXPECT_TRUE(refuses(type(), type().code, value.data(), length, 65)) << length;
        EXPECT_THAT(mediumLines(), IsEmpty());
    }
}

TEST_P(CheckRangeTest, TheTypeIsAskedBeforeTheLengthAndTheLengthBeforeTheRecord) {
    faultPlan().add({.operation = Operation::mediaRead, .times = kForEver});
    putRange(type(), 10, 20, 5);
    EXPECT_EQ(check(type(), 12, number(9).data(), 0), 64);
    EXPECT_EQ(check(type(), type().code, number(9).data(), 0), 65);
    EXPECT_EQ(check(type(), type().code, number(9).data(), type().width), 61);
}

TEST_P(CheckRangeTest, BelowTheMinimumComesBeforeTheStepAndSoDoesAboveTheMaximum) {
    putRange(type(), 10, 20, 7);
    EXPECT_TRUE(refuses(type(), number(4), 66));
    EXPECT_TRUE(refuses(type(), number(22), 67));
}

TEST_P(CheckRangeTest, AMissingValueIsRefusedWith65) {
    putRange(type(), 10, 20, 5);
    EXPECT_TRUE(refuses(type(), type().code, nullptr, type().width, 65));
}

TEST_P(CheckRangeTest, AValueAtAnyAddressIsRead) {
    putRange(type(), 10, 20, 5);
    for (size_t offset = 0; offset < 8; ++offset) {
        const Bytes good = joined({Bytes(offset, 0xFF), number(15)});
        const Bytes bad = joined({Bytes(offset, 0xFF), number(21)});
        EXPECT_EQ(check(type(), type().code, good.data() + offset, type().width), 0);
        EXPECT_EQ(check(type(), type().code, bad.data() + offset, type().width), 67);
    }
}

TEST_P(CheckRangeTest, ARecordThatCannotBeReadGivesTheSessionsError) {
    putRange(type(), 10, 20, 5);
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(1, 99)});
    const auto size = static_cast<uint32_t>(type().recordBytes);
    observe();
    EXPECT_EQ(check(type(), number(15)), 61);
    EXPECT_TRUE(failedWith(61, 99,
                           errorLine(type().rangeFunction("get"), rangeSite(type(), kGetSite) + kTransferStep,
                                     {kKey, size, size - 1, 99})));
}

TEST_P(CheckRangeTest, ACheckIsOneAccessAndAsksForNoMemory) {
    putRange(type(), 10, 20, 5);
    observe();
    EXPECT_EQ(check(type(), number(15)), 0);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("open constraint.med", "read " + std::to_string(type().recordBytes) + "@1000", "close"));
}

/// One value against one range, for the numbers that differ from type to type.
struct RangeCase {
    std::string name;
    const TypeRow *type;
    Bytes minimum;
    Bytes maximum;
    Bytes step;
    Bytes value;
    int32_t expected;
};

void PrintTo(const RangeCase &each, std::ostream *stream) {
    *stream << each.name;
}

std::string nameOfCase(const testing::TestParamInfo<RangeCase> &info) {
    return info.param.name;
}

template <typename T>
struct Numbers {
    T minimum;
    T maximum;
    T step;
    T value;
};

template <typename T>
RangeCase rangeCase(const std::string &name, const Numbers<T> &n, int32_t expected) {
    const TypeRow &type = typeRowOf<T>();
    return {type.name + name, &type,   bytesOf(n.minimum), bytesOf(n.maximum), bytesOf(n.step),
            bytesOf(n.value), expected};
}

/// The whole type with a step: how far the highest value is from the lowest differs from width to width.
template <typename T>
RangeCase wholeTypeCase(const std::string &name, T step, T value, int32_t expected) {
    using Limits = std::numeric_limits<T>;
    return rangeCase<T>(name, {Limits::lowest(), Limits::max(), step, value}, expected);
}

template <typename T>
std::vector<RangeCase> signedCases(int32_t highestInStepsOf3) {
    constexpr T kLowest = std::numeric_limits<T>::lowest();
    constexpr T kHighest = std::numeric_limits<T>::max();
    return {
        wholeTypeCase<T>("HighestIsOnAGridOf1", 1, kHighest, 0),
        wholeTypeCase<T>("HighestIsOffAGridOf2", 2, kHighest, 68),
        wholeTypeCase<T>("NextToHighestIsOnAGridOf2", 2, kHighest - 1, 0),
        wholeTypeCase<T>("HighestInStepsOf3", 3, kHighest, highestInStepsOf3),
        wholeTypeCase<T>("ZeroIsOnAGridOfTheLowestValue", kLowest, 0, 0),
        wholeTypeCase<T>("OneIsOffAGridOfTheLowestValue", kLowest, 1, 68),
        wholeTypeCase<T>("AStepOfMinus1AtTheSmallestDifferenceDoesNotTrap", -1, 0, 0),
        wholeTypeCase<T>("AStepOfMinus1AtTheLowestValue", -1, kLowest, 0),
        wholeTypeCase<T>("AStepOfMinus1AtTheHighestValue", -1, kHighest, 0),
        rangeCase<T>("ANegativeStepIsAGridToo", {10, 20, -5, 15}, 0),
        rangeCase<T>("OffTheGridOfANegativeStep", {10, 20, -5, 12}, 68),
        rangeCase<T>("TheGridBeginsAtTheMinimum", {-100, 100, 7, -93}, 0),
        rangeCase<T>("OffTheGridFromANegativeMinimum", {-100, 100, 7, -92}, 68),
        rangeCase<T>("BoundsAreComparedSigned", {-5, 5, 0, -1}, 0),
        rangeCase<T>("BelowANegativeMinimum", {-5, 5, 0, -6}, 66),
        rangeCase<T>("AStepBeyondTheRangeLeavesTheMinimum", {-5, 5, 100, -5}, 0),
        rangeCase<T>("AStepBeyondTheRangeRefusesTheRest", {-5, 5, 100, 5}, 68),
    };
}

template <typename T>
std::vector<RangeCase> unsignedCases() {
    constexpr T kHighest = std::numeric_limits<T>::max();
    constexpr T kHalf = kHighest / 2 + 1;  // negative where it is taken for signed
    constexpr T kBigStep = kHalf + 100;
    return {
        wholeTypeCase<T>("HighestIsOffAGridOf2", 2, kHighest, 68),
        wholeTypeCase<T>("HighestIsOnAGridOf3", 3, kHighest, 0),
        wholeTypeCase<T>("HighestIsOnAGridOf1", 1, kHighest, 0),
        wholeTypeCase<T>("HighestIsOnAGridOfItself", kHighest, kHighest, 0),
        wholeTypeCase<T>("HalfIsOffAGridOfTheHighestValue", kHighest, kHalf, 68),
        wholeTypeCase<T>("ABigStepIsNotNegative", kBigStep, kBigStep, 0),
        wholeTypeCase<T>("OffTheGridOfABigStep", kBigStep, kBigStep / 2, 68),
        rangeCase<T>("BoundsAreComparedUnsigned", {10, kHighest, 0, kHalf}, 0),
        rangeCase<T>("AboveAMaximumInTheUpperHalf", {10, kHalf, 0, kHighest}, 67),
        rangeCase<T>("BelowAMinimumInTheUpperHalf", {kHalf, kHighest, 0, 5}, 66),
        rangeCase<T>("TheGridBeginsAtTheMinimum", {3, kHighest, 10, 13}, 0),
        rangeCase<T>("OffTheGridFromTheMinimum", {3, kHighest, 10, 10}, 68),
        rangeCase<T>("Step0AcceptsTheMinimum", {10, 20, 0, 10}, 0),
        rangeCase<T>("Step0AcceptsTheMaximum", {10, 20, 0, 20}, 0),
        rangeCase<T>("Step0AcceptsBetween", {10, 20, 0, 13}, 0),
    };
}

template <typename T>
std::vector<RangeCase> floatCases() {
    constexpr T kNan = std::numeric_limits<T>::quiet_NaN();
    constexpr T kInfinity = std::numeric_limits<T>::infinity();
    constexpr T kHighest = std::numeric_limits<T>::max();
    constexpr T kTiny = std::numeric_limits<T>::denorm_min();
    constexpr T kZero = 0;
    const T justAboveOne = std::nextafter(T{1}, T{2});
    const T justBelowZero = std::nextafter(kZero, T{-1});
    return {
        rangeCase<T>("AcceptsTheMinimum", {0, 1, T(0.25), 0}, 0),
        rangeCase<T>("AcceptsTheMaximum", {0, 1, T(0.25), 1}, 0),
        rangeCase<T>("DeliberatelyIgnoresTheStep", {0, 1, T(0.25), T(0.3)}, 0),
        rangeCase<T>("DeliberatelyIgnoresAStepOfNan", {0, 1, kNan, T(0.3)}, 0),
        rangeCase<T>("DeliberatelyIgnoresANegativeStep", {0, 1, -5, T(0.3)}, 0),
        rangeCase<T>("RefusesOneAndAHalf", {0, 1, T(0.25), T(1.5)}, 67),
        rangeCase<T>("RefusesTheNextAboveTheMaximum", {0, 1, 0, justAboveOne}, 67),
        rangeCase<T>("RefusesTheNextBelowTheMinimum", {0, 1, 0, justBelowZero}, 66),
        rangeCase<T>("AcceptsTheSmallestNumberAboveTheMinimum", {0, 1, 0, kTiny}, 0),
        rangeCase<T>("DeliberatelyRefusesNanWith66", {0, 1, 0, kNan}, 66),
        rangeCase<T>("RefusesNegativeNanWith66", {0, 1, 0, -kNan}, 66),
        rangeCase<T>("ANanMinimumRefusesEveryValueWith66", {kNan, 1, 0, T(0.5)}, 66),
        rangeCase<T>("DeliberatelyANanMaximumLetsEveryValueThrough", {0, kNan, 0, kHighest}, 0),
        rangeCase<T>("ANanMaximumStillHasAMinimum", {0, kNan, 0, -1}, 66),
        rangeCase<T>("NegativeZeroIsAtAMinimumOfZero", {kZero, 1, 0, -kZero}, 0),
        rangeCase<T>("ZeroIsAtAMaximumOfNegativeZero", {-1, -kZero, 0, kZero}, 0),
        rangeCase<T>("ZeroIsAtAMinimumOfNegativeZero", {-kZero, 1, 0, kZero}, 0),
        rangeCase<T>("RefusesInfinity", {0, 1, 0, kInfinity}, 67),
        rangeCase<T>("RefusesNegativeInfinity", {0, 1, 0, -kInfinity}, 66),
        rangeCase<T>("InfiniteBoundsAcceptInfinity", {-kInfinity, kInfinity, 0, kInfinity}, 0),
        rangeCase<T>("InfiniteBoundsAcceptNegativeInfinity", {-kInfinity, kInfinity, 0, -kInfinity}, 0),
        rangeCase<T>("InfiniteBoundsRefuseNan", {-kInfinity, kInfinity, 0, kNan}, 66),
        rangeCase<T>("AFiniteMaximumRefusesInfinity", {0, kHighest, 0, kInfinity}, 67),
    };
}

std::vector<RangeCase> rangeCases() {
    std::vector<RangeCase> all;
    const auto add = [&all](std::vector<RangeCase> more) { all.insert(all.end(), more.begin(), more.end()); };
    // The narrow differences are those of the numbers: 255 and 65535 are multiples of 3. The wide ones wrap to -1.
    add(signedCases<int8_t>(0));
    add(signedCases<int16_t>(0));
    add(signedCases<int32_t>(68));
    add(signedCases<int64_t>(68));
    add(unsignedCases<uint8_t>());
    add(unsignedCases<uint16_t>());
    add(unsignedCases<uint32_t>());
    add(unsignedCases<uint64_t>());
    add(floatCases<float>());
    add(floatCases<double>());
    return all;
}

class RangeCaseTest : public CheckRangeBase, public testing::WithParamInterface<RangeCase> {};

INSTANTIATE_TEST_SUITE_P(Numbers, RangeCaseTest, testing::ValuesIn(rangeCases()), nameOfCase);

TEST_P(RangeCaseTest, IsDecidedAsTheTypeSays) {
    const RangeCase &each = GetParam();
    putRange(*each.type, each.minimum, each.maximum, each.step);
    EXPECT_TRUE(each.expected == 0 ? accepts(*each.type, each.value) : refuses(*each.type, each.value, each.expected));
}

}  // namespace
}  // namespace tavdb_test
