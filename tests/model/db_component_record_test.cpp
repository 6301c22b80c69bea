// SPDX-License-Identifier: Apache-2.0
// The six functions that read and write component records: one access each, and
// what each failure of that access gives back, records, traces and leaves. The
// numbers in trace lines are sites of the library and fixed for good.
#include <errno.h>

#include <array>
#include <bit>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kName = 0x5A5A5A5A;

struct Reader : Named {
    int32_t site;  ///< the first of the function's sites
    uint32_t sizeBytes;
    void *(*read)(tavDBMSession *, uint32_t, void *);
};

struct Writer : Named {
    int32_t site;
    uint32_t sizeBytes;
    int32_t (*write)(tavDBMSession *, const void *);
};

constexpr Reader kReaders[] = {{"comp_getComponent", 100, 24, comp_getComponent},
                               {"comp_getNode", 110, 28, comp_getNode},
                               {"comp_getLeaf", 120, 40, comp_getLeaf}};
constexpr Writer kWriters[] = {{"comp_setComponent", 130, 24, comp_setComponent},
                               {"comp_setNode", 140, 28, comp_setNode},
                               {"comp_setLeaf", 150, 40, comp_setLeaf}};

/// A leaf with something in every field, of which each function sees the front.
class RecordTest : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        at = putLeaf("leaf", root, {.currentValue = 11, .defaultValue = 12, .factoryValue = 13, .hookId = 14});
        putOldError();
    }

    void planOpenFailure() {
        faultPlan().add({.operation = Operation::mediaOpen, .subject = kComponents});
    }

    uint32_t at = 0;
};

class RecordReadTest : public RecordTest, public testing::WithParamInterface<Reader> {
protected:
    void *read(tavDBMSession *to) {
        buffer.fill(0xEE);
        return GetParam().read(to, at, buffer.data());
    }
    void *read() {
        return read(&session);
    }
    std::string errorAt(int32_t step, std::initializer_list<uint32_t> words) {
        return errorLine(GetParam().name, GetParam().site + step, words);
    }
    void planRead(const Fault &fault) {
        faultPlan().add({.operation = Operation::mediaRead, .subject = kComponents, .fault = fault});
    }

    std::array<uint8_t, 64> buffer{};
    const uint32_t size = GetParam().sizeBytes;
};

INSTANTIATE_TEST_SUITE_P(All, RecordReadTest, testing::ValuesIn(kReaders), kRowName);

TEST_P(RecordReadTest, TakesOneAccessAndReadsExactlyTheRecord) {
    EXPECT_EQ(read(), buffer.data());
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("open component.med", "read " + std::to_string(size) + '@' + std::to_string(at), "close"));
    EXPECT_EQ(hexText(std::span(buffer).first(size)), hexAt(kComponents, at, size));
    EXPECT_EQ(hexText(std::span(buffer).subspan(size, 4)), "ee ee ee ee");
}

TEST_P(RecordReadTest, ASuccessLeavesAnEarlierErrorInTheSession) {
    EXPECT_NE(read(), nullptr);
    EXPECT_TRUE(oldErrorIsThere());
}

TEST_P(RecordReadTest, AMediumThatDoesNotOpenIsCode53WithTheErrorWord) {
    planOpenFailure();
    EXPECT_EQ(read(), nullptr);
    EXPECT_TRUE(recorded(53, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(3, {at, kMinusOne, EIO})));
}

TEST_P(RecordReadTest, AShortReadIsCode55WithTheErrorWord) {
    planRead(shortBy(1, ENODEV));
    EXPECT_EQ(read(), nullptr);
    EXPECT_TRUE(recorded(55, ENODEV));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(4, {at, size, size - 1, ENODEV})));
}

TEST_P(RecordReadTest, AFailedReadIsCode55WithTheErrorWord) {
    planRead(returning(-1, EIO));
    EXPECT_EQ(read(), nullptr);
    EXPECT_TRUE(recorded(55, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(4, {at, size, kMinusOne, EIO})));
}

TEST_P(RecordReadTest, ACountOfMoreThanWasAskedForIsAFailedRead) {
    planRead(moreBy(1));
    EXPECT_EQ(read(), nullptr);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(4, {at, size, kMinusOne, 0})));
}

TEST_P(RecordReadTest, AReadAcrossTheEndOfTheMediumIsCode55) {
    at = kRecordMediumSize - 20;
    EXPECT_EQ(read(), nullptr);
    EXPECT_TRUE(recorded(55, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(4, {at, size, 20, 0})));
}

TEST_P(RecordReadTest, ADatabaseThatIsNotOpenIsCode83WithoutAnAccess) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(read(), nullptr);
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(0, {at, kNotOpenDb})));
    EXPECT_THAT(eventLog().lines(Category::media), IsEmpty());
    session.dbId = 1;
}

TEST_P(RecordReadTest, AMediumThatIsNotConfiguredIsTracedButTheErrorIsTheMediaTables) {
    const NoMedia none;
    EXPECT_EQ(read(), nullptr);
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("getMedia", 240, {kComponentMedia}), errorAt(1, {at})}));
    EXPECT_EQ(accesses(), 0U);
}

