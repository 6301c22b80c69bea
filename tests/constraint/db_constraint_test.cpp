// SPDX-License-Identifier: Apache-2.0
// Constraints whatever their kind: the header, the length of the data, and the
// way from a type code to the functions of that type. What those functions do is
// tested with them.
#include <cerrno>
#include <limits>

#include "constraint/constraint_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int32_t kUnknownTypes[] = {0, 1, 12, 255, 511, 513, 256, 2817, 3072, -1, std::numeric_limits<int32_t>::min()};

TEST_F(ConstraintTest, InitAndTermDoNothingAndReturn0) {
    observe();
    EXPECT_EQ(constraint_init(), 0);
    EXPECT_EQ(constraint_term(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

TEST_F(ConstraintTest, NewReservesEightBytesAndStoresTheirOffset) {
    uint32_t key = 0;
    ASSERT_EQ(constraint_new(&session, &key), &key);
    EXPECT_EQ(key, kFirstSlot);
    EXPECT_EQ(fakeMedia().wordAt(kMedium, 12), kFirstSlot + 8);
}

TEST_F(ConstraintTest, NewOnlyReservesSoThatGetReturnsWhatTheMediumHoldsThere) {
    const Bytes old = {0xDE, 0xC0, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06};
    put(4000, joined({bytesOf(0, 8)}));  // the only free block is one of exactly the header's size
    fakeMedia().setWordAt(kMedium, 12, 4000);
    uint32_t key = 0;
    ASSERT_EQ(constraint_new(&session, &key), &key);
    put(4000, old);
    Bytes buffer(8);
    ASSERT_EQ(constraint_get(&session, key, buffer.data()), buffer.data());
    EXPECT_EQ(buffer, old);
}

TEST_F(ConstraintTest, NewWritesNothingIntoTheSlot) {
    put(kFirstSlot, bytesOf(0, 8));
    observe();
    uint32_t key = 0;
    ASSERT_EQ(constraint_new(&session, &key), &key);
    EXPECT_EQ(mediumText(kFirstSlot, 8), hexWords(0, 8));
}

TEST_F(ConstraintTest, NewKeepsTheMediumOpenAroundTheReservation) {
    uint32_t key = 0;
    observe();
    ASSERT_EQ(constraint_new(&session, &key), &key);
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med",                         //
                                           "open constraint.med", "read 4@12", "close",   //
                                           "open constraint.med", "read 8@16", "close",   //
                                           "open constraint.med", "write 4@12", "close",  //
                                           "open constraint.med", "write 8@24", "close",  //
                                           "close"));
}

TEST_F(ConstraintTest, NewOnAFullMediumFailsWith62AndErrnoAsItStands) {
    fakeMedia().setWordAt(kMedium, 12, 0);
    uint32_t key = 5;
    observe();
    errno = kErrno;
    EXPECT_EQ(constraint_new(&session, &key), nullptr);
    EXPECT_TRUE(failedWith(62, kErrno, errorLine("constraint_new", 106, {8, kErrno})));
    EXPECT_TRUE(mediaUnchanged());
    EXPECT_EQ(key, 5U);
}

TEST_F(ConstraintTest, NewWithoutAKeyFailsWith89WithoutAnAccess) {
    observe();
    EXPECT_EQ(constraint_new(&session, nullptr), nullptr);
    EXPECT_TRUE(failedWith(89, 0, errorLine("constraint_new", 107)));
    EXPECT_THAT(mediumLines(), testing::IsEmpty());
}

TEST_F(ConstraintTest, NewAfterAFailedSplitFailsWith62) {
    faultPlan().add({.operation = Operation::mediaWrite, .skip = 1, .fault = returning(-1)});
    uint32_t key = 5;
    observe();
    errno = kErrno;
    EXPECT_EQ(constraint_new(&session, &key), nullptr);
    EXPECT_EQ(session.errorCode, 62U);
    EXPECT_EQ(session.errorDetail, kErrno);
    EXPECT_EQ(key, 5U);
}

TEST_F(ConstraintTest, TheHeaderIsKeyAndTypeAndWrittenWhole) {
    const tavDBMConstraint header = {kKey, 1024};
    observe();
    EXPECT_EQ(constraint_set(&session, &header), 0);
    EXPECT_EQ(mediumText(kKey, 8), hexWords(kKey, 1024));
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "write 8@1000", "close"));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(ConstraintTest, SetInFullClearsAnEarlierError) {
    const tavDBMConstraint header = {kKey, 4};
    session_setError(&session, kStaleError, 5);
    observe();
    EXPECT_EQ(constraint_set(&session, &header), 0);
    EXPECT_TRUE(failed(session, 0, 0, {}));
}

