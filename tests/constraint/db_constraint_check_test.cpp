// SPDX-License-Identifier: Apache-2.0
// The one entry to all checks: from the stored type code to the check of that
// type, and what happens where there is none. The checks themselves are tested
// apart.
#include <limits>

#include "constraint/constraint_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

class ConstraintCheckTest : public ConstraintTest {
protected:
    int32_t checkS32(int32_t value) {
        return constraint_check(&session, kKey, 4, &value, 4);
    }
};

class ConstraintCheckDispatchTest : public TypedConstraintTest {
protected:
    /// A type code that every check refuses shows which check was asked, and with which arguments.
    testing::AssertionResult asks(const std::string &function, int32_t site) {
        const uint8_t value[8] = {};
        observe();
        const int32_t result = constraint_check(&session, kKey, 99, value, 77);
        if (result != 64)
            return testing::AssertionFailure() << "the result was " << result;
        return failedWith(64, 0, errorLine(function, site, {kKey, 99, 77, 64}));
    }
};

INSTANTIATE_TEST_SUITE_P(Types, ConstraintCheckDispatchTest, testing::ValuesIn(typeRows()), nameOfType);

TEST_P(ConstraintCheckDispatchTest, ARangesCodeAsksTheRangeCheckWithTheArgumentsUnchanged) {
    putRange(GetParam(), 10, 20, 5);
    EXPECT_TRUE(asks(GetParam().checkRangeFunction(), checkRangeSite(GetParam(), 64)));
}

TEST_P(ConstraintCheckDispatchTest, AnEnumerationsCodeAsksTheEnumerationCheckWithTheArgumentsUnchanged) {
    putEnumeration(GetParam(), GetParam().pack(3));
    EXPECT_TRUE(asks(GetParam().checkEnumFunction(), checkEnumSite(GetParam(), 64)));
}

TEST_P(ConstraintCheckDispatchTest, TheRangeChecksResultIsReturned) {
    putRange(GetParam(), 10, 20, 5);
    const auto check = [this](int32_t number) {
        return constraint_check(&session, kKey, GetParam().code, GetParam().pack(number).data(), GetParam().width);
    };
    EXPECT_EQ(check(15), 0);
    EXPECT_EQ(check(9), 66);
    EXPECT_EQ(check(21), 67);
}

TEST_P(ConstraintCheckDispatchTest, TheEnumerationChecksResultIsReturned) {
    putEnumeration(GetParam(), joined({GetParam().pack(3), GetParam().pack(7)}));
    const auto check = [this](int32_t number) {
        return constraint_check(&session, kKey, GetParam().code, GetParam().pack(number).data(), GetParam().width);
    };
    EXPECT_EQ(check(7), 0);
    EXPECT_EQ(check(4), 71);
}

TEST_F(ConstraintCheckTest, AnS32RangeFrom10To20InStepsOf5) {
    putRange(typeRow("S32"), 10, 20, 5);
    for (const int32_t value : {10, 15, 20})
        EXPECT_EQ(checkS32(value), 0);
    EXPECT_EQ(checkS32(9), 66);
    EXPECT_EQ(checkS32(21), 67);
    EXPECT_EQ(checkS32(12), 68);
}

TEST_F(ConstraintCheckTest, AnS32EnumerationOf3And7And7) {
    putEnumeration(typeRow("S32"), bytesOf(3, 7, 7));
    EXPECT_EQ(checkS32(7), 0);
    EXPECT_EQ(checkS32(4), 71);
}

TEST_F(ConstraintCheckTest, AHeaderThatCannotBeReadDeliberatelyLetsTheValueThroughWithTheErrorInTheSession) {
    putRange(typeRow("S32"), 10, 20, 5);
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(1, 99)});
    observe();
    EXPECT_EQ(checkS32(9), 0);
    EXPECT_TRUE(failedWith(61, 99, errorLine("constraint_get", 124, {kKey, 8, 7, 99})));
}

TEST_F(ConstraintCheckTest, AKeyBehindTheEndOfTheMediumDeliberatelyLetsTheValueThrough) {
    const int32_t value = 9;
    observe();
    EXPECT_EQ(constraint_check(&session, kRecordMediumSize - 4, 4, &value, 4), 0);
    EXPECT_EQ(session.errorCode, 61U);
}

TEST_F(ConstraintCheckTest, OnlyTheHeaderIsForgivenARangeThatCannotBeReadRefusesTheValue) {
    putRange(typeRow("S32"), 10, 20, 5);
    faultPlan().add({.operation = Operation::mediaRead, .skip = 1, .fault = shortBy(1, 99)});
    observe();
    EXPECT_EQ(checkS32(15), 61);
    EXPECT_TRUE(failedWith(61, 99, errorLine("rangeS32_get", 424, {kKey, 20, 19, 99})));
}

