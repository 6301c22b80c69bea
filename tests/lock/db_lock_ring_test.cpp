// SPDX-License-Identifier: Apache-2.0
// The rings that keep the last failures, as the dump shows them, and the dump
// itself. The rings are those of the process, so each test needs a fresh one.
#include <errno.h>

#include "lock/lock_test_support.h"

namespace tavdb_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kErrno = 77;
constexpr uint32_t kUsedSlots = 64;
constexpr uint32_t kHighestSequence = 999;

class LockRingTest : public LockTest {
protected:
    int32_t lock(uint32_t component, int32_t mode) {
        errno = kErrno;
        return tavDBMLock(&session, component, mode);
    }
    int32_t unlock(uint32_t component) {
        errno = kErrno;
        return tavDBMUnlock(&session, component);
    }
    /// The first record of the ring of locks, with these fields in front of database and error number.
    std::vector<std::string> lockRecord(std::vector<uint32_t> words, uint32_t error) const {
        words.insert(words.end(), {session.dbId, error});
        return {ringLine(1, words)};
    }
    std::vector<std::string> unlockRecord(std::vector<uint32_t> words, uint32_t error) const {
        return lockRecord(std::move(words), error);
    }
};

TEST_F(LockRingTest, AllFourAreEmptyAtFirst) {
    for (const char *const title : {kInitRing, kTermRing, kLockRing, kUnlockRing})
        EXPECT_THAT(ringLines(title), IsEmpty()) << title;
}

TEST_F(LockRingTest, SuccessesLeaveNoRecord) {
    lock(kComponent, kTry);
    unlock(kComponent);
    EXPECT_THAT(ringLines(kLockRing), IsEmpty());
    EXPECT_THAT(ringLines(kUnlockRing), IsEmpty());
}

TEST_F(LockRingTest, AConflictKeepsTheRefusingEntryAsNextAndTheOneBeforeItAsPrev) {
    lockAll({100, kComponent, 200});
    ASSERT_EQ(lock(kComponent, kTryShared), 75);
    EXPECT_EQ(ringLines(kLockRing), lockRecord({4, kComponent, kTryShared, 2, 0, 1, 0, 0}, kErrno));
}

TEST_F(LockRingTest, AConflictAtTheHeadOfTheListHasNoPrev) {
    lockAll({kComponent});
    ASSERT_EQ(lock(kComponent, kTry), 75);
    EXPECT_EQ(ringLines(kLockRing), lockRecord({4, kComponent, kTry, 1, 0, 0, 0, 0}, kErrno));
}

TEST_F(LockRingTest, EveryAttemptOfAWaitThatIsRefusedIsARecord) {
    lockAll({kComponent});
    int waits = 0;
    fakeSemaphores().onEventWait([&](const std::string &) {
        if (++waits == 3)
            tavDBMUnlock(&session, kComponent);
    });
    ASSERT_EQ(lock(kComponent, kWait), 0);
    EXPECT_EQ(ringLines(kLockRing).size(), 3U);
}

TEST_F(LockRingTest, AFullTableKeepsItsPlaceAsKind1Or2Or8) {
    fill(1001, 1022);
    ASSERT_EQ(tavDBMLock(&session, 5000, kTryShared), 0);
    ASSERT_EQ(lock(500, kTry), 78);
    ASSERT_EQ(lock(5000, kTryShared), 78);
    ASSERT_EQ(lock(6000, kTry), 78);
    const uint32_t db = session.dbId;
    EXPECT_THAT(ringLines(kLockRing), ElementsAre(ringLine(1, {1, 500, kTry, 1, 0, 0, 0, 0, db, kErrno}),
                                                  ringLine(2, {2, 5000, kTryShared, 1023, 0, 1022, 0, 0, db, kErrno}),
                                                  ringLine(3, {8, 6000, kTry, 0, 0, 1023, 0, 0, db, kErrno})));
}

TEST_F(LockRingTest, ALockWithoutTheMutexKeepsTheWaitsResultAndErrno) {
    failNext(Operation::mutexRequest);
    ASSERT_EQ(lock(kComponent, kTry), kCode);
    EXPECT_EQ(ringLines(kLockRing), lockRecord({32, kComponent, kTry, 0, 0, 0, kCode, 0}, EPROTO));
}

TEST_F(LockRingTest, ALockWhoseMutexIsNotReleasedKeepsTheNewEntryItsNeighboursAndTheReleasesResult) {
    lockAll({100, 200});
    failNext(Operation::mutexRelease);
    ASSERT_EQ(lock(kComponent, kTry), kCode);
    EXPECT_EQ(ringLines(kLockRing), lockRecord({16, kComponent, kTry, 2, 3, 1, 0, kCode}, EPROTO));
}

TEST_F(LockRingTest, AnUnlockStoppedByALaterLockKeepsThatEntry) {
    lockAll({100, 200});
    ASSERT_EQ(unlock(kComponent), 76);
    EXPECT_EQ(ringLines(kUnlockRing), unlockRecord({1, kComponent, 0, 0, 2}, kErrno));
}

