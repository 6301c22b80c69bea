// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_media.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "fakes/byte_text.h"
#include "fakes/event_log.h"
#include "fakes/fakes_test.h"
#include "fakes/fault_plan.h"
#include "tavdb_platform.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

class Media : public FakesTest {
protected:
    uint32_t err_ = 0;
};

TEST_F(Media, AnAccessIsLoggedStepByStep) {
    fakeMedia().create("component.med", Bytes(200));
    uint8_t record[28] = {7};
    const int32_t fd = tavdbMemOpen("component.med", 0, &err_);
    EXPECT_EQ(tavdbMemWrite(fd, record, 28, 120, &err_), 28);
    EXPECT_EQ(tavdbMemRead(fd, record, 28, 120, &err_), 28);
    EXPECT_EQ(tavdbMemSeek(fd, -4, SEEK_END, &err_), 196);
    EXPECT_EQ(tavdbMemSync37(fd, &err_, 9), 0);
    EXPECT_EQ(tavdbMemClose(fd, &err_), 0);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("open component.med", "write 28@120", "read 28@120", "seek -4 end", "sync 9", "close"));
    const std::vector<Event> events = eventLog().events(Category::media);
    EXPECT_STREQ(events[4].function, "tavdbMemSync37");
    EXPECT_EQ(events[1].subject, "component.med");
    EXPECT_EQ(events[1].data[0], 7);
    EXPECT_EQ(fakeMedia().bytesAt("component.med", 120, 1)[0], 7);
}

TEST_F(Media, AllFamiliesWorkOnTheSameMedia) {
    fakeMedia().create("a", Bytes{1, 2, 3});
    uint8_t byte = 0;
    const int32_t file = tavdbFileOpenHD("a", 0, &err_);
    const int32_t message = tavdbMsgOpen("a", 0, &err_);
    EXPECT_EQ(tavdbMsgWrite(message, "\x09", 1, 1, &err_), 1);
    EXPECT_EQ(tavdbFileRead(file, &byte, 1, 1, &err_), 1);
    EXPECT_EQ(byte, 9);
    EXPECT_THAT(fakeMedia().openDescriptors(), ElementsAre("a", "a"));
    EXPECT_EQ(tavdbFileClose(file, &err_), 0);
    EXPECT_EQ(tavdbMsgClose(message, &err_), 0);
}

