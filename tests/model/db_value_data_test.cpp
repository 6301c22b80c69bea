// SPDX-License-Identifier: Apache-2.0
// Reading and writing a value's data: clamped to the value's length, checked
// before anything is written, the close's result as the result, and a failed
// transfer shown in the session only.
#include <errno.h>

#include <climits>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ValueData : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        putValue({0x77, 0x77});
        at = putValue({1, 2, 3, 4}, TAVDB_TYPE_S32);
        putValue({0x88, 0x88, 0x88, 0x88, 0x88});
        before = fakeMedia().snapshotAll();
    }
    int32_t set(const Bytes &data) {
        return value_setGeneric(&session, at, data.data(), static_cast<int32_t>(data.size()));
    }
    int32_t get(int32_t size) {
        length = size;
        return value_getGeneric(&session, at, buffer, &length);
    }
    int32_t getRaw(int32_t size) {
        return value_getCreateListGeneric(&session, at, buffer, size);
    }
    std::string got() const {
        return hexText(std::span(buffer));
    }
    std::string data() const {
        return hexText(fakeMedia().snapshot(kData));
    }
    void tieTo(const tavDBMRangeS32 &range) {
        fakeMedia().setWordAt(kValues, at + offsetof(tavDBMValue, constraintKey), putRange(range));
        before = fakeMedia().snapshotAll();
    }
    void plan(Operation operation, std::optional<Fault> fault = {}) {
        faultPlan().add({.operation = operation, .subject = kData, .fault = fault});
    }
    void setMediaOfData(uint32_t mediaId) {
        fakeMedia().setWordAt(kValues, at + offsetof(tavDBMValue, dataMedia), mediaId);
        before = fakeMedia().snapshotAll();
    }
    testing::AssertionResult nothingChanged() const {
        const auto changes = fakeMedia().changesSince(before);
        return changes.empty() ? testing::AssertionSuccess()
                               : testing::AssertionFailure() << testing::PrintToString(changes);
    }
    std::string recordRead() const {
        return "read 28@" + std::to_string(at);
    }

    uint32_t at = 0;
    int32_t length = 0;
    uint8_t buffer[8] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    MediaImage before;
};

using ValueWrite = ValueData;

TEST_F(ValueWrite, ReadsTheRecordThenWritesTheDataInOneAccess) {
    EXPECT_EQ(set({9, 8, 7, 6}), 0);
    EXPECT_EQ(data(), "77 77 09 08 07 06 88 88 88 88 88");
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("open value.med", recordRead(), "close", "open data.med", "write 4@2", "close"));
}

