// SPDX-License-Identifier: Apache-2.0
// File media: each function is its system call, with signals, errors and large
// offsets dealt with.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>

#include "media_test_support.h"

namespace {

using FileMedia = MediaTest;

TEST_F(FileMedia, DescriptorIsClosedOnExec) {
    writeFile("a.med", "0123");
    for (const Medium &medium : {fileMedium, romMedium}) {
        const int32_t fd = openMedium(medium, "a.med").result;
        EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(closeMedium(medium, fd), success(0));
    }
}

TEST_F(FileMedia, NeverCreates) {
    EXPECT_EQ(openMedium(fileMedium, "none.med"), failure(ENOENT));
    EXPECT_EQ(openMedium(romMedium, "none.med"), failure(ENOENT));
    EXPECT_EQ(openMedium(fileMedium, ""), failure(ENOENT));
    EXPECT_FALSE(std::filesystem::exists(pathOf("none.med")));
    uint32_t err = 0;
    EXPECT_EQ(tavdbFileOpenHD(nullptr, 0, &err), -1);
    EXPECT_EQ(err, static_cast<uint32_t>(EFAULT));
}

TEST_F(FileMedia, RomIsOpenForReadingOnly) {
    writeFile("a.med", "0123");
    const int32_t fd = openMedium(romMedium, "a.med").result;
    EXPECT_EQ(bytesOf(romMedium, fd, 4, 0), "0123");
    EXPECT_EQ(writeMedium(romMedium, fd, "x", 0), failure(EBADF));
    EXPECT_EQ(closeMedium(romMedium, fd), success(0));
    EXPECT_EQ(readFile("a.med"), "0123");
}

TEST_F(FileMedia, NothingIsCachedBetweenOpens) {
    writeFile("a.med", "old");
    const int32_t first = openMedium(fileMedium, "a.med").result;
    EXPECT_EQ(closeMedium(fileMedium, first), success(0));
    writeFile("new", "new");
    std::filesystem::rename(pathOf("new"), pathOf("a.med"));
    const int32_t second = openMedium(fileMedium, "a.med").result;
    EXPECT_EQ(bytesOf(fileMedium, second, 3, 0), "new");
    EXPECT_EQ(closeMedium(fileMedium, second), success(0));
}

TEST_F(FileMedia, BadArgumentsAreErrorNumbers) {
    writeFile("a.med", "0123");
    const int32_t fd = openMedium(fileMedium, "a.med").result;
    char bytes[4] = {};
    uint32_t err = 0;
    EXPECT_EQ(tavdbFileRead(fd, bytes, -1, 0, &err), -1);
    EXPECT_EQ(err, static_cast<uint32_t>(EINVAL));
    err = 0;
    EXPECT_EQ(tavdbFileWrite(fd, bytes, INT32_MIN, 0, &err), -1);
    EXPECT_EQ(err, static_cast<uint32_t>(EINVAL));
    err = 0;
    EXPECT_EQ(tavdbFileRead(fd, nullptr, 4, 0, &err), -1);
    EXPECT_EQ(err, static_cast<uint32_t>(EFAULT));
    EXPECT_EQ(tavdbFileRead(fd, bytes, -1, 0, nullptr), -1);
    EXPECT_EQ(seekMedium(fileMedium, fd, -1, SEEK_SET), failure(EINVAL));
    EXPECT_EQ(closeMedium(fileMedium, fd), success(0));
    EXPECT_EQ(readFile("a.med"), "0123");
}

TEST_F(FileMedia, BadDescriptorIsAnErrorNumberEverywhere) {
    std::string bytes;
    uint32_t err = 0;
    EXPECT_EQ(closeMedium(fileMedium, -1), failure(EBADF));
    EXPECT_EQ(readMedium(fileMedium, -1, 1, 0, &bytes), failure(EBADF));
    EXPECT_EQ(writeMedium(fileMedium, -1, "x", 0), failure(EBADF));
    EXPECT_EQ(seekMedium(fileMedium, -1, 0, SEEK_END), failure(EBADF));
    EXPECT_EQ(tavdbFileSync3(-1, &err, 0), -1);
    EXPECT_EQ(err, static_cast<uint32_t>(EBADF));
    EXPECT_EQ(tavdbFileSync6(-1, nullptr, 0), -1);
}

TEST_F(FileMedia, OffsetsAboveTwoGigabytes) {
    writeFile("a.med", "");
    const int32_t fd = openMedium(fileMedium, "a.med").result;
    EXPECT_EQ(writeMedium(fileMedium, fd, "far", 4000000000U), success(3));
    EXPECT_EQ(bytesOf(fileMedium, fd, 10, 4000000000U), "far");
    EXPECT_EQ(std::filesystem::file_size(pathOf("a.med")), 4000000003U);
    EXPECT_EQ(seekMedium(fileMedium, fd, 0, SEEK_END), failure(EOVERFLOW));
    EXPECT_EQ(seekMedium(fileMedium, fd, INT32_MAX, SEEK_SET), success(INT32_MAX));
    EXPECT_EQ(closeMedium(fileMedium, fd), success(0));
}

TEST_F(FileMedia, LastByteOfTheOffsetsCanBeCrossed) {
    writeFile("a.med", "");
    const int32_t fd = openMedium(fileMedium, "a.med").result;
    EXPECT_EQ(writeMedium(fileMedium, fd, "crossing", 0xFFFFFFFC), success(8));
    EXPECT_EQ(bytesOf(fileMedium, fd, 8, 0xFFFFFFFC), "crossing");
    EXPECT_EQ(bytesOf(fileMedium, fd, 4, 0), std::string(4, '\0'));
    EXPECT_EQ(closeMedium(fileMedium, fd), success(0));
}

TEST_F(FileMedia, InterruptedCallsAreRepeated) {
    writeFile("a.med", "0123456789");
    const int32_t fd = openMedium(fileMedium, "a.med").result;
    faultPlan.interruptions = 3;
    EXPECT_EQ(bytesOf(fileMedium, fd, 10, 0), "0123456789");
    faultPlan.interruptions = 3;
    EXPECT_EQ(writeMedium(fileMedium, fd, "abc", 0), success(3));
    faultPlan.interruptions = 3;
    EXPECT_EQ(tavdbFileSync3(fd, nullptr, 0), 0);
    EXPECT_EQ(faultPlan.interruptions, 0);
    EXPECT_EQ(closeMedium(fileMedium, fd), success(0));
    EXPECT_EQ(readFile("a.med"), "abc3456789");
}

TEST_F(FileMedia, ShortTransfersAreContinued) {
    writeFile("a.med", "0123456789");
    const int32_t fd = openMedium(fileMedium, "a.med").result;
    faultPlan.transferMax = 3;
    EXPECT_EQ(bytesOf(fileMedium, fd, 100, 0), "0123456789");
    EXPECT_EQ(writeMedium(fileMedium, fd, "abcdefgh", 5), success(8));
    EXPECT_EQ(readFile("a.med"), "01234abcdefgh");
    faultPlan.transfersUntilFail = 1;
    EXPECT_EQ(writeMedium(fileMedium, fd, "12345678", 0), failure(EIO)) << "the error, not the part that was done";
    faultPlan.transfersUntilFail = 1;
    std::string bytes;
    EXPECT_EQ(readMedium(fileMedium, fd, 10, 0, &bytes), failure(EIO));
    EXPECT_EQ(closeMedium(fileMedium, fd), success(0));
}

TEST_F(FileMedia, FifoDoesNotHang) {
    ASSERT_EQ(mkfifo(pathOf("fifo").c_str(), 0600), 0);
    const int32_t fd = openMedium(romMedium, "fifo").result;
    std::string bytes;
    EXPECT_EQ(readMedium(romMedium, fd, 4, 0, &bytes), failure(ESPIPE));
    EXPECT_EQ(closeMedium(romMedium, fd), success(0));
}

}  // namespace
