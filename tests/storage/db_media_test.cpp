// SPDX-License-Identifier: Apache-2.0
// The media table as its users see it: its shape, the default medium, ids and
// their bounds. How it is filled is tested with the configuration and the start.
#include <climits>
#include <cstddef>
#include <cstring>

#include "storage/media_slots.h"
#include "storage/storage_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

class MediaTable : public MediaTest {};

TEST_F(MediaTable, AnEntryHoldsTenFieldsInTheirOrder) {
    using Entry = tavDBMMediaEntry;
    const std::vector<size_t> offsets = {offsetof(Entry, handle), offsetof(Entry, hint),  offsetof(Entry, openArg),
                                         offsetof(Entry, open),   offsetof(Entry, close), offsetof(Entry, read),
                                         offsetof(Entry, write),  offsetof(Entry, lseek), offsetof(Entry, sync),
                                         offsetof(Entry, debug)};
    std::vector<size_t> expected;
    for (size_t word = 0; word < 10; ++word)
        expected.push_back(word * sizeof(void *));
    EXPECT_EQ(offsets, expected);
    EXPECT_EQ(sizeof(Entry), 10 * sizeof(void *));
}

TEST_F(MediaTable, TheCountLiesDirectlyBehindTheEntries) {
    EXPECT_EQ(offsetof(tavDBMMediaTable, entry), 0U);
    EXPECT_EQ(offsetof(tavDBMMediaTable, count), 128 * sizeof(tavDBMMediaEntry));
}

TEST_F(MediaTable, EntryZeroIsTheDefaultMediumBeforeAnythingIsLoaded) {
    const tavDBMMediaEntry &entry = media_table.entry[0];
    EXPECT_EQ(entry.handle, nullptr);
    EXPECT_STREQ(entry.hint, "");
    EXPECT_EQ(entry.openArg, 0U);
    EXPECT_EQ(entry.debug, nullptr);
    const std::vector<std::pair<const void *, std::string>> functions = {
        {reinterpret_cast<const void *>(entry.open), "open"},  {reinterpret_cast<const void *>(entry.close), "close"},
        {reinterpret_cast<const void *>(entry.read), "read"},  {reinterpret_cast<const void *>(entry.write), "write"},
        {reinterpret_cast<const void *>(entry.lseek), "seek"}, {reinterpret_cast<const void *>(entry.sync), "sync"}};
    for (const auto &[address, name] : functions)
        EXPECT_EQ(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address)),
                  addressInLibrary("dbs_me_db_media_def_" + name))
            << name;
    EXPECT_EQ(media_table.count, 1);
}

TEST_F(MediaTable, TheOtherEntriesAreZeroBeforeAnythingIsLoaded) {
    static const tavDBMMediaEntry kZero = {};
    for (size_t id = 1; id < 128; ++id)
        ASSERT_EQ(memcmp(&media_table.entry[id], &kZero, sizeof(kZero)), 0) << id;
}

TEST_F(MediaTable, WithoutAConfigurationLineThereIsOnlyTheDefaultMedium) {
    ASSERT_EQ(load(std::vector<std::string>{}), 0);
    observe();
    EXPECT_EQ(media_getCount(), 1U);
    EXPECT_EQ(getMedia(&session, 0), &media_table.entry[0]);
    EXPECT_TRUE(silent());
    EXPECT_EQ(getMedia(&session, 1), nullptr);
    EXPECT_TRUE(failedWith(21, 0, {errorLine("getMedia", kGetMediaSite, {1})}));
}

TEST_F(MediaTable, IdsFollowTheOrderOfTheLines) {
    ASSERT_EQ(load(), 0);
    EXPECT_EQ(media_getCount(), 7U);
    std::vector<std::string> hints;
    for (int32_t id = 1; id < 7; ++id)
        hints.emplace_back(getMedia(&session, id)->hint);
    EXPECT_THAT(hints,
                ElementsAre("component.med", "value.med", "constraint.med", "string.med", "data.med", "text.med"));
}

TEST_F(MediaTable, ALoadedEntryHoldsTheNamedFunctionsAndNoLibrary) {
    ASSERT_EQ(load({lineOf(builtInTokens())}), 0);
    const tavDBMMediaEntry &entry = *getMedia(&session, 1);
    EXPECT_EQ(entry.handle, nullptr);
    EXPECT_EQ(entry.openArg, 0U);
    EXPECT_EQ(entry.open, tavdbMemOpen);
    EXPECT_EQ(entry.close, tavdbMemClose);
    EXPECT_EQ(entry.read, tavdbMemRead);
    EXPECT_EQ(entry.write, tavdbMemWrite);
    EXPECT_EQ(entry.lseek, tavdbMemSeek);
    EXPECT_EQ(entry.sync, tavdbMemSync1);
    EXPECT_EQ(entry.debug, dbs_me_db_media_file_debug_info);
}

