// SPDX-License-Identifier: Apache-2.0
// Growth of a memory medium: by this process, by others, and where the system
// does not help. Full disks and special file systems are in file_system_test.cpp.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include "media_test_support.h"

namespace {

class MappedFile : public MediaTest {
protected:
    off_t sizeOf(const std::string &name) {
        struct stat status = {};
        EXPECT_EQ(stat(pathOf(name).c_str(), &status), 0);
        return status.st_size;
    }
};

TEST_F(MappedFile, WriteAtTheEndGrowsTheFileByExactlyThat) {
    writeFile("a.med", "0123456789");
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(writeMedium(memoryMedium, fd, "abc", 10), success(3));
    EXPECT_EQ(readFile("a.med"), "0123456789abc");
    EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_END), success(13));
    EXPECT_EQ(writeMedium(memoryMedium, fd, "AB", 12), success(2));
    EXPECT_EQ(readFile("a.med"), "0123456789abAB");
}

TEST_F(MappedFile, WriteBeyondTheEndLeavesZerosBetween) {
    writeFile("a.med", "0123");
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 10000), success(1));
    EXPECT_EQ(readFile("a.med"), "0123" + std::string(9996, '\0') + "x");
    EXPECT_EQ(bytesOf(memoryMedium, fd, 5, 2), std::string("23\0\0\0", 5));
}

TEST_F(MappedFile, EmptyFileGrowsOnItsFirstWrite) {
    writeFile("a.med", "");
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "");
    EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_END), success(0));
    EXPECT_EQ(writeMedium(memoryMedium, fd, "first", 0), success(5));
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "first");
    EXPECT_EQ(readFile("a.med"), "first");
}

TEST_F(MappedFile, GrownSpaceIsReallyAllocated) {
    writeFile("a.med", "0123");
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 999999), success(1));
    struct stat status = {};
    ASSERT_EQ(stat(pathOf("a.med").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 1000000);
    EXPECT_GE(status.st_blocks * 512, status.st_size);
}

TEST_F(MappedFile, HolesAreFilledByTheFirstWriteAnywhere) {
    writeFile("a.med", "");
    std::filesystem::resize_file(pathOf("a.med"), 1000000);
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 0), success(1));
    struct stat status = {};
    ASSERT_EQ(stat(pathOf("a.med").c_str(), &status), 0);
    EXPECT_GE(status.st_blocks * 512, 1000000);
    EXPECT_EQ(bytesOf(memoryMedium, fd, 2, 0), std::string("x\0", 2));
}

TEST_F(MappedFile, ReadingDoesNotTouchTheFile) {
    writeFile("a.med", "");
    std::filesystem::resize_file(pathOf("a.med"), 1000000);
    const struct timespec past[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, pathOf("a.med").c_str(), past, 0), 0);
    EXPECT_EQ(bytesOf(memoryMedium, mapped("a.med"), 100, 5000), std::string(100, '\0'));
    struct stat status = {};
    ASSERT_EQ(stat(pathOf("a.med").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtim.tv_sec, 1000);
    EXPECT_LT(status.st_blocks * 512, 100000);
}

TEST_F(MappedFile, GrowthFarBeyondTheFirstMapping) {
    writeFile("a.med", "");
    const int32_t fd = mapped("a.med");
    const std::string block(100000, 'b');
    for (uint32_t i = 0; i < 80; i++)
        ASSERT_EQ(writeMedium(memoryMedium, fd, block, i * 100000), success(100000));
    EXPECT_EQ(sizeOf("a.med"), 8000000);
    EXPECT_EQ(bytesOf(memoryMedium, fd, 8000000, 0), std::string(8000000, 'b'));
    EXPECT_LT(liveBlocks(), 8) << "new mappings are rare";
}

