// SPDX-License-Identifier: Apache-2.0
// Enumeration records and their element arrays: bytes, reservation, transfers,
// and the sizes that no array can have. Which values an enumeration admits is
// tested with the checks.
#include <cerrno>
#include <limits>

#include "constraint/constraint_test_support.h"
#include "tavdb_platform.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kNone = 0xFFFFFFFF;

/// Sizes and counts whose product is no length.
struct NoLength {
    int32_t size;
    int32_t count;
};
constexpr NoLength kNoLengths[] = {{0x10000, 0x10000},
                                   {0x10000, 0x8000},
                                   {8, 0x20000001},
                                   {4, std::numeric_limits<int32_t>::min()},
                                   {4, -1},
                                   {-1, 4},
                                   {std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::max()}};

class EnumerationTest : public ConstraintTest {
protected:
    static constexpr tavDBMEnumeration kRecord = {kKey, 1024, kArrayKey, 4, 3};

    /// A failure whose detail and fields are left to the library.
    testing::AssertionResult failedAt(uint32_t code, const std::string &lineStart) const {
        const std::vector<std::string> errors = fakeTrace().errors();
        if (session.errorCode == code && errors.size() == 1 && errors[0].starts_with(lineStart))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "the session has " << session.errorCode << "\n" << eventLog().text();
    }
};

TEST_F(EnumerationTest, ANewArrayIsFilledWithZeros) {
    put(kFirstSlot + 8, Bytes(40, 0xEE));
    EXPECT_EQ(constraint_newEnumArray(&session, 4, 5), kFirstSlot);
    EXPECT_EQ(mediumText(kFirstSlot, 20), hexText(Bytes(20)));
    EXPECT_EQ(fakeMedia().wordAt(kMedium, 12), kFirstSlot + 20);
    EXPECT_EQ(fakeMedia().bytesAt(kMedium, kFirstSlot + 28, 1)[0], 0xEE);
}

TEST_F(EnumerationTest, ANewArrayIsReservedThenBufferedThenWrittenAndTheMediumIsOpenAllTheWhile) {
    observe();
    EXPECT_EQ(constraint_newEnumArray(&session, 4, 5), kFirstSlot);
    EXPECT_THAT(eventLog().lines(), ElementsAre("open constraint.med",                         //
                                                "open constraint.med", "read 4@12", "close",   //
                                                "open constraint.med", "read 8@16", "close",   //
                                                "open constraint.med", "write 4@12", "close",  //
                                                "open constraint.med", "write 8@36", "close",  //
                                                "alloc 20", "write 20@16", "free 20", "close"));
}

TEST_F(EnumerationTest, ANewArrayLeavesAnEarlierErrorInTheSession) {
    session_setError(&session, kStaleError, 5);
    observe();
    EXPECT_EQ(constraint_newEnumArray(&session, 1, 1), kFirstSlot);
    EXPECT_TRUE(silent());
}

TEST_F(EnumerationTest, ANewArrayOnAFullMediumFailsWith62AndErrnoAsItStands) {
    fakeMedia().setWordAt(kMedium, 12, 0);
    for (const uint32_t count : {5U, 0U}) {
        observe();
        errno = kErrno;
        EXPECT_EQ(constraint_newEnumArray(&session, 4, static_cast<int32_t>(count)), kNone);
        EXPECT_TRUE(failedWith(62, kErrno, errorLine("constraint_newEnumArray", 106, {4, count, kErrno})));
        EXPECT_TRUE(mediaUnchanged());
        EXPECT_EQ(eventLog().count(Operation::alloc), 0U);
    }
}

TEST_F(EnumerationTest, ANewArrayAfterAFailedSplitFailsWith62) {
    faultPlan().add({.operation = Operation::mediaWrite, .skip = 1, .fault = returning(-1)});
    observe();
    errno = kErrno;
    EXPECT_EQ(constraint_newEnumArray(&session, 4, 5), kNone);
    EXPECT_EQ(session.errorCode, 62U);
    EXPECT_EQ(session.errorDetail, kErrno);
    EXPECT_EQ(fakeTrace().errors().back(), errorLine("constraint_newEnumArray", 106, {4, 5, kErrno}));
}

