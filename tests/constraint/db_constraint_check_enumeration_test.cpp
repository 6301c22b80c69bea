// SPDX-License-Identifier: Apache-2.0
// A value against an enumeration, for each of the ten types: membership, how
// elements are compared, and records whose size or count is odd.
#include <cerrno>
#include <limits>

#include "constraint/constraint_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CheckEnumBase : public CheckTest {
protected:
    CheckEnumBase() : CheckTest(Kind::enumeration) {}
};

class CheckEnumTest : public CheckEnumBase, public testing::WithParamInterface<TypeRow> {
protected:
    const TypeRow &type() const {
        return GetParam();
    }
    Bytes number(int32_t value) const {
        return type().pack(value);
    }
    Bytes three(int32_t a, int32_t b, int32_t c) const {
        return joined({number(a), number(b), number(c)});
    }
    std::string bytesText(int32_t factor) const {
        return std::to_string(factor * type().width);
    }
};

INSTANTIATE_TEST_SUITE_P(Types, CheckEnumTest, testing::ValuesIn(typeRows()), nameOfType);

TEST_P(CheckEnumTest, EveryListedValueIsAccepted) {
    putEnumeration(type(), three(3, 9, 7));
    for (const int32_t value : {3, 9, 7})
        EXPECT_TRUE(accepts(type(), number(value)));
}

TEST_P(CheckEnumTest, ARepeatedElementIsAcceptedAndAMissingOneIsRefusedWith71) {
    putEnumeration(type(), three(3, 7, 7));
    EXPECT_TRUE(accepts(type(), number(7)));
    EXPECT_TRUE(refuses(type(), number(4), 71));
}

TEST_P(CheckEnumTest, TheExtremesOfTheTypeAreValuesLikeOthers) {
    putEnumeration(type(), joined({type().lowest(), type().highest()}));
    EXPECT_TRUE(accepts(type(), type().lowest()));
    EXPECT_TRUE(accepts(type(), type().highest()));
    EXPECT_TRUE(refuses(type(), number(1), 71));
}

TEST_P(CheckEnumTest, AnElementBehindTheCountIsNotListed) {
    putEnumeration(type(), type().width, 2, three(3, 9, 7));
    EXPECT_TRUE(refuses(type(), number(7), 71));
}

TEST_P(CheckEnumTest, AnEmptyEnumerationRefusesEveryValueWith71AndAsksForNoMemory) {
    putEnumeration(type(), type().width, 0, three(3, 9, 7));
    EXPECT_TRUE(refuses(type(), number(3), 71));
    EXPECT_TRUE(refuses(type(), number(0), 71));
    EXPECT_THAT(eventLog().lines(Category::memory), IsEmpty());
}

TEST_P(CheckEnumTest, ANegativeCountDeliberatelyAcceptsEveryValueWithoutReadingTheArray) {
    for (const int32_t count : {-1, -3, std::numeric_limits<int32_t>::min()}) {
        putEnumeration(type(), type().width, count, three(3, 9, 7));
        EXPECT_TRUE(accepts(type(), number(4)));
        EXPECT_THAT(eventLog().lines(), ElementsAre("open constraint.med", "read 20@1000", "close"));
    }
}

TEST_P(CheckEnumTest, ANegativeCountIsLookedAtAfterTypeAndLength) {
    putEnumeration(type(), type().width, -1, {});
    EXPECT_EQ(check(type(), 12, number(4).data(), type().width), 64);
    EXPECT_TRUE(refuses(type(), joined({number(4), Bytes(1)}), 65));
}

TEST_P(CheckEnumTest, AValueOfAnotherTypeIsRefusedWith64BeforeAnythingIsRead) {
    putEnumeration(type(), three(3, 9, 7));
    for (int32_t code = -1; code <= 13; ++code) {
        if (code == type().code)
            continue;
        EXPECT_TRUE(refuses(type(), code, number(3).data(), type().width, 64)) << code;
        EXPECT_THAT(mediumLines(), IsEmpty());
    }
}

TEST_P(CheckEnumTest, AValueOfAnotherLengthThanTheElementsIsRefusedWith65) {
    putEnumeration(type(), three(3, 9, 7));
    const Bytes value(64);
    for (const int32_t length :
         {0, -1, -type().width, type().width - 1, type().width + 1, std::numeric_limits<int32_t>::max()}) {
        EXPECT_TRUE(refuses(type(), type().code, value.data(), length, 65)) << length;
        EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "read 20@1000", "close"));
    }
}

TEST_P(CheckEnumTest, TheLengthIsComparedWithTheStoredElementSizeAndNotWithTheTypesWidth) {
    putEnumeration(type(), type().width + 1, 1, joined({number(3), Bytes(1)}));
    EXPECT_TRUE(refuses(type(), number(3), 65));
    EXPECT_TRUE(accepts(type(), joined({number(3), Bytes(1)})));
}

