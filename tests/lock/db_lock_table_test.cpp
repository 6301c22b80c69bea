// SPDX-License-Identifier: Apache-2.0
// The lock table as a file: how it is made, used as it stands, mapped once and
// unmapped once, and what works without it. What the three shared tables have in
// common in opening is tested with them.
#include <errno.h>
#include <unistd.h>

#include <functional>

#include "fakes/libc_recorder.h"
#include "lock/lock_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Attaches the lock module alone, so that nothing else is in the log.
class LockTableTest : public LockTest {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        session.sessionId = 5;
        session.dbId = 1;
    }
    void TearDown() override {
        while (attached_ > 0)
            term();
        DatabaseFixture::TearDown();
    }
    int32_t init() {
        const Recording recording;
        attached_++;
        return lock_init(file(kTableFile).c_str());
    }
    int32_t term() {
        const Recording recording;
        attached_--;
        return lock_term();
    }
    void writeTable(const Bytes &bytes) const {
        writeFile(file(kTableFile), bytes);
    }

private:
    int attached_ = 0;
};

TEST_F(LockTableTest, ANewTableIsByteForByteAsStated) {
    ASSERT_EQ(init(), 0);
    const Bytes bytes = tableBytes();
    ASSERT_EQ(bytes.size(), 24624U);
    const auto words = [&](size_t offset, size_t count) {
        return hexText(std::span(bytes).subspan(offset, 4 * count));
    };
    EXPECT_EQ(words(0, 6), hexWords(1, 0, 0, 0, 0, 0));
    EXPECT_EQ(words(24, 6), hexWords(0, 0, 0, 0, 0, 0));  // entry 0
    for (uint32_t i = 1; i <= 1022; i++)
        EXPECT_EQ(words(24 + 24 * i, 6), hexWords(0, 0, 0, 0, i + 1, i - 1)) << i;
    EXPECT_EQ(words(24 + 24 * 1023, 6), hexWords(0, 0, 0, 0, 0, 1022));
    EXPECT_EQ(words(24 + 24 * 1024, 6), hexWords(0, 0, 0, 0, 0, 0));
}

TEST_F(LockTableTest, AMissingFileIsOpenedThenCreatedFilledMappedAndGivenItsSemaphores) {
    ASSERT_EQ(init(), 0);
    std::vector<std::string> lines = eventLog().lines();
    std::erase_if(lines, [](const std::string &line) {
        return line.starts_with("sys.flock") || line.starts_with("sys.fstat");  // against other makers of the file
    });
    EXPECT_THAT(
        lines, ElementsAre("sys.open lock.tbl O_RDWR|O_CLOEXEC -> -1 ENOENT",
                           "sys.open lock.tbl O_RDWR|O_CREAT|O_CLOEXEC 0664", "alloc 24624", "sys.write lock.tbl 24624",
                           "sys.mmap lock.tbl 24624", "semAnnounce lock.tbl", "mutexCreate lock.tbl",
                           "countCreate lock.tbl", "eventCreate lock.tbl", "free 24624", "sys.close lock.tbl"));
}

TEST_F(LockTableTest, AnExistingFileIsUsedAsItStandsAndKeepsTheLocksOfEndedProcesses) {
    ExpectedImage image = newLockTable();
    image.word(0, 2);
    image.word(4, 1);
    image.word(8, 1);
    image.put(24 + 24, bytesOf(1, 100, 99, 0, 0, 0));
    writeTable(image.bytes());
    ASSERT_EQ(init(), 0);
    EXPECT_THAT(differences(image.bytes(), tableBytes()), IsEmpty());
    EXPECT_EQ(lock_compLock(&session, 100, kTry), 75);
}

TEST_F(LockTableTest, AShortFileGrowsToItsSizeBeforeItIsTouched) {
    writeTable(bytesOf(1, 0, 0));
    ASSERT_EQ(init(), 0);
    EXPECT_EQ(tableBytes().size(), 24624U);
    EXPECT_EQ(lock_compLock(&session, 100, kTry), 0);
    EXPECT_EQ(lock_compLock(&session, 200, kTry), 78);  // the entry that the file names is the only free one
}