TEST_P(RecordReadTest, WithoutASessionNothingIsRead) {
    EXPECT_EQ(read(nullptr), nullptr);
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(0, {at, 0})));
    EXPECT_EQ(accesses(), 0U);
}

TEST_P(RecordReadTest, WithoutABufferTheMediumIsNotRead) {
    EXPECT_EQ(GetParam().read(&session, at, nullptr), nullptr);
    EXPECT_TRUE(recorded(55, EFAULT));
    EXPECT_THAT(eventLog().lines(Category::media), ElementsAre("open component.med", "close"));
}

TEST_P(RecordReadTest, AFailingCloseIsIgnored) {
    faultPlan().add({.operation = Operation::mediaClose, .subject = kComponents});
    EXPECT_EQ(read(), buffer.data());
    EXPECT_TRUE(oldErrorIsThere());
    EXPECT_TRUE(fakeTrace().noErrors());
}

class RecordWriteTest : public RecordTest, public testing::WithParamInterface<Writer> {
protected:
    void SetUp() override {
        RecordTest::SetUp();
        record = leaf(at);
        record.component.name = kName;
        record.component.kind = 0x11223344;
        record.hookId = 0x55667788;
        before = fakeMedia().snapshotAll();
    }
    int32_t write(tavDBMSession *to) {
        return GetParam().write(to, &record);
    }
    int32_t write() {
        return write(&session);
    }
    std::string errorAt(int32_t step, std::initializer_list<uint32_t> words) {
        return errorLine(GetParam().name, GetParam().site + step, words);
    }
    std::string hintLine() {
        return errorTextLine(GetParam().name, GetParam().site + 5, kComponents);
    }
    void planWrite(const Fault &fault) {
        faultPlan().add({.operation = Operation::mediaWrite, .subject = kComponents, .fault = fault});
    }
    testing::AssertionResult nothingChanged() const {
        const auto changes = fakeMedia().changesSince(before);
        return changes.empty() ? testing::AssertionSuccess()
                               : testing::AssertionFailure() << testing::PrintToString(changes);
    }

    tavDBMLeaf record{};
    MediaImage before;
    const uint32_t size = GetParam().sizeBytes;
};

INSTANTIATE_TEST_SUITE_P(All, RecordWriteTest, testing::ValuesIn(kWriters), kRowName);

TEST_P(RecordWriteTest, TakesOneAccessAndWritesExactlyTheRecordAtItsKey) {
    EXPECT_EQ(write(), 0);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("open component.med", "write " + std::to_string(size) + '@' + std::to_string(at), "close"));
    Bytes expected = before[kComponents];
    memcpy(expected.data() + at, &record, size);
    EXPECT_THAT(differences(expected, fakeMedia().snapshot(kComponents)), IsEmpty());
}

TEST_P(RecordWriteTest, ASuccessDoesNotClearAnEarlierErrorInTheSession) {
    EXPECT_EQ(write(), 0);
    EXPECT_TRUE(oldErrorIsThere());
}

TEST_P(RecordWriteTest, AMediumThatDoesNotOpenIsCode53WithTheErrorWord) {
    planOpenFailure();
    EXPECT_EQ(write(), 53);
    EXPECT_TRUE(recorded(53, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(3, {at, kMinusOne, EIO})));
    EXPECT_TRUE(nothingChanged());
}

TEST_P(RecordWriteTest, AShortWriteIsCode54AndTracesTheHintAsWell) {
    planWrite(shortBy(1, ENOSPC));
    EXPECT_EQ(write(), 54);
    EXPECT_TRUE(recorded(54, ENOSPC));
    EXPECT_TRUE(fakeTrace().errorsAre({errorAt(4, {at, size, size - 1, ENOSPC}), hintLine()}));
    EXPECT_THAT(fakeMedia().openDescriptors(), IsEmpty());
}

TEST_P(RecordWriteTest, AFailedWriteIsCode54AndChangesNothing) {
    planWrite(returning(-1, EROFS));
    EXPECT_EQ(write(), 54);
    EXPECT_TRUE(recorded(54, EROFS));
    EXPECT_TRUE(fakeTrace().errorsAre({errorAt(4, {at, size, kMinusOne, EROFS}), hintLine()}));
    EXPECT_TRUE(nothingChanged());
}

TEST_P(RecordWriteTest, ACountOfMoreThanWasAskedForIsAFailedWrite) {
    planWrite(moreBy(3));
    EXPECT_EQ(write(), 54);
    EXPECT_TRUE(recorded(54, 0));
    EXPECT_TRUE(fakeTrace().errorsAre({errorAt(4, {at, size, kMinusOne, 0}), hintLine()}));
}

// A key of 0 is that of a damaged record or of a buffer that was never filled; the medium's header stands there.
TEST_P(RecordWriteTest, ARecordWithKeyZeroIsCode54AndNeverReachesTheHeader) {
    record.component.key = 0;
    EXPECT_EQ(write(), 54);
    EXPECT_TRUE(recorded(54, EINVAL));
    EXPECT_TRUE(fakeTrace().errorsAre({errorAt(4, {0, size, kMinusOne, EINVAL}), hintLine()}));
    EXPECT_THAT(eventLog().lines(Category::media), ElementsAre("open component.med", "close"));
    EXPECT_TRUE(nothingChanged());
}