TEST_F(ConstraintCheckTest, AnUnknownTypeFailsWith69AndTracesKeyTypeLengthAndCode) {
    const int32_t value = 15;
    for (const int32_t type : {0, 1, 12, 255, 256, 511, 513, 2817, 3072, -1, std::numeric_limits<int32_t>::min()}) {
        putHeader(type);
        observe();
        EXPECT_EQ(constraint_check(&session, kKey, 4, &value, 4), 69) << type;
        EXPECT_TRUE(failedWith(69, 0, errorLine("constraint_check", 100, {kKey, 4, 4, static_cast<uint32_t>(type)})));
        EXPECT_TRUE(mediaUnchanged());
    }
}

TEST_F(ConstraintCheckTest, AHeaderOfTypeCode1FailsEveryCheckWith69) {
    putHeader(1);
    const uint8_t value[8] = {};
    for (int32_t type = 0; type <= 12; ++type)
        EXPECT_EQ(constraint_check(&session, kKey, type, value, 8), 69) << type;
}

TEST_F(ConstraintCheckTest, ARangeCostsTwoAccesses) {
    putRange(typeRow("S32"), 10, 20, 5);
    observe();
    EXPECT_EQ(checkS32(15), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("open constraint.med", "read 8@1000", "close",  //
                                                "open constraint.med", "read 20@1000", "close"));
}

TEST_F(ConstraintCheckTest, AnEnumerationCostsThreeAccessesAndOneBuffer) {
    putEnumeration(typeRow("S32"), bytesOf(3, 7));
    observe();
    EXPECT_EQ(checkS32(7), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("open constraint.med", "read 8@1000", "close",   //
                                                "open constraint.med", "read 20@1000", "close",  //
                                                "open constraint.med", "alloc 8", "read 8@2000", "close", "free 8"));
}

TEST_F(ConstraintCheckTest, ASuccessLeavesAnEarlierErrorInTheSession) {
    putRange(typeRow("S32"), 10, 20, 5);
    session_setError(&session, kStaleError, 5);
    observe();
    EXPECT_EQ(checkS32(15), 0);
    EXPECT_TRUE(silent());
}

/// A value of two bytes under a constraint, as an application writes it.
class ConstrainedValueTest : public ConstraintTest {
protected:
    static constexpr uint32_t kValueKey = 500;

    void putValue(int32_t type) {
        const tavDBMValue value = {kValueKey, type, kDataMedia, 0, 2, 0, kKey};
        fakeMedia().setRecordAt("value.med", kValueKey, value);
        fakeMedia().setBytesAt("data.med", 0, {0xAA, 0xBB});
    }
};

TEST_F(ConstrainedValueTest, AU16ValueUnderAnS16ConstraintIsRefusedWith64WhateverItsValue) {
    putRange(typeRow("S16"), -32768, 32767, 0);
    putValue(TAVDB_TYPE_U16);
    for (const uint16_t data : {uint16_t{0}, uint16_t{15}, uint16_t{65535}}) {
        observe();
        EXPECT_EQ(value_setGeneric(&session, kValueKey, &data, 2), 64);
        EXPECT_EQ(session.errorCode, 64U);
        EXPECT_TRUE(mediaUnchanged());
    }
}

TEST_F(ConstrainedValueTest, AConstraintWhoseHeaderCannotBeReadDeliberatelyLetsTheValueBeWritten) {
    putRange(typeRow("S16"), 10, 20, 5);
    putValue(TAVDB_TYPE_S16);
    faultPlan().add({.operation = Operation::mediaRead, .subject = kMedium, .fault = shortBy(1, 99)});
    const int16_t data = 9;
    EXPECT_EQ(value_setGeneric(&session, kValueKey, &data, 2), 0);
    EXPECT_EQ(hexText(fakeMedia().bytesAt("data.med", 0, 2)), hexText(bytesOf(data)));
}

TEST_F(ConstrainedValueTest, ARangeWithItsMinimumAboveItsMaximumIsStoredAndThenRefusesEveryValue) {
    putRange(typeRow("S16"), 10, 20, 5);
    putValue(TAVDB_TYPE_S16);
    const int16_t reversed[] = {20, 10, 5};
    ASSERT_EQ(constraint_setData(&session, kKey, reversed, sizeof reversed), 0);
    const std::pair<int16_t, int32_t> refusals[] = {{9, 66}, {15, 66}, {20, 67}, {25, 67}};
    for (const auto &[data, code] : refusals) {
        EXPECT_EQ(value_setGeneric(&session, kValueKey, &data, 2), code);
        EXPECT_EQ(hexText(fakeMedia().bytesAt("data.med", 0, 2)), "aa bb");
    }
}

}  // namespace
}  // namespace tavdb_test