TEST_F(LockTableTest, TwoInitsInOneProcessMapTheTableOnceAndTheSecondTermUnmapsIt) {
    ASSERT_EQ(init(), 0);
    ASSERT_EQ(init(), 0);
    EXPECT_EQ(eventLog().count(Operation::sysMmap), 1U);
    EXPECT_EQ(term(), 0);
    EXPECT_EQ(eventLog().count(Operation::sysMunmap), 0U);
    EXPECT_EQ(lock_compLock(&session, 100, kTry), 0);
    EXPECT_EQ(term(), 0);
    EXPECT_EQ(eventLog().lines().back(), "sys.munmap lock.tbl 24624");
    EXPECT_EQ(eventLog().count(Operation::sysMunmap), 1U);
}

TEST_F(LockTableTest, AFurtherInitDoesNothingButCount) {
    ASSERT_EQ(init(), 0);
    eventLog().clear();
    EXPECT_EQ(init(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
    EXPECT_EQ(dumped(dbs_me_db_lock_debug_info, "s_me_db_lock_init"), 2U);
}

TEST_F(LockTableTest, TermLeavesTheFileWithItsContents) {
    ASSERT_EQ(init(), 0);
    ASSERT_EQ(lock_compLock(&session, 100, kTry), 0);
    const Bytes before = tableBytes();
    ASSERT_EQ(term(), 0);
    EXPECT_EQ(tableBytes(), before);
}

TEST_F(LockTableTest, ATableCanBeAttachedAgainAfterItsLastTerm) {
    ASSERT_EQ(init(), 0);
    ASSERT_EQ(lock_compLock(&session, 100, kTry), 0);
    ASSERT_EQ(term(), 0);
    ASSERT_EQ(init(), 0);
    EXPECT_EQ(lock_compLock(&session, 100, kTry), 75);
    EXPECT_EQ(lock_compUnlock(&session, 100), 0);
}

TEST_F(LockTableTest, AFailedUnmapReturns88AndTermCountsAllTheSame) {
    ASSERT_EQ(init(), 0);
    faultPlan().add({.operation = Operation::sysMunmap});
    clearLogs();
    EXPECT_EQ(term(), 88);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("lock_term", 170, {EINVAL})));
    EXPECT_EQ(ringLines(kTermRing).back(), ringLine(1, {1, EINVAL, 0, 0xFFFFFFFF}));
    EXPECT_EQ(dumped(dbs_me_db_lock_debug_info, "s_me_db_lock_init"), 0U);
}

TEST_F(LockTableTest, WithoutATableWhatNeedsItFindsNothingAndNothingCrashes) {
    ASSERT_EQ(init(), 0);
    ASSERT_EQ(term(), 0);
    clearLogs();
    EXPECT_EQ(lock_compLock(&session, 100, kTry), 78);
    EXPECT_TRUE(sessionKeeps(78, 0));
    EXPECT_EQ(lock_compLockW(&session, 100, kWait), 78);
    EXPECT_EQ(lock_compUnlock(&session, 100), 76);
    EXPECT_EQ(lock_compUnlockAll(), 0);
    EXPECT_THAT(fakeSemaphores().heldMutexes(), IsEmpty());
}

TEST_F(LockTableTest, AFileThatCanNeitherBeOpenedNorMadeIsDeliberatelyNotReported) {
    faultPlan().add({.operation = Operation::sysOpen, .times = 2});
    EXPECT_EQ(init(), 0);
    EXPECT_TRUE(fakeTrace().errorsAre(
        {errorLine("lock_init", 140, {EACCES}), errorTextLine("lock_init", 141, file(kTableFile))}));
    EXPECT_THAT(ringLines(kInitRing), ElementsAre(ringLine(1, {16, EACCES, 0xFFFFFFFF, 24624})));
}

TEST_F(LockTableTest, WithoutATableOfItsOwnEveryRequestGetsTheMutexCode) {
    faultPlan().add({.operation = Operation::sysOpen, .times = 2});
    ASSERT_EQ(init(), 0);
    constexpr int32_t kNoHandle = platformCode(EBADF);
    EXPECT_EQ(lock_compLock(&session, 100, kTry), kNoHandle);
    EXPECT_EQ(session.errorCode, static_cast<uint32_t>(kNoHandle));
    EXPECT_EQ(lock_compLockW(&session, 100, kWait), kNoHandle);
    EXPECT_EQ(lock_compUnlock(&session, 100), kNoHandle);
    EXPECT_EQ(lock_compUnlockAll(), 0);
    EXPECT_EQ(term(), 0);
}

