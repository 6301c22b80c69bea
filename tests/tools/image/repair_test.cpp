// SPDX-License-Identifier: Apache-2.0
// Repairs of whole directories: what is kept and what is replaced, cuts in front of
// every step, tables of processes that are gone, and what is left to read through the
// library afterwards.
#include "image/repair.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <stdexcept>

#include "image/files.h"
#include "image/schema_file.h"
#include "image/tables.h"
#include "tools/image/check_support.h"

namespace tavdb::image {
namespace {

using tavdb_test::bytesOf;
using tavdb_test::filesIn;
using tavdb_test::patch;
using tavdb_test::word;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kWithSecret = std::string(kSmall) + "  e: {type: u8, secret: true, current: 7}\n";

/// A power cut: what runs is left where it is.
struct Cut : std::runtime_error {
    Cut() : std::runtime_error("cut") {}
};

class Repair : public testing::Test {
protected:
    void SetUp() override {
        buildText(kWithSecret, db);
    }
    /// /a loses its link to /b, and its current value.
    void damage() {
        patch(place / "db/component.med", 44 + 16, word(7));
        patch(place / "db/component.med", 44 + 24, word(0x7FFFFFF0));
    }
    std::map<std::string, std::string> imagesIn(const std::string &folder) const {
        std::map<std::string, std::string> images;
        for (const auto &medium : kMediumNames)
            images.emplace(medium.file, bytesOf(joinPath(place / folder, medium.file)));
        return images;
    }
    std::vector<std::string> names() const {
        std::vector<std::string> all;
        for (const auto &entry : std::filesystem::directory_iterator(db))
            all.push_back(entry.path().filename());
        std::sort(all.begin(), all.end());
        return all;
    }
    /// Runs a repair that is cut before its step of that number. @return whether there was such a step
    bool repairCutBefore(size_t number) {
        size_t count = 0;
        try {
            const auto repaired = repairDatabase(db, [&](std::string_view) {
                if (count++ == number)
                    throw Cut();
            });
            EXPECT_TRUE(repaired) << repaired.error.sentence;
        } catch (const Cut &) {
            return true;
        }
        return false;
    }
    void expectSoundNow() {
        const auto check = checkDatabase(db);
        ASSERT_TRUE(check) << check.error.sentence;
        for (const auto &finding : check.value->findings())
            if (finding.remedy != "it stays as it is")
                ADD_FAILURE() << formatFinding(finding);
    }
    Fault faultOfRepair(const std::string &path) {
        const auto repaired = repairDatabase(path);
        EXPECT_FALSE(repaired);
        return repaired.error;
    }

