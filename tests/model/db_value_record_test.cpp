// SPDX-License-Identifier: Apache-2.0
// Value records: reading, writing, reserving, tying to a constraint, deleting;
// the module's counters and dump. Creating values and moving their data is
// elsewhere. The numbers in trace lines are sites and fixed for good.
#include <errno.h>

#include "model/module_dump.h"
#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ValueRecord : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        at = putValue({1, 2, 3, 4}, TAVDB_TYPE_U32, 333);
        before = fakeMedia().snapshotAll();
    }
    void planFailure(Operation operation, std::optional<Fault> fault = {}) {
        faultPlan().add({.operation = operation, .subject = kValues, .fault = fault});
    }
    std::string where() const {
        return "28@" + std::to_string(at);
    }
    testing::AssertionResult nothingChanged() const {
        const auto changes = fakeMedia().changesSince(before);
        return changes.empty() ? testing::AssertionSuccess()
                               : testing::AssertionFailure() << testing::PrintToString(changes);
    }

    uint32_t at = 0;
    tavDBMValue record{};
    MediaImage before;
};

using ValueGet = ValueRecord;

TEST_F(ValueGet, ReadsTheWholeRecordInOneAccess) {
    putOldError();
    EXPECT_EQ(value_get(&session, at, &record), &record);
    EXPECT_EQ(hexText(bytesOf(record)), hexWords(at, TAVDB_TYPE_U32, kDataMedia, 0, 4, 0, 333));
    EXPECT_THAT(eventLog().lines(), ElementsAre("open value.med", "read " + where(), "close"));
    EXPECT_TRUE(oldErrorIsThere());
}

TEST_F(ValueGet, KeyZeroIsCode51WithoutAnAccess) {
    EXPECT_EQ(value_get(&session, 0, &record), nullptr);
    EXPECT_TRUE(recorded(51, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_get", 152, {0, session.dbId})));
    EXPECT_EQ(accesses(), 0U);
}

TEST_F(ValueGet, ADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(value_get(&session, at, &record), nullptr);
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_get", 150, {at, kNotOpenDb})));
    session.dbId = 1;
}

TEST_F(ValueGet, KeyZeroOfADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(value_get(&session, 0, &record), nullptr);
    EXPECT_TRUE(recorded(83, 0)) << "the database is looked up first";
    session.dbId = 1;
}

TEST_F(ValueGet, AMediumThatIsNotConfiguredLeavesTheMediaTablesError) {
    const NoMedia none;
    EXPECT_EQ(value_get(&session, at, &record), nullptr);
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("getMedia", 240, {kValueMedia})));
}