TEST_F(MappedFile, GrowthIsSeenByASecondProcess) {
    writeFile("a.med", "0123456789");
    Baton toParent;
    Baton toChild;
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        const int32_t fd = mapped("a.med");
        const bool sawOld = bytesOf(memoryMedium, fd, 100, 0) == "0123456789";
        toParent.pass();
        toChild.await();
        const bool sawSmall = bytesOf(memoryMedium, fd, 100, 0) == "0123456789small";
        toParent.pass();
        toChild.await();
        const bool sawEnd = seekMedium(memoryMedium, fd, 0, SEEK_END) == success(5000003);
        const bool sawLarge = bytesOf(memoryMedium, fd, 100, 5000000) == "end";
        const bool wroteIt = writeMedium(memoryMedium, fd, "END", 5000000) == success(3);
        _exit(sawOld && sawSmall && sawEnd && sawLarge && wroteIt ? 0 : 1);
    }
    const int32_t fd = mapped("a.med");
    toParent.await();
    EXPECT_EQ(writeMedium(memoryMedium, fd, "small", 10), success(5));
    toChild.pass();
    toParent.await();
    EXPECT_EQ(writeMedium(memoryMedium, fd, "end", 5000000), success(3));
    toChild.pass();
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(bytesOf(memoryMedium, fd, 3, 5000000), "END");
}

/// Writes every second record of 100 bytes, so that each write is beyond what this process has seen.
int growWithRecords(uint32_t first, uint32_t count) {
    const int32_t fd = openMedium(memoryMedium, "a.med").result;
    const std::string record(100, first == 0 ? 'e' : 'o');
    for (uint32_t i = first; i < count; i += 2)
        if (writeMedium(memoryMedium, fd, record, i * 100) != success(100))
            return 1;
    return 0;
}

void expectAllRecords(const std::string &content, uint32_t count) {
    ASSERT_EQ(content.size(), count * 100);
    for (uint32_t i = 0; i < count; i++)
        ASSERT_EQ(content.substr(i * 100, 100), std::string(100, i % 2 == 0 ? 'e' : 'o')) << "record " << i;
}

TEST_F(MappedFile, TwoProcessesThatGrowAtOnceLoseNothing) {
    constexpr uint32_t kRecords = 40000;
    for (const int fallocateError : {0, EOPNOTSUPP}) {
        writeFile("a.med", "");
        faultPlan.fallocateError = fallocateError;
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            _exit(growWithRecords(1, kRecords));
        }
        EXPECT_EQ(growWithRecords(0, kRecords), 0);
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        expectAllRecords(readFile("a.med"), kRecords);
        initialise();
    }
}

TEST_F(MappedFile, MemoryAndFileProcessesThatGrowAtOnceLoseNothing) {
    constexpr uint32_t kRecords = 20000;
    writeFile("a.med", "");
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        const int32_t fd = openMedium(fileMedium, "a.med").result;
        const std::string record(100, 'o');
        for (uint32_t i = 1; i < kRecords; i += 2)
            if (writeMedium(fileMedium, fd, record, i * 100) != success(100))
                _exit(1);
        _exit(0);
    }
    EXPECT_EQ(growWithRecords(0, kRecords), 0);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    expectAllRecords(readFile("a.med"), kRecords);
}

TEST_F(MappedFile, WithoutSpaceOnRequestWritesGoThroughTheDescriptor) {
    writeFile("a.med", "0123456789");
    faultPlan.fallocateError = EOPNOTSUPP;
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(writeMedium(memoryMedium, fd, "ab", 3), success(2));
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "012ab56789");
    EXPECT_EQ(writeMedium(memoryMedium, fd, "grown", 2000000), success(5));
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 2000000), "grown");
    EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_END), success(2000005));
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "012ab56789");
    faultPlan.transfersUntilFail = 0;
    EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 0), failure(EIO)) << "an error number, not a signal";
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "012ab56789") << "read through the mapping";
}