TEST_F(EnumerationTest, ANewArrayWithoutMemoryStillReturnsItsSlotWith86InTheSession) {
    faultPlan().add({.operation = Operation::alloc});
    observe();
    EXPECT_EQ(constraint_newEnumArray(&session, 4, 5), kFirstSlot);
    EXPECT_TRUE(failedWith(86, ENOMEM, errorLine("constraint_newEnumArray", 107, {kFirstSlot, 20, ENOMEM})));
    EXPECT_EQ(mediumLines().back(), "close");
}

TEST_F(EnumerationTest, ANewArrayWhoseFillIsShortStillReturnsItsSlotWith60InTheSession) {
    faultPlan().add({.operation = Operation::mediaWrite, .skip = 2, .fault = shortBy(1)});
    observe();
    errno = kErrno;
    EXPECT_EQ(constraint_newEnumArray(&session, 4, 5), kFirstSlot);
    EXPECT_EQ(session.errorCode, 60U);
    EXPECT_THAT(fakeTrace().errors(), ElementsAre(testing::HasSubstr("constraint_newEnumArray():[Error]:[104]")));
    EXPECT_THAT(eventLog().lines(Category::memory), ElementsAre("alloc 20", "free 20"));
}

TEST_F(EnumerationTest, ANewArrayOfNoPossibleLengthFailsWith62AndReservesNothing) {
    for (const NoLength no : kNoLengths) {
        observe();
        EXPECT_EQ(constraint_newEnumArray(&session, no.size, no.count), kNone) << no.size << '*' << no.count;
        EXPECT_TRUE(failedAt(62, "constraint_newEnumArray():[Error]:[106]"));
        EXPECT_TRUE(mediaUnchanged());
        EXPECT_EQ(eventLog().count(Operation::alloc), 0U);
    }
}

TEST_F(EnumerationTest, SetArrayWritesSizeTimesCountBytesInOneAccess) {
    const int32_t data[] = {1, -2, 3};
    observe();
    EXPECT_EQ(constraint_setEnumArray(&session, kArrayKey, 4, 3, data), 0);
    EXPECT_EQ(mediumText(kArrayKey, 12), hexWords(1, 0xFFFFFFFE, 3));
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "write 12@2000", "close"));
}

TEST_F(EnumerationTest, SetArrayLeavesAnEarlierErrorInTheSession) {
    session_setError(&session, kStaleError, 5);
    observe();
    EXPECT_EQ(constraint_setEnumArray(&session, kArrayKey, 4, 1, &kRecord), 0);
    EXPECT_TRUE(silent());
}

TEST_F(EnumerationTest, SetArrayWrittenShortDeliberatelyFailsWith61AndTheErrorWord) {
    faultPlan().add({.operation = Operation::mediaWrite, .fault = shortBy(1, ENOSPC)});
    const Bytes data(12);
    observe();
    errno = kErrno;
    EXPECT_EQ(constraint_setEnumArray(&session, kArrayKey, 4, 3, data.data()), 61);
    EXPECT_TRUE(failedWith(61, ENOSPC, errorLine("constraint_setEnumArray", 124, {kArrayKey, 12, 11, ENOSPC})));
    EXPECT_EQ(mediumLines().back(), "close");
}

TEST_F(EnumerationTest, SetArrayWrittenShortHasDetail0WithoutAnErrorWordWhateverErrnoIs) {
    faultPlan().add({.operation = Operation::mediaWrite, .fault = shortBy(1)});
    const Bytes data(12);
    observe();
    errno = kErrno;
    EXPECT_EQ(constraint_setEnumArray(&session, kArrayKey, 4, 3, data.data()), 61);
    EXPECT_TRUE(failedWith(61, 0, errorLine("constraint_setEnumArray", 124, {kArrayKey, 12, 11, 0})));
}

TEST_F(EnumerationTest, SetArrayThatClaimsMoreThanWasAskedForFailsWith61) {
    faultPlan().add({.operation = Operation::mediaWrite, .fault = moreBy(4)});
    const Bytes data(12);
    observe();
    EXPECT_EQ(constraint_setEnumArray(&session, kArrayKey, 4, 3, data.data()), 61);
    EXPECT_TRUE(failedWith(61, 0, errorLine("constraint_setEnumArray", 124, {kArrayKey, 12, kNone, 0})));
}

