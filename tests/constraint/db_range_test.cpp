// SPDX-License-Identifier: Apache-2.0
// Range records of the ten types: their bytes, and how they are made, read and
// replaced. Whether a value lies in a range is not decided here, nor do these
// functions look at the relation of minimum, maximum and step.
#include <cerrno>

#include "constraint/constraint_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RangeTest : public TypedConstraintTest {
protected:
    const TypeRow &type() const {
        return GetParam();
    }
    std::string site(RangeSite function, StepSite step, std::initializer_list<uint32_t> words) const {
        static const std::map<RangeSite, std::string> kVerbs = {{kNewSite, "new"},
                                                                {kGetSite, "get"},
                                                                {kSetSite, "set"},
                                                                {kGetDataSite, "getData"},
                                                                {kSetDataSite, "setData"}};
        return errorLine(type().rangeFunction(kVerbs.at(function)), rangeSite(type(), function) + step, words);
    }
    uint32_t recordBytes() const {
        return static_cast<uint32_t>(type().recordBytes);
    }
    std::string transfer(const char *verb, uint32_t offset) const {
        return verb + std::to_string(type().recordBytes) + '@' + std::to_string(offset);
    }
    std::string numbers(int32_t a, int32_t b, int32_t c) const {
        return hexText(joined({type().pack(a), type().pack(b), type().pack(c)}));
    }
    /// A record in memory, with a key that does not count.
    Bytes record(int32_t minimum, int32_t maximum, int32_t step, uint32_t key = 0) const {
        return RangeOnMedium{type(), type().pack(minimum), type().pack(maximum), type().pack(step), key}.bytes();
    }
};

INSTANTIATE_TEST_SUITE_P(Types, RangeTest, testing::ValuesIn(typeRows()), nameOfType);

TEST_P(RangeTest, NewWritesHeaderValuesAndPaddingByteForByte) {
    Bytes mine = record(10, 20, 5);
    ASSERT_EQ(type().create(&session, mine.data()), mine.data());
    EXPECT_EQ(mediumText(kFirstSlot, type().recordBytes),
              hexText(joined({bytesOf(kFirstSlot, type().code), type().pack(10), type().pack(20), type().pack(5),
                              Bytes(mine.size() - 8 - static_cast<size_t>(type().dataBytes()))})));
}

TEST_P(RangeTest, NewStoresTheSlotAsTheRecordsFirstWordAndNothingElse) {
    Bytes mine = record(1, 2, 3, 0xFFFFFFFF);
    Bytes expected = record(1, 2, 3, kFirstSlot);
    ASSERT_NE(type().create(&session, mine.data()), nullptr);
    EXPECT_EQ(hexText(mine), hexText(expected));
}

TEST_P(RangeTest, NewTakesASlotOfExactlyTheRecordsSize) {
    Bytes first = record(1, 2, 3);
    Bytes second = first;
    ASSERT_NE(type().create(&session, first.data()), nullptr);
    ASSERT_NE(type().create(&session, second.data()), nullptr);
    EXPECT_EQ(hexText(Bytes(second.begin(), second.begin() + 4)), hexWords(kFirstSlot + recordBytes()));
    EXPECT_EQ(fakeMedia().wordAt(kMedium, 12), kFirstSlot + 2 * recordBytes());
}

TEST_P(RangeTest, NewOpensTheMediumBeforeItReservesAndWritesBeforeItCloses) {
    Bytes mine = record(1, 2, 3);
    observe();
    ASSERT_NE(type().create(&session, mine.data()), nullptr);
    const std::vector<std::string> lines = mediumLines();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines[0], "open constraint.med");
    EXPECT_EQ(lines[1], "open constraint.med");  // the file list opens the medium for itself
    EXPECT_EQ(lines[lines.size() - 2], transfer("write ", kFirstSlot));
    EXPECT_EQ(lines.back(), "close");
}

TEST_P(RangeTest, NewLeavesAnEarlierErrorInTheSession) {
    Bytes mine = record(1, 2, 3);
    session_setError(&session, kStaleError, 5);
    observe();
    ASSERT_NE(type().create(&session, mine.data()), nullptr);
    EXPECT_TRUE(silent());
}

