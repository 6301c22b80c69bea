// SPDX-License-Identifier: Apache-2.0
// Strings: entries and texts, created, read, rewritten and deleted; what a text
// that does not fit its buffer looks like, and the module's counter and dump.
// The numbers in trace lines are sites and fixed for good.
#include <errno.h>

#include "model/module_dump.h"
#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kFirstSlot = 16;

class String : public TreeFixture {
protected:
    void plan(Operation operation, const char *hint, std::optional<Fault> fault = {}) {
        faultPlan().add({.operation = operation, .subject = hint, .fault = fault});
    }
    void remember() {
        before = fakeMedia().snapshotAll();
    }
    testing::AssertionResult nothingChanged() const {
        const auto changes = fakeMedia().changesSince(before);
        return changes.empty() ? testing::AssertionSuccess()
                               : testing::AssertionFailure() << testing::PrintToString(changes);
    }
    /// The string medium holds no entry: besides the file list's words for one slot it is as at the beginning.
    void expectNoEntry() {
        EXPECT_EQ(hexAt(kStrings, kFirstSlot, 24),
                  hexWords(0, kRecordMediumSize - kFirstSlot, 0, 0, 0, kRecordMediumSize - kFirstSlot - 16));
        EXPECT_EQ(fakeMedia().wordAt(kStrings, 12), kFirstSlot + 16) << "the slot stays reserved";
    }
    std::string texts() const {
        return textOfBytes(fakeMedia().snapshot(kTexts));
    }

    MediaImage before;
    tavDBMString entry{};
};

using StringCreate = String;

TEST_F(StringCreate, TheEntryIsFourWords) {
    fakeMedia().create(kTexts, Bytes(7, 'x'));
    const uint32_t created = str_create(&session, "lan/", kTextMedia);
    EXPECT_EQ(created, kFirstSlot);
    EXPECT_EQ(hexAt(kStrings, created, 16), hexWords(created, kTextMedia, 7, 5));
}

TEST_F(StringCreate, TheTextStandsWithItsNulBehindTheEndOfItsMedium) {
    fakeMedia().create(kTexts, bytes("old"));
    ASSERT_NE(str_create(&session, "new", kTextMedia), 0U);
    EXPECT_EQ(texts(), std::string("oldnew\0", 7));
}

TEST_F(StringCreate, TheEmptyTextIsOneByte) {
    const uint32_t created = str_create(&session, "", kTextMedia);
    ASSERT_NE(created, 0U);
    EXPECT_EQ(fakeMedia().snapshot(kTexts), Bytes{0});
    EXPECT_EQ(hexAt(kStrings, created + 12, 4), hexWords(1));
}

TEST_F(StringCreate, EqualTextsAreStoredTwice) {
    EXPECT_NE(str_create(&session, "a", kTextMedia), str_create(&session, "a", kTextMedia));
    EXPECT_EQ(texts(), std::string("a\0a\0", 4));
}

TEST_F(StringCreate, ReservesTheEntryOnItsOpenMediumThenAppendsTheTextThenWritesTheEntry) {
    ASSERT_NE(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("open string.med",  // held open
                            "open string.med", "read 4@12", "close", "open string.med", "read 8@16", "close",
                            "open string.med", "write 4@12", "close", "open string.med", "write 8@32", "close", "close",
                            "open text.med", "seek 0 end", "write 4@0",  // the text
                            "open string.med", "write 16@16", "close",   // the entry
                            "close"));
}

TEST_F(StringCreate, ASuccessClearsTheSessionsErrorThroughTheEntrysWrite) {
    putOldError();
    ASSERT_NE(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(StringCreate, OnAFullMediumIsCode41WithErrnoAndChangesNothing) {
    fakeMedia().setWordAt(kStrings, 12, 0);
    remember();
    errno = 4711;
    EXPECT_EQ(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_TRUE(recorded(41, 4711));
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("str_newEntry", 106, {4711}), errorLine("str_create", 142, {41})}));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(StringCreate, ASplitThatFailsIsCode41) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kStrings, .skip = 1});
    errno = 4711;
    EXPECT_EQ(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_TRUE(recorded(41, 4711));
    EXPECT_EQ(texts(), "");
}