TEST_F(EnumerationTest, SetArrayIgnoresAFailingClose) {
    faultPlan().add({.operation = Operation::mediaClose});
    const Bytes data(12);
    observe();
    EXPECT_EQ(constraint_setEnumArray(&session, kArrayKey, 4, 3, data.data()), 0);
    EXPECT_TRUE(silent());
}

TEST_F(EnumerationTest, SetArrayOfNoPossibleLengthFailsWith61AndReachesNoMedium) {
    const Bytes data(12);
    for (const NoLength no : kNoLengths) {
        observe();
        EXPECT_EQ(constraint_setEnumArray(&session, kArrayKey, no.size, no.count, data.data()), 61);
        EXPECT_TRUE(
            failedWith(61, EINVAL, errorLine("constraint_setEnumArray", 124, {kArrayKey, kNone, kNone, EINVAL})));
        EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "close"));
        EXPECT_TRUE(mediaUnchanged());
    }
}

TEST_F(EnumerationTest, GetArrayReturnsABufferOfItsOwnThatTheCallerFrees) {
    put(kArrayKey, bytesOf(1, 2, 3));
    observe();
    void *const elements = constraint_getEnumArray(&session, kArrayKey, 4, 3);
    ASSERT_NE(elements, nullptr);
    const auto *const bytes = static_cast<const uint8_t *>(elements);
    EXPECT_EQ(hexText(Bytes(bytes, bytes + 12)), hexWords(1, 2, 3));
    EXPECT_EQ(tavOSWOrgFreeMemPart(0, elements), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("open constraint.med", "alloc 12", "read 12@2000", "close", "free 12"));
    EXPECT_TRUE(silent());
}

TEST_F(EnumerationTest, GetArrayReadShortFailsWith61AndFreesItsBuffer) {
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(1, EIO)});
    observe();
    EXPECT_EQ(constraint_getEnumArray(&session, kArrayKey, 4, 3), nullptr);
    EXPECT_TRUE(failedWith(61, EIO, errorLine("constraint_getEnumArray", 134, {kArrayKey, 12, 11, EIO})));
    EXPECT_THAT(eventLog().lines(Category::memory), ElementsAre("alloc 12", "free 12"));
    EXPECT_EQ(eventLog().count(Operation::mediaClose), 1U);
}

TEST_F(EnumerationTest, GetArrayThatClaimsMoreThanWasAskedForFailsWith61) {
    faultPlan().add({.operation = Operation::mediaRead, .fault = moreBy(4)});
    observe();
    EXPECT_EQ(constraint_getEnumArray(&session, kArrayKey, 4, 3), nullptr);
    EXPECT_TRUE(failedWith(61, 0, errorLine("constraint_getEnumArray", 134, {kArrayKey, 12, kNone, 0})));
}

TEST_F(EnumerationTest, GetArrayWithoutMemoryFailsWith86AndErrnoAndReadsNothing) {
    for (const int32_t count : {3, 0}) {
        faultPlan().add({.operation = Operation::alloc});
        observe();
        EXPECT_EQ(constraint_getEnumArray(&session, kArrayKey, 4, count), nullptr);
        EXPECT_TRUE(failedWith(
            86, ENOMEM,
            errorLine("constraint_getEnumArray", 136, {kArrayKey, 4, static_cast<uint32_t>(count), ENOMEM})));
        EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "close"));
    }
}

TEST_F(EnumerationTest, GetArrayOfNoPossibleLengthFailsWith86AndAsksForNoMemory) {
    for (const NoLength no : kNoLengths) {
        observe();
        EXPECT_EQ(constraint_getEnumArray(&session, kArrayKey, no.size, no.count), nullptr);
        EXPECT_TRUE(failedAt(86, "constraint_getEnumArray():[Error]:[136]"));
        EXPECT_EQ(eventLog().count(Operation::alloc), 0U);
        EXPECT_EQ(eventLog().count(Operation::mediaRead), 0U);
    }
}

TEST_F(EnumerationTest, ANewRecordIsTwentyBytesKeyTypeArraySizeCount) {
    tavDBMEnumeration mine = {0xFFFFFFFF, 1024, kArrayKey, 4, 3};
    ASSERT_EQ(enum_new(&session, &mine), &mine);
    EXPECT_EQ(mine.key, kFirstSlot);
    EXPECT_EQ(mediumText(kFirstSlot, 20), hexWords(kFirstSlot, 1024, kArrayKey, 4, 3));
    EXPECT_EQ(fakeMedia().wordAt(kMedium, 12), kFirstSlot + 20);
}