TEST_P(CheckEnumTest, WiderElementsAreComparedByTheTypesWidthOneBehindTheOther) {
    putEnumeration(type(), 2 * type().width, 2, joined({number(3), number(9), number(7), number(5)}));
    EXPECT_TRUE(accepts(type(), joined({number(3), number(0)})));
    EXPECT_TRUE(accepts(type(), joined({number(9), number(0)})));
    EXPECT_TRUE(refuses(type(), joined({number(7), number(9)}), 71));
}

TEST_P(CheckEnumTest, ElementsOf0BytesMatchNothingAndNothingCrashes) {
    putEnumeration(type(), 0, 3, three(3, 9, 7));
    observe();
    EXPECT_EQ(check(type(), type().code, number(3).data(), 0), 71);
    EXPECT_EQ(session.errorCode, 71U);
}

TEST_P(CheckEnumTest, ElementsOfANegativeSizeFailWith86AndAreNotRead) {
    putEnumeration(type(), -8, 3, three(3, 9, 7));
    observe();
    EXPECT_EQ(check(type(), type().code, number(3).data(), -8), 86);
    EXPECT_EQ(session.errorCode, 86U);
    EXPECT_EQ(session.errorDetail, uint32_t{EOVERFLOW});
    EXPECT_EQ(eventLog().count(Operation::mediaRead), 1U);  // the record's
}

TEST_P(CheckEnumTest, AMissingValueIsRefusedWith65) {
    putEnumeration(type(), three(3, 9, 7));
    EXPECT_TRUE(refuses(type(), type().code, nullptr, type().width, 65));
}

TEST_P(CheckEnumTest, AValueAtAnyAddressIsRead) {
    putEnumeration(type(), three(3, 9, 7));
    for (size_t offset = 0; offset < 8; ++offset) {
        const Bytes good = joined({Bytes(offset, 0xFF), number(9)});
        const Bytes bad = joined({Bytes(offset, 0xFF), number(8)});
        EXPECT_EQ(check(type(), type().code, good.data() + offset, type().width), 0);
        EXPECT_EQ(check(type(), type().code, bad.data() + offset, type().width), 71);
    }
}

TEST_P(CheckEnumTest, AMatchIsTwoAccessesAndOneBufferThatIsGivenBack) {
    putEnumeration(type(), three(3, 9, 7));
    observe();
    EXPECT_EQ(check(type(), number(3)), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("open constraint.med", "read 20@1000", "close", "open constraint.med",
                                                "alloc " + bytesText(3), "read " + bytesText(3) + "@2000", "close",
                                                "free " + bytesText(3)));
}

TEST_P(CheckEnumTest, ARefusalGivesTheBufferBackToo) {
    putEnumeration(type(), three(3, 9, 7));
    observe();
    EXPECT_EQ(check(type(), number(4)), 71);
    EXPECT_THAT(eventLog().lines(Category::memory), ElementsAre("alloc " + bytesText(3), "free " + bytesText(3)));
}

TEST_P(CheckEnumTest, WithoutMemoryTheCheckFailsWith86AndErrno) {
    putEnumeration(type(), three(3, 9, 7));
    faultPlan().add({.operation = Operation::alloc});
    observe();
    EXPECT_EQ(check(type(), number(3)), 86);
    EXPECT_TRUE(failedWith(
        86, ENOMEM,
        errorLine("constraint_getEnumArray", 136, {kArrayKey, static_cast<uint32_t>(type().width), 3, ENOMEM})));
}

TEST_P(CheckEnumTest, ARecordThatCannotBeReadGivesTheSessionsError) {
    putEnumeration(type(), three(3, 9, 7));
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(1, EIO)});
    observe();
    EXPECT_EQ(check(type(), number(3)), 61);
    EXPECT_TRUE(failedWith(61, EIO, errorLine("enum_get", 164, {kKey, 20, 19, EIO})));
}

TEST_P(CheckEnumTest, AnArrayThatCannotBeReadGivesTheSessionsErrorAndFreesTheBuffer) {
    putEnumeration(type(), three(3, 9, 7));
    faultPlan().add({.operation = Operation::mediaRead, .skip = 1, .fault = shortBy(1, EIO)});
    const auto bytes = static_cast<uint32_t>(3 * type().width);
    observe();
    EXPECT_EQ(check(type(), number(3)), 61);
    EXPECT_TRUE(failedWith(61, EIO, errorLine("constraint_getEnumArray", 134, {kArrayKey, bytes, bytes - 1, EIO})));
    EXPECT_THAT(eventLog().lines(Category::memory), ElementsAre("alloc " + bytesText(3), "free " + bytesText(3)));
}

TEST_P(CheckEnumTest, ACountBeyondTheEndOfTheMediumFailsWith61) {
    const auto count = static_cast<int32_t>(kRecordMediumSize - kArrayKey) / type().width + 1;
    putEnumeration(type(), type().width, count, three(3, 9, 7));
    observe();
    EXPECT_EQ(check(type(), number(3)), 61);
    EXPECT_EQ(session.errorCode, 61U);
    EXPECT_TRUE(mediaUnchanged());
}