TEST_P(RangeTest, NewOnAFullMediumFailsWith62AndWritesNothing) {
    fakeMedia().setWordAt(kMedium, 12, 0);
    Bytes mine = record(1, 2, 3);
    observe();
    errno = 0;
    EXPECT_EQ(type().create(&session, mine.data()), nullptr);
    EXPECT_TRUE(failedWith(62, 0, site(kNewSite, kNoSlotStep, {recordBytes(), 0})));
    EXPECT_TRUE(mediaUnchanged());
    EXPECT_EQ(hexText(mine), hexText(record(1, 2, 3)));
}

TEST_P(RangeTest, NewWithoutARecordFailsWith89WithoutAnAccess) {
    observe();
    EXPECT_EQ(type().create(&session, nullptr), nullptr);
    EXPECT_TRUE(failedWith(89, 0, site(kNewSite, kNoBufferStep, {})));
    EXPECT_THAT(mediumLines(), testing::IsEmpty());
}

TEST_P(RangeTest, NewThatFindsNoSlotClosesTheMediumBeforeItTraces) {
    fakeMedia().setWordAt(kMedium, 12, 0);
    Bytes mine = record(1, 2, 3);
    observe();
    EXPECT_EQ(type().create(&session, mine.data()), nullptr);
    const std::vector<std::string> lines = eventLog().lines(Category::media | Category::trace);
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2], "close");
    EXPECT_THAT(lines.back(), testing::HasSubstr(type().rangeFunction("new") + "():[Error]"));
}

TEST_P(RangeTest, NewAfterAFailedSplitFailsWith62AndErrnoAsItStands) {
    faultPlan().add({.operation = Operation::mediaWrite, .skip = 1, .fault = returning(-1)});
    Bytes mine = record(1, 2, 3);
    observe();
    errno = kErrno;
    EXPECT_EQ(type().create(&session, mine.data()), nullptr);
    EXPECT_EQ(session.errorCode, 62U);
    EXPECT_EQ(session.errorDetail, kErrno);
    EXPECT_EQ(fakeTrace().errors().back(), site(kNewSite, kNoSlotStep, {recordBytes(), kErrno}));
    EXPECT_EQ(mediumText(kFirstSlot + 8, type().dataBytes()), hexText(Bytes(static_cast<size_t>(type().dataBytes()))));
}

TEST_P(RangeTest, NewWrittenShortFailsWith60AndErrnoAsItStandsAndClosesTheMedium) {
    faultPlan().add({.operation = Operation::mediaWrite, .skip = 2, .fault = shortBy(1)});
    Bytes mine = record(1, 2, 3);
    observe();
    errno = kErrno;
    EXPECT_EQ(type().create(&session, mine.data()), nullptr);
    EXPECT_TRUE(
        failedWith(60, kErrno, site(kNewSite, kTransferStep, {kFirstSlot, recordBytes(), recordBytes() - 1, kErrno})));
    EXPECT_EQ(mediumLines().back(), "close");
}

TEST_P(RangeTest, NewIsNotDisturbedByAFailingClose) {
    faultPlan().add({.operation = Operation::mediaClose, .times = kForEver});
    Bytes mine = record(1, 2, 3);
    observe();
    EXPECT_EQ(type().create(&session, mine.data()), mine.data());
    EXPECT_TRUE(silent());
}

TEST_P(RangeTest, GetReadsTheWholeRecordInOneAccess) {
    const RangeOnMedium stored = putRange(type(), 10, 20, 5);
    Bytes buffer(stored.bytes().size(), 0xEE);
    observe();
    EXPECT_EQ(type().get(&session, kKey, buffer.data()), buffer.data());
    EXPECT_EQ(hexText(buffer), hexText(stored.bytes()));
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", transfer("read ", kKey), "close"));
    EXPECT_TRUE(silent());
}

TEST_P(RangeTest, GetReadsWhatEverStandsThereWithoutAskingForItsType) {
    putHeader(513);
    Bytes buffer(recordBytes());
    observe();
    EXPECT_EQ(type().get(&session, kKey, buffer.data()), buffer.data());
    EXPECT_EQ(hexText(Bytes(buffer.begin(), buffer.begin() + 8)), hexWords(kKey, 513));
}