TEST_F(EnumerationTest, ANewRecordOnAFullMediumFailsWith62AndWritesNothing) {
    fakeMedia().setWordAt(kMedium, 12, 0);
    tavDBMEnumeration mine = kRecord;
    observe();
    errno = kErrno;
    EXPECT_EQ(enum_new(&session, &mine), nullptr);
    EXPECT_TRUE(failedWith(62, kErrno, errorLine("enum_new", 156, {20, kErrno})));
    EXPECT_TRUE(mediaUnchanged());
}

TEST_F(EnumerationTest, ANewRecordThatIsMissingFailsWith89WithoutAnAccess) {
    observe();
    EXPECT_EQ(enum_new(&session, nullptr), nullptr);
    EXPECT_TRUE(failedWith(89, 0, errorLine("enum_new", 157)));
    EXPECT_THAT(mediumLines(), testing::IsEmpty());
}

TEST_F(EnumerationTest, ANewRecordWrittenShortFailsWith60AndErrnoAsItStands) {
    faultPlan().add({.operation = Operation::mediaWrite, .skip = 2, .fault = shortBy(1)});
    tavDBMEnumeration mine = kRecord;
    observe();
    errno = kErrno;
    EXPECT_EQ(enum_new(&session, &mine), nullptr);
    EXPECT_TRUE(failedWith(60, kErrno, errorLine("enum_new", 154, {kFirstSlot, 20, 19, kErrno})));
    EXPECT_EQ(mediumLines().back(), "close");
}

TEST_F(EnumerationTest, GetReadsTheRecordInOneAccess) {
    putEnumeration(typeRow("S32"), Bytes(12));
    tavDBMEnumeration record;
    observe();
    EXPECT_EQ(enum_get(&session, kKey, &record), &record);
    EXPECT_EQ(hexText(bytesOf(record)), hexWords(kKey, 1024, kArrayKey, 4, 3));
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "read 20@1000", "close"));
    EXPECT_TRUE(silent());
}

TEST_F(EnumerationTest, GetReadShortFailsWith61AndTheErrorWord) {
    putEnumeration(typeRow("S32"), Bytes(12));
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(1, EIO)});
    tavDBMEnumeration record;
    observe();
    errno = kErrno;
    EXPECT_EQ(enum_get(&session, kKey, &record), nullptr);
    EXPECT_TRUE(failedWith(61, EIO, errorLine("enum_get", 164, {kKey, 20, 19, EIO})));
}

TEST_F(EnumerationTest, SetWritesTheRecordAtItsKeyAndClearsAnEarlierError) {
    session_setError(&session, kStaleError, 5);
    observe();
    EXPECT_EQ(enum_set(&session, &kRecord), 0);
    EXPECT_EQ(mediumText(kKey, 20), hexWords(kKey, 1024, kArrayKey, 4, 3));
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "write 20@1000", "close"));
    EXPECT_TRUE(failed(session, 0, 0, {}));
}

TEST_F(EnumerationTest, SetWrittenShortRecords60AndReturnsTheClosesResult) {
    faultPlan().add({.operation = Operation::mediaWrite, .fault = shortBy(1)});
    observe();
    EXPECT_EQ(enum_set(&session, &kRecord), 0);
    EXPECT_EQ(session.errorCode, 60U);
    EXPECT_THAT(fakeTrace().errors(), ElementsAre(testing::HasSubstr("enum_set():[Error]:[174]")));
}

TEST_F(EnumerationTest, SetReturnsAFailingClosesResult) {
    faultPlan().add({.operation = Operation::mediaClose, .fault = returning(-5, EIO)});
    observe();
    EXPECT_EQ(enum_set(&session, &kRecord), -5);
    EXPECT_TRUE(failed(session, 0, 0, {}));
}

TEST_F(EnumerationTest, SetDataWritesIntoTheRecordsArray) {
    putEnumeration(typeRow("S32"), Bytes(12));
    const int32_t data[] = {5, 6, 7};
    observe();
    EXPECT_EQ(enum_setData(&session, kKey, 4, 3, data), 0);
    EXPECT_EQ(mediumText(kArrayKey, 12), hexWords(5, 6, 7));
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "read 20@1000", "close",  //
                                           "open constraint.med", "write 12@2000", "close"));
}