TEST_F(MappedFile, FailedGrowthIsAnErrorNumberAndChangesNothing) {
    writeFile("a.med", "0123456789");
    const int32_t fd = mapped("a.med");
    faultPlan.fallocateError = ENOSPC;
    EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 10), failure(ENOSPC));
    EXPECT_EQ(writeMedium(memoryMedium, fd, "xyz", 9), failure(ENOSPC)) << "also when it starts inside";
    EXPECT_EQ(readFile("a.med"), "0123456789");
    EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 0), success(1)) << "inside the file there is space";
    faultPlan.fallocateError = 0;
    EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 10), success(1));
    EXPECT_EQ(readFile("a.med"), "x123456789x");
}

TEST_F(MappedFile, FileSizeLimitIsAnErrorNumber) {
    writeFile("a.med", "0123456789");
    EXPECT_EQ(inChild([&] {
                  signal(SIGXFSZ, SIG_IGN);
                  const struct rlimit limit = {4096, 4096};
                  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
                  const int32_t fd = mapped("a.med");
                  EXPECT_EQ(writeMedium(memoryMedium, fd, std::string(5000, 'x'), 0), failure(EFBIG));
                  EXPECT_EQ(writeMedium(memoryMedium, fd, "fits", 4092), success(4));
                  EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 4096), failure(EFBIG));
                  return kChildDone;
              }),
              kChildDone);
    EXPECT_EQ(readFile("a.med"), "0123456789" + std::string(4082, '\0') + "fits");
}

TEST_F(MappedFile, WhereNothingCanBeMappedTheDescriptorServes) {
    writeFile("a.med", "0123456789");
    faultPlan.mmapError = ENODEV;
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(bytesOf(memoryMedium, fd, 100, 5), "56789");
    EXPECT_EQ(writeMedium(memoryMedium, fd, "abc", 9), success(3));
    EXPECT_EQ(bytesOf(memoryMedium, fd, 100, 0), "012345678abc");
    EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_END), success(12));
    const int flushesBefore = fileFlushes;
    uint32_t err = 0;
    EXPECT_EQ(tavdbMemSync7(fd, &err, 0), 0);
    EXPECT_EQ(fileFlushes, flushesBefore + 1);
    faultPlan.transfersUntilFail = 0;
    std::string bytes;
    EXPECT_EQ(readMedium(memoryMedium, fd, 5, 0, &bytes), failure(EIO));
}

TEST_F(MappedFile, WhereGrowthCannotBeMappedTheDescriptorServesIt) {
    writeFile("a.med", "0123456789");
    const int32_t fd = mapped("a.med");
    faultPlan.mmapError = ENOMEM;
    EXPECT_EQ(writeMedium(memoryMedium, fd, "far", 9000000), success(3));
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 9000000), "far");
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "0123456789");
    faultPlan.mmapError = 0;
    const int maps = mappingsOf(folder());
    failAllocationAfter(0);
    EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 9000003), success(1)) << "no memory to remember the old mapping";
    EXPECT_EQ(mappingsOf(folder()), maps + 1) << "the mapping that cannot be used is gone, a smaller one is there";
    EXPECT_EQ(writeMedium(memoryMedium, fd, "y", 9000004), success(1));
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 9000000), "farxy");
}

TEST_F(MappedFile, OffsetsAboveTwoGigabytes) {
    writeFile("a.med", "0123");
    std::filesystem::resize_file(pathOf("a.med"), 3000000000);
    const int32_t file = openMedium(fileMedium, "a.med").result;
    EXPECT_EQ(writeMedium(fileMedium, file, "end", 2999999997U), success(3));
    EXPECT_EQ(closeMedium(fileMedium, file), success(0));
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 2999999997U), "end");
    EXPECT_EQ(bytesOf(memoryMedium, fd, 4, 0), "0123");
    EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_END), failure(EOVERFLOW));
    EXPECT_EQ(seekMedium(memoryMedium, fd, -1000000000, SEEK_END), success(2000000000));
}

