// SPDX-License-Identifier: Apache-2.0
// Creating values: the record's bytes and the data behind the end of their
// medium, the order of the steps, and that a step that fails leaves no record
// behind. The numbers in trace lines are sites and fixed for good.
#include <errno.h>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ValueCreate : public TreeFixture {
protected:
    uint32_t create(const void *data, int32_t length, int32_t mediaId = kDataMedia) {
        return value_create(&session, TAVDB_TYPE_U32, 0xC0FFEE00, data, length, mediaId);
    }
    void plan(Operation operation, const char *hint, std::optional<Fault> fault = {}) {
        faultPlan().add({.operation = operation, .subject = hint, .fault = fault});
    }
    /// The value medium holds no record: besides the file list's words for one slot it is as it was.
    void expectNoRecord(Bytes expected) {
        const tavDBMFreeBlock rest = {.next = 0, .size = kRecordMediumSize - kFirstSlot - 28};
        const Bytes head = bytesOf(rest);
        const Bytes link = bytesOf(kFirstSlot + 28);
        std::copy(link.begin(), link.end(), expected.begin() + 12);
        std::copy(head.begin(), head.end(), expected.begin() + kFirstSlot + 28);
        EXPECT_THAT(differences(expected, fakeMedia().snapshot(kValues)), IsEmpty());
    }

    static constexpr uint32_t kFirstSlot = 16;
    static constexpr uint8_t kFour[] = {0xA1, 0xA2, 0xA3, 0xA4};
};

TEST_F(ValueCreate, TheRecordIsSevenWords) {
    fakeMedia().create(kData, Bytes(10, 0x77));
    const uint32_t created = create(kFour, 4);
    EXPECT_EQ(created, kFirstSlot);
    EXPECT_EQ(hexAt(kValues, created, 28), hexWords(created, TAVDB_TYPE_U32, kDataMedia, 10, 4, 0xC0FFEE00, 0));
}

TEST_F(ValueCreate, TheDataStandBehindTheEndOfTheirMedium) {
    fakeMedia().create(kData, Bytes(3, 0x77));
    ASSERT_NE(create(kFour, 4), 0U);
    EXPECT_EQ(hexText(fakeMedia().snapshot(kData)), "77 77 77 a1 a2 a3 a4");
}

TEST_F(ValueCreate, ASecondValueStandsBehindTheFirst) {
    const uint32_t first = create(kFour, 4);
    const uint32_t second = create(kFour, 2);
    EXPECT_EQ(second, first + 28);
    EXPECT_EQ(value(second).dataOffset, 4U);
    EXPECT_EQ(hexText(fakeMedia().snapshot(kData)), "a1 a2 a3 a4 a1 a2");
}

TEST_F(ValueCreate, ANewValueHasNoConstraint) {
    fakeMedia().setBytesAt(kValues, kFirstSlot + 8, Bytes(100, 0xEE));
    EXPECT_EQ(value(create(kFour, 4)).constraintKey, 0U);
}

TEST_F(ValueCreate, AnyTypeCodeIsKeptAsGiven) {
    const uint32_t created = value_create(&session, -12345, 1, kFour, 1, kDataMedia);
    EXPECT_EQ(value(created).type, -12345);
}

TEST_F(ValueCreate, ReservesThenAppendsTheDataThenWritesTheRecordWhileTheyAreOpen) {
    ASSERT_NE(create(kFour, 4), 0U);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("open value.med", "read 4@12", "close", "open value.med", "read 8@16", "close",
                            "open value.med", "write 4@12", "close", "open value.med", "write 8@44", "close",
                            "open data.med", "seek 0 end", "write 4@0",  // the data
                            "open value.med", "write 28@16", "close",    // the record
                            "close"));
}

TEST_F(ValueCreate, WithoutDataItWritesZerosFromABufferThatItGivesBackLast) {
    const uint32_t created = create(nullptr, 3);
    EXPECT_EQ(hexText(dataOf(created)), "00 00 00");
    const auto lines = eventLog().lines();
    EXPECT_EQ(lines.front(), "alloc 3");
    EXPECT_THAT(std::vector<std::string>(lines.end() - 2, lines.end()), ElementsAre("close", "free 3"));
}

TEST_F(ValueCreate, AFullSuccessClearsTheSessionsErrorThroughTheRecordsWrite) {
    putOldError();
    EXPECT_NE(create(kFour, 4), 0U);
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(ValueCreate, AValueOfLengthZeroIsARecordWithoutData) {
    const uint32_t created = create(kFour, 0);
    ASSERT_NE(created, 0U);
    EXPECT_EQ(value(created).length, 0);
    EXPECT_EQ(fakeMedia().sizeOf(kData), 0U);
    EXPECT_NE(create(nullptr, 0), 0U);
}

TEST_F(ValueCreate, ANegativeLengthIsCode23AndNothingIsWritten) {
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_EQ(create(kFour, -1), 0U);
    EXPECT_TRUE(recorded(23, EINVAL));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_create", 124, {kMinusOne, kDataMedia})));
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
    EXPECT_EQ(eventLog().count(Operation::mediaWrite), 0U);
}

TEST_F(ValueCreate, ANegativeLengthWithoutDataIsRefusedToo) {
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_EQ(create(nullptr, -5), 0U);
    EXPECT_TRUE(recorded(23, EINVAL));
    EXPECT_THAT(eventLog().lines(Category::memory), testing::IsEmpty());
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
}

TEST_F(ValueCreate, ABufferThatCannotBeHadIsCode86AndReservesNothing) {
    faultPlan().add({.operation = Operation::alloc});
    EXPECT_EQ(create(nullptr, 4), 0U);
    EXPECT_TRUE(recorded(86, ENOMEM));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_create", 123, {4, ENOMEM})));
    EXPECT_EQ(accesses(), 0U);
}

TEST_F(ValueCreate, OnAFullMediumNothingIsWritten) {
    fakeMedia().setWordAt(kValues, 12, 0);
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_EQ(create(nullptr, 4), 0U);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_new", 106, {0, kValueMedia})));
    EXPECT_THAT(fakeMedia().changesSince(before), IsEmpty());
    EXPECT_EQ(eventLog().lines(Category::memory).back(), "free 4");
}

TEST_F(ValueCreate, ASplitThatFailsWritesNoRecordAndNoData) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kValues, .skip = 1});
    EXPECT_EQ(create(kFour, 4), 0U);
    EXPECT_TRUE(recorded(23, EIO));
    EXPECT_EQ(fakeMedia().sizeOf(kData), 0U);
}