TEST_F(LockRingTest, AnUnlockAtTheEndOfTheListKeepsNoEntry) {
    lockAll({100});
    ASSERT_EQ(unlock(kComponent), 76);
    EXPECT_EQ(ringLines(kUnlockRing), unlockRecord({2, kComponent, 0, 0, 0}, kErrno));
}

TEST_F(LockRingTest, AnUnlockWhoseMutexIsNotReleasedKeepsTheEntryAndTheReleasesResult) {
    lockAll({100, kComponent});
    failNext(Operation::mutexRelease);
    ASSERT_EQ(unlock(kComponent), kCode);
    EXPECT_EQ(ringLines(kUnlockRing), unlockRecord({4, kComponent, 0, static_cast<uint32_t>(kCode), 2}, EPROTO));
}

TEST_F(LockRingTest, AnUnlockWithoutTheMutexKeepsTheWaitsResultAndErrno) {
    failNext(Operation::mutexRequest);
    ASSERT_EQ(unlock(kComponent), kCode);
    EXPECT_EQ(ringLines(kUnlockRing), unlockRecord({8, kComponent, static_cast<uint32_t>(kCode), 0, 0}, EPROTO));
}

TEST_F(LockRingTest, TheRingsAreApart) {
    lockAll({kComponent});
    ASSERT_EQ(lock(kComponent, kTry), 75);
    ASSERT_EQ(unlock(999), 76);
    EXPECT_EQ(ringLines(kLockRing).size(), 1U);
    EXPECT_EQ(ringLines(kUnlockRing).size(), 1U);
    EXPECT_THAT(ringLines(kInitRing), IsEmpty());
    EXPECT_THAT(ringLines(kTermRing), IsEmpty());
}

/// A ring, and a failure that fills it with the records {kind, n, ...} for n = 1, 2, 3, ...
struct FilledRing {
    const char *name;
    const char *title;
    int32_t (*fail)(tavDBMSession *session, const char *path, uint32_t number);
};
void PrintTo(const FilledRing &row, std::ostream *stream) {
    *stream << row.name;
}

/// A failing start on a module that is not attached; the path does not count.
int32_t failStart(tavDBMSession *, const char *, uint32_t) {
    const int32_t result = lock_init("/nonexistent/lock.tbl");
    lock_term();
    return result;
}

/// A failing stop: the table stays mapped, and the next start maps it again.
int32_t failStop(tavDBMSession *, const char *path, uint32_t) {
    const Recording recording;
    lock_init(path);
    faultPlan().add({.operation = Operation::sysMunmap});
    return lock_term();
}

const FilledRing kFilledRings[] = {
    {"Lock", kLockRing, [](tavDBMSession *s, const char *, uint32_t) { return tavDBMLock(s, kComponent, kTry); }},
    {"Unlock", kUnlockRing, [](tavDBMSession *s, const char *, uint32_t n) { return tavDBMUnlock(s, 10000 + n); }},
    {"Init", kInitRing, failStart},
    {"Term", kTermRing, failStop},
};

class FilledRingTest : public LockRingTest, public testing::WithParamInterface<FilledRing> {
protected:
    void SetUp() override {
        LockRingTest::SetUp();
        lockAll({kComponent});
        const std::string ring = GetParam().name;
        if (ring == "Init" || ring == "Term")
            lock_term();  // from here on the test starts and stops the module by itself
    }
    void TearDown() override {
        const std::string ring = GetParam().name;
        if (ring == "Init" || ring == "Term")
            lock_init(file(kTableFile).c_str());
        LockRingTest::TearDown();
    }
    void fail(uint32_t times) {
        for (uint32_t n = 1; n <= times; n++)
            GetParam().fail(&session, file(kTableFile).c_str(), n);
    }
    /// The sequence numbers in the order of the slots.
    std::vector<uint32_t> sequences() const {
        std::vector<uint32_t> numbers;
        for (const std::string &line : ringLines(GetParam().title))
            numbers.push_back(static_cast<uint32_t>(std::stoul(line.substr(1))));
        return numbers;
    }
};

INSTANTIATE_TEST_SUITE_P(Rings, FilledRingTest, testing::ValuesIn(kFilledRings), byName);

TEST_P(FilledRingTest, BeginsAtSlot1AndReachesSlot0WithItsSixtyFourthRecord) {
    fail(kUsedSlots - 1);
    EXPECT_EQ(sequences(), ascending(1, 63));
    fail(1);
    std::vector<uint32_t> expected = ascending(1, 63);
    expected.insert(expected.begin(), 64);
    EXPECT_EQ(sequences(), expected);
}

TEST_P(FilledRingTest, OverwritesItsOldestRecordAndNeverUsesMoreThan64Slots) {
    fail(kUsedSlots + 2);
    std::vector<uint32_t> expected = ascending(3, 63);
    expected.insert(expected.begin(), {64, 65, 66});
    EXPECT_EQ(sequences(), expected);
}

