// SPDX-License-Identifier: Apache-2.0
// From hint to path: relative hints belong to the folder of the media
// configuration, wherever that is and wherever the process goes.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>

#include "media_test_support.h"

namespace {

class MediaPath : public MediaTest {
protected:
    ~MediaPath() override {
        EXPECT_EQ(chdir("/"), 0);
    }
    static void expectBoth(const std::string &hint, const std::string &content) {
        EXPECT_EQ(bytesOf(memoryMedium, mapped(hint), 100, 0), content);
        const int32_t fd = openMedium(fileMedium, hint).result;
        EXPECT_EQ(bytesOf(fileMedium, fd, 100, 0), content);
        EXPECT_EQ(closeMedium(fileMedium, fd), success(0));
    }
};

TEST_F(MediaPath, RelativeHintIsInTheConfigurationsFolder) {
    std::filesystem::create_directory(pathOf("images"));
    writeFile("a.med", "here");
    writeFile("images/b.med", "below");
    expectBoth("a.med", "here");
    expectBoth("images/b.med", "below");
    expectBoth("./images/../a.med", "here");
}

TEST_F(MediaPath, AbsoluteHintIsTakenAsItIs) {
    writeFile("a.med", "absolute");
    ASSERT_EQ(dbs_me_db_media_file_init("/nowhere/media.conf", 0), 0);
    expectBoth(pathOf("a.med"), "absolute");
    EXPECT_EQ(openMedium(memoryMedium, "a.med"), failure(ENOENT));
}

TEST_F(MediaPath, FolderMayBeMovedAsAWhole) {
    std::filesystem::create_directory(pathOf("before"));
    writeFile("before/a.med", "moved");
    ASSERT_EQ(dbs_me_db_media_file_init(pathOf("before/media.conf").c_str(), 0), 0);
    expectBoth("a.med", "moved");
    std::filesystem::rename(pathOf("before"), pathOf("after"));
    ASSERT_EQ(dbs_me_db_media_file_init(pathOf("after/media.conf").c_str(), 0), 0);
    expectBoth("a.med", "moved");
}

TEST_F(MediaPath, RelativeConfigurationMayBeLeftByTheProcess) {
    std::filesystem::create_directory(pathOf("db"));
    writeFile("db/a.med", "db");
    writeFile("b.med", "plain");
    ASSERT_EQ(chdir(folder().c_str()), 0);
    ASSERT_EQ(dbs_me_db_media_file_init("db/media.conf", 0), 0);
    ASSERT_EQ(chdir("/"), 0);
    expectBoth("a.med", "db");
    ASSERT_EQ(chdir(folder().c_str()), 0);
    ASSERT_EQ(dbs_me_db_media_file_init("media.conf", 0), 0);
    ASSERT_EQ(chdir("/"), 0);
    expectBoth("b.med", "plain");
}

TEST_F(MediaPath, WithoutAConfigurationTheWorkingFolderCounts) {
    writeFile("a.med", "working");
    ASSERT_EQ(dbs_me_db_media_file_init(nullptr, 0), 0);
    ASSERT_EQ(chdir(folder().c_str()), 0);
    expectBoth("a.med", "working");
}

TEST_F(MediaPath, ConfigurationInTheRootFolder) {
    writeFile("a.med", "root");
    ASSERT_EQ(dbs_me_db_media_file_init("/media.conf", 0), 0);
    expectBoth(pathOf("a.med").substr(1), "root");
}

TEST_F(MediaPath, TooLongAPathIsAnErrorNumber) {
    EXPECT_EQ(openMedium(memoryMedium, std::string(PATH_MAX - 5, 'x')), failure(ENAMETOOLONG));
    EXPECT_EQ(openMedium(fileMedium, std::string(PATH_MAX - 5, 'x')), failure(ENAMETOOLONG));
}

TEST_F(MediaPath, RefusedInitLeavesEverythingAsItWas) {
    writeFile("a.med", "here");
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(dbs_me_db_media_file_init(("/" + std::string(PATH_MAX, 'x') + "/media.conf").c_str(), 0),
              0x1000 | ENAMETOOLONG);
    EXPECT_EQ(bytesOf(memoryMedium, fd, 4, 0), "here");
    expectBoth("a.med", "here");
}

TEST_F(MediaPath, WorkingFolderThatIsGoneDoesNoHarm) {
    std::filesystem::create_directory(pathOf("gone"));
    ASSERT_EQ(chdir(pathOf("gone").c_str()), 0);
    std::filesystem::remove(pathOf("gone"));
    EXPECT_EQ(dbs_me_db_media_file_init("media.conf", 0), 0);
    EXPECT_EQ(openMedium(memoryMedium, "a.med"), failure(ENOENT));
}

}  // namespace