TEST_F(ConstraintTest, SetWrittenShortRecords60WithTheErrorWordAndReturnsTheClosesResult) {
    const tavDBMConstraint header = {kKey, 4};
    faultPlan().add({.operation = Operation::mediaWrite, .fault = shortBy(1, ENOSPC)});
    observe();
    EXPECT_EQ(constraint_set(&session, &header), 0);
    EXPECT_TRUE(failedWith(60, ENOSPC, errorLine("constraint_set", 114, {kKey, 8, 7, ENOSPC})));
    EXPECT_EQ(mediumLines().back(), "close");
}

TEST_F(ConstraintTest, SetAtKeyZeroRecords60AndNeverReachesTheHeader) {
    const tavDBMConstraint header = {0, 4};
    observe();
    EXPECT_EQ(constraint_set(&session, &header), 0);
    EXPECT_TRUE(failedWith(60, EINVAL, errorLine("constraint_set", 114, {0, 8, 0xFFFFFFFF, EINVAL})));
    EXPECT_TRUE(mediaUnchanged());
}

TEST_F(ConstraintTest, SetReturnsAFailingClosesResult) {
    const tavDBMConstraint header = {kKey, 4};
    faultPlan().add({.operation = Operation::mediaClose, .fault = returning(-5, EIO)});
    observe();
    EXPECT_EQ(constraint_set(&session, &header), -5);
    EXPECT_TRUE(failed(session, 0, 0, {}));
}

TEST_F(ConstraintTest, GetReadsTheHeaderInOneAccess) {
    putHeader(513);
    Bytes buffer(8, 0xEE);
    observe();
    EXPECT_EQ(constraint_get(&session, kKey, buffer.data()), buffer.data());
    EXPECT_EQ(hexText(buffer), hexWords(kKey, 513));
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "read 8@1000", "close"));
    EXPECT_TRUE(silent());
}

TEST_F(ConstraintTest, GetLeavesAnEarlierErrorInTheSession) {
    putHeader(4);
    session_setError(&session, kStaleError, 5);
    observe();
    Bytes buffer(8);
    EXPECT_NE(constraint_get(&session, kKey, buffer.data()), nullptr);
    EXPECT_TRUE(silent());
}

TEST_F(ConstraintTest, GetReadShortFailsWith61AndTheErrorWordAndAPartlyFilledBuffer) {
    putHeader(4);
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(3, EIO)});
    Bytes buffer(8, 0xEE);
    observe();
    EXPECT_EQ(constraint_get(&session, kKey, buffer.data()), nullptr);
    EXPECT_TRUE(failedWith(61, EIO, errorLine("constraint_get", 124, {kKey, 8, 5, EIO})));
    const Bytes stored = bytesOf(kKey, 4);
    EXPECT_EQ(hexText(buffer), hexText(Bytes(stored.begin(), stored.begin() + 5)) + " ee ee ee");
    EXPECT_EQ(mediumLines().back(), "close");
}

TEST_F(ConstraintTest, GetTypeOfARecordThatCannotBeReadIs0WithTheReadErrorInTheSession) {
    putHeader(4);
    faultPlan().add({.operation = Operation::mediaRead, .fault = shortBy(1, EIO)});
    observe();
    EXPECT_EQ(constraint_getType(&session, kKey), 0);
    EXPECT_TRUE(failedWith(61, EIO, errorLine("constraint_get", 124, {kKey, 8, 7, EIO})));
}

TEST_F(ConstraintTest, GetTypeReturnsAnyCodeUnchecked) {
    for (const int32_t type : kUnknownTypes) {
        putHeader(type);
        observe();
        EXPECT_EQ(constraint_getType(&session, kKey), type);
        EXPECT_TRUE(silent());
    }
}

TEST_F(ConstraintTest, GetLengthOfAnUnknownTypeIs0With70) {
    for (const int32_t type : kUnknownTypes) {
        putHeader(type);
        observe();
        EXPECT_EQ(constraint_getLength(&session, kKey), 0);
        EXPECT_TRUE(failedWith(70, 0, errorLine("constraint_getLength", 130, {kKey, static_cast<uint32_t>(type)})));
    }
}