TEST_F(StringCreate, AnEntryMediumThatDoesNotOpenIsCode38) {
    plan(Operation::mediaOpen, kStrings);
    EXPECT_EQ(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_TRUE(recorded(38, EIO));
    EXPECT_TRUE(
        fakeTrace().errorsAre({errorLine("str_newEntry", 103, {EIO, kMinusOne}), errorLine("str_create", 142, {38})}));
}

TEST_F(StringCreate, ATextMediumThatIsNotConfiguredIsCode21) {
    EXPECT_EQ(str_create(&session, "abc", 77), 0U);
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("getMedia", 240, {77}), errorLine("str_create", 143)}));
    expectNoEntry();
}

TEST_F(StringCreate, ATextMediumThatDoesNotOpenIsCode22) {
    plan(Operation::mediaOpen, kTexts);
    EXPECT_EQ(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_TRUE(recorded(22, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("str_create", 140, {EIO, kMinusOne})));
    expectNoEntry();
}

TEST_F(StringCreate, OnlyADescriptorOfExactlyMinusOneIsDeliberatelyAFailedOpen) {
    plan(Operation::mediaOpen, kTexts, returning(-2, EIO));
    EXPECT_EQ(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_EQ(session.errorCode, 23U) << "it went on to the seek, which failed";
}

TEST_F(StringCreate, AnEndThatCannotBeFoundIsCode23AndNothingIsWritten) {
    plan(Operation::mediaSeek, kTexts);
    EXPECT_EQ(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_TRUE(recorded(23, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("str_create", 141, {EIO, kMinusOne})));
    EXPECT_EQ(texts(), "");
    expectNoEntry();
}

TEST_F(StringCreate, ATextThatCannotBeWrittenIsCode23WithoutAnEntry) {
    plan(Operation::mediaWrite, kTexts, returning(-1, ENOSPC));
    EXPECT_EQ(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_TRUE(recorded(23, ENOSPC));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("str_create", 141, {ENOSPC, kMinusOne})));
    expectNoEntry();
}

TEST_F(StringCreate, ACountOfMoreThanWasAskedForIsAFailedWrite) {
    plan(Operation::mediaWrite, kTexts, moreBy(1));
    EXPECT_EQ(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_TRUE(recorded(23, 0));
    expectNoEntry();
}

TEST_F(StringCreate, AShortWriteOfTheTextIsDeliberatelyAccepted) {
    plan(Operation::mediaWrite, kTexts, shortBy(1));
    EXPECT_NE(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(StringCreate, TheResultOfWritingTheEntryIsDeliberatelyIgnored) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kStrings, .skip = 2});
    EXPECT_EQ(str_create(&session, "abc", kTextMedia), kFirstSlot);
    EXPECT_TRUE(recorded(39, EIO));
}

TEST_F(StringCreate, WithoutATextNothingHappens) {
    remember();
    EXPECT_EQ(str_create(&session, nullptr, kTextMedia), 0U);
    EXPECT_TRUE(recorded(89, 0));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(StringCreate, ADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(str_create(&session, "abc", kTextMedia), 0U);
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("str_newEntry", 100), errorLine("str_create", 142, {83})}));
    session.dbId = 1;
}

TEST_F(StringCreate, WhateverFailsLeavesTheOtherStringAlone) {
    const uint32_t bystander = putString("bystander");
    const std::string entryBytes = hexAt(kStrings, bystander, 16);
    forEachFault([&] {
        const uint32_t created = str_create(&session, "abc", kTextMedia);
        EXPECT_TRUE(created != 0 || session.errorCode != 0);
        EXPECT_TRUE(faultPlan().fired() || created == bystander + 16);
        EXPECT_EQ(hexAt(kStrings, bystander, 16), entryBytes);
        EXPECT_EQ(texts().substr(0, 9), "bystander");
    });
}