    tavdb_test::TestPlace place;
    const std::string db = place / "db";
};

TEST_F(Repair, SoundDatabaseIsLeftAlone) {
    const auto before = filesIn(db);
    const auto repaired = repairDatabase(db);
    ASSERT_TRUE(repaired);
    EXPECT_THAT(repaired.value->check.findings(), IsEmpty());
    EXPECT_EQ(repaired.value->original, "");
    EXPECT_EQ(filesIn(db), before);
}

TEST_F(Repair, DamagedFilesAreKeptAndTheOthersStay) {
    damage();
    const auto before = imagesIn("db");
    chmod((place / "db/component.med").c_str(), 0640);
    const auto repaired = repairDatabase(db);
    ASSERT_TRUE(repaired) << repaired.error.sentence;
    EXPECT_EQ(repaired.value->original, "damaged-1");
    EXPECT_EQ(imagesIn("db/damaged-1"), before);
    EXPECT_EQ(bytesOf(place / "db/damaged-1/media.conf"), bytesOf(place / "db/media.conf"));
    struct stat status = {};
    ASSERT_EQ(stat((place / "db/component.med").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
    EXPECT_EQ(imagesIn("db").at("constraint.med"), before.at("constraint.med"));
    EXPECT_NE(imagesIn("db").at("component.med"), before.at("component.med"));
    expectSoundNow();
    const auto after = imagesIn("db");
    EXPECT_EQ(repairDatabase(db).value->original, "") << "twice changes nothing";
    EXPECT_EQ(imagesIn("db"), after);
    Attached database(db);
    EXPECT_EQ(database.current(database.at("/a")), packed<uint32_t>({5})) << "from the default value";
    EXPECT_EQ(database.current(database.at("/b")).substr(0, 2), "xy");
    EXPECT_EQ(database.current(database.at("/c/d")), packed<uint16_t>({2}));
}

TEST_F(Repair, WhatIsKeptIsADatabaseThatCanBeLookedAt) {
    damage();
    const auto found = checkDatabase(db);
    ASSERT_TRUE(repairDatabase(db));
    const auto kept = checkDatabase(place / "db/damaged-1");
    ASSERT_TRUE(kept) << kept.error.sentence;
    EXPECT_EQ(linesOf(kept.value->examination), linesOf(found.value->examination));
}

TEST_F(Repair, EveryRepairKeepsItsOwnOriginal) {
    damage();
    ASSERT_TRUE(repairDatabase(db));
    damage();
    EXPECT_EQ(repairDatabase(db).value->original, "damaged-2");
    EXPECT_THAT(names(), testing::IsSupersetOf({"damaged-1", "damaged-2"}));
}

TEST_F(Repair, CutInFrontOfAnyStepIsMadeUpFor) {
    damage();
    const auto broken = filesIn(db);
    const auto whole = imagesIn("db");
    const auto right = [&] {
        auto images = examine(*RawImages::load(db, nativeOrder()).value).images;
        std::map<std::string, std::string> expected;
        for (const auto &medium : kMediumNames)
            expected.emplace(medium.file, images.content(medium.id));
        return expected;
    }();
    size_t number = 0;
    for (bool wasCut = true; wasCut; number++) {
        SCOPED_TRACE("cut before step " + std::to_string(number));
        std::filesystem::remove_all(db);
        std::filesystem::create_directory(db);
        for (const auto &[name, content] : broken)
            place.write("db/" + name, content);
        wasCut = repairCutBefore(number);
        const bool isUnfinished = std::filesystem::exists(place / "db/repair.journal");
        const auto images = imagesIn("db");
        EXPECT_TRUE(isUnfinished || images == right || images == whole) << "neither the old database nor the new one";
        if (isUnfinished) {
            EXPECT_EQ(openDirectory(db).error.sentence, "a repair was cut short; 'tavdb repair' finishes it");
            EXPECT_TRUE(checkDatabase(db).value->isDamaged());
        }
        // A second cut, anywhere in what is still to do.
        for (size_t second = 0; second < 3; second++)
            repairCutBefore(second);
        const auto repaired = repairDatabase(db);
        ASSERT_TRUE(repaired) << repaired.error.sentence;
        EXPECT_EQ(imagesIn("db"), right);
        EXPECT_EQ(imagesIn("db/damaged-1"), whole);
        expectSoundNow();
        for (const auto &name : names())
            EXPECT_TRUE(isDatabaseFile(name) || (name.starts_with("damaged-") && !name.ends_with(".part"))) << name;
    }
    EXPECT_GT(number, 12U) << "steps";
}

TEST_F(Repair, NothingIsLeftOfARepairThatCannotBeWritten) {
    damage();
    // A folder that stands where the new image is to be written.
    std::filesystem::create_directories(place / "db/component.med.repaired/x/y");
    const auto before = imagesIn("db");
    EXPECT_FALSE(repairDatabase(db));
    EXPECT_EQ(imagesIn("db"), before);
    EXPECT_THAT(names(), testing::Not(Contains("damaged-1")));
}

TEST_F(Repair, SecretThatCameToAnotherPathStaysOne) {
    patch(place / "db/component.med", 124 + 24, word(0));
    ASSERT_TRUE(repairDatabase(db));
    const auto schema = SchemaFile::open(place / "db/schema.json");
    EXPECT_TRUE(schema.value->find("/lost+found/e").value->secret);
    EXPECT_FALSE(schema.value->find("/lost+found/d").value->secret);
    expectSoundNow();
}

TEST_F(Repair, MissingImageIsMadeAnew) {
    std::filesystem::remove(place / "db/constraint.med");
    const auto repaired = repairDatabase(db);
    ASSERT_TRUE(repaired) << repaired.error.sentence;
    EXPECT_TRUE(repaired.value->check.examination.hasLosses());
    expectSoundNow();
    Attached database(db);
    EXPECT_EQ(database.current(database.at("/c/d")), packed<uint16_t>({2}));
}

TEST_F(Repair, WhatIsNoDatabaseIsRefused) {
    EXPECT_EQ(faultOfRepair(place / "none").kind, FaultKind::notFound);
    std::filesystem::create_directory(place / "other");
    EXPECT_EQ(faultOfRepair(place / "other").kind, FaultKind::notFound);
    place.write("other/media.conf", bytesOf(place / "db/media.conf"));
    EXPECT_EQ(faultOfRepair(place / "other").sentence, "the database is incomplete: all images are missing");
    place.write("db/repair.journal", "../../passwd\n");
    EXPECT_EQ(faultOfRepair(db).sentence, "repair.journal: is no journal");
}

TEST_F(Repair, DatabaseOfAnotherFormatIsRefused) {
    for (const auto &medium : kMediumNames)
        patch(joinPath(db, medium.file), 4, word(2U << 16 | static_cast<uint32_t>(medium.id)));
    const auto before = filesIn(db);
    EXPECT_EQ(faultOfRepair(db).kind, FaultKind::mismatch);
    EXPECT_EQ(faultOfRepair(db).sentence, "is of format 2, this program knows format 1");
    EXPECT_EQ(filesIn(db), before);
}

TEST_F(Repair, ImagesThatWereExchangedAreNotTakenForRubble) {
    std::filesystem::rename(place / "db/value.med", place / "db/x");
    std::filesystem::rename(place / "db/string.med", place / "db/value.med");
    std::filesystem::rename(place / "db/x", place / "db/string.med");
    const auto before = filesIn(db);
    EXPECT_EQ(faultOfRepair(db).sentence, "value.med and string.med are images of other media: exchanged?");
    EXPECT_EQ(filesIn(db), before);
}

TEST_F(Repair, DatabaseInUseIsRefused) {
    damage();
    {
        Attached database(db);
        const auto fault = faultOfRepair(db);
        EXPECT_EQ(fault.kind, FaultKind::locked);
        EXPECT_EQ(fault.sentence, "is in use by process " + std::to_string(getpid()));
    }
    const auto image = openFile(place / "db/text.med", O_RDONLY);
    ASSERT_EQ(flock(image.get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(faultOfRepair(db).sentence, "text.med: is owned by a media server");
}

TEST_F(Repair, WhatADeadProcessLeftInTheTablesIsCleared) {
    if (const int child = fork(); child == 0) {
        const auto description = describeDirectory(db);
        int32_t error = 0;
        tavDBMSession session = {};
        const int32_t id = tavDBMInit(description.value->get(), &error);
        const bool isDone = id > 0 && tavDBMInitSession(&session, static_cast<uint32_t>(id)) == 0 &&
                            tavDBMLock(&session, 44, TAVDB_LOCK_TRY) == 0;
        _exit(isDone ? 0 : 1);
    } else {
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    }
    const auto check = checkDatabase(db);
    ASSERT_TRUE(check);
    std::vector<std::string> lines;
    for (const auto &finding : check.value->findings())
        lines.push_back(formatFinding(finding));
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0], testing::MatchesRegex("session.tbl: slot 1: process [0-9]+, which has this session, is gone "
                                                "\\(oddity\\): the table is made anew"));
    EXPECT_EQ(lines[1],
              "lock.tbl: lock 1: session 1, which locked component 44, is gone (oddity): the table is made anew");
    EXPECT_FALSE(check.value->isDamaged());
    const auto registration = [&] {
        return *findRegistration(place / "control.tbl", **describeDirectory(db).value).value;
    };
    ASSERT_TRUE(registration());
    const auto repaired = repairDatabase(db);
    ASSERT_TRUE(repaired) << repaired.error.sentence;
    EXPECT_EQ(repaired.value->original, "") << "the images were sound";
    expectSoundNow();
    EXPECT_FALSE(registration()) << "its reference was given back";
    Attached database(db);
    EXPECT_EQ(tavDBMLock(database.session(), 44, TAVDB_LOCK_TRY), 0);
    EXPECT_EQ(tavDBMUnlock(database.session(), 44), 0);
}

struct TableRow {
    const char *name;
    const char *file;
    size_t offset;
    uint32_t word;
    const char *line;
};

void PrintTo(const TableRow &row, std::ostream *stream) {
    *stream << row.name;
}

class RepairTable : public Repair, public testing::WithParamInterface<TableRow> {};

const TableRow kTables[] = {
    {"SessionHead", "session.tbl", 8, 5000,
     "session.tbl: the list of those in use leads to record 5000, which there is not (damage): the table is made anew"},
    {"SessionCircle", "session.tbl", 12 + 16 + 12, 1,
     "session.tbl: the free list leads to record 1, which it or the other list holds already (damage): the table is "
     "made "
     "anew"},
    {"SessionsLost", "session.tbl", 12 + 16 * 5 + 12, 7,
     "session.tbl: 1 of its records are in neither of its lists (damage): the table is made anew"},
    {"SessionTail", "session.tbl", 4, 7,
     "session.tbl: its last free slot is not the last one (damage): the table is made anew"},
    {"SessionId", "session.tbl", 12 + 16 * 9, 4,
     "session.tbl: slot 9: it says that it is session 4 (damage): the table is made anew"},
    {"LockHead", "lock.tbl", 4, 7,
     "lock.tbl: the free list leads to record 7, which it or the other list holds already (damage): the table is made "
     "anew"},
    {"LockTail", "lock.tbl", 8, 7, "lock.tbl: its last lock is not the last one (damage): the table is made anew"},
    {"LockFree", "lock.tbl", 0, 0xFFFFFFFF,
     "lock.tbl: the free list leads to record 4294967295, which there is not (damage): the table is made anew"},
};

INSTANTIATE_TEST_SUITE_P(Rows, RepairTable, testing::ValuesIn(kTables),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(RepairTable, IsFoundAndMadeAnew) {
    { Attached database(db); }
    patch(joinPath(db, GetParam().file), GetParam().offset, word(GetParam().word));
    const auto check = checkDatabase(db);
    ASSERT_TRUE(check) << check.error.sentence;
    std::vector<std::string> lines;
    for (const auto &finding : check.value->findings())
        lines.push_back(formatFinding(finding));
    EXPECT_THAT(lines, Contains(GetParam().line));
    EXPECT_TRUE(check.value->isDamaged());
    const auto images = imagesIn("db");
    ASSERT_TRUE(repairDatabase(db));
    expectSoundNow();
    EXPECT_EQ(imagesIn("db"), images);
    Attached database(db);
    EXPECT_EQ(database.current(database.at("/a")), packed<uint32_t>({5}));
}

TEST_F(Repair, TableOfAnotherSizeIsMadeAnew) {
    std::filesystem::resize_file(place / "db/session.tbl", 100);
    std::filesystem::resize_file(place / "db/lock.tbl", 100000);
    EXPECT_TRUE(checkDatabase(db).value->isDamaged());
    ASSERT_TRUE(repairDatabase(db));
    expectSoundNow();
    Attached database(db);
    EXPECT_NE(database.at("/a"), 0U);
}

TEST_F(Repair, ControlTableIsLookedAtAndLeftAlone) {
    { Attached database(db); }
    patch(place / "control.tbl", 8, word(77));
    const auto before = bytesOf(place / "control.tbl");
    const auto repaired = repairDatabase(db);
    ASSERT_TRUE(repaired);
    ASSERT_EQ(repaired.value->check.findings().size(), 1U);
    EXPECT_EQ(formatFinding(repaired.value->check.findings()[0]),
              place / "control.tbl" +
                  ": the list of those in use leads to record 77, which there is not (damage): nothing: it is the "
                  "machine's; it can be deleted when no database is in use");
    EXPECT_EQ(bytesOf(place / "control.tbl"), before);
}

void readValue(tavDBMSession *session, uint32_t key) {
    session->errorCode = 0;
    int32_t length = value_getLength(session, key);
    ASSERT_GE(length, 0);
    const int32_t expected = length;
    std::string bytes(static_cast<size_t>(length), '?');
    EXPECT_EQ(value_getGeneric(session, key, bytes.data(), &length), 0);
    EXPECT_EQ(length, expected);
    EXPECT_EQ(session->errorCode, 0U);
}

/// Every value that is left is read through the library, in a process for each database:
/// one process does not forget the media of the database before.
void readEverything(const std::string &db) {
    Attached database(db);
    auto *session = database.session();
    std::vector<uint32_t> keys = {tavDBMGetRoot(session)};
    for (size_t i = 0; i < keys.size(); i++) {
        for (uint32_t child = tavDBMGetFirstChild(session, keys[i]); child != 0;
             child = tavDBMGetNextChild(session, child)) {
            ASSERT_LT(keys.size(), 1000U);
            EXPECT_EQ(tavDBMGetParent(session, child), keys[i]);
            database.nameOf(child);
            tavDBMComponent header = {};
            ASSERT_NE(comp_getComponent(session, child, &header), nullptr);
            keys.push_back(child);
            if (header.kind != TAVDB_KIND_LEAF)
                continue;
            tavDBMLeaf leaf = {};
            ASSERT_NE(comp_getLeaf(session, child, &leaf), nullptr);
            for (const uint32_t value : {leaf.currentValue, leaf.defaultValue, leaf.factoryValue})
                if (value != 0)
                    readValue(session, value);
        }
    }
}

TEST_F(Repair, EverySurvivingValueIsReadThroughTheLibrary) {
    std::mt19937 random(tavdb_test::randomSeed());
    const auto whole = filesIn(db);
    for (int round = 0; round < 40 && !HasFailure(); round++) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::filesystem::remove_all(db);
        std::filesystem::create_directory(db);
        for (const auto &[name, content] : whole)
            place.write("db/" + name, content);
        for (auto changes = random() % 5 + 1; changes > 0; changes--) {
            const auto &medium = kMediumNames[random() % kMediumNames.size()];
            const auto size = std::min<size_t>(whole.at(std::string(medium.file)).size(), 400);
            patch(joinPath(db, medium.file), random() % (size / 4) * 4, word(static_cast<uint32_t>(random() % 300)));
        }
        ASSERT_TRUE(repairDatabase(db));
        expectSoundNow();
        const int child = fork();
        if (child == 0) {
            readEverything(db);
            _exit(HasFailure() ? 1 : 0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
}

}  // namespace
}  // namespace tavdb::image