TEST_F(EnumerationTest, SetDataDeliberatelyWritesMoreThanTheSlotWasMadeFor) {
    putEnumeration(typeRow("S32"), bytesOf(1, 2));
    const int32_t data[] = {5, 6, 7};
    EXPECT_EQ(enum_setData(&session, kKey, 4, 3, data), 0);
    EXPECT_EQ(mediumText(kArrayKey, 12), hexWords(5, 6, 7));
    EXPECT_EQ(mediumText(kKey, 20), hexWords(kKey, 1024, kArrayKey, 4, 2));
}

TEST_F(EnumerationTest, SetDataDeliberatelyLeavesTheOldTailInPlaceAndTheCountOverIt) {
    putEnumeration(typeRow("S32"), bytesOf(1, 2, 3));
    const int32_t data[] = {5};
    EXPECT_EQ(enum_setData(&session, kKey, 4, 1, data), 0);
    EXPECT_EQ(mediumText(kArrayKey, 12), hexWords(5, 2, 3));
    EXPECT_EQ(mediumText(kKey, 20), hexWords(kKey, 1024, kArrayKey, 4, 3));
    const int32_t tail = 3;
    EXPECT_EQ(checkEnumS32(&session, kKey, 4, &tail, 4), 0);
}

TEST_F(EnumerationTest, SetDataDeliberatelyComparesNoSizeWithTheRecords) {
    putEnumeration(typeRow("S32"), bytesOf(1, 2));
    const Bytes data = {9, 8, 7};
    EXPECT_EQ(enum_setData(&session, kKey, 1, 3, data.data()), 0);
    EXPECT_EQ(hexText(fakeMedia().bytesAt(kMedium, kArrayKey, 3)), "09 08 07");
    EXPECT_EQ(mediumText(kKey, 20), hexWords(kKey, 1024, kArrayKey, 4, 2));
}

TEST_F(EnumerationTest, SetDataReturnsAShortWritesCode) {
    putEnumeration(typeRow("S32"), Bytes(12));
    faultPlan().add({.operation = Operation::mediaWrite, .fault = shortBy(4, EIO)});
    const Bytes data(12);
    observe();
    EXPECT_EQ(enum_setData(&session, kKey, 4, 3, data.data()), 61);
    EXPECT_TRUE(failedWith(61, EIO, errorLine("constraint_setEnumArray", 124, {kArrayKey, 12, 8, EIO})));
}

TEST_F(EnumerationTest, SetDataOfARecordThatCannotBeReadDeliberatelyTracesAndReturns0) {
    putEnumeration(typeRow("S32"), Bytes(12));
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(1, EIO)});
    const Bytes data(12, 0xEE);
    observe();
    EXPECT_EQ(enum_setData(&session, kKey, 4, 3, data.data()), 0);
    EXPECT_TRUE(failed(session, 61, EIO,
                       {errorLine("enum_get", 164, {kKey, 20, 19, EIO}), errorLine("enum_setData", 180, {kKey, 61})}));
    EXPECT_TRUE(mediaUnchanged());
}

TEST_F(EnumerationTest, IsBuiltArrayFirstThenRecordThenElementsAndReadBackThroughItsData) {
    tavDBMEnumeration mine = {0, 1024, 0, 4, 3};
    mine.arrayKey = constraint_newEnumArray(&session, 4, 3);
    ASSERT_EQ(enum_new(&session, &mine), &mine);
    const int32_t data[] = {3, 7, 7};
    ASSERT_EQ(constraint_setData(&session, mine.key, data, sizeof data), 0);
    EXPECT_EQ(mediumText(kFirstSlot, 32), hexWords(3, 7, 7, kFirstSlot + 12, 1024, kFirstSlot, 4, 3));
    int32_t back[3];
    EXPECT_EQ(constraint_getData(&session, mine.key, back, constraint_getLength(&session, mine.key)), 0);
    EXPECT_EQ(hexText(bytesOf(back)), hexWords(3, 7, 7));
}

}  // namespace
}  // namespace tavdb_test