using StringEntry = String;

TEST_F(StringEntry, NewStoresTheSlotAsTheBuffersKeyAndTouchesNothingElse) {
    memset(&entry, 0xEE, sizeof entry);
    EXPECT_EQ(str_newEntry(&session, &entry), &entry);
    EXPECT_EQ(hexText(bytesOf(entry)), hexWords(kFirstSlot, 0xEEEEEEEE, 0xEEEEEEEE, 0xEEEEEEEE));
}

TEST_F(StringEntry, NewWithoutABufferIsCode89) {
    EXPECT_EQ(str_newEntry(&session, nullptr), nullptr);
    EXPECT_TRUE(recorded(89, 0));
}

TEST_F(StringEntry, WithoutABufferNothingIsRead) {
    EXPECT_EQ(tavdb_getStrEntry(&session, putString("abc"), nullptr), nullptr);
    EXPECT_TRUE(recorded(40, EFAULT));
    EXPECT_EQ(tavdb_getString(&session, putString("abc"), nullptr, 10), nullptr);
    EXPECT_TRUE(recorded(24, EFAULT));
    EXPECT_EQ(str_setEntry(&session, nullptr), 0) << "the close's result";
    EXPECT_TRUE(recorded(39, EFAULT));
}

TEST_F(StringEntry, NewWithoutAConfiguredMediumIsCode21) {
    const NoMedia none;
    EXPECT_EQ(str_newEntry(&session, &entry), nullptr);
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("getMedia", 240, {kStringMedia}), errorLine("str_newEntry", 101)}));
}

TEST_F(StringEntry, SetWritesSixteenBytesAtItsKeyAndClearsAnEarlierError) {
    entry = {.key = 64, .textMedia = 2, .textOffset = 3, .textLength = 4};
    putOldError();
    EXPECT_EQ(str_setEntry(&session, &entry), 0);
    EXPECT_EQ(hexAt(kStrings, 64, 16), hexWords(64, 2, 3, 4));
    EXPECT_TRUE(recorded(0, 0));
    EXPECT_THAT(eventLog().lines(), ElementsAre("open string.med", "write 16@64", "close"));
}

TEST_F(StringEntry, SetReturnsTheClosesResultAfterAShortWrite) {
    entry.key = 64;
    plan(Operation::mediaWrite, kStrings, shortBy(16, ENOSPC));
    EXPECT_EQ(str_setEntry(&session, &entry), 0);
    EXPECT_TRUE(recorded(39, ENOSPC));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("str_setEntry", 114, {ENOSPC, 0})));
    plan(Operation::mediaClose, kStrings, returning(-1, EIO));
    EXPECT_EQ(str_setEntry(&session, &entry), -1);
    EXPECT_TRUE(recorded(0, 0)) << "the write itself was complete";
}

TEST_F(StringEntry, SetAtKeyZeroIsCode39AndNeverReachesTheHeader) {
    remember();
    entry = {.key = 0, .textMedia = 2, .textOffset = 3, .textLength = 4};
    EXPECT_EQ(str_setEntry(&session, &entry), 0) << "the close's result";
    EXPECT_TRUE(recorded(39, EINVAL));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(StringEntry, SetOnAMediumThatDoesNotOpenIsCode38) {
    remember();
    entry.key = 64;
    plan(Operation::mediaOpen, kStrings);
    EXPECT_EQ(str_setEntry(&session, &entry), 38);
    EXPECT_TRUE(recorded(38, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("str_setEntry", 113, {EIO, kMinusOne})));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(StringEntry, SetOfADatabaseThatIsNotOpenIsCode83) {
    entry.key = 64;
    session.dbId = kNotOpenDb;
    EXPECT_EQ(str_setEntry(&session, &entry), 83);
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("str_setEntry", 110)));
    session.dbId = 1;
}