TEST_F(MappedFile, FileReplacedByRenameIsSeenAfterTheNextInit) {
    writeFile("a.med", "old");
    writeFile("new", "new");
    const int32_t fd = mapped("a.med");
    std::filesystem::rename(pathOf("new"), pathOf("a.med"));
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "old");
    EXPECT_EQ(bytesOf(memoryMedium, mapped("a.med"), 10, 0), "old");
    initialise();
    EXPECT_EQ(bytesOf(memoryMedium, mapped("a.med"), 10, 0), "new");
}

/// What a program does that becomes a daemon, and then goes on opening its own files.
void closeAllAndOpenOthers(const std::string &victim) {
    close_range(3, ~0U, 0);
    for (int i = 0; i < 20; i++)
        ASSERT_GE(open(victim.c_str(), O_RDWR), 0);
}

TEST_F(MappedFile, SurvivesAProgramThatClosesAllDescriptors) {
    writeFile("a.med", "0123456789");
    writeFile("victim", "victim");
    EXPECT_EQ(inChild([&] {
                  const int32_t fd = mapped("a.med");
                  closeAllAndOpenOthers(pathOf("victim"));
                  EXPECT_EQ(writeMedium(memoryMedium, fd, "more", 10), success(4));
                  EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_END), success(14));
                  const int before = openDescriptors();
                  initialise();
                  EXPECT_EQ(openDescriptors(), before - 1) << "closes its own descriptor and nobody else's";
                  return kChildDone;
              }),
              kChildDone);
    EXPECT_EQ(readFile("a.med"), "0123456789more");
    EXPECT_EQ(readFile("victim"), "victim");
}

TEST_F(MappedFile, DescriptorThatIsSomebodyElsesIsNotClosed) {
    writeFile("a.med", "0123456789");
    writeFile("victim", "victim");
    EXPECT_EQ(inChild([&] {
                  mapped("a.med");
                  closeAllAndOpenOthers(pathOf("victim"));
                  const int before = openDescriptors();
                  initialise();
                  EXPECT_EQ(openDescriptors(), before);
                  return kChildDone;
              }),
              kChildDone);
}

TEST_F(MappedFile, WithoutItsDescriptorAReplacedFileIsStale) {
    writeFile("a.med", "0123456789");
    writeFile("new", "new");
    EXPECT_EQ(inChild([&] {
                  const int32_t fd = mapped("a.med");
                  close_range(3, ~0U, 0);
                  std::filesystem::rename(pathOf("new"), pathOf("a.med"));
                  const int before = openDescriptors();
                  EXPECT_EQ(writeMedium(memoryMedium, fd, "more", 10), failure(ESTALE));
                  EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_END), failure(ESTALE));
                  EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "0123456789");
                  std::filesystem::remove(pathOf("a.med"));
                  EXPECT_EQ(writeMedium(memoryMedium, fd, "more", 10), failure(ENOENT));
                  EXPECT_EQ(openDescriptors(), before);
                  return kChildDone;
              }),
              kChildDone);
}

TEST_F(MappedFile, ThousandCyclesLeakNothing) {
    const auto cycle = [&] {
        std::filesystem::resize_file(pathOf("a.med"), 100);
        initialise();
        const int32_t fd = mapped("a.med");
        EXPECT_EQ(openMedium(memoryMedium, "none.med"), failure(ENOENT));
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 2000000), success(1));
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 5000000), success(1));
        EXPECT_EQ(tavdbMemSync2(fd, nullptr, 0), 0);
        EXPECT_GE(mappingsOf(folder()), 2);
        EXPECT_EQ(dbs_me_db_media_file_init(nullptr, 0), 0);
    };
    writeFile("a.med", "0123456789");
    cycle();
    const int descriptors = openDescriptors();
    const int32_t blocks = liveBlocks();
    for (int i = 0; i < 1000; i++)
        cycle();
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(mappingsOf(folder()), 0);
    EXPECT_EQ(liveBlocks(), blocks);
}

}  // namespace
