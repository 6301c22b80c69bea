// SPDX-License-Identifier: Apache-2.0
// tavDBMSync: open, sync, close, and what each failure records, traces, reports.
#include <cerrno>

#include "fakes/fault_runs.h"
#include "storage/storage_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using SyncFunction = int32_t (*)(tavDBMSession *session, int32_t mediaId, uint32_t arg);

/// The public function and its body do the same.
class MediaSync : public LoadedMediaTest, public testing::WithParamInterface<SyncFunction> {
protected:
    int32_t sync(int32_t mediaId, uint32_t arg = 0) {
        return GetParam()(&session, mediaId, arg);
    }
};

TEST_P(MediaSync, OpensSyncsWithTheArgumentAndCloses) {
    EXPECT_EQ(sync(kValueMedia, 77), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("open value.med", "sync 77", "close"));
    EXPECT_TRUE(silent());
    EXPECT_TRUE(mediaUnchanged());
}

TEST_P(MediaSync, CallsTheFunctionOfItsLine) {
    unload();
    ASSERT_EQ(load({"libtavdbfile.so tavdbMemOpen tavdbMemClose tavdbMemRead tavdbMemWrite tavdbMemSeek "
                    "tavdbMemSync42 data.med"}),
              0);
    observe();
    EXPECT_EQ(sync(1), 0);
    EXPECT_STREQ(eventLog().events(Category::media).at(1).function, "tavdbMemSync42");
}

TEST_P(MediaSync, AnUnknownIdDeliberatelyGivesZeroAndRecords21) {
    EXPECT_EQ(sync(7), 0);
    EXPECT_TRUE(failedWith(21, 0, {errorLine("getMedia", kGetMediaSite, {7})}));
    EXPECT_THAT(eventLog().lines(Category::media | Category::systemErrors), IsEmpty());
}

TEST_P(MediaSync, AFailedOpenIsCode22WithTheMediumsErrorNumber) {
    faultPlan().add({.operation = Operation::mediaOpen, .fault = returning(-1, EACCES)});
    EXPECT_EQ(sync(kValueMedia, 77), 22);
    EXPECT_TRUE(failedWith(22, EACCES, {errorLine("dbs_me_db_media_sync", kSyncOpenSite, {0, 2, EACCES})}));
    EXPECT_THAT(eventLog().lines(Category::media | Category::systemErrors), ElementsAre("open value.med -> -1 EACCES"));
}

TEST_P(MediaSync, AnyNegativeDescriptorIsAFailedOpen) {
    faultPlan().add({.operation = Operation::mediaOpen, .fault = returning(-7)});
    EXPECT_EQ(sync(kValueMedia), 22);
    EXPECT_TRUE(failedWith(22, 0, {errorLine("dbs_me_db_media_sync", kSyncOpenSite, {0, 2, 0})}));
}

TEST_P(MediaSync, AFailedSyncIsCode26AndReportedAndTheMediumClosed) {
    faultPlan().add({.operation = Operation::mediaSync, .fault = returning(-1, ENOSPC)});
    EXPECT_EQ(sync(kValueMedia, 77), 26);
    const auto fd = static_cast<uint32_t>(eventLog().events(Category::media).at(1).fd);
    EXPECT_TRUE(failedWith(26, ENOSPC, {errorLine("dbs_me_db_media_sync", kSyncSite, {0, 2, ENOSPC, fd})}));
    EXPECT_THAT(eventLog().lines(Category::media | Category::systemErrors),
                ElementsAre("open value.med", "sync 77 -> -1 ENOSPC", "systemError 62672 403 28 async", "close"));
    EXPECT_THAT(eventLog().lines()[2], testing::StartsWith("trace 0 ")) << "traced before it is reported";
}

TEST_P(MediaSync, AnyResultButZeroIsAFailedSync) {
    faultPlan().add({.operation = Operation::mediaSync, .fault = returning(5)});
    EXPECT_EQ(sync(kValueMedia), 26);
    EXPECT_EQ(session.errorDetail, 0U);
}

TEST_P(MediaSync, AFailingCloseIsIgnored) {
    faultPlan().add({.operation = Operation::mediaClose});
    EXPECT_EQ(sync(kValueMedia), 0);
    EXPECT_TRUE(silent());
}

TEST_P(MediaSync, AFailedSyncKeepsItsCodeWhenTheCloseFailsToo) {
    faultPlan().add({.operation = Operation::mediaSync, .fault = returning(-1, ENOSPC)});
    faultPlan().add({.operation = Operation::mediaClose, .fault = returning(-1, EIO)});
    EXPECT_EQ(sync(kValueMedia), 26);
    EXPECT_EQ(session.errorDetail, static_cast<uint32_t>(ENOSPC));
}

TEST_P(MediaSync, WorksWithoutASession) {
    EXPECT_EQ(GetParam()(nullptr, kValueMedia, 0), 0);
    faultPlan().add({.operation = Operation::mediaSync});
    EXPECT_EQ(GetParam()(nullptr, kValueMedia, 0), 26);
    EXPECT_EQ(GetParam()(nullptr, 7, 0), 0);
}

TEST_P(MediaSync, EachFailingOperationHasItsCodeAndLeavesNothingOpen) {
    constexpr int32_t kResults[] = {22, 26, 0, 0};
    const uint64_t operations = forEachFailingOperation([&](uint64_t failing) {
        observe();
        ASSERT_LT(failing, 4U);
        EXPECT_EQ(sync(kValueMedia), kResults[failing]) << failing;
        EXPECT_EQ(session.errorCode, kResults[failing] != 0 ? static_cast<uint32_t>(kResults[failing]) : kStaleCode);
        EXPECT_THAT(fakeMedia().openDescriptors(), IsEmpty());
        EXPECT_TRUE(mediaUnchanged());
    });
    EXPECT_EQ(operations, 3U);
}

INSTANTIATE_TEST_SUITE_P(Functions, MediaSync, testing::Values(tavDBMSync, dbs_me_db_media_sync),
                         [](const auto &test) { return test.index == 0 ? "tavDBMSync" : "body"; });

}  // namespace
}  // namespace tavdb_test
