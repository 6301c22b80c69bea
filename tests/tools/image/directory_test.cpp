// SPDX-License-Identifier: Apache-2.0
// Database directories and what is wrong with those that are none: a sentence
// and the right kind of fault each, without attaching to anything.
#include "image/directory.h"

#include <gmock/gmock.h>

#include "tools/image/attached.h"
#include "tools/test_place.h"

namespace tavdb::image {
namespace {

using tavdb_test::patch;
using tavdb_test::TestPlace;
using tavdb_test::word;

class DirectoryTest : public testing::Test {
protected:
    void SetUp() override {
        buildText("a: {type: u8}\n", place / "db");
    }
    void expectFault(FaultKind kind, const std::string &sentence, const std::string &name = "db") {
        const auto opened = openDirectory(place / name);
        ASSERT_FALSE(opened);
        EXPECT_EQ(opened.error.sentence, sentence);
        EXPECT_EQ(opened.error.kind, kind);
    }

    TestPlace place;
};

TEST_F(DirectoryTest, GoodOneGivesItsDescriptionAndMedia) {
    std::filesystem::create_directory_symlink(place / "db", place / "link");
    const auto opened = openDirectory(place / "link/");
    ASSERT_TRUE(opened) << opened.error.sentence;
    EXPECT_EQ(opened.value->path, place / "db");
    const auto &description = *opened.value->description;
    EXPECT_EQ(description.sessionPath, place / "db/session.tbl");
    EXPECT_EQ(description.lockPath, place / "db/lock.tbl");
    EXPECT_EQ(description.mediaPath, place / "db/media.conf");
    EXPECT_EQ(description.hookPath, place / "db/hooks.conf");
    EXPECT_EQ(description.componentMedia, 1U);
    EXPECT_EQ(description.valueMedia, 2U);
    EXPECT_EQ(description.constraintMedia, 3U);
    EXPECT_EQ(description.stringMedia, 4U);
    EXPECT_EQ(opened.value->media.size(), 6U);
    EXPECT_EQ(opened.value->media[0].kind(), "memory");
    EXPECT_EQ(opened.value->imagePath(kTextMedium), place / "db/text.med");
}

TEST_F(DirectoryTest, NothingThere) {
    expectFault(FaultKind::notFound, "there is no such directory", "none");
}

TEST_F(DirectoryTest, AnotherDirectoryOrAFile) {
    std::filesystem::create_directory(place / "empty");
    place.write("file", "");
    expectFault(FaultKind::notFound, "is not a database directory: it has no media.conf", "empty");
    expectFault(FaultKind::notFound, "is not a database directory: it is a file", "file");
}

TEST_F(DirectoryTest, Incomplete) {
    std::filesystem::remove(place / "db/value.med");
    expectFault(FaultKind::damaged, "value.med: the database is incomplete: this image is missing");
    std::filesystem::remove(place / "db/media.conf");
    expectFault(FaultKind::damaged, "the database is incomplete: media.conf is missing");
}

TEST_F(DirectoryTest, MediaFileWithTooFewLines) {
    place.write("db/media.conf", "# nothing\n");
    expectFault(FaultKind::damaged, "media.conf names 0 media, a database has 6");
}

TEST_F(DirectoryTest, OtherByteOrder) {
    const std::string here = nameOf(nativeOrder());
    const std::string there = nameOf(opposite(nativeOrder()));
    buildText("a: {type: u8}\n", place / "other", {.order = opposite(nativeOrder())});
    expectFault(FaultKind::mismatch,
                "its numbers are stored " + there + " and this machine is " + here +
                    "; 'tavdb convert' makes a copy for this machine",
                "other");
    const auto opened = openDirectory(place / "other", DirectoryUse::readFiles);
    ASSERT_TRUE(opened) << opened.error.sentence;
    EXPECT_EQ(opened.value->order, opposite(nativeOrder()));
    EXPECT_EQ(openDirectory(place / "db", DirectoryUse::readFiles).value->order, nativeOrder());
}

TEST_F(DirectoryTest, DamageOfTheOtherByteOrder) {
    const auto damage = [&](size_t offset, const std::string &bytes) {
        buildText("a: {type: u8}\n", place / "other", {.order = opposite(nativeOrder()), .replace = true});
        patch(place / "other/component.med", offset, bytes);
        return openDirectory(place / "other", DirectoryUse::readFiles).error.sentence;
    };
    EXPECT_EQ(damage(8, word(0)), "component.med: the header is damaged: there is no root at 0");
    EXPECT_EQ(damage(12, word(0xFFFFFF7F)),
              "component.med: the header is damaged: the first free block lies outside at 2147483647");
    EXPECT_EQ(damage(4, word(0x01000200)), "component.med: is of format 2, this program knows format 1");
}

TEST_F(DirectoryTest, HeaderThatCouldBeEitherOrderIsDamaged) {
    for (const auto &medium : kMediumNames)
        patch((place / "db/") + std::string(medium.file), 0, std::string(16, '\0'));
    expectFault(FaultKind::damaged, "component.med: the header is damaged: it does not begin with TAVD");
}

TEST_F(DirectoryTest, ImagesOfBothOrdersAreDamage) {
    buildText("a: {type: u8}\n", place / "other", {.order = opposite(nativeOrder())});
    std::filesystem::rename(place / "other/string.med", place / "db/string.med");
    expectFault(FaultKind::damaged, std::string("string.med: the header is damaged: its numbers are stored ") +
                                        nameOf(opposite(nativeOrder())) + ", those of component.med " +
                                        nameOf(nativeOrder()));
}

TEST_F(DirectoryTest, OtherFormat) {
    patch(place / "db/component.med", 4, word(0x00020001));
    expectFault(FaultKind::mismatch, "component.med: is of format 2, this program knows format 1");
}

TEST_F(DirectoryTest, DamagedHeaders) {
    patch(place / "db/text.med", 0, word(0x12345678));
    expectFault(FaultKind::damaged, "text.med: the header is damaged: it does not begin with TAVD");
    std::filesystem::resize_file(place / "db/string.med", 12);
    expectFault(FaultKind::damaged, "string.med: the header is damaged: the image is shorter than its header");
    patch(place / "db/constraint.med", 12, word(0xFFFFFFF0));
    expectFault(FaultKind::damaged,
                "constraint.med: the header is damaged: the first free block lies outside at 4294967280");
    patch(place / "db/component.med", 8, word(0));
    expectFault(FaultKind::damaged, "component.med: the header is damaged: there is no root at 0");
    patch(place / "db/component.med", 8, word(0xFFFFFFF0));
    expectFault(FaultKind::damaged, "component.med: the header is damaged: there is no root at 4294967280");
}

TEST_F(DirectoryTest, ImagesThatAreSwapped) {
    std::filesystem::rename(place / "db/value.med", place / "db/x");
    std::filesystem::rename(place / "db/string.med", place / "db/value.med");
    std::filesystem::rename(place / "db/x", place / "db/string.med");
    expectFault(FaultKind::damaged, "value.med: the header is damaged: it says medium 4, this is medium 2");
}

TEST_F(DirectoryTest, PathThatTheLibraryHasNoRoomFor) {
    EXPECT_TRUE(describeDirectory("/" + std::string(4000, 'x')));
    const auto described = describeDirectory("/" + std::string(4090, 'x'));
    ASSERT_FALSE(described);
    EXPECT_EQ(described.error.sentence, "the path is too long for the library");
}

TEST_F(DirectoryTest, HintsMayPointAnywhere) {
    std::filesystem::rename(place / "db/value.med", place / "elsewhere.med");
    auto media = tavdb_test::bytesOf(place / "db/media.conf");
    media.replace(media.find("value.med"), 9, place / "elsewhere.med");
    place.write("db/media.conf", media);
    const auto opened = openDirectory(place / "db");
    ASSERT_TRUE(opened) << opened.error.sentence;
    EXPECT_EQ(opened.value->imagePath(kValueMedium), place / "elsewhere.med");
}

TEST_F(DirectoryTest, FilesOfADatabaseAreKnownByName) {
    for (const auto *name : {"media.conf", "component.med", "text.med", "session.tbl", "lock.tbl", "session.tbl.sem",
                             "lock.tbl.sem", "hooks.conf", "schema.json"})
        EXPECT_TRUE(isDatabaseFile(name)) << name;
    for (const auto *name : {"", "control.tbl", "component.med.sem", "media.conf.sem", "media.conf~", "other.med"})
        EXPECT_FALSE(isDatabaseFile(name)) << name;
}

}  // namespace
}  // namespace tavdb::image