TEST_F(StringEntry, SetWithoutAConfiguredMediumDeliberatelyReturnsZeroAndWritesNothing) {
    remember();
    entry.key = 64;
    const NoMedia none;
    EXPECT_EQ(str_setEntry(&session, &entry), 0);
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_TRUE(nothingChanged());
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("getMedia", 240, {kStringMedia}), errorLine("str_setEntry", 111)}));
}

TEST_F(StringEntry, GetReadsSixteenBytes) {
    const uint32_t at = putString("abc");
    putOldError();
    EXPECT_EQ(tavdb_getStrEntry(&session, at, &entry), &entry);
    EXPECT_EQ(hexText(bytesOf(entry)), hexWords(at, kTextMedia, 0, 4));
    EXPECT_THAT(eventLog().lines(), ElementsAre("open string.med", "read 16@" + std::to_string(at), "close"));
    EXPECT_TRUE(oldErrorIsThere());
}

TEST_F(StringEntry, KeyZeroIsDeliberatelyNotRefused) {
    EXPECT_EQ(tavdb_getStrEntry(&session, 0, &entry), &entry);
    EXPECT_EQ(hexText(bytesOf(entry)), hexAt(kStrings, 0, 16));
}

TEST_F(StringEntry, AShortReadIsDeliberatelyAccepted) {
    plan(Operation::mediaRead, kStrings, shortBy(15));
    EXPECT_EQ(tavdb_getStrEntry(&session, 16, &entry), &entry);
    EXPECT_TRUE(recorded(0, 0));
    EXPECT_EQ(tavdb_getStrEntry(&session, kBeyond, &entry), &entry) << "even of nothing at all";
}

TEST_F(StringEntry, AFailedReadIsCode40) {
    plan(Operation::mediaRead, kStrings);
    EXPECT_EQ(tavdb_getStrEntry(&session, 16, &entry), nullptr);
    EXPECT_TRUE(recorded(40, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("tavdb_getStrEntry", 124, {EIO, kMinusOne})));
}

TEST_F(StringEntry, ACountOfMoreThanWasAskedForIsCode40) {
    plan(Operation::mediaRead, kStrings, moreBy(1));
    EXPECT_EQ(tavdb_getStrEntry(&session, 16, &entry), nullptr);
    EXPECT_TRUE(recorded(40, 0));
}

TEST_F(StringEntry, GetFromAMediumThatDoesNotOpenIsCode38) {
    plan(Operation::mediaOpen, kStrings);
    EXPECT_EQ(tavdb_getStrEntry(&session, 16, &entry), nullptr);
    EXPECT_TRUE(recorded(38, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("tavdb_getStrEntry", 123, {EIO, kMinusOne})));
}

TEST_F(StringEntry, GetOfADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(tavdb_getStrEntry(&session, 16, &entry), nullptr);
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("tavdb_getStrEntry", 120)));
    session.dbId = 1;
}

class StringRead : public String {
protected:
    char *get(uint32_t key, int32_t size) {
        return tavdb_getString(&session, key, buffer, size);
    }

    char buffer[12] = "...........";
};

TEST_F(StringRead, ReadsEntryThenTextWithItsNul) {
    putString("first");
    const uint32_t at = putString("abc");
    EXPECT_EQ(get(at, 12), buffer);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], '.');
    EXPECT_THAT(transfers(), ElementsAre("string read 16@" + std::to_string(at), "text read 4@6"));
}

TEST_F(StringRead, ATextThatDoesNotFitFillsTheBufferWithoutATerminator) {
    const uint32_t at = putString("sixsix");
    EXPECT_EQ(get(at, 4), buffer);
    EXPECT_STREQ(buffer, "sixs.......");
}