TEST_F(Media, AnUnknownHintIsNotOpened) {
    EXPECT_EQ(tavdbMemOpen("nothing", 0, &err_), -1);
    EXPECT_EQ(err_, static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(eventLog().text(), "open nothing -> -1 ENOENT\n");
}

TEST_F(Media, AReadAtTheEndIsShort) {
    fakeMedia().create("a", Bytes(10));
    uint8_t buffer[8];
    const int32_t fd = tavdbMemOpen("a", 0, &err_);
    EXPECT_EQ(tavdbMemRead(fd, buffer, 8, 6, &err_), 4);
    EXPECT_EQ(tavdbMemRead(fd, buffer, 8, 4000000000U, &err_), 0);
    EXPECT_EQ(tavdbMemClose(fd, &err_), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("open a", "read 8@6 -> 4", "read 8@4000000000 -> 0", "close"));
}

TEST_F(Media, AWriteGrowsTheMediumUpToItsCapacity) {
    fakeMedia().create("a", Bytes(2), 8);
    const int32_t fd = tavdbMemOpen("a", 0, &err_);
    EXPECT_EQ(tavdbMemWrite(fd, "xyz", 3, 4, &err_), 3);
    EXPECT_EQ(hexText(fakeMedia().snapshot("a")), "00 00 00 00 78 79 7a");
    EXPECT_EQ(tavdbMemWrite(fd, "xyz", 3, 6, &err_), -1);
    EXPECT_EQ(err_, static_cast<uint32_t>(ENOSPC));
    EXPECT_EQ(fakeMedia().sizeOf("a"), 7U);
    fakeMedia().setCapacity("a", 9);
    EXPECT_EQ(tavdbMemWrite(fd, "xyz", 3, 6, &err_), 3);
    tavdbMemClose(fd, &err_);
}

TEST_F(Media, ARomIsNotWritten) {
    fakeMedia().create("a", Bytes(2));
    const int32_t fd = tavdbFileOpenRom("a", 0, &err_);
    EXPECT_EQ(tavdbFileWrite(fd, "x", 1, 0, &err_), -1);
    EXPECT_EQ(err_, static_cast<uint32_t>(EBADF));
    EXPECT_EQ(hexText(fakeMedia().snapshot("a")), "00 00");
    tavdbFileClose(fd, &err_);
}

TEST_F(Media, UsingAClosedDescriptorFailsTheTest) {
    fakeMedia().create("a", Bytes(2));
    const int32_t fd = tavdbMemOpen("a", 0, &err_);
    tavdbMemClose(fd, &err_);
    uint8_t byte = 0;
    EXPECT_NONFATAL_FAILURE(tavdbMemRead(fd, &byte, 1, 0, &err_), "which is closed");
    EXPECT_NONFATAL_FAILURE(tavdbMemClose(fd, &err_), "which is closed");
    EXPECT_NONFATAL_FAILURE(tavdbMemRead(-1, &byte, 1, 0, &err_), "never open");
}

TEST_F(Media, BadArgumentsFailTheTest) {
    fakeMedia().create("a", Bytes(2));
    uint8_t byte = 0;
    const int32_t fd = tavdbMemOpen("a", 0, &err_);
    EXPECT_NONFATAL_FAILURE(tavdbMemRead(fd, &byte, -1, 0, &err_), "a negative length");
    EXPECT_NONFATAL_FAILURE(tavdbMemWrite(fd, nullptr, 1, 0, &err_), "no buffer");
    EXPECT_NONFATAL_FAILURE(tavdbMemRead(fd, &byte, 1, 0, nullptr), "no word for an error number");
    tavdbMemClose(fd, &err_);
}

TEST_F(Media, ThePlanCutsTransfers) {
    fakeMedia().create("a", Bytes{1, 2, 3, 4});
    for (const Fault fault : {returning(-1, EIO), returning(0), returning(1), shortBy(1), moreBy(2)}) {
        faultPlan().add({.operation = Operation::mediaRead, .subject = "a", .fault = fault});
        faultPlan().add({.operation = Operation::mediaWrite, .subject = "a", .fault = fault});
    }
    const int32_t fd = tavdbMemOpen("a", 0, &err_);
    std::vector<int32_t> counts;
    std::vector<std::string> buffers;
    for (int round = 0; round < 5; ++round) {
        Bytes buffer(4);
        counts.push_back(tavdbMemRead(fd, buffer.data(), 4, 0, &err_));
        buffers.push_back(hexText(buffer));
    }
    EXPECT_THAT(counts, ElementsAre(-1, 0, 1, 3, 6));
    EXPECT_THAT(buffers, ElementsAre("00 00 00 00", "00 00 00 00", "01 00 00 00", "01 02 03 00", "01 02 03 04"));
    EXPECT_EQ(err_, static_cast<uint32_t>(EIO));
    const Bytes before = fakeMedia().snapshot("a");
    EXPECT_EQ(tavdbMemWrite(fd, "abcd", 4, 0, &err_), -1);
    EXPECT_EQ(tavdbMemWrite(fd, "abcd", 4, 0, &err_), 0);
    EXPECT_EQ(fakeMedia().snapshot("a"), before);
    EXPECT_EQ(tavdbMemWrite(fd, "abcd", 4, 0, &err_), 1);
    EXPECT_THAT(differences(before, fakeMedia().snapshot("a")), ElementsAre("0: 01 -> 61"));
    tavdbMemClose(fd, &err_);
}

TEST_F(Media, AFailedCloseHasClosed) {
    fakeMedia().create("a", Bytes(2));
    faultPlan().add({.operation = Operation::mediaClose});
    const int32_t fd = tavdbMemOpen("a", 0, &err_);
    EXPECT_EQ(tavdbMemClose(fd, &err_), -1);
    EXPECT_EQ(err_, static_cast<uint32_t>(EIO));
    EXPECT_THAT(fakeMedia().openDescriptors(), ElementsAre());
}

TEST_F(Media, AnInjectedDescriptorIsNoMisuse) {
    fakeMedia().create("a", Bytes(2));
    faultPlan().add({.operation = Operation::mediaOpen, .fault = returning(-2)});
    uint8_t byte = 0;
    EXPECT_EQ(tavdbMemOpen("a", 0, &err_), -2);
    EXPECT_EQ(tavdbMemRead(-2, &byte, 1, 0, &err_), -1);
    EXPECT_EQ(err_, static_cast<uint32_t>(EBADF));
}

TEST_F(Media, SeeksAreBounded) {
    fakeMedia().create("a", Bytes(10));
    const int32_t fd = tavdbMemOpen("a", 0, &err_);
    EXPECT_EQ(tavdbMemSeek(fd, 4, SEEK_SET, &err_), 4);
    EXPECT_EQ(tavdbMemSeek(fd, 3, SEEK_CUR, &err_), 7);
    EXPECT_EQ(tavdbMemSeek(fd, 0, SEEK_END, &err_), 10);
    EXPECT_EQ(tavdbMemSeek(fd, -1, SEEK_SET, &err_), -1);
    EXPECT_EQ(tavdbMemSeek(fd, INT32_MAX, SEEK_CUR, &err_), -1);
    EXPECT_EQ(tavdbMemSeek(fd, 0, 77, &err_), -1);
    tavdbMemClose(fd, &err_);
}

TEST_F(Media, AMediumOfRecordsHasAHeaderAndOneFreeBlock) {
    fakeMedia().createForRecords("a", 64);
    EXPECT_EQ(fakeMedia().sizeOf("a"), 64U);
    EXPECT_EQ(hexText(fakeMedia().bytesAt("a", 0, 24)),
              hexWords(FakeMedia::kPreparer[0], FakeMedia::kPreparer[1], 0, 16, 0, 48));
    EXPECT_EQ(fakeMedia().wordAt("a", 12), 16U);
    fakeMedia().setWordAt("a", 8, 40);
    EXPECT_EQ(fakeMedia().wordAt("a", 8), 40U);
    const int32_t fd = tavdbMemOpen("a", 0, &err_);
    EXPECT_EQ(tavdbMemWrite(fd, "x", 1, 64, &err_), -1);
    tavdbMemClose(fd, &err_);
}

TEST_F(Media, SnapshotsComeBack) {
    fakeMedia().create("a", Bytes{1, 2});
    const Bytes before = fakeMedia().snapshot("a");
    fakeMedia().setBytesAt("a", 1, {9, 9});
    EXPECT_EQ(hexText(fakeMedia().snapshot("a")), "01 09 09");
    fakeMedia().restore("a", before);
    EXPECT_EQ(fakeMedia().snapshot("a"), before);
    EXPECT_NONFATAL_FAILURE(fakeMedia().snapshot("b"), "did not create: b");
    EXPECT_NONFATAL_FAILURE(fakeMedia().wordAt("a", 1), "beyond the end");
}

TEST_F(Media, AllMediaAreComparedAndComeBack) {
    fakeMedia().create("a", Bytes{1, 2});
    fakeMedia().create("b", Bytes{3}, 1);
    const MediaImage before = fakeMedia().snapshotAll();
    EXPECT_THAT(fakeMedia().changesSince(before), ElementsAre());
    fakeMedia().setBytesAt("a", 0, {7});
    fakeMedia().remove("b");
    fakeMedia().create("c", Bytes{4});
    EXPECT_THAT(fakeMedia().changesSince(before), ElementsAre("a 0: 01 -> 07", "b size: 1 -> 0", "c size: 0 -> 1"));
    fakeMedia().restoreAll(before);
    EXPECT_EQ(fakeMedia().snapshotAll(), before);
}

TEST_F(Media, InitAndDumpAreLogged) {
    faultPlan().add({.operation = Operation::mediaInit, .skip = 1, .fault = returning(7)});
    EXPECT_EQ(dbs_me_db_media_file_init("/x/media.conf", 0), 0);
    EXPECT_EQ(dbs_me_db_media_file_init("/x/media.conf", 0), 7);
    EXPECT_EQ(dbs_me_db_media_file_debug_info(5, nullptr, nullptr), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("mediaInit /x/media.conf", "mediaInit /x/media.conf -> 7",
                                                "dump dbs_me_db_media_file_debug_info 5"));
}

}  // namespace
}  // namespace tavdb_test