TEST_P(RecordWriteTest, ADatabaseThatIsNotOpenIsCode83WithoutAnAccess) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(write(), 83);
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(0, {at, kNotOpenDb})));
    EXPECT_EQ(accesses(), 0U);
    session.dbId = 1;
}

TEST_P(RecordWriteTest, AMediumThatIsNotConfiguredGivesTheSessionsLastError) {
    const NoMedia none;
    EXPECT_EQ(write(), 21);
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("getMedia", 240, {kComponentMedia}), errorAt(1, {at})}));
    EXPECT_TRUE(nothingChanged());
}

TEST_P(RecordWriteTest, WithoutASessionNothingIsWritten) {
    EXPECT_EQ(write(nullptr), 83);
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(0, {at, 0})));
    EXPECT_TRUE(nothingChanged());
}

TEST_P(RecordWriteTest, WithoutARecordNothingIsWritten) {
    EXPECT_EQ(GetParam().write(&session, nullptr), 54);
    EXPECT_TRUE(recorded(54, EFAULT));
    EXPECT_TRUE(nothingChanged());
    EXPECT_THAT(eventLog().lines(Category::media), ElementsAre("open component.med", "close"));
}

TEST_P(RecordWriteTest, AFailingCloseIsIgnored) {
    faultPlan().add({.operation = Operation::mediaClose, .subject = kComponents});
    EXPECT_EQ(write(), 0);
    EXPECT_TRUE(oldErrorIsThere());
}

using ComponentRecord = RecordTest;

TEST_F(ComponentRecord, KeyZeroIsDeliberatelyNotRefusedForTheHeader) {
    tavDBMComponent header{};
    EXPECT_EQ(comp_getComponent(&session, 0, &header), &header);
    EXPECT_THAT(transfers(), ElementsAre("component read 24@0"));
    EXPECT_EQ(hexText(bytesOf(header)), hexAt(kComponents, 0, 24));
    EXPECT_TRUE(oldErrorIsThere());
}

TEST_F(ComponentRecord, KeyZeroIsNoNode) {
    tavDBMNode buffer{};
    EXPECT_EQ(comp_getNode(&session, 0, &buffer), nullptr);
    EXPECT_TRUE(recorded(4, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_getNode", 112, {0})));
    EXPECT_EQ(accesses(), 0U);
}

TEST_F(ComponentRecord, KeyZeroIsNoLeaf) {
    tavDBMLeaf buffer{};
    EXPECT_EQ(comp_getLeaf(&session, 0, &buffer), nullptr);
    EXPECT_TRUE(recorded(4, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_getLeaf", 122, {0})));
    EXPECT_EQ(accesses(), 0U);
}

TEST_F(ComponentRecord, ALeafReadAsANodeShowsItsCurrentValueAsFirstChild) {
    tavDBMNode seen{};
    ASSERT_NE(comp_getNode(&session, at, &seen), nullptr);
    EXPECT_EQ(seen.component.kind, TAVDB_KIND_LEAF);
    EXPECT_EQ(seen.firstChild, 11U);
}

TEST_F(ComponentRecord, ANodeReadAsALeafShowsTwelveBytesBehindItsSlot) {
    tavDBMLeaf seen{};
    ASSERT_NE(comp_getLeaf(&session, root, &seen), nullptr);
    EXPECT_EQ(seen.component.kind, TAVDB_KIND_NODE);
    EXPECT_EQ(seen.currentValue, at) << "the first child stands where a leaf has its current value";
    EXPECT_EQ(seen.defaultValue, leaf(at).component.key) << "the next slot begins with its key";
}

TEST_F(ComponentRecord, WordsLieOnTheMediumInTheMachinesOwnOrder) {
    EXPECT_EQ(comp_setStringKey(&session, at, 0x01020304), 0);
    EXPECT_EQ(hexAt(kComponents, at + 4, 4), std::endian::native == std::endian::big ? "01 02 03 04" : "04 03 02 01");
}

TEST_F(ComponentRecord, StartAndStopOfTheModuleDoNothing) {
    EXPECT_EQ(comp_init(), 0);
    EXPECT_EQ(comp_term(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

class NegativeMediaId : public DatabaseFixture {};

TEST_F(NegativeMediaId, IsAMediumThatDoesNotOpen) {
    description.componentMedia = kMinusOne;
    start();
    tavDBMNode buffer{};
    EXPECT_EQ(comp_getNode(&session, 16, &buffer), nullptr);
    EXPECT_EQ(session.errorCode, 53U);
    EXPECT_EQ(comp_setNode(&session, &buffer), 53);
    EXPECT_EQ(node_create(&session, 0, 16, 0, 0), 0U);
    EXPECT_EQ(eventLog().count(Operation::mediaOpen), 0U);
}

}  // namespace
}  // namespace tavdb_test