TEST_F(ValueGet, AMediumThatDoesNotOpenIsCode44) {
    planFailure(Operation::mediaOpen);
    EXPECT_EQ(value_get(&session, at, &record), nullptr);
    EXPECT_TRUE(recorded(44, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_get", 153, {at, kMinusOne, EIO})));
}

TEST_F(ValueGet, AShortReadIsCode46) {
    planFailure(Operation::mediaRead, shortBy(1, ENODEV));
    EXPECT_EQ(value_get(&session, at, &record), nullptr);
    EXPECT_TRUE(recorded(46, ENODEV));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_get", 154, {at, 28, 27, ENODEV})));
}

TEST_F(ValueGet, ACountOfMoreThanWasAskedForIsCode46) {
    planFailure(Operation::mediaRead, moreBy(1));
    EXPECT_EQ(value_get(&session, at, &record), nullptr);
    EXPECT_TRUE(recorded(46, 0));
}

TEST_F(ValueGet, AFailingCloseIsIgnored) {
    planFailure(Operation::mediaClose);
    EXPECT_EQ(value_get(&session, at, &record), &record);
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(ValueGet, WithoutABufferOrASessionNothingIsRead) {
    EXPECT_EQ(value_get(&session, at, nullptr), nullptr);
    EXPECT_TRUE(recorded(46, EFAULT));
    EXPECT_EQ(value_get(nullptr, at, &record), nullptr);
    EXPECT_EQ(eventLog().count(Operation::mediaRead), 0U);
}

TEST_F(ValueGet, TypeAndLengthComeFromTheRecord) {
    EXPECT_EQ(value_getType(&session, at), TAVDB_TYPE_U32);
    EXPECT_EQ(value_getLength(&session, at), 4);
    EXPECT_EQ(value_getConstraintKey(&session, at), 333U);
    EXPECT_THAT(transfers(), ElementsAre("value read " + where(), "value read " + where(), "value read " + where()));
}

TEST_F(ValueGet, TypeAndLengthOfKeyZeroAreMinusOneWithCode51) {
    EXPECT_EQ(value_getType(&session, 0), -1);
    EXPECT_TRUE(recorded(51, 0));
    session.errorCode = 0;
    EXPECT_EQ(value_getLength(&session, 0), -1);
    EXPECT_TRUE(recorded(51, 0));
    EXPECT_EQ(value_getConstraintKey(&session, 0), 0U);
}

TEST_F(ValueGet, ATypeCodeOfTheCallersOwnIsReportedAsGiven) {
    const uint32_t own = putValue({1}, -77);
    EXPECT_EQ(value_getType(&session, own), -77);
}

using ValueSet = ValueRecord;

TEST_F(ValueSet, WritesTheWholeRecordAtItsKeyAndClearsAnEarlierError) {
    putOldError();
    record = {.key = at,
              .type = 1,
              .dataMedia = 2,
              .dataOffset = 3,
              .length = 4,
              .creationWord = 0x01020304,
              .constraintKey = 6};
    EXPECT_EQ(value_set(&session, &record), 0);
    EXPECT_TRUE(recorded(0, 0));
    EXPECT_EQ(hexAt(kValues, at, 28), hexWords(at, 1, 2, 3, 4, 0x01020304, 6));
    EXPECT_THAT(eventLog().lines(), ElementsAre("open value.med", "write " + where(), "close"));
}

TEST_F(ValueSet, AMediumThatDoesNotOpenIsCode44) {
    record.key = at;
    planFailure(Operation::mediaOpen);
    EXPECT_EQ(value_set(&session, &record), 44);
    EXPECT_TRUE(recorded(44, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_set", 143, {at, kMinusOne, EIO})));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueSet, AShortWriteIsCode45AndTracesTheHint) {
    record.key = at;
    planFailure(Operation::mediaWrite, shortBy(28, ENOSPC));
    EXPECT_EQ(value_set(&session, &record), 45);
    EXPECT_TRUE(recorded(45, ENOSPC));
    EXPECT_TRUE(fakeTrace().errorsAre(
        {errorLine("value_set", 144, {at, 28, 0, ENOSPC}), errorTextLine("value_set", 145, kValues)}));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueSet, ARecordWithKeyZeroIsCode45AndNeverReachesTheHeader) {
    record.key = 0;
    EXPECT_EQ(value_set(&session, &record), 45);
    EXPECT_TRUE(recorded(45, EINVAL));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueSet, ReturnsTheCodeItRecordedWhenTheCloseFails) {
    record.key = at;
    planFailure(Operation::mediaClose);
    EXPECT_EQ(value_set(&session, &record), 0);
    planFailure(Operation::mediaWrite);
    planFailure(Operation::mediaClose);
    EXPECT_EQ(value_set(&session, &record), 45);
}

TEST_F(ValueSet, ADatabaseOrMediumThatIsNotThereIsNotWritten) {
    record.key = at;
    session.dbId = kNotOpenDb;
    EXPECT_EQ(value_set(&session, &record), 83);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_set", 140, {at, kNotOpenDb})));
    session.dbId = 1;
    const NoMedia none;
    EXPECT_EQ(value_set(&session, &record), 21) << "the session's last error";
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueSet, WithoutARecordNothingIsWritten) {
    EXPECT_EQ(value_set(&session, nullptr), 45);
    EXPECT_TRUE(nothingChanged());
}

using ValueConstraintKey = ValueRecord;

TEST_F(ValueConstraintKey, IsSetByRewritingTheRecord) {
    Bytes expected = before[kValues];
    const Bytes word = bytesOf(uint32_t{4711});
    std::copy(word.begin(), word.end(), expected.data() + at + 24);
    EXPECT_EQ(value_setConstraintKey(&session, at, 4711), 0);
    EXPECT_THAT(differences(expected, fakeMedia().snapshot(kValues)), IsEmpty());
    EXPECT_THAT(transfers(), ElementsAre("value read " + where(), "value write " + where()));
}

TEST_F(ValueConstraintKey, OfARecordThatCannotBeReadIsTheLastError) {
    EXPECT_EQ(value_setConstraintKey(&session, 0, 4711), 51);
    EXPECT_EQ(value_setConstraintKey(&session, kBeyond, 4711), 46);
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueConstraintKey, AFailedWriteDeliberatelyStandsInTheSessionOnly) {
    planFailure(Operation::mediaWrite);
    EXPECT_EQ(value_setConstraintKey(&session, at, 4711), 0);
    EXPECT_TRUE(recorded(45, EIO));
    EXPECT_TRUE(nothingChanged());
}

using ValueNew = ValueRecord;

TEST_F(ValueNew, StoresTheSlotAsTheBuffersKeyAndTouchesNothingElse) {
    memset(&record, 0xEE, sizeof record);
    EXPECT_EQ(value_new(&session, &record), &record);
    constexpr uint32_t kLeft = 0xEEEEEEEE;
    EXPECT_EQ(hexText(bytesOf(record)), hexWords(at + 28, kLeft, kLeft, kLeft, kLeft, kLeft, kLeft));
    EXPECT_EQ(fakeMedia().wordAt(kValues, 12), at + 56);
}

TEST_F(ValueNew, AMissingBufferIsCode89) {
    EXPECT_EQ(value_new(&session, nullptr), nullptr);
    EXPECT_TRUE(recorded(89, 0));
}

TEST_F(ValueNew, AFullMediumGivesNullAndChangesNothing) {
    fakeMedia().setWordAt(kValues, 12, 0);
    before = fakeMedia().snapshotAll();
    putOldError();
    EXPECT_EQ(value_new(&session, &record), nullptr);
    EXPECT_TRUE(oldErrorIsThere());
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_new", 106, {0, kValueMedia})));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueNew, ASplitThatFailsGivesNull) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kValues, .skip = 1});
    EXPECT_EQ(value_new(&session, &record), nullptr);
    EXPECT_TRUE(recorded(23, EIO));
    EXPECT_EQ(fakeTrace().errors().back(), errorLine("value_new", 106, {kMinusOne, kValueMedia}));
}

TEST_F(ValueNew, ADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(value_new(&session, &record), nullptr);
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_new", 100, {0, kNotOpenDb})));
    session.dbId = 1;
}

using ValueDelete = ValueRecord;

TEST_F(ValueDelete, ReleasesTheRecordAndLeavesTheData) {
    putValue({9});
    before = fakeMedia().snapshotAll();
    EXPECT_EQ(value_delete(&session, at), 0);
    EXPECT_EQ(freeBlocks(kValues), std::to_string(at) + "+28 " + std::to_string(at + 56) + '+' +
                                       std::to_string(kRecordMediumSize - at - 56));
    EXPECT_EQ(fakeMedia().snapshot(kData), before[kData]) << "the data medium only ever grows";
}

TEST_F(ValueDelete, ReadsTheRecordBeforeItReleasesIt) {
    putValue({9});
    ASSERT_EQ(value_delete(&session, at), 0);
    EXPECT_EQ(transfers().front(), "value read " + where());
    EXPECT_EQ(transfers().back(), "value write 8@" + std::to_string(at));
}

TEST_F(ValueDelete, OfARecordThatCannotBeReadIsTheLastError) {
    EXPECT_EQ(value_delete(&session, 0), 51);
    EXPECT_EQ(value_delete(&session, kBeyond), 46);
    EXPECT_TRUE(nothingChanged());
}

TEST_F(ValueDelete, ReturnsZeroWhateverTheReleaseReturned) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kValues, .times = kForEver});
    EXPECT_EQ(value_delete(&session, at), 0);
    EXPECT_TRUE(recorded(23, EIO));
}

TEST_F(ValueDelete, TheReleaseTakesTheKeyFromTheRecord) {
    const uint32_t other = putValue({9});
    putValue({10});
    record.key = other;
    EXPECT_EQ(value_setDeleted(&session, &record), 0);
    EXPECT_EQ(fakeMedia().wordAt(kValues, 12), other);
    session.dbId = kNotOpenDb;
    EXPECT_EQ(value_setDeleted(&session, &record), 83);
    EXPECT_EQ(fakeTrace().errors().back(), errorLine("value_setDeleted", 210, {other, kNotOpenDb}));
    session.dbId = 1;
}

TEST_F(ValueDelete, WithoutARecordNothingIsReleased) {
    value_setDeleted(&session, nullptr);
    EXPECT_TRUE(nothingChanged());
}

class ValueDump : public TreeFixture {};

constexpr const char *kValueFunctions[] = {"dbs_me_db_value_debug_info",
                                           "value_setConstraintKey",
                                           "value_getConstraintKey",
                                           "value_delete",
                                           "value_create",
                                           "value_print",
                                           "value_copy2",
                                           "value_copy",
                                           "value_setGeneric",
                                           "value_getGeneric",
                                           "value_getType",
                                           "value_getLength",
                                           "value_new",
                                           "value_setDeleted",
                                           "value_set",
                                           "value_get",
                                           "value_term",
                                           "value_init",
                                           "value_getCreateListGeneric"};

const std::string kValueBanner = "====(db_value)\n";
constexpr const char *kStarts = "s_debug_db_value_init";
constexpr const char *kStops = "s_debug_db_value_term";

Dump fullDump() {
    return dumpOf(dbs_me_db_value_debug_info, 99);
}

/// The two counters as the dump prints them.
std::vector<std::string> countersBehind(std::vector<std::string> lines) {
    const Dump dump = fullDump();
    lines.push_back(dumpLine(dump.wordOf(kStarts), kStarts));
    lines.push_back(dumpLine(dump.wordOf(kStops), kStops));
    return lines;
}

TEST_F(ValueDump, AtLevel98OnlyAddsEight) {
    const Dump dump = dumpOf(dbs_me_db_value_debug_info, 98);
    EXPECT_THAT(dump.lines, IsEmpty());
    EXPECT_EQ(dump.debugSize, 8U);
    EXPECT_EQ(dump.ramSize, 0U);
}

TEST_F(ValueDump, AtLevel99ListsCountersThenFunctions) {
    const Dump dump = fullDump();
    EXPECT_EQ(dump.lines, withAddresses(countersBehind({kValueBanner}), kValueFunctions));
    EXPECT_EQ(dump.debugSize, 8U);
    EXPECT_EQ(dump.ramSize, 0U);
    EXPECT_EQ(dump.result, 0);
}

TEST_F(ValueDump, AtLevel5PrintsTheSizesBehindTheBanner) {
    const Dump dump = dumpOf(dbs_me_db_value_debug_info, 5);
    const auto front = countersBehind({kValueBanner, dumpLine(8, "debug_size"), dumpLine(0, "ram_size")});
    EXPECT_EQ(dump.lines, withAddresses(front, kValueFunctions));
    EXPECT_EQ(dump.debugSize, 8U);
}

TEST_F(ValueDump, StartAndStopAdvanceTheirCountersByThree) {
    const uint32_t starts = fullDump().wordOf(kStarts);
    const uint32_t stops = fullDump().wordOf(kStops);
    EXPECT_GE(starts, 3U) << "attaching has started the module";
    EXPECT_EQ(value_init(), 0);
    EXPECT_EQ(fullDump().wordOf(kStarts), starts + 3);
    EXPECT_EQ(value_term(), 0);
    EXPECT_EQ(value_term(), 0);
    EXPECT_EQ(fullDump().wordOf(kStarts), starts + 3);
    EXPECT_EQ(fullDump().wordOf(kStops), stops + 6);
}

}  // namespace
}  // namespace tavdb_test
