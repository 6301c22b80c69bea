// SPDX-License-Identifier: Apache-2.0
// Loading and emptying the media table: order of steps, failures of what the
// start needs, and the count of starts. Single lines are tested elsewhere.
#include <unistd.h>

#include <cerrno>

#include "fakes/fault_runs.h"
#include "storage/media_slots.h"
#include "storage/storage_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MediaStart : public MediaTest {};

TEST_F(MediaStart, HandsPathAndArgumentToTheMediaFileLibrary) {
    ASSERT_EQ(load(7), 0);
    const Event started = eventLog().events(Category::media).front();
    EXPECT_EQ(textOf(started), "mediaInit media.conf");
    EXPECT_EQ(started.argument, 7);
}

TEST_F(MediaStart, StartsTheLibraryThenOpensTheFileThenTakesALineBufferThenReads) {
    ASSERT_EQ(load({line("a"), line("b")}), 0);
    std::vector<std::string> lines = eventLog().lines();
    ASSERT_EQ(lines.size(), 7U);
    lines.resize(5);
    EXPECT_THAT(lines,
                ElementsAre("mediaInit media.conf", "sys.fopen media.conf re", "alloc 4096", "alloc 2", "alloc 2"));
}

TEST_F(MediaStart, FreesTheLineBufferThenClosesTheFile) {
    ASSERT_EQ(load(std::vector<std::string>{}), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("mediaInit media.conf", "sys.fopen media.conf re", "alloc 4096",
                                                "free 4096", "sys.fclose media.conf"));
}

TEST_F(MediaStart, ASecondInitDoesNotReadTheFileAgain) {
    ASSERT_EQ(load(), 0);
    observe();
    writeConfText("this line is not valid\n");
    EXPECT_EQ(load(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
    EXPECT_EQ(media_getCount(), 7U);
}

TEST_F(MediaStart, OnlyTheMatchingLastTermEmptiesTheTable) {
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(load(), 0);
    EXPECT_EQ(unload(), 0);
    EXPECT_EQ(unload(), 0);
    EXPECT_EQ(media_getCount(), 7U);
    EXPECT_EQ(fakeMemory().liveBlocks(), 6U);
    EXPECT_EQ(unload(), 0);
    EXPECT_EQ(media_getCount(), 1U);
    EXPECT_EQ(fakeMemory().liveBlocks(), 0U);
}

TEST_F(MediaStart, AfterTheLastTermTheFileIsReadAgain) {
    ASSERT_EQ(load(), 0);
    ASSERT_EQ(unload(), 0);
    EXPECT_EQ(load({line("data.med")}), 0);
    EXPECT_EQ(media_getCount(), 2U);
    EXPECT_STREQ(getMedia(&session, 1)->hint, "data.med");
}

TEST_F(MediaStart, ATermWithoutAnInitDeliberatelyKeepsTheNextInitFromLoading) {
    EXPECT_EQ(unload(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
    EXPECT_EQ(media_getCount(), 1U);
    EXPECT_EQ(load(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
    EXPECT_EQ(media_getCount(), 1U);
}

TEST_F(MediaStart, TheInitAfterATermTooManyIsMadeUpForByTheNext) {
    unload();
    ASSERT_EQ(load(), 0);
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(media_getCount(), 7U);
}

class MediaLibraryCode : public MediaTest, public testing::WithParamInterface<int32_t> {};
TEST_P(MediaLibraryCode, EndsTheStartAsItStands) {
    const int32_t code = GetParam();
    const auto word = static_cast<uint32_t>(code);
    faultPlan().add({.operation = Operation::mediaInit, .fault = returning(code)});
    EXPECT_EQ(load(9), code);
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("dbs_me_db_media_entry_init", kEntryInitSite, {word, 9}),
                                       errorLine("media_init", kLibraryStartSite, {word})}));
    EXPECT_THAT(eventLog().lines(Category::media | Category::systemErrors | Category::libc | Category::memory),
                ElementsAre("mediaInit media.conf -> " + std::to_string(code),
                            "systemError 62672 401 " + std::to_string(code)));
    EXPECT_EQ(eventLog().lines().back(), "systemError 62672 401 " + std::to_string(code)) << "traced first";
    EXPECT_EQ(media_getCount(), 1U);
}
INSTANTIATE_TEST_SUITE_P(Codes, MediaLibraryCode, testing::Values(1, 12, 4097, -1));

TEST_F(MediaStart, AMissingFileIsCode12) {
    ASSERT_EQ(unlink(confPath().c_str()), 0);
    EXPECT_EQ(load(), 12);
    EXPECT_TRUE(fakeTrace().onlyError(errorCodeTextLine("media_init", kConfFileSite, ENOENT, confPath())));
    EXPECT_THAT(eventLog().lines(Category::systemErrors | Category::memory), IsEmpty());
    EXPECT_EQ(media_getCount(), 1U);
}

TEST_F(MediaStart, AFileThatCannotBeReadIsCode12) {
    faultPlan().add({.operation = Operation::sysFopen});
    EXPECT_EQ(load(), 12);
    EXPECT_TRUE(fakeTrace().onlyError(errorCodeTextLine("media_init", kConfFileSite, EACCES, confPath())));
}

TEST_F(MediaStart, WithoutAPathIsCode12) {
    const Recording recording;
    EXPECT_EQ(media_init(nullptr, 0), 12);
    EXPECT_TRUE(fakeTrace().onlyError(errorCodeTextLine("media_init", kConfFileSite, ENOENT, "")));
    EXPECT_EQ(media_term(), 0);
}

TEST_F(MediaStart, AFolderInPlaceOfTheFileGivesAnEmptyTable) {
    const Recording recording;
    EXPECT_EQ(media_init(folder().c_str(), 0), 0);
    EXPECT_EQ(media_getCount(), 1U);
    EXPECT_EQ(media_term(), 0);
}

TEST_F(MediaStart, WithoutMemoryForTheLineIsCode86) {
    faultPlan().add({.operation = Operation::alloc});
    EXPECT_EQ(load(), 86);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("media_init", kLineBufferSite, {ENOMEM})));
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("mediaInit media.conf", "sys.fopen media.conf re", "alloc 4096 -> 0 ENOMEM",
                            "trace 0 media_init():[Error]:[220][0x       c]", "systemError 62672 402 12",
                            "sys.fclose media.conf"));
    EXPECT_EQ(media_getCount(), 1U);
}