TEST_P(FilledRingTest, CountsTo999AndBeginsAgainAt1) {
    fail(kHighestSequence);
    EXPECT_THAT(sequences(), Contains(kHighestSequence));
    fail(1);
    const std::vector<uint32_t> numbers = sequences();
    const uint32_t slot = (kHighestSequence + 1) % kUsedSlots;
    ASSERT_EQ(numbers.size(), kUsedSlots);
    EXPECT_EQ(numbers.at(slot - 1), kHighestSequence);
    EXPECT_EQ(numbers.at(slot), 1U);
}

class LockDumpTest : public LockTest {
protected:
    static std::vector<std::string> dump(int32_t level) {
        clearLogs();
        uint32_t debugSize = 7;
        uint32_t ramSize = 9;
        EXPECT_EQ(dbs_me_db_lock_debug_info(level, &debugSize, &ramSize), 0);
        EXPECT_EQ(debugSize, 7U + 14904);
        EXPECT_EQ(ramSize, 9U + 8);
        EXPECT_EQ(fakeTrace().lines().size(), fakeTrace().texts(level).size());
        return fakeTrace().texts(level);
    }
    static std::string nameOf(const std::string &line) {
        const size_t colon = line.find("]:");
        return colon == std::string::npos ? line : line.substr(colon + 2);
    }
};

TEST_F(LockDumpTest, Level98PrintsTheStaticsAndTheTitlesOfTheRings) {
    std::vector<std::string> lines = dump(98);
    ASSERT_EQ(lines.size(), 9U);
    EXPECT_THAT(lines.at(4), testing::MatchesRegex("\\[0x[ 0-9a-f]{8}\\]:s_debug_db_lock_init_error\n"));
    EXPECT_NE(lines.at(4), dumpLine(0, "s_debug_db_lock_init_error"));
    lines.erase(lines.begin() + 4);
    EXPECT_THAT(lines, ElementsAre("====(db_lock)\n", dumpLine(1, "s_me_db_lock_init"),
                                   dumpLine(24624, "s_me_db_lock_table_size"), dumpLine(0, "s_debug_db_lock_comp_wait"),
                                   "[s_debug_db_lock_init_error]\n", "[s_debug_db_lock_term_error]\n",
                                   "[s_debug_db_lock_comp_error]\n", "[s_debug_db_lock_comp_unlock_error]\n"));
}

TEST_F(LockDumpTest, RecordsStandUnderTheTitleOfTheirRing) {
    lockAll({kComponent});
    tavDBMLock(&session, kComponent, kTry);
    tavDBMUnlock(&session, 999);
    const std::vector<std::string> lines = dump(98);
    ASSERT_EQ(lines.size(), 11U);
    EXPECT_EQ(lines.at(7), kLockRing);
    EXPECT_THAT(lines.at(8), testing::StartsWith("[         1]:[0x       4][0x      78][0x       1]"));
    EXPECT_EQ(lines.at(9), kUnlockRing);
    EXPECT_THAT(lines.at(10), testing::StartsWith("[         1]:[0x       2][0x     3e7]"));
}

TEST_F(LockDumpTest, Level99PrintsTheFunctionsBehindTheStatics) {
    const std::vector<std::string> statics = dump(98);
    const std::vector<std::string> all = dump(99);
    ASSERT_GT(all.size(), statics.size());
    EXPECT_TRUE(std::equal(statics.begin(), statics.end(), all.begin()));
    std::vector<std::string> names;
    for (size_t i = statics.size(); i < all.size(); i++) {
        names.push_back(nameOf(all[i]));
        EXPECT_NE(all[i], dumpLine(0, names.back().substr(0, names.back().size() - 1)));
    }
    EXPECT_EQ(names.at(0), "lock_compLock\n");
    for (const char *const name : {"lock_compLockW\n", "lock_compUnlock\n", "lock_compUnlockAll\n", "lock_init\n",
                                   "lock_term\n", "dbs_me_db_lock_debug_info\n"})
        EXPECT_THAT(names, Contains(name));
}

TEST_F(LockDumpTest, Level5PrintsTheSizesBehindTheBanner) {
    const std::vector<std::string> lines = dump(5);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines.at(0), "====(db_lock)\n");
    EXPECT_EQ(lines.at(1), dumpLine(14904, "debug_size"));
    EXPECT_EQ(lines.at(2), dumpLine(8, "ram_size"));
}

TEST_F(LockDumpTest, AnyOtherLevelPrintsWhatLevel99PrintsAtItsOwnLevel) {
    EXPECT_EQ(dump(2), dump(99));
}

TEST_F(LockDumpTest, TotalsMayBeNull) {
    clearLogs();
    EXPECT_EQ(dbs_me_db_lock_debug_info(99, nullptr, nullptr), 0);
    EXPECT_FALSE(fakeTrace().texts(99).empty());
}

}  // namespace
}  // namespace tavdb_test
