// SPDX-License-Identifier: Apache-2.0
// The sixty-one sync functions: what each flushes, and how a failure is told.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "media_test_support.h"

namespace {

struct SyncFunction {
    std::string name;
    tavDBMMediaSync function;
};

#define SYNC_ROW(name) {#name, name},
const std::vector<SyncFunction> kFunctions = {TAVDB_MEDIA_SYNC_LIST(SYNC_ROW)};
#undef SYNC_ROW

std::vector<SyncFunction> functionsOf(const std::string &stem) {
    std::vector<SyncFunction> functions;
    for (const SyncFunction &row : kFunctions)
        if (row.name.starts_with(stem))
            functions.push_back(row);
    return functions;
}

class MediaSync : public MediaTest {
protected:
    MediaSync() {
        flushes.clear();
    }
};

TEST_F(MediaSync, SixtyNumbersAndOneForMessages) {
    EXPECT_EQ(functionsOf("tavdbMemSync").size(), 58U);
    EXPECT_EQ(functionsOf("tavdbFileSync").size(), 2U);
    EXPECT_EQ(functionsOf("tavdbMsgSync").size(), 1U);
}

TEST_F(MediaSync, EveryMemorySyncFlushesTheWholeMapping) {
    writeFile("a.med", std::string(10000, 'a'));
    const int32_t fd = mapped("a.med");
    for (const SyncFunction &row : functionsOf("tavdbMemSync")) {
        flushes.clear();
        uint32_t err = kNoError;
        EXPECT_EQ(row.function(fd, &err, 17), 0) << row.name;
        EXPECT_EQ(err, kNoError);
        ASSERT_EQ(flushes.size(), 1U) << row.name;
        EXPECT_EQ(memcmp(flushes[0].base, "aaaa", 4), 0);
        EXPECT_GE(flushes[0].length, 10000U);
    }
}

TEST_F(MediaSync, GrowthByAnotherProcessIsFlushedToo) {
    writeFile("a.med", "a");
    const int32_t fd = mapped("a.med");
    ASSERT_EQ(inChild([&] {
                  EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 5000000), success(1));
                  return kChildDone;
              }),
              kChildDone);
    EXPECT_EQ(tavdbMemSync1(fd, nullptr, 0), 0);
    ASSERT_EQ(flushes.size(), 1U);
    EXPECT_GT(flushes[0].length, 5000000U);
}

TEST_F(MediaSync, EmptyImageHasNothingToFlush) {
    writeFile("a.med", "");
    EXPECT_EQ(tavdbMemSync1(mapped("a.med"), nullptr, 0), 0);
    EXPECT_TRUE(flushes.empty());
}

TEST_F(MediaSync, FailedFlushIsAnErrorNumber) {
    writeFile("a.med", "a");
    const int32_t fd = mapped("a.med");
    faultPlan.msyncError = EIO;
    uint32_t err = 0;
    EXPECT_EQ(tavdbMemSync60(fd, &err, 0), -1);
    EXPECT_EQ(err, static_cast<uint32_t>(EIO));
    EXPECT_EQ(tavdbMemSync60(fd, nullptr, 0), -1);
}

TEST_F(MediaSync, FileSyncsAreFsyncWhateverTheArgument) {
    writeFile("a.med", "a");
    for (const SyncFunction &row : functionsOf("tavdbFileSync"))
        for (const Medium &medium : {fileMedium, romMedium}) {
            const int32_t fd = openMedium(medium, "a.med").result;
            const int flushesBefore = fileFlushes;
            EXPECT_EQ(row.function(fd, nullptr, 99), 0) << row.name;
            EXPECT_EQ(fileFlushes, flushesBefore + 1);
            EXPECT_EQ(closeMedium(medium, fd), success(0));
        }
}

}  // namespace
