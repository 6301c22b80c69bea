// SPDX-License-Identifier: Apache-2.0
// Builds that fail, at every place where they can, leave nothing behind; and
// nothing is replaced that should stay.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "image/database.h"
#include "tools/image/attached.h"
#include "tools/test_place.h"

namespace tavdb::image {
namespace {

using tavdb_test::bytesOf;
using tavdb_test::filesIn;
using tavdb_test::TestPlace;
using testing::ElementsAre;
using testing::IsEmpty;

const char *const kBuildable =
    "a: {type: u8, range: [0, 9]}\n"
    "b: {type: text, size: 9}\n"
    "c:\n  d: {type: u16, enum: [1, 2], current: 1}\n";

class BuildFailure : public testing::Test {
protected:
    Result<BuildSummary> build(const BuildOptions &options = {}, const std::string &name = "db") {
        return buildDatabase(readGood(kBuildable).model, place / name, options);
    }

    TestPlace place;
};

TEST_F(BuildFailure, InterruptionAtAnyPlaceLeavesNothing) {
    size_t asked = 0;
    BuildOptions counting;
    counting.interrupted = [&] { return asked++, false; };
    ASSERT_TRUE(build(counting, "whole"));
    std::filesystem::remove_all(place / "whole");
    ASSERT_GT(asked, 4U);
    for (size_t end = 0; end < asked; end++) {
        size_t count = 0;
        BuildOptions ending;
        ending.interrupted = [&] { return count++ == end; };
        const auto built = build(ending);
        EXPECT_FALSE(built);
        EXPECT_EQ(built.error.sentence, "interrupted");
        EXPECT_THAT(place.names(), IsEmpty()) << end;
    }
}

TEST_F(BuildFailure, PlaceThatIsTakenIsRefused) {
    place.write("file", "x");
    std::filesystem::create_directory(place / "folder");
    ASSERT_EQ(symlink("nowhere", (place / "link").c_str()), 0);
    for (const auto *name : {"file", "folder", "link"}) {
        const auto built = build({}, name);
        EXPECT_FALSE(built);
        EXPECT_EQ(built.error.sentence, "exists already; --replace puts a new database in its place") << name;
        EXPECT_EQ(built.error.kind, FaultKind::failed);
    }
    EXPECT_THAT(place.names(), ElementsAre("file", "folder", "link"));
    EXPECT_EQ(bytesOf(place / "file"), "x");
}

TEST_F(BuildFailure, PlaceWithoutAParentIsRefused) {
    const auto built = build({}, "no/db");
    EXPECT_FALSE(built);
    EXPECT_EQ(built.error.sentence, "its parent directory: cannot be reached: No such file or directory");
    EXPECT_THAT(place.names(), IsEmpty());
}

TEST_F(BuildFailure, NamesThatCannotBeADirectoryAreRefused) {
    EXPECT_EQ(build({}, "no/..").error.sentence, "is no name for a new directory");
    EXPECT_FALSE(buildDatabase(readGood(kBuildable).model, "", {}));
    EXPECT_FALSE(buildDatabase(readGood(kBuildable).model, "/", {.replace = true}));
    EXPECT_THAT(place.names(), IsEmpty());
}

TEST_F(BuildFailure, MissingHookFileLeavesNothing) {
    const auto built = build({.hookFile = place / "none"});
    EXPECT_FALSE(built);
    EXPECT_EQ(built.error.sentence, place / "none" + ": cannot be opened: No such file or directory");
    EXPECT_THAT(place.names(), IsEmpty());
}

TEST_F(BuildFailure, HeaderThatCannotBeWrittenLeavesNothing) {
    const auto built = build({.headerFile = place / "no/keys.h"});
    EXPECT_FALSE(built);
    EXPECT_EQ(built.error.sentence, place / "no/keys.h" + ": cannot be made: No such file or directory");
    EXPECT_THAT(place.names(), IsEmpty());
}

TEST_F(BuildFailure, OnlyADatabaseIsReplaced) {
    std::filesystem::create_directory(place / "db");
    place.write("db/letter", "dear");
    EXPECT_EQ(build({.replace = true}).error.sentence, "exists and is no database directory, so it is not replaced");
    place.write("file", "x");
    EXPECT_FALSE(build({.replace = true}, "file"));
    EXPECT_EQ(bytesOf(place / "db/letter"), "dear");
    EXPECT_THAT(place.names(), ElementsAre("db", "file"));
}

TEST_F(BuildFailure, DatabaseWithSomebodysFileInItIsNotReplaced) {
    ASSERT_TRUE(build());
    place.write("db/letter", "dear");
    const auto before = filesIn(place / "db");
    EXPECT_EQ(build({.replace = true}).error.sentence,
              "is not replaced, because it holds 'letter', which is no part of a database");
    EXPECT_EQ(filesIn(place / "db"), before);
    EXPECT_THAT(place.names(), ElementsAre("db"));
}

TEST_F(BuildFailure, FailedReplacementKeepsTheOldDatabase) {
    buildText("old: {type: u8, current: 7}\n", place / "db");
    const auto before = filesIn(place / "db");
    EXPECT_FALSE(build({.hookFile = place / "none", .replace = true}));
    EXPECT_EQ(filesIn(place / "db"), before);
    EXPECT_THAT(place.names(), ElementsAre("db"));
}

TEST_F(BuildFailure, ReplacementLeavesTheNewDatabaseOnly) {
    buildText("old: {type: u8, current: 7}\n", place / "db");
    // What an application left behind goes too.
    place.write("db/session.tbl.sem", "");
    place.write("db/hooks.conf", "# old\n");
    ASSERT_TRUE(build({.replace = true}));
    ASSERT_TRUE(build({}, "fresh"));
    EXPECT_EQ(filesIn(place / "db"), filesIn(place / "fresh"));
    EXPECT_THAT(place.names(), ElementsAre("db", "fresh"));
}

TEST_F(BuildFailure, ReplacementGoesThroughALinkToTheDirectory) {
    buildText("old: {type: u8, current: 7}\n", place / "db");
    ASSERT_EQ(symlink("db", (place / "link").c_str()), 0);
    ASSERT_TRUE(build({.replace = true}, "link"));
    EXPECT_TRUE(std::filesystem::is_symlink(place / "link"));
    Attached database(place / "db");
    EXPECT_NE(database.at("/a"), 0U);
}

TEST_F(BuildFailure, DatabaseOfAnotherByteOrderMayBeReplaced) {
    ASSERT_TRUE(build());
    tavdb_test::patch(place / "db/component.med", 0, tavdb_test::word(0x44564154));
    EXPECT_TRUE(build({.replace = true}));
}

TEST_F(BuildFailure, ReplaceWithoutAnOldOneBuildsANewOne) {
    EXPECT_TRUE(build({.replace = true}));
    EXPECT_THAT(place.names(), ElementsAre("db"));
}

TEST_F(BuildFailure, RightsAreThoseOfANewDirectory) {
    const mode_t mask = umask(027);
    EXPECT_TRUE(build());
    umask(mask);
    struct stat status = {};
    ASSERT_EQ(stat((place / "db").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0750U);
    ASSERT_EQ(stat((place / "db/value.med").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(BuildFailure, LongestNameOfADirectoryWorks) {
    EXPECT_TRUE(build({}, std::string(255, 'x')));
    EXPECT_FALSE(build({}, std::string(256, 'x')));
    EXPECT_EQ(place.names().size(), 1U);
}

TEST_F(BuildFailure, MediumBeyondTwoGigabytesIsRefusedBeforeAnythingIsMade) {
    MediumBytes content = {};
    content[kDataMedium] = kMediumBytesMax + 1;
    const auto sizes = imageBytes(content, 25);
    EXPECT_FALSE(sizes);
    EXPECT_EQ(sizes.error.sentence, "the data medium would have 2147483648 bytes, 2147483647 are possible");
}

TEST_F(BuildFailure, ProcessThatIsAttachedDoesNotBuild) {
    ASSERT_TRUE(build());
    const auto description = describeDirectory(place / "db");
    const auto database = Database::attach(**description.value);
    ASSERT_TRUE(database);
    const auto second = build({}, "second");
    EXPECT_FALSE(second);
    EXPECT_EQ(second.error.sentence, "this process is attached to a database already");
    EXPECT_THAT(place.names(), testing::Not(testing::Contains("second")));
}

}  // namespace
}  // namespace tavdb::image