TEST_F(ValueCreate, ADataMediumThatIsNotConfiguredIsCode21) {
    const Bytes before = fakeMedia().snapshot(kValues);
    EXPECT_EQ(create(kFour, 4, 77), 0U);
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("getMedia", 240, {77})));
    expectNoRecord(before);
}

TEST_F(ValueCreate, ADataMediumThatDoesNotOpenIsCode22) {
    const Bytes before = fakeMedia().snapshot(kValues);
    plan(Operation::mediaOpen, kData);
    EXPECT_EQ(create(nullptr, 4), 0U);
    EXPECT_TRUE(recorded(22, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_create", 121, {kFirstSlot, kMinusOne, EIO})));
    expectNoRecord(before);
    EXPECT_EQ(fakeMedia().wordAt(kValues, 12), kFirstSlot + 28) << "the slot stays reserved";
}

TEST_F(ValueCreate, OnlyADescriptorOfExactlyMinusOneIsDeliberatelyAFailedOpen) {
    plan(Operation::mediaOpen, kData, returning(-2, EIO));
    EXPECT_EQ(create(kFour, 4), 0U);
    EXPECT_EQ(session.errorCode, 23U) << "it went on to the seek, which failed";
    EXPECT_EQ(eventLog().count(Operation::mediaSeek), 1U);
}

TEST_F(ValueCreate, AnEndThatCannotBeFoundIsCode23AndNothingIsWritten) {
    const Bytes before = fakeMedia().snapshot(kValues);
    plan(Operation::mediaSeek, kData);
    EXPECT_EQ(create(kFour, 4), 0U);
    EXPECT_TRUE(recorded(23, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_create", 122, {kFirstSlot, 4, kMinusOne, EIO})));
    EXPECT_EQ(fakeMedia().sizeOf(kData), 0U);
    expectNoRecord(before);
}

TEST_F(ValueCreate, DataThatCannotBeWrittenAreCode23WithoutARecord) {
    const Bytes before = fakeMedia().snapshot(kValues);
    plan(Operation::mediaWrite, kData, returning(-1, ENOSPC));
    EXPECT_EQ(create(nullptr, 4), 0U);
    EXPECT_TRUE(recorded(23, ENOSPC));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_create", 122, {kFirstSlot, 4, kMinusOne, ENOSPC})));
    expectNoRecord(before);
}

TEST_F(ValueCreate, ACountOfMoreThanWasAskedForIsAFailedWrite) {
    const Bytes before = fakeMedia().snapshot(kValues);
    plan(Operation::mediaWrite, kData, moreBy(1));
    EXPECT_EQ(create(kFour, 4), 0U);
    EXPECT_TRUE(recorded(23, 0));
    expectNoRecord(before);
}

TEST_F(ValueCreate, AShortWriteOfTheDataIsDeliberatelyAccepted) {
    plan(Operation::mediaWrite, kData, shortBy(1));
    const uint32_t created = create(kFour, 4);
    ASSERT_NE(created, 0U);
    EXPECT_EQ(value(created).length, 4);
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(ValueCreate, OnlyACountOfExactlyMinusOneIsDeliberatelyAFailedWrite) {
    plan(Operation::mediaWrite, kData, returning(-2, EIO));
    EXPECT_NE(create(kFour, 4), 0U);
}

TEST_F(ValueCreate, TheResultOfWritingTheRecordIsDeliberatelyIgnored) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kValues, .skip = 2});
    EXPECT_EQ(create(kFour, 4), kFirstSlot);
    EXPECT_TRUE(recorded(45, EIO));
}

TEST_F(ValueCreate, ADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(create(nullptr, 4), 0U);
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_EQ(accesses(), 0U);
    EXPECT_EQ(value_create(nullptr, 1, 1, kFour, 4, kDataMedia), 0U);
    session.dbId = 1;
}

TEST_F(ValueCreate, WhateverFailsLeavesTheOtherValueAlone) {
    const uint32_t bystander = putValue({9, 8, 7});
    const Bytes record = bytesOf(value(bystander));
    forEachFault([&] {
        const uint32_t created = create(nullptr, 4);
        EXPECT_TRUE(created != 0 || session.errorCode != 0);
        EXPECT_TRUE(faultPlan().fired() || created == bystander + 28);
        EXPECT_EQ(bytesOf(value(bystander)), record);
        EXPECT_EQ(dataOf(bystander), (Bytes{9, 8, 7}));
    });
}

TEST_F(ValueCreate, TheApplicationsFunctionIsTheSame) {
    const uint32_t created = tavDBMCreateValue(&session, 3, 4, kFour, 2, kDataMedia);
    EXPECT_EQ(hexAt(kValues, created, 28), hexWords(created, 3, kDataMedia, 0, 2, 4, 0));
}

}  // namespace
}  // namespace tavdb_test