TEST_F(StringRead, AnEntryThatCannotBeReadIsTracedWithTheLastError) {
    plan(Operation::mediaRead, kStrings);
    EXPECT_EQ(get(16, 12), nullptr);
    EXPECT_TRUE(recorded(40, EIO));
    EXPECT_TRUE(fakeTrace().errorsAre(
        {errorLine("tavdb_getStrEntry", 124, {EIO, kMinusOne}), errorLine("tavdb_getString", 130, {40})}));
}

TEST_F(StringRead, ATextMediumThatIsNotConfiguredIsCode21) {
    const uint32_t at = putString("abc");
    fakeMedia().setWordAt(kStrings, at + 4, 77);
    EXPECT_EQ(get(at, 12), nullptr);
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("getMedia", 240, {77})));
}

TEST_F(StringRead, ATextMediumThatDoesNotOpenIsCode22) {
    const uint32_t at = putString("abc");
    plan(Operation::mediaOpen, kTexts);
    EXPECT_EQ(get(at, 12), nullptr);
    EXPECT_TRUE(recorded(22, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("tavdb_getString", 131, {EIO, kMinusOne})));
}

TEST_F(StringRead, ATextThatCannotBeReadIsCode24) {
    const uint32_t at = putString("abc");
    plan(Operation::mediaRead, kTexts);
    EXPECT_EQ(get(at, 12), nullptr);
    EXPECT_TRUE(recorded(24, EIO));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("tavdb_getString", 132, {EIO, kMinusOne})));
}

TEST_F(StringRead, ACountOfMoreThanWasAskedForIsCode24) {
    const uint32_t at = putString("abc");
    plan(Operation::mediaRead, kTexts, moreBy(1));
    EXPECT_EQ(get(at, 12), nullptr);
    EXPECT_TRUE(recorded(24, 0));
}

TEST_F(StringRead, ANegativeSizeOrLengthIsCode24AndNeverReachesTheMedium) {
    const uint32_t at = putString("abc");
    EXPECT_EQ(get(at, -1), nullptr);
    EXPECT_TRUE(recorded(24, EINVAL));
    fakeMedia().setWordAt(kStrings, at + 12, kMinusOne);
    EXPECT_EQ(get(at, 12), nullptr);
    EXPECT_TRUE(recorded(24, EINVAL));
    EXPECT_STREQ(buffer, "...........");
}

TEST_F(StringRead, AFailingCloseIsIgnored) {
    const uint32_t at = putString("abc");
    plan(Operation::mediaClose, kTexts);
    EXPECT_EQ(get(at, 12), buffer);
    EXPECT_TRUE(recorded(0, 0));
}

using StringDelete = String;

constexpr const char *kCounter = "s_debug_db_string_delete";

uint32_t deletesCounted() {
    return dumpOf(dbs_me_db_string_debug_info, 99).wordOf(kCounter);
}

TEST_F(StringDelete, ReleasesTheEntryAndLeavesTheText) {
    const uint32_t at = putString("abc");
    putString("def");
    remember();
    EXPECT_EQ(tavDBMDeleteString(&session, at), 0);
    EXPECT_EQ(hexAt(kStrings, 12, 4), hexWords(at));
    EXPECT_EQ(hexAt(kStrings, at, 8), hexWords(at + 32, 16));
    EXPECT_EQ(fakeMedia().snapshot(kTexts), before[kTexts]);
    EXPECT_EQ(transfers().front(), "string read 16@" + std::to_string(at));
}

TEST_F(StringDelete, TheSlotIsHandedOutAgainWhileTheOldTextStays) {
    const uint32_t at = putString("abc");
    ASSERT_EQ(tavDBMDeleteString(&session, at), 0);
    EXPECT_EQ(str_create(&session, "new", kTextMedia), at);
    EXPECT_EQ(texts(), std::string("abc\0new\0", 8));
}