TEST_P(RangeTest, GetReadShortFailsWith61AndTheMediumsErrorWord) {
    putRange(type(), 10, 20, 5);
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(1, EIO)});
    Bytes buffer(recordBytes());
    observe();
    errno = kErrno;
    EXPECT_EQ(type().get(&session, kKey, buffer.data()), nullptr);
    EXPECT_TRUE(failedWith(61, EIO, site(kGetSite, kTransferStep, {kKey, recordBytes(), recordBytes() - 1, EIO})));
    EXPECT_EQ(mediumLines().back(), "close");
}

TEST_P(RangeTest, GetReadShortWithoutAnErrorWordHasDetail0WhateverErrnoIs) {
    putRange(type(), 10, 20, 5);
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(1)});
    Bytes buffer(recordBytes());
    observe();
    errno = kErrno;
    EXPECT_EQ(type().get(&session, kKey, buffer.data()), nullptr);
    EXPECT_TRUE(failedWith(61, 0, site(kGetSite, kTransferStep, {kKey, recordBytes(), recordBytes() - 1, 0})));
}

TEST_P(RangeTest, GetReadShortLeavesTheBufferPartlyFilled) {
    const RangeOnMedium stored = putRange(type(), 10, 20, 5);
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(type().recordBytes - 8, EIO)});
    Bytes buffer(recordBytes(), 0xEE);
    EXPECT_EQ(type().get(&session, kKey, buffer.data()), nullptr);
    Bytes expected = stored.bytes();
    std::fill(expected.begin() + 8, expected.end(), uint8_t{0xEE});
    EXPECT_EQ(hexText(buffer), hexText(expected));
}

TEST_P(RangeTest, GetBehindTheEndOfTheMediumFailsWith61) {
    Bytes buffer(recordBytes());
    observe();
    EXPECT_EQ(type().get(&session, 0xFFFFFFF0, buffer.data()), nullptr);
    EXPECT_TRUE(failedWith(61, 0, site(kGetSite, kTransferStep, {0xFFFFFFF0, recordBytes(), 0, 0})));
}

TEST_P(RangeTest, GetThatClaimsMoreThanWasAskedForFailsWith61) {
    putRange(type(), 10, 20, 5);
    faultPlan().add({.operation = Operation::mediaRead, .fault = moreBy(1)});
    Bytes buffer(recordBytes());
    observe();
    EXPECT_EQ(type().get(&session, kKey, buffer.data()), nullptr);
    EXPECT_TRUE(failedWith(61, 0, site(kGetSite, kTransferStep, {kKey, recordBytes(), 0xFFFFFFFF, 0})));
}

TEST_P(RangeTest, SetWritesTheRecordAtTheKeyInItsFirstWordInOneAccess) {
    const Bytes mine = record(1, 2, 3, kKey);
    observe();
    EXPECT_EQ(type().set(&session, mine.data()), 0);
    EXPECT_EQ(mediumText(kKey, type().recordBytes), hexText(mine));
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", transfer("write ", kKey), "close"));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_P(RangeTest, SetInFullClearsAnEarlierError) {
    const Bytes mine = record(1, 2, 3, kKey);
    session_setError(&session, kStaleError, 5);
    observe();
    EXPECT_EQ(type().set(&session, mine.data()), 0);
    EXPECT_TRUE(failed(session, 0, 0, {}));
}

TEST_P(RangeTest, SetWrittenShortRecords60AndErrnoAsItStandsAndReturnsTheClosesResult) {
    const Bytes mine = record(1, 2, 3, kKey);
    faultPlan().add({.operation = Operation::mediaWrite, .fault = shortBy(1)});
    observe();
    errno = kErrno;
    EXPECT_EQ(type().set(&session, mine.data()), 0);
    EXPECT_TRUE(
        failedWith(60, kErrno, site(kSetSite, kTransferStep, {kKey, recordBytes(), recordBytes() - 1, kErrno})));
    EXPECT_EQ(mediumLines().back(), "close");
}

TEST_P(RangeTest, SetThatClaimsMoreThanWasAskedForRecords60) {
    const Bytes mine = record(1, 2, 3, kKey);
    faultPlan().add({.operation = Operation::mediaWrite, .fault = moreBy(1)});
    observe();
    errno = kErrno;
    EXPECT_EQ(type().set(&session, mine.data()), 0);
    EXPECT_TRUE(failedWith(60, kErrno, site(kSetSite, kTransferStep, {kKey, recordBytes(), 0xFFFFFFFF, kErrno})));
}