TEST_F(ConstraintTest, GetDataOfAnUnknownTypeFailsWith70AndLeavesTheBuffer) {
    for (const int32_t type : kUnknownTypes) {
        putHeader(type);
        Bytes buffer(24, 0xEE);
        observe();
        EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), 24), 70);
        EXPECT_TRUE(failedWith(70, 0, errorLine("constraint_getData", 140, {kKey, 24, static_cast<uint32_t>(type)})));
        EXPECT_EQ(buffer, Bytes(24, 0xEE));
    }
}

TEST_F(ConstraintTest, SetDataOfAnUnknownTypeFailsWith70AndWritesNothing) {
    for (const int32_t type : kUnknownTypes) {
        putHeader(type);
        const Bytes data(24, 0xEE);
        observe();
        EXPECT_EQ(constraint_setData(&session, kKey, data.data(), 24), 70);
        EXPECT_TRUE(failedWith(70, 0, errorLine("constraint_setData", 150, {kKey, 24, static_cast<uint32_t>(type)})));
        EXPECT_TRUE(mediaUnchanged());
    }
}

TEST_F(ConstraintTest, SetDataOnAnS16RangeWithFiveBytesFailsWith65) {
    putRange(typeRow("S16"), 10, 20, 5);
    const Bytes data(8);
    observe();
    EXPECT_EQ(constraint_setData(&session, kKey, data.data(), 5), 65);
    EXPECT_TRUE(failedWith(65, 0, errorLine("rangeS16_setData", 350, {kKey, 5, 6})));
    EXPECT_TRUE(mediaUnchanged());
}

TEST_F(ConstraintTest, SetDataOnAnS16RangeWithSevenBytesFailsWith65) {
    putRange(typeRow("S16"), 10, 20, 5);
    const Bytes data(8);
    observe();
    EXPECT_EQ(constraint_setData(&session, kKey, data.data(), 7), 65);
    EXPECT_TRUE(failedWith(65, 0, errorLine("rangeS16_setData", 350, {kKey, 7, 6})));
    EXPECT_TRUE(mediaUnchanged());
}

TEST_F(ConstraintTest, SetDataOnAnS16EnumerationWithSevenBytesWritesThreeElements) {
    const int16_t before[] = {1, 2, 3, 4};
    const int16_t data[] = {10, 20, 30, 40};
    putEnumeration(typeRow("S16"), bytesOf(before));
    observe();
    EXPECT_EQ(constraint_setData(&session, kKey, data, 7), 0);
    const int16_t expected[] = {10, 20, 30, 4};
    EXPECT_EQ(mediumText(kArrayKey, 8), hexText(bytesOf(expected)));
    EXPECT_EQ(mediumLines()[7], "write 6@2000");
}

TEST_F(ConstraintTest, SetDataOnAnEnumerationWithANegativeLengthFailsWith61AndReachesNoMedium) {
    putEnumeration(typeRow("S32"), Bytes(8));
    const Bytes data(8);
    observe();
    EXPECT_EQ(constraint_setData(&session, kKey, data.data(), -8), 61);
    EXPECT_TRUE(
        failedWith(61, EINVAL, errorLine("constraint_setEnumArray", 124, {kArrayKey, 0xFFFFFFFF, 0xFFFFFFFF, EINVAL})));
    EXPECT_TRUE(mediaUnchanged());
}

TEST_F(ConstraintTest, GetDataOfAnEnumerationWithoutABufferFailsWith72) {
    putEnumeration(typeRow("S32"), Bytes(12));
    EXPECT_EQ(constraint_getData(&session, kKey, nullptr, 12), 72);
}

TEST_F(ConstraintTest, GetDataOfAnEnumerationIntoABufferThatIsTooSmallFailsWith72AndReadsNoArray) {
    putEnumeration(typeRow("S32"), Bytes(12));
    for (const int32_t length : {11, 0, -1}) {
        Bytes buffer(12, 0xEE);
        observe();
        EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), length), 72);
        EXPECT_TRUE(failedWith(72, 0, errorLine("constraint_getData", 141, {kKey, static_cast<uint32_t>(length), 12})));
        EXPECT_EQ(buffer, Bytes(12, 0xEE));
        EXPECT_EQ(eventLog().count(Operation::mediaRead), 2U);  // header and record
        EXPECT_EQ(eventLog().count(Operation::alloc), 0U);
    }
}