TEST_F(StringDelete, AnEntryThatCannotBeReadIsTracedAndItsErrorReturned) {
    remember();
    plan(Operation::mediaRead, kStrings);
    EXPECT_EQ(tavDBMDeleteString(&session, 16), 40);
    EXPECT_TRUE(recorded(40, EIO));
    EXPECT_TRUE(fakeTrace().errorsAre(
        {errorLine("tavdb_getStrEntry", 124, {EIO, kMinusOne}), errorLine("dbs_me_db_string_delete", 160, {40})}));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(StringDelete, ReturnsZeroWhateverTheReleaseReturned) {
    const uint32_t at = putString("abc");
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kStrings, .times = kForEver});
    EXPECT_EQ(tavDBMDeleteString(&session, at), 0);
    EXPECT_TRUE(recorded(23, EIO));
}

TEST_F(StringDelete, ReleasesTheSlotThatTheEntryNames) {
    const uint32_t first = putString("abc");
    const uint32_t second = putString("def");
    putString("ghi");
    fakeMedia().setWordAt(kStrings, first, second);
    EXPECT_EQ(tavDBMDeleteString(&session, first), 0);
    EXPECT_EQ(hexAt(kStrings, 12, 4), hexWords(second));
}

TEST_F(StringDelete, WithoutAnEntryNothingIsReleased) {
    remember();
    str_setDeleted(&session, nullptr);
    EXPECT_TRUE(nothingChanged());
}

TEST_F(StringDelete, ReleaseOfADatabaseThatIsNotOpenIsCode83) {
    entry.key = 16;
    session.dbId = kNotOpenDb;
    EXPECT_EQ(str_setDeleted(&session, &entry), 83);
    EXPECT_TRUE(recorded(83, 0));
    session.dbId = 1;
}

TEST_F(StringDelete, AdvancesItsCounterByThreeOnlyWhenTheEntryWasFound) {
    const uint32_t atFirst = deletesCounted();
    ASSERT_EQ(tavDBMDeleteString(&session, putString("abc")), 0);
    EXPECT_EQ(deletesCounted(), atFirst + 3);
    plan(Operation::mediaRead, kStrings);
    ASSERT_NE(tavDBMDeleteString(&session, 16), 0);
    EXPECT_EQ(deletesCounted(), atFirst + 3);
    ASSERT_EQ(dbs_me_db_string_delete(&session, putString("abc")), 0);
    EXPECT_EQ(deletesCounted(), atFirst + 6);
}

class StringDump : public TreeFixture {};

constexpr const char *kStringFunctions[] = {"dbs_me_db_string_debug_info",
                                            "tavdb_getStrEntry",
                                            "tavdb_getString",
                                            "str_setEntry",
                                            "str_newEntry",
                                            "str_create",
                                            "str_setDeleted",
                                            "tavDBMDeleteString",
                                            "dbs_me_db_string_delete"};

const std::string kStringBanner = "====(db_string)\n";

TEST_F(StringDump, AtLevel98OnlyAddsFour) {
    const Dump dump = dumpOf(dbs_me_db_string_debug_info, 98);
    EXPECT_THAT(dump.lines, IsEmpty());
    EXPECT_EQ(dump.debugSize, 4U);
    EXPECT_EQ(dump.ramSize, 0U);
}

TEST_F(StringDump, AtLevel99ListsTheCounterThenTheFunctions) {
    const Dump dump = dumpOf(dbs_me_db_string_debug_info, 99);
    EXPECT_EQ(dump.lines, withAddresses({kStringBanner, dumpLine(deletesCounted(), kCounter)}, kStringFunctions));
    EXPECT_EQ(dump.debugSize, 4U);
    EXPECT_EQ(dump.result, 0);
}

TEST_F(StringDump, AtLevel5PrintsTheSizesBehindTheBanner) {
    const Dump dump = dumpOf(dbs_me_db_string_debug_info, 5);
    EXPECT_EQ(dump.lines, withAddresses({kStringBanner, dumpLine(4, "debug_size"), dumpLine(0, "ram_size"),
                                         dumpLine(deletesCounted(), kCounter)},
                                        kStringFunctions));
}

}  // namespace
}  // namespace tavdb_test
