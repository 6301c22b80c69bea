// SPDX-License-Identifier: Apache-2.0
// Whole files and parts of them: every fault is seen and says what it is.
#include "image/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

namespace tavdb::image {
namespace {

constexpr size_t kLimitBytes = 1 << 20;

class Files : public testing::Test {
protected:
    void SetUp() override {
        path = testing::TempDir() + "files_test." + std::to_string(getpid());
    }
    void TearDown() override {
        std::remove(path.c_str());
    }
    void write(const std::string &content) const {
        std::ofstream(path, std::ios::binary) << content;
    }

    std::string path;
};

TEST_F(Files, FileIsReadWholeWithAllItsBytes) {
    const std::string content = std::string(200000, 'x') + std::string("\0\r\n", 3);
    write(content);
    EXPECT_EQ(readFile(path, kLimitBytes).value, content);
    write("");
    EXPECT_EQ(readFile(path, kLimitBytes).value, "");
}

TEST_F(Files, LimitIsTheLargestSizeThatIsRead) {
    write("12345");
    EXPECT_EQ(readFile(path, 5).value, "12345");
    const auto tooLong = readFile(path, 4);
    EXPECT_FALSE(tooLong);
    EXPECT_EQ(tooLong.error.sentence, "is longer than 4 bytes");
    EXPECT_EQ(tooLong.error.kind, FaultKind::usage);
}

TEST_F(Files, FilesThatCannotBeReadSayWhy) {
    const auto missing = readFile(path, kLimitBytes);
    EXPECT_EQ(missing.error.sentence, "cannot be opened: No such file or directory");
    EXPECT_EQ(missing.error.kind, FaultKind::notFound);
    EXPECT_EQ(readFile(testing::TempDir(), kLimitBytes).error.sentence, "cannot be read: Is a directory");
}

TEST_F(Files, EndlessFileEndsAtTheLimit) {
    EXPECT_EQ(readFile("/dev/zero", 100000).error.sentence, "is longer than 100000 bytes");
}

TEST_F(Files, PartEndsWhereTheFileEnds) {
    write("0123456789");
    const auto file = openFile(path, O_RDONLY);
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(readPart(file.get(), 4, 3).value, "3456");
    EXPECT_EQ(readPart(file.get(), 40, 8).value, "89");
    EXPECT_EQ(readPart(file.get(), 4, 10).value, "");
}

TEST_F(Files, DescriptorsAreClosedWithTheirScopeAndAtExec) {
    write("x");
    int number = -1;
    {
        const auto file = openFile(path, O_RDONLY);
        number = file.get();
        EXPECT_EQ(fcntl(number, F_GETFD), FD_CLOEXEC);
    }
    EXPECT_EQ(fcntl(number, F_GETFD), -1);
}

TEST_F(Files, NewFileNeverReplacesAnother) {
    EXPECT_FALSE(writeNewFile(path, "first"));
    const auto fault = writeNewFile(path, "second");
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->sentence, "cannot be made: File exists");
    EXPECT_EQ(readFile(path, kLimitBytes).value, "first");
}

TEST_F(Files, FullDeviceIsAFault) {
    const auto full = openFile("/dev/full", O_WRONLY);
    ASSERT_TRUE(full.isOpen());
    const auto fault = writeAll(full.get(), "x");
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->sentence, "cannot be written: No space left on device");
    EXPECT_EQ(fault->kind, FaultKind::medium);
}

TEST_F(Files, RealPathFollowsLinksAndFailsWithoutAFile) {
    EXPECT_EQ(realPath(path).error.sentence, "cannot be reached: No such file or directory");
    ASSERT_EQ(symlink("/dev/null", path.c_str()), 0);
    EXPECT_EQ(realPath(path).value, "/dev/null");
}

TEST_F(Files, JoinedPathsHaveOneSlashBetween) {
    EXPECT_EQ(joinPath("/a", "b"), "/a/b");
    EXPECT_EQ(joinPath("/", "b"), "/b");
}

}  // namespace
}  // namespace tavdb::image