/// One way in which attaching fails.
struct InitFailure {
    const char *name;
    bool isThere;  ///< the file, before
    Operation operation;
    std::optional<Fault> fault;
    int32_t code;
    int32_t site;
    uint32_t kind;  ///< in the ring
    uint32_t error;
};
void PrintTo(const InitFailure &row, std::ostream *stream) {
    *stream << row.name;
}

const InitFailure kInitFailures[] = {
    {"MappingAnExistingFile", true, Operation::sysMmap, {}, 87, 100, 1, ENOMEM},
    {"MappingANewFile", false, Operation::sysMmap, {}, 87, 110, 2, ENOMEM},
    {"WritingANewFile", false, Operation::sysWrite, {}, 74, 120, 4, ENOSPC},
    {"WritingANewFileShortByOneByte", false, Operation::sysWrite, shortBy(1, EDQUOT), 74, 120, 4, EDQUOT},
    {"AllocatingTheBuffer", false, Operation::alloc, {}, 86, 130, 8, ENOMEM},
};

class LockInitFailureTest : public LockTableTest, public testing::WithParamInterface<InitFailure> {
protected:
    void failInit() {
        if (GetParam().isThere)
            writeTable(newLockTable().bytes());
        faultPlan().add({.operation = GetParam().operation, .fault = GetParam().fault});
        EXPECT_EQ(init(), GetParam().code);
    }
};

INSTANTIATE_TEST_SUITE_P(Failures, LockInitFailureTest, testing::ValuesIn(kInitFailures), byName);

TEST_P(LockInitFailureTest, IsReturnedTracedAndKeptInTheRing) {
    failInit();
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("lock_init", GetParam().site, {GetParam().error})));
    const std::vector<Event> events = eventLog().events(Category::libc);
    const auto opened = std::find_if(events.begin(), events.end(),
                                     [](const Event &e) { return e.operation == Operation::sysOpen && !e.failed; });
    ASSERT_NE(opened, events.end());
    EXPECT_THAT(
        ringLines(kInitRing),
        ElementsAre(ringLine(1, {GetParam().kind, GetParam().error, static_cast<uint32_t>(opened->result), 24624})));
}

TEST_P(LockInitFailureTest, LeavesNothingOpenAndTermUnmapsNothing) {
    failInit();
    EXPECT_THAT(fakeMemory().liveText(), IsEmpty());
    EXPECT_EQ(eventLog().lines(Category::libc).back(), "sys.close lock.tbl");
    eventLog().clear();
    EXPECT_EQ(term(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

TEST_P(LockInitFailureTest, CreatesNoSemaphores) {
    failInit();
    EXPECT_THAT(eventLog().lines(Category::semaphores), IsEmpty());
}

TEST_P(LockInitFailureTest, DoesNotStopTheNextAttach) {
    failInit();
    EXPECT_EQ(term(), 0);
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(lock_compLock(&session, 100, kTry), 0);
    EXPECT_TRUE(sound());
}

/// A semaphore that cannot be created, for a file that is there and for a new one.
struct CreationFailure {
    const char *name;
    bool isThere;
    Operation operation;
};
void PrintTo(const CreationFailure &row, std::ostream *stream) {
    *stream << row.name;
}

constexpr CreationFailure kCreationFailures[] = {
    {"MutexOfAnExistingFile", true, Operation::mutexCreate}, {"MutexOfANewFile", false, Operation::mutexCreate},
    {"CountOfAnExistingFile", true, Operation::countCreate}, {"CountOfANewFile", false, Operation::countCreate},
    {"EventOfAnExistingFile", true, Operation::eventCreate}, {"EventOfANewFile", false, Operation::eventCreate},
};

class LockCreationFailureTest : public LockTableTest, public testing::WithParamInterface<CreationFailure> {};

INSTANTIATE_TEST_SUITE_P(Semaphores, LockCreationFailureTest, testing::ValuesIn(kCreationFailures), byName);

TEST_P(LockCreationFailureTest, PassesItsCodeThroughAndLeavesNoRecord) {
    if (GetParam().isThere)
        writeTable(newLockTable().bytes());
    faultPlan().add({.operation = GetParam().operation, .fault = returning(platformCode(ENOSYS), ENOSYS)});
    EXPECT_EQ(init(), platformCode(ENOSYS));
    EXPECT_THAT(ringLines(kInitRing), IsEmpty());
    EXPECT_EQ(term(), 0);
    EXPECT_EQ(eventLog().lines().back(), "sys.munmap lock.tbl 24624");
}

}  // namespace
}  // namespace tavdb_test
