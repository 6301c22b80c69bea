// SPDX-License-Identifier: Apache-2.0
// Media on file systems of a known kind and size: full, read-only, or without
// space on request. The tests mount them in a namespace of their own and are
// skipped where that is not permitted.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "media_test_support.h"

namespace {

class FileSystem : public MediaTest {
protected:
    void run(const char *type, const char *options, const std::function<int()> &work) {
        const int result = withFileSystem(type, options, folder(), work);
        if (result == kNotPermitted)
            GTEST_SKIP() << "no permission to mount";
        EXPECT_EQ(result, kChildDone);
    }
    /// Takes the rest of the space.
    void fillUp() {
        const int fd = open(pathOf("filler").c_str(), O_CREAT | O_WRONLY, 0600);
        const std::string block(4096, 'f');
        while (write(fd, block.data(), block.size()) > 0)
            continue;
        EXPECT_EQ(errno, ENOSPC);
        close(fd);
    }
    off_t sizeOf(const std::string &name) {
        struct stat status = {};
        EXPECT_EQ(stat(pathOf(name).c_str(), &status), 0);
        return status.st_size;
    }
};

TEST_F(FileSystem, FullDiskIsAnErrorNumber) {
    for (const Medium &medium : {memoryMedium, fileMedium})
        run("tmpfs", "size=256k", [&] {
            writeFile("a.med", "0123456789");
            const int32_t fd = openMedium(medium, "a.med").result;
            const std::string record(1000, 'r');
            int32_t end = 10;
            Outcome outcome = success(1000);
            for (; outcome.result == 1000 && end < 1000000; end += 1000)
                outcome = writeMedium(medium, fd, record, static_cast<uint32_t>(end));
            EXPECT_EQ(outcome, failure(ENOSPC));
            EXPECT_GT(end, 200000);
            EXPECT_EQ(bytesOf(medium, fd, 10, 0), "0123456789");
            EXPECT_EQ(writeMedium(medium, fd, "still", 0), success(5)) << "what has its space can be written";
            return kChildDone;
        });
}

TEST_F(FileSystem, RefusedGrowthLeavesTheFileAsItWas) {
    run("tmpfs", "size=256k", [&] {
        writeFile("a.med", "0123456789");
        const int32_t fd = mapped("a.med");
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 300000), failure(ENOSPC));
        faultPlan.fallocateError = EIO;
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 0xFFFFFFF0U), failure(ENOSPC)) << "hopeless, so not even tried";
        faultPlan.fallocateError = 0;
        EXPECT_EQ(sizeOf("a.med"), 10);
        EXPECT_EQ(writeMedium(memoryMedium, fd, "fits", 10), success(4));
        EXPECT_EQ(readFile("a.med"), "0123456789fits");
        return kChildDone;
    });
}

TEST_F(FileSystem, HolesOnAFullDiskCanBeReadAndRefuseWrites) {
    run("tmpfs", "size=256k", [&] {
        writeFile("a.med", "0123456789");
        std::filesystem::resize_file(pathOf("a.med"), 100000);
        fillUp();
        const int32_t fd = mapped("a.med");
        EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "0123456789");
        EXPECT_EQ(bytesOf(memoryMedium, fd, 1000, 50000), std::string(1000, '\0'));
        EXPECT_EQ(bytesOf(memoryMedium, fd, 1000, 99999), std::string(1, '\0'));
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 50000), failure(ENOSPC));
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 0), success(1));
        std::filesystem::remove(pathOf("filler"));
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 50000), success(1)) << "there is space again";
        return kChildDone;
    });
}

TEST_F(FileSystem, HolesThatAnotherProcessMakesAreNoTrap) {
    run("tmpfs", "size=256k", [&] {
        writeFile("a.med", "0123456789");
        const int32_t fd = mapped("a.med");
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 0), success(1));
        std::filesystem::resize_file(pathOf("a.med"), 200000);
        fillUp();
        EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 150000), std::string(10, '\0'));
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 150000), failure(ENOSPC));
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 9), success(1));
        return kChildDone;
    });
}

TEST_F(FileSystem, ReadOnlyFileSystemIsReadAndRefusesWrites) {
    run("tmpfs", "size=256k", [&] {
        writeFile("a.med", "0123456789");
        if (mount(nullptr, folder().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, "size=256k") != 0)
            return kNotPermitted;
        const int32_t fd = mapped("a.med");
        EXPECT_EQ(bytesOf(memoryMedium, fd, 100, 0), "0123456789");
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 0), failure(EROFS));
        EXPECT_EQ(openMedium(fileMedium, "a.med"), failure(EROFS));
        const int32_t rom = openMedium(romMedium, "a.med").result;
        EXPECT_EQ(bytesOf(romMedium, rom, 100, 0), "0123456789");
        return kChildDone;
    });
}

TEST_F(FileSystem, FileSystemWithoutSpaceOnRequest) {
    run("ramfs", "", [&] {
        writeFile("a.med", "0123456789");
        const int probe = open(pathOf("a.med").c_str(), O_RDWR);
        EXPECT_EQ(fallocate(probe, 0, 0, 1), -1) << "else this file system proves nothing";
        close(probe);
        const int32_t fd = mapped("a.med");
        EXPECT_EQ(writeMedium(memoryMedium, fd, "ab", 9), success(2));
        EXPECT_EQ(writeMedium(memoryMedium, fd, "far", 3000000), success(3));
        EXPECT_EQ(bytesOf(memoryMedium, fd, 12, 0), std::string("012345678ab\0", 12));
        EXPECT_EQ(bytesOf(memoryMedium, fd, 12, 3000000), "far");
        EXPECT_EQ(sizeOf("a.med"), 3000003);
        uint32_t err = 0;
        EXPECT_EQ(tavdbMemSync1(fd, &err, 0), 0);
        return kChildDone;
    });
}

}  // namespace