TEST_F(MediaTable, TheHintAndZeroReachTheMediumsOpen) {
    ASSERT_EQ(load(), 0);
    observe();
    flst_m_getRoot(&session, kValueMedia);
    const Event opened = eventLog().events(Category::media).front();
    EXPECT_EQ(opened.subject, "value.med");
    EXPECT_EQ(opened.argument, 0);
}

class MediaId : public LoadedMediaTest, public testing::WithParamInterface<int32_t> {};

using MediaIdInside = MediaId;
TEST_P(MediaIdInside, GivesTheEntryOfThatNumber) {
    EXPECT_EQ(getMedia(&session, GetParam()), &media_table.entry[GetParam()]);
    EXPECT_TRUE(silent());
}
INSTANTIATE_TEST_SUITE_P(Ids, MediaIdInside, testing::Values(0, 1, 6));

using MediaIdOutside = MediaId;
TEST_P(MediaIdOutside, IsError21) {
    EXPECT_EQ(getMedia(&session, GetParam()), nullptr);
    EXPECT_TRUE(failedWith(21, 0, {errorLine("getMedia", kGetMediaSite, {static_cast<uint32_t>(GetParam())})}));
}
TEST_P(MediaIdOutside, IsRefusedWithoutASessionToo) {
    EXPECT_EQ(getMedia(nullptr, GetParam()), nullptr);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("getMedia", kGetMediaSite, {static_cast<uint32_t>(GetParam())})));
}
INSTANTIATE_TEST_SUITE_P(Ids, MediaIdOutside, testing::Values(7, 127, 128, INT32_MAX));

using MediaIdNegative = MediaId;
TEST_P(MediaIdNegative, DeliberatelyPassesTheBoundTest) {
    EXPECT_NE(getMedia(&session, GetParam()), nullptr);
    EXPECT_TRUE(silent());
}
TEST_P(MediaIdNegative, GivesAMediumOutsideTheTableThatDoesNothing) {
    const tavDBMMediaEntry &entry = *getMedia(&session, GetParam());
    EXPECT_TRUE(&entry < media_table.entry || &entry >= media_table.entry + 128);
    uint32_t error = 0;
    uint8_t byte = 0x77;
    EXPECT_EQ(entry.open(entry.hint, entry.openArg, &error), -1);
    EXPECT_EQ(entry.read(0, &byte, 1, 0, &error), -1);
    EXPECT_EQ(entry.write(0, &byte, 1, 0, &error), -1);
    EXPECT_EQ(entry.lseek(0, 0, 0, &error), -1);
    EXPECT_NE(entry.sync(0, &error, 0), 0);
    EXPECT_EQ(entry.close(0, &error), -1);
    EXPECT_EQ(byte, 0x77);
}
TEST_P(MediaIdNegative, GivesAMediumThatCannotBeOpened) {
    EXPECT_EQ(flst_m_getRoot(&session, GetParam()), 0U);
    EXPECT_EQ(session.errorCode, 22U);
    EXPECT_EQ(tavDBMSync(&session, GetParam(), 0), 22);
    EXPECT_EQ(flst_m_get(&session, GetParam(), 16), 0U);
    EXPECT_EQ(flst_m_setRoot(&session, GetParam(), 16), 22);
    EXPECT_THAT(eventLog().lines(Category::media), ElementsAre());
    EXPECT_TRUE(mediaUnchanged());
}
INSTANTIATE_TEST_SUITE_P(Ids, MediaIdNegative, testing::Values(-1, -128, INT32_MIN));

TEST_F(MediaTable, AClosedTableDeliberatelyKeepsTheWordsOfItsEntries) {
    ASSERT_EQ(load(), 0);
    const tavDBMMediaEntry before = media_table.entry[1];
    EXPECT_EQ(unload(), 0);
    EXPECT_EQ(memcmp(&media_table.entry[1], &before, sizeof(before)), 0);
    EXPECT_EQ(getMedia(&session, 1), nullptr);
    EXPECT_EQ(session.errorCode, 21U);
}

TEST_F(MediaTable, EmptyingGivesTheHintsBackAndNeverTheDefaultMediums) {
    ASSERT_EQ(load(), 0);
    const tavDBMMediaEntry before = media_table.entry[0];
    observe();
    EXPECT_EQ(unload(), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("free 14", "free 10", "free 15", "free 11", "free 9", "free 9"));
    EXPECT_EQ(memcmp(&media_table.entry[0], &before, sizeof(before)), 0);
    EXPECT_EQ(media_getCount(), 1U);
    EXPECT_EQ(getMedia(&session, 0), &media_table.entry[0]);
}

}  // namespace
}  // namespace tavdb_test