TEST_F(ConstraintTest, GetDataOfAnEnumerationGivesItsBufferBack) {
    putEnumeration(typeRow("S32"), Bytes(12));
    Bytes buffer(12);
    observe();
    EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), 12), 0);
    EXPECT_THAT(eventLog().lines(Category::memory), ElementsAre("alloc 12", "free 12"));
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "read 8@1000", "close",   //
                                           "open constraint.med", "read 20@1000", "close",  //
                                           "open constraint.med", "read 12@2000", "close"));
}

TEST_F(ConstraintTest, GetDataOfAnEnumerationWithoutMemoryFailsWith86) {
    putEnumeration(typeRow("S32"), Bytes(12));
    faultPlan().add({.operation = Operation::alloc});
    Bytes buffer(12, 0xEE);
    observe();
    EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), 12), 86);
    EXPECT_TRUE(failedWith(86, ENOMEM, errorLine("constraint_getEnumArray", 136, {kArrayKey, 4, 3, ENOMEM})));
    EXPECT_EQ(buffer, Bytes(12, 0xEE));
}

TEST_F(ConstraintTest, GetDataOfAnEnumerationWhoseRecordCannotBeReadReturnsItsError) {
    putEnumeration(typeRow("S32"), Bytes(12));
    faultPlan().add({.operation = Operation::mediaRead, .skip = 1, .fault = shortBy(1, EIO)});
    Bytes buffer(12, 0xEE);
    observe();
    EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), 12), 61);
    EXPECT_TRUE(failedWith(61, EIO, errorLine("enum_get", 164, {kKey, 20, 19, EIO})));
    EXPECT_EQ(buffer, Bytes(12, 0xEE));
}

TEST_F(ConstraintTest, GetLengthOfAnEnumerationWhoseRecordCannotBeReadIs0) {
    putEnumeration(typeRow("S32"), Bytes(12));
    faultPlan().add({.operation = Operation::mediaRead, .skip = 1, .fault = shortBy(1, EIO)});
    observe();
    EXPECT_EQ(constraint_getLength(&session, kKey), 0);
    EXPECT_TRUE(failedWith(61, EIO, errorLine("enum_get", 164, {kKey, 20, 19, EIO})));
}

TEST_F(ConstraintTest, GetLengthOfAnEnumerationIsTheRecordsSizeTimesCountWhateverItsType) {
    putEnumeration(typeRow("S8"), 24, 5, {});
    EXPECT_EQ(constraint_getLength(&session, kKey), 120);
}

TEST_F(ConstraintTest, GetLengthWrapsAProductThatOverflows) {
    putEnumeration(typeRow("S8"), 0x10000, 0x10003, {});
    observe();
    EXPECT_EQ(constraint_getLength(&session, kKey), 0x30000);
    EXPECT_TRUE(silent());
}

TEST_F(ConstraintTest, GetDataOfAProductThatOverflowsFailsWith86AndTouchesNoMemory) {
    for (const int32_t count : {0x10000, 0x10001}) {
        putEnumeration(typeRow("S8"), 0x10000, count, {});
        Bytes buffer(0x10000, 0xEE);
        observe();
        EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), 0x10000), 86);
        EXPECT_EQ(session.errorCode, 86U);
        EXPECT_EQ(buffer, Bytes(0x10000, 0xEE));
        EXPECT_EQ(eventLog().count(Operation::alloc), 0U);
    }
}

TEST_F(ConstraintTest, GetDataOfANegativeCountTouchesNoMemory) {
    putEnumeration(typeRow("S32"), 4, -1, {});
    Bytes buffer(8, 0xEE);
    observe();
    EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), 8), 86);
    EXPECT_EQ(session.errorCode, 86U);
    EXPECT_EQ(eventLog().count(Operation::alloc), 0U);
    EXPECT_EQ(buffer, Bytes(8, 0xEE));
    EXPECT_TRUE(mediaUnchanged());
}

TEST_F(ConstraintTest, GetDataOfAnEmptyEnumerationSucceedsAndTouchesNoByte) {
    putEnumeration(typeRow("S32"), {});
    Bytes buffer(4, 0xEE);
    observe();
    EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), 0), 0);
    EXPECT_EQ(buffer, Bytes(4, 0xEE));
    EXPECT_TRUE(silent());
}

}  // namespace
}  // namespace tavdb_test