TEST_P(CheckEnumTest, AProductThatOverflowsFailsWith86AndAsksForNoMemory) {
    constexpr int32_t kSize = 0x40000000;
    putEnumeration(type(), kSize, 4, three(3, 9, 7));
    observe();
    EXPECT_EQ(check(type(), type().code, number(3).data(), kSize), 86);
    EXPECT_EQ(session.errorCode, 86U);
    EXPECT_THAT(eventLog().lines(Category::memory), IsEmpty());
}

TEST_F(CheckEnumBase, ElementsShorterThanTheTypeAreNeverReadBeyondValueOrArray) {
    const Bytes value = {0, 3};
    putEnumeration(typeRow("S32"), 2, 3, {0, 3, 0, 3, 0, 3});
    EXPECT_TRUE(refuses(typeRow("S32"), value, 71));
    putEnumeration(typeRow("F64"), 2, 3, {0, 3, 0, 3, 0, 3});
    EXPECT_TRUE(refuses(typeRow("F64"), value, 71));
}

/// Elements and values of one type, for the comparisons that differ.
struct MemberCase {
    std::string name;
    const TypeRow *type;
    Bytes elements;
    Bytes value;
    int32_t expected;
};

void PrintTo(const MemberCase &each, std::ostream *stream) {
    *stream << each.name;
}

std::string nameOfMember(const testing::TestParamInfo<MemberCase> &info) {
    return info.param.name;
}

template <typename T>
MemberCase memberCase(const std::string &name, T element, T value, int32_t expected) {
    const TypeRow &type = typeRowOf<T>();
    return {type.name + name, &type, bytesOf(element), bytesOf(value), expected};
}

template <typename T>
std::vector<MemberCase> wideCases() {
    const auto wide = [](uint32_t upper, uint32_t lower) { return static_cast<T>((uint64_t{upper} << 32) | lower); };
    return {
        memberCase<T>("BothHalvesEqual", wide(1, 2), wide(1, 2), 0),
        memberCase<T>("OnlyTheUpperHalfDiffers", wide(1, 2), wide(3, 2), 71),
        memberCase<T>("OnlyTheLowerHalfDiffers", wide(1, 2), wide(1, 3), 71),
        memberCase<T>("TheHalvesAreSwapped", wide(1, 2), wide(2, 1), 71),
        memberCase<T>("OnlyTheUpperBitDiffers", wide(0x80000000, 0), wide(0, 0), 71),
    };
}

template <typename T>
std::vector<MemberCase> floatingCases() {
    constexpr T kNan = std::numeric_limits<T>::quiet_NaN();
    constexpr T kInfinity = std::numeric_limits<T>::infinity();
    constexpr T kZero = 0;
    return {
        memberCase<T>("NegativeZeroAdmitsZero", -kZero, kZero, 0),
        memberCase<T>("ZeroAdmitsNegativeZero", kZero, -kZero, 0),
        memberCase<T>("DeliberatelyANanElementMatchesNoNan", kNan, kNan, 71),
        memberCase<T>("ANanValueMatchesNothing", T{1}, kNan, 71),
        memberCase<T>("ANanElementMatchesNothing", kNan, T{1}, 71),
        memberCase<T>("InfinityAdmitsInfinity", kInfinity, kInfinity, 0),
        memberCase<T>("InfinityRefusesNegativeInfinity", kInfinity, -kInfinity, 71),
        memberCase<T>("ATenthAdmitsATenth", T(0.1), T(0.1), 0),
    };
}

std::vector<MemberCase> memberCases() {
    std::vector<MemberCase> all = {
        memberCase<int8_t>("TheUpperBitIsPartOfThePattern", -1, 127, 71),
        memberCase<uint8_t>("TheHighestIsFoundByItsBits", 255, 255, 0),
        memberCase<int16_t>("OneByteDiffers", 0x0102, 0x0103, 71),
        memberCase<uint16_t>("TheOtherByteDiffers", 0x0102, 0x0202, 71),
        memberCase<int32_t>("MinusOneIsFoundByItsBits", -1, -1, 0),
        memberCase<uint32_t>("OnlyTheUpperBitDiffers", 0x80000000, 0, 71),
    };
    const auto add = [&all](std::vector<MemberCase> more) { all.insert(all.end(), more.begin(), more.end()); };
    add(wideCases<int64_t>());
    add(wideCases<uint64_t>());
    add(floatingCases<float>());
    add(floatingCases<double>());
    return all;
}

class MemberCaseTest : public CheckEnumBase, public testing::WithParamInterface<MemberCase> {};

INSTANTIATE_TEST_SUITE_P(Comparisons, MemberCaseTest, testing::ValuesIn(memberCases()), nameOfMember);

TEST_P(MemberCaseTest, IsDecidedAsTheTypeSays) {
    const MemberCase &each = GetParam();
    putEnumeration(*each.type, each.elements);
    EXPECT_TRUE(each.expected == 0 ? accepts(*each.type, each.value) : refuses(*each.type, each.value, each.expected));
}

}  // namespace
}  // namespace tavdb_test