TEST_F(ValueWrite, LongerDataAreCutOffAndReportNoError) {
    EXPECT_EQ(set({9, 8, 7, 6, 5, 4, 3, 2}), 0);
    EXPECT_EQ(data(), "77 77 09 08 07 06 88 88 88 88 88");
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(ValueWrite, ShorterDataLeaveTheRest) {
    EXPECT_EQ(set({9}), 0);
    EXPECT_EQ(data(), "77 77 09 02 03 04 88 88 88 88 88");
}

TEST_F(ValueWrite, ASuccessLeavesAnEarlierErrorInTheSession) {
    putOldError();
    EXPECT_EQ(set({9}), 0);
    EXPECT_TRUE(oldErrorIsThere());
}

TEST_F(ValueWrite, ALengthOfZeroWritesNothing) {
    EXPECT_EQ(value_setGeneric(&session, at, buffer, 0), 0);
    EXPECT_TRUE(recorded(0, 0));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueWrite, ANegativeLengthIsCode23AndNeverReachesTheMedium) {
    EXPECT_EQ(value_setGeneric(&session, at, buffer, -1), 0);
    EXPECT_TRUE(recorded(23, EINVAL));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_setGeneric", 162, {at, 4, kMinusOne, EINVAL})));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueWrite, WithoutDataNothingIsWritten) {
    EXPECT_EQ(value_setGeneric(&session, at, nullptr, 4), 0);
    EXPECT_TRUE(recorded(23, EFAULT));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueWrite, ARecordThatCannotBeReadDeliberatelyGivesZeroWithTheErrorInTheSession) {
    EXPECT_EQ(value_setGeneric(&session, 0, buffer, 4), 0);
    EXPECT_TRUE(recorded(51, 0));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueWrite, ADataMediumThatIsNotThereDeliberatelyGivesZero) {
    setMediaOfData(77);
    EXPECT_EQ(set({9}), 0);
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_TRUE(
        fakeTrace().errorsAre({errorLine("getMedia", 240, {77}), errorLine("value_setGeneric", 160, {at, 77})}));
}

TEST_F(ValueWrite, ADataMediumThatDoesNotOpenIsCode22) {
    plan(Operation::mediaOpen);
    EXPECT_EQ(set({9}), 22);
    EXPECT_TRUE(recorded(22, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_setGeneric", 161, {at, kMinusOne, EIO})));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueWrite, AFailedWriteDeliberatelyShowsInTheSessionOnly) {
    plan(Operation::mediaWrite, returning(-1, EROFS));
    EXPECT_EQ(set({9}), 0);
    EXPECT_TRUE(recorded(23, EROFS));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_setGeneric", 162, {at, 4, kMinusOne, EROFS})));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueWrite, ACountOfMoreThanWasAskedForIsAFailedWrite) {
    plan(Operation::mediaWrite, moreBy(1));
    EXPECT_EQ(set({9}), 0);
    EXPECT_TRUE(recorded(23, 0));
}

TEST_F(ValueWrite, AShortCountIsDeliberatelyAccepted) {
    plan(Operation::mediaWrite, shortBy(2));
    EXPECT_EQ(set({9, 8, 7, 6}), 0);
    EXPECT_TRUE(recorded(0, 0));
    EXPECT_EQ(data(), "77 77 09 08 03 04 88 88 88 88 88");
}

TEST_F(ValueWrite, TheClosesResultIsTheResult) {
    plan(Operation::mediaClose, returning(-1, EIO));
    EXPECT_EQ(set({9}), -1);
    EXPECT_TRUE(recorded(0, 0));
    plan(Operation::mediaClose, returning(12));
    EXPECT_EQ(set({9}), 12);
}

TEST_F(ValueWrite, AConstraintIsAskedWithTheLengthAsGivenBeforeAnythingIsWritten) {
    tieTo({.key = 0, .type = 0, .minimum = 0, .maximum = INT_MAX, .step = 0});
    EXPECT_EQ(set({0, 1}), 65);
    EXPECT_TRUE(recorded(65, 0));
    EXPECT_TRUE(nothingChanged());
    EXPECT_EQ(set({0, 1, 0, 1, 0, 1}), 65) << "although it would be cut off to the right length";
    EXPECT_EQ(eventLog().count(Operation::mediaWrite), 0U);
}

TEST_F(ValueWrite, AValueOutsideItsRangeIsRefusedAndNothingIsWritten) {
    tieTo({.key = 0, .type = 0, .minimum = 10, .maximum = 20, .step = 5});
    EXPECT_EQ(set(bytesOf(int32_t{9})), 66);
    EXPECT_EQ(set(bytesOf(int32_t{21})), 67);
    EXPECT_EQ(set(bytesOf(int32_t{12})), 68);
    EXPECT_TRUE(recorded(68, 0));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueWrite, AValueInsideItsRangeIsWritten) {
    tieTo({.key = 0, .type = 0, .minimum = 10, .maximum = 20, .step = 5});
    EXPECT_EQ(set(bytesOf(int32_t{15})), 0);
    EXPECT_EQ(dataOf(at), bytesOf(int32_t{15}));
}

TEST_F(ValueWrite, TheConstraintIsAskedWithTheTypeOfTheRecord) {
    tieTo({.key = 0, .type = 0, .minimum = 10, .maximum = 20, .step = 5});
    fakeMedia().setWordAt(kValues, at + offsetof(tavDBMValue, type), TAVDB_TYPE_U32);
    EXPECT_EQ(set(bytesOf(int32_t{15})), 64);
}

TEST_F(ValueWrite, AConstraintThatCannotBeReadDeliberatelyLetsTheValueThrough) {
    fakeMedia().setWordAt(kValues, at + offsetof(tavDBMValue, constraintKey), kBeyond);
    EXPECT_EQ(set({9}), 0);
    EXPECT_TRUE(recorded(61, 0));
    EXPECT_EQ(dataOf(at), (Bytes{9, 2, 3, 4}));
}

using ValueRead = ValueData;

TEST_F(ValueRead, ReadsTheRecordThenTheDataInOneAccess) {
    EXPECT_EQ(get(4), 0);
    EXPECT_EQ(length, 4);
    EXPECT_EQ(got(), "01 02 03 04 ee ee ee ee");
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("open value.med", recordRead(), "close", "open data.med", "read 4@2", "close"));
}

TEST_F(ValueRead, ALongerBufferGetsTheValuesLengthAndIsToldIt) {
    EXPECT_EQ(get(8), 0);
    EXPECT_EQ(length, 4);
    EXPECT_EQ(got(), "01 02 03 04 ee ee ee ee");
}

TEST_F(ValueRead, AShorterBufferGetsTheFront) {
    EXPECT_EQ(get(2), 0);
    EXPECT_EQ(length, 2);
    EXPECT_EQ(got(), "01 02 ee ee ee ee ee ee");
}

TEST_F(ValueRead, AShortCountIsStoredAndDeliberatelyNoError) {
    plan(Operation::mediaRead, shortBy(1));
    EXPECT_EQ(get(4), 0);
    EXPECT_EQ(length, 3);
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(ValueRead, ARecordThatCannotBeReadGivesZeroAndLeavesTheLength) {
    length = 8;
    EXPECT_EQ(value_getGeneric(&session, 0, buffer, &length), 0);
    EXPECT_TRUE(recorded(51, 0));
    EXPECT_EQ(length, 8);
    EXPECT_EQ(got(), "ee ee ee ee ee ee ee ee");
}

TEST_F(ValueRead, ADataMediumThatIsNotThereGivesZeroAndLeavesTheLength) {
    setMediaOfData(77);
    EXPECT_EQ(get(4), 0);
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_EQ(length, 4);
    EXPECT_EQ(fakeTrace().errors().back(), errorLine("value_getGeneric", 170, {at, 77}));
}

TEST_F(ValueRead, ADataMediumThatDoesNotOpenIsCode22) {
    plan(Operation::mediaOpen);
    EXPECT_EQ(get(4), 22);
    EXPECT_TRUE(recorded(22, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_getGeneric", 171, {at, kMinusOne, EIO})));
    EXPECT_EQ(length, 4);
}

TEST_F(ValueRead, AFailedReadStoresMinusOneAndShowsInTheSessionOnly) {
    plan(Operation::mediaRead, returning(-1, EIO));
    EXPECT_EQ(get(4), 0);
    EXPECT_EQ(length, -1);
    EXPECT_TRUE(recorded(24, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_getGeneric", 172, {at, 4, kMinusOne, EIO})));
}

TEST_F(ValueRead, ACountOfMoreThanWasAskedForIsAFailedRead) {
    plan(Operation::mediaRead, moreBy(1));
    EXPECT_EQ(get(4), 0);
    EXPECT_EQ(length, -1);
    EXPECT_TRUE(recorded(24, 0));
}

TEST_F(ValueRead, ANegativeLengthIsCode24AndNeverReachesTheMedium) {
    EXPECT_EQ(get(-3), 0);
    EXPECT_EQ(length, -1);
    EXPECT_TRUE(recorded(24, EINVAL));
    EXPECT_EQ(eventLog().count(Operation::mediaRead), 1U) << "the record's";
}

TEST_F(ValueRead, AMissingLengthIsCode89AndNothingIsRead) {
    EXPECT_EQ(value_getGeneric(&session, at, buffer, nullptr), 89);
    EXPECT_TRUE(recorded(89, 0));
    EXPECT_EQ(eventLog().count(Operation::mediaRead), 0U);
}

TEST_F(ValueRead, WithoutABufferNothingIsRead) {
    length = 4;
    EXPECT_EQ(value_getGeneric(&session, at, nullptr, &length), 0);
    EXPECT_EQ(length, -1);
    EXPECT_TRUE(recorded(24, EFAULT));
}

TEST_F(ValueRead, TheClosesResultIsTheResult) {
    plan(Operation::mediaClose, returning(-1, EIO));
    EXPECT_EQ(get(4), -1);
    EXPECT_EQ(length, 4);
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(ValueRead, ANegativeLengthInADamagedRecordReadsNothing) {
    fakeMedia().setWordAt(kValues, at + offsetof(tavDBMValue, length), 0x80000000);
    EXPECT_EQ(get(4), 0);
    EXPECT_EQ(length, -1);
    EXPECT_TRUE(recorded(24, EINVAL));
    EXPECT_EQ(set({9}), 0);
    EXPECT_TRUE(recorded(23, EINVAL));
}

using ValueRawRead = ValueData;

TEST_F(ValueRawRead, DeliberatelyReadsBeyondTheValuesLength) {
    EXPECT_EQ(getRaw(8), 0);
    EXPECT_EQ(got(), "01 02 03 04 88 88 88 88");
    EXPECT_THAT(transfers(), ElementsAre("value " + recordRead(), "data read 8@2"));
}

TEST_F(ValueRawRead, ReadsExactlyAShorterLength) {
    EXPECT_EQ(getRaw(1), 0);
    EXPECT_EQ(got(), "01 ee ee ee ee ee ee ee");
}

TEST_F(ValueRawRead, AMediumThatDoesNotOpenIsCode22) {
    plan(Operation::mediaOpen);
    EXPECT_EQ(getRaw(4), 22);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_getCreateListGeneric", 181, {at, kMinusOne, EIO})));
}

TEST_F(ValueRawRead, AFailedReadIsCode24) {
    plan(Operation::mediaRead, returning(-1, EIO));
    EXPECT_EQ(getRaw(4), 0);
    EXPECT_TRUE(recorded(24, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_getCreateListGeneric", 182, {at, 4, kMinusOne, EIO})));
}

TEST_F(ValueRawRead, ANegativeLengthIsCode24) {
    EXPECT_EQ(getRaw(-1), 0);
    EXPECT_TRUE(recorded(24, EINVAL));
}

TEST_F(ValueRawRead, OfARecordOrMediumThatIsNotThereGivesZero) {
    EXPECT_EQ(value_getCreateListGeneric(&session, 0, buffer, 4), 0);
    EXPECT_TRUE(recorded(51, 0));
    setMediaOfData(77);
    EXPECT_EQ(getRaw(4), 0);
    EXPECT_EQ(fakeTrace().errors().back(), errorLine("value_getCreateListGeneric", 180, {at, 77}));
}

TEST_F(ValueRawRead, TheClosesResultIsTheResult) {
    plan(Operation::mediaClose, returning(-1, EIO));
    EXPECT_EQ(getRaw(4), -1);
}

TEST_F(ValueData, WhateverFailsWritesTheNewBytesOrNone) {
    tieTo({.key = 0, .type = 0, .minimum = 0, .maximum = INT_MAX, .step = 0});
    const Bytes old = dataOf(at);
    const Bytes neu = bytesOf(int32_t{0x01010101});
    forEachFault([&] {
        set(neu);
        const Bytes now = dataOf(at);
        const bool isWhole = now == old || now == neu;
        const bool cutShort = std::equal(now.begin(), now.begin() + 3, neu.begin());  // by a write one byte short
        EXPECT_TRUE(isWhole || cutShort) << hexText(now);
        EXPECT_TRUE(faultPlan().fired() || now == neu);
        EXPECT_EQ(fakeMedia().snapshot(kValues), before[kValues]);
    });
}

TEST_F(ValueData, WhateverFailsInAReadChangesNothing) {
    forEachFault([&] {
        const int32_t code = get(4);
        EXPECT_TRUE(faultPlan().fired() || (code == 0 && length == 4));
        EXPECT_TRUE(nothingChanged());
    });
}

}  // namespace
}  // namespace tavdb_test