TEST_P(RangeTest, SetReturnsAFailingClosesResultThoughTheRecordIsWritten) {
    const Bytes mine = record(1, 2, 3, kKey);
    faultPlan().add({.operation = Operation::mediaClose, .fault = returning(-5, EIO)});
    observe();
    EXPECT_EQ(type().set(&session, mine.data()), -5);
    EXPECT_TRUE(failed(session, 0, 0, {}));
    EXPECT_EQ(mediumText(kKey, type().recordBytes), hexText(mine));
}

TEST_P(RangeTest, GetDataPacksMinimumMaximumAndStepIntoABufferOfExactlyTheirLength) {
    putRange(type(), 10, 20, 5);
    Bytes buffer(static_cast<size_t>(type().dataBytes()), 0xEE);
    observe();
    EXPECT_EQ(type().getData(&session, kKey, buffer.data(), type().dataBytes()), 0);
    EXPECT_EQ(hexText(buffer), numbers(10, 20, 5));
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", transfer("read ", kKey), "close"));
    EXPECT_TRUE(silent());
}

TEST_P(RangeTest, GetDataTouchesOnlyItsLengthOfALongerBuffer) {
    putRange(type(), 10, 20, 5);
    Bytes buffer(static_cast<size_t>(type().dataBytes()) + 4, 0xEE);
    EXPECT_EQ(type().getData(&session, kKey, buffer.data(), static_cast<int32_t>(buffer.size())), 0);
    EXPECT_EQ(hexText(buffer), numbers(10, 20, 5) + " ee ee ee ee");
}

TEST_P(RangeTest, GetDataIntoAnUnalignedBufferWorks) {
    putRange(type(), 10, 20, 5);
    Bytes buffer(static_cast<size_t>(type().dataBytes()) + 1, 0xEE);
    EXPECT_EQ(type().getData(&session, kKey, buffer.data() + 1, type().dataBytes()), 0);
    EXPECT_EQ(hexText(buffer), "ee " + numbers(10, 20, 5));
}

TEST_P(RangeTest, GetDataIntoABufferThatIsTooSmallFailsWith72WithoutAnAccess) {
    putRange(type(), 10, 20, 5);
    for (const int32_t length : {type().dataBytes() - 1, 0, -1, std::numeric_limits<int32_t>::min()}) {
        Bytes buffer(static_cast<size_t>(type().dataBytes()), 0xEE);
        observe();
        EXPECT_EQ(type().getData(&session, kKey, buffer.data(), length), 72) << length;
        EXPECT_TRUE(failedWith(72, 0,
                               site(kGetDataSite, kNoDatabaseStep,
                                    {kKey, static_cast<uint32_t>(length), static_cast<uint32_t>(type().dataBytes())})));
        EXPECT_EQ(buffer, Bytes(buffer.size(), 0xEE));
        EXPECT_THAT(mediumLines(), IsEmpty());
    }
}

TEST_P(RangeTest, GetDataThatCannotReadReturnsTheSessionsError) {
    putRange(type(), 10, 20, 5);
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(1, EIO)});
    Bytes buffer(static_cast<size_t>(type().dataBytes()), 0xEE);
    observe();
    EXPECT_EQ(type().getData(&session, kKey, buffer.data(), type().dataBytes()), 61);
    EXPECT_TRUE(failedWith(61, EIO, site(kGetSite, kTransferStep, {kKey, recordBytes(), recordBytes() - 1, EIO})));
    EXPECT_EQ(buffer, Bytes(buffer.size(), 0xEE));
}

TEST_P(RangeTest, SetDataReplacesTheThreeValuesAndKeepsHeaderAndPadding) {
    RangeOnMedium stored = putRange(type(), 10, 20, 5);
    Bytes onMedium = stored.bytes();
    std::fill(onMedium.begin() + 8 + type().dataBytes(), onMedium.end(), uint8_t{0xA5});
    put(kKey, onMedium);
    const Bytes data = joined({type().pack(1), type().pack(100), type().pack(3)});
    observe();
    EXPECT_EQ(type().setData(&session, kKey, data.data(), type().dataBytes()), 0);
    std::copy(data.begin(), data.end(), onMedium.begin() + 8);
    EXPECT_EQ(mediumText(kKey, type().recordBytes), hexText(onMedium));
}