TEST_F(MediaStart, AFailedInitCountsAsAStart) {
    faultPlan().add({.operation = Operation::sysFopen});
    EXPECT_EQ(load(), 12);
    observe();
    EXPECT_EQ(load(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
    EXPECT_EQ(media_getCount(), 1U);
    EXPECT_EQ(unload(), 0);
    EXPECT_EQ(unload(), 0);
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(media_getCount(), 7U);
}

TEST_F(MediaStart, AFailingCloseOfTheFileIsIgnored) {
    faultPlan().add({.operation = Operation::sysFclose});
    EXPECT_EQ(load(), 0);
    EXPECT_TRUE(fakeTrace().noErrors());
    EXPECT_EQ(media_getCount(), 7U);
}

/// What the failure of one operation of a start with the fixture's six lines comes to.
int32_t expectedResult(uint64_t failing) {
    constexpr int32_t kResults[] = {platformCode(EIO), 12, 86};
    return failing < 3 ? kResults[failing] : 0;
}

uint32_t expectedCount(uint64_t failing) {
    constexpr uint64_t kFirstHint = 3;
    constexpr uint64_t kClose = 9;
    if (failing < kFirstHint)
        return 1;
    return failing < kClose ? 6 : 7;
}

TEST_F(MediaStart, EveryFailingOperationIsSurvivedWithNothingLeftBehind) {
    const uint64_t operations = forEachFailingOperation([&](uint64_t failing) {
        observe();
        EXPECT_EQ(load(), expectedResult(failing)) << failing;
        EXPECT_EQ(media_getCount(), expectedCount(failing)) << failing;
        EXPECT_EQ(unload(), 0);
        EXPECT_EQ(fakeMemory().liveText(), "") << failing;
        EXPECT_TRUE(mediaUnchanged()) << failing;
    });
    EXPECT_EQ(operations, 10U) << "start of the library, open, line buffer, six hints, close";
}

}  // namespace
}  // namespace tavdb_test