TEST_P(RangeTest, SetDataReadsTheRecordAndWritesItBackAsAWhole) {
    putRange(type(), 10, 20, 5);
    const Bytes data = joined({type().pack(1), type().pack(100), type().pack(3)});
    observe();
    EXPECT_EQ(type().setData(&session, kKey, data.data(), type().dataBytes()), 0);
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", transfer("read ", kKey), "close",
                                           "open constraint.med", transfer("write ", kKey), "close"));
}

TEST_P(RangeTest, SetDataFromAnUnalignedPointerWorks) {
    putRange(type(), 10, 20, 5);
    const Bytes data = joined({Bytes(1), type().pack(1), type().pack(100), type().pack(3)});
    EXPECT_EQ(type().setData(&session, kKey, data.data() + 1, type().dataBytes()), 0);
    EXPECT_EQ(mediumText(kKey + 8, type().dataBytes()), numbers(1, 100, 3));
}

TEST_P(RangeTest, DataThatAreMissingAreRefusedLikeThoseOfAWrongLength) {
    putRange(type(), 10, 20, 5);
    const int32_t fits = type().dataBytes();
    observe();
    EXPECT_EQ(type().getData(&session, kKey, nullptr, fits), 72);
    EXPECT_EQ(type().setData(&session, kKey, nullptr, fits), 65);
    EXPECT_TRUE(mediaUnchanged());
}

TEST_P(RangeTest, SetDataOfAnotherLengthFailsWith65WithoutAnAccess) {
    putRange(type(), 10, 20, 5);
    const int32_t fits = type().dataBytes();
    for (const int32_t length : {fits - 1, fits + 1, 0, -1, -fits, std::numeric_limits<int32_t>::max()}) {
        const Bytes data(static_cast<size_t>(fits) + 1);
        observe();
        EXPECT_EQ(type().setData(&session, kKey, data.data(), length), 65) << length;
        EXPECT_TRUE(failedWith(
            65, 0,
            site(kSetDataSite, kNoDatabaseStep, {kKey, static_cast<uint32_t>(length), static_cast<uint32_t>(fits)})));
        EXPECT_TRUE(mediaUnchanged());
        EXPECT_THAT(mediumLines(), IsEmpty());
    }
}

TEST_P(RangeTest, SetDataAcceptsAMinimumAboveTheMaximum) {
    putRange(type(), 10, 20, 5);
    const Bytes data = joined({type().pack(20), type().pack(10), type().pack(5)});
    observe();
    EXPECT_EQ(type().setData(&session, kKey, data.data(), type().dataBytes()), 0);
    EXPECT_TRUE(fakeTrace().noErrors());
    EXPECT_EQ(mediumText(kKey + 8, type().dataBytes()), numbers(20, 10, 5));
}

TEST_P(RangeTest, SetDataThatCannotReadReturnsTheSessionsErrorAndWritesNothing) {
    putRange(type(), 10, 20, 5);
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(1, EIO)});
    const Bytes data(static_cast<size_t>(type().dataBytes()));
    observe();
    EXPECT_EQ(type().setData(&session, kKey, data.data(), type().dataBytes()), 61);
    EXPECT_TRUE(failedWith(61, EIO, site(kGetSite, kTransferStep, {kKey, recordBytes(), recordBytes() - 1, EIO})));
    EXPECT_TRUE(mediaUnchanged());
}

TEST_P(RangeTest, SetDataDeliberatelyReturns0AfterAFailedWriteAndLeavesItInTheSession) {
    putRange(type(), 10, 20, 5);
    faultPlan().add({.operation = Operation::mediaWrite, .fault = returning(-1)});
    const Bytes data(static_cast<size_t>(type().dataBytes()));
    observe();
    errno = kErrno;
    EXPECT_EQ(type().setData(&session, kKey, data.data(), type().dataBytes()), 0);
    EXPECT_TRUE(failedWith(60, kErrno, site(kSetSite, kTransferStep, {kKey, recordBytes(), 0xFFFFFFFF, kErrno})));
    EXPECT_TRUE(mediaUnchanged());
}

}  // namespace
}  // namespace tavdb_test
