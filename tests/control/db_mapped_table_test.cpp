// SPDX-License-Identifier: Apache-2.0
// Opening, making, mending and closing of a mapped table, on a table of the
// test's own. What the library's three tables make of it is in
// db_mapped_table_kinds_test.cpp.
#include "control/db_mapped_table.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_semaphores.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"
#include "fakes/fault_runs.h"

namespace tavdb {
namespace {

using namespace tavdb_test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kSize = 8192;
constexpr int32_t kShortWrite = 4711;

struct SmallTable {
    uint32_t words[kSize / sizeof(uint32_t)];
};

int builds;
int mends;

struct MappedRecord {
    TableFailure failure;
    int32_t fd;
    int error;
};
std::vector<MappedRecord> records;

void build(void *table) {
    builds++;
    static_cast<SmallTable *>(table)->words[2] = 5;
}

void mendTable(void *table) {
    mends++;
    static_cast<SmallTable *>(table)->words[3] = 6;
}

constexpr TableKind kKind = {
    .initFunction = "open",
    .sizeBytes = kSize,
    .shortWriteCode = kShortWrite,
    .sites = {{1, 2}, {3, 0}, {5, 6}, {7, 0}, {9, 10}},
    .build = build,
    .mend = mendTable,
    .record =
        [](TableFailure failure, int32_t fd) {
            records.push_back({failure, fd, errno});
        },
};

class MappedTableTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        builds = 0;
        mends = 0;
        records.clear();
    }
    void TearDown() override {
        close();
        DatabaseFixture::TearDown();
    }

    int32_t open() {
        const Recording recording;
        return openTable(table_, kKind, path().c_str());
    }
    int32_t close() {
        const Recording recording;
        return closeTable(table_, kKind);
    }
    std::string path() const {
        return file("small.tbl");
    }
    /// A file of that many words, word 2 not 0: one that was built.
    void writeBuilt(size_t words) const {
        ExpectedImage image(words * sizeof(uint32_t));
        image.word(8, 77);
        writeFile(path(), image.bytes());
    }
    /// What was recorded for the dump is this failure.
    static void expectRecord(TableFailure failure, int error) {
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].failure, failure);
        EXPECT_EQ(records[0].error, error);
    }

    MappedTable table_ = {};
};

TEST_F(MappedTableTest, AMissingFileIsMadeAndBuilt) {
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(builds, 1);
    EXPECT_EQ(static_cast<SmallTable *>(table_.address)->words[2], 5U);
    EXPECT_EQ(bytesOfFile(path()).size(), kSize);
}

TEST_F(MappedTableTest, WhatIsWrittenThroughTheMappingIsInTheFile) {
    open();
    static_cast<SmallTable *>(table_.address)->words[100] = 0x01020304;
    EXPECT_EQ(TableView<SmallTable>(path())->words[100], 0x01020304U);
}

TEST_F(MappedTableTest, ABuiltFileIsUsedAsItStands) {
    writeBuilt(kSize / sizeof(uint32_t));
    const Bytes before = bytesOfFile(path());
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(builds, 0);
    EXPECT_THAT(differences(before, bytesOfFile(path())), IsEmpty());
}

TEST_F(MappedTableTest, AFileOfZerosWasNotMadeYetAndIsBuilt) {
    writeFile(path(), Bytes(kSize));
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(builds, 1);
}

TEST_F(MappedTableTest, AnEmptyFileWasNotMadeYetAndIsBuilt) {
    writeFile(path(), {});
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(builds, 1);
    EXPECT_EQ(bytesOfFile(path()).size(), kSize);
}

TEST_F(MappedTableTest, AShortFileGetsItsSpaceBeforeItIsMapped) {
    writeBuilt(3);
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(builds, 0);
    EXPECT_THAT(eventLog().lines(Category::libc),
                ElementsAre("sys.open small.tbl O_RDWR|O_CLOEXEC", "sys.fstat small.tbl",
                            "sys.fallocate small.tbl 8192@0", "sys.mmap small.tbl 8192", "sys.close small.tbl"));
    EXPECT_EQ(bytesOfFile(path()).size(), kSize);
}

TEST_F(MappedTableTest, AShortFileThatGetsNoSpaceIsNotMapped) {
    writeBuilt(3);
    faultPlan().add({.operation = Operation::sysAllocate});
    EXPECT_EQ(open(), TAVDB_ERR_MAP);
    EXPECT_EQ(table_.address, nullptr);
    EXPECT_EQ(bytesOfFile(path()).size(), 3 * sizeof(uint32_t));
    EXPECT_EQ(eventLog().count(Operation::sysMmap), 0U);
    expectRecord(TableFailure::mapExisting, ENOSPC);
}

TEST_F(MappedTableTest, AFileWhoseSizeCannotBeAskedIsNotMapped) {
    writeBuilt(kSize / sizeof(uint32_t));
    faultPlan().add({.operation = Operation::sysStat});
    EXPECT_EQ(open(), TAVDB_ERR_MAP);
    expectRecord(TableFailure::mapExisting, EIO);
}

TEST_F(MappedTableTest, ALongerFileIsUsedAndKeepsItsRest) {
    writeBuilt(kSize / sizeof(uint32_t) + 10);
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(bytesOfFile(path()).size(), kSize + 40);
}

TEST_F(MappedTableTest, TheTableIsAnnouncedBetweenTheMappingAndTheSemaphores) {
    open();
    const auto lines = eventLog().lines(Category::libc | Category::semaphores);
    EXPECT_THAT(std::vector(lines.end() - 6, lines.end()),
                ElementsAre("sys.flock small.tbl unlock", "semAnnounce small.tbl", "mutexCreate small.tbl",
                            "countCreate small.tbl", "eventCreate small.tbl", "sys.close small.tbl"));
}

struct OpenFault {
    const char *name;
    Operation operation;
    TableFailure failure;
    int32_t code;
    int error;
    std::vector<std::string> (*lines)();
};

class MakingFails : public MappedTableTest, public testing::WithParamInterface<OpenFault> {};

TEST_P(MakingFails, WithItsCodeItsLinesAndItsRecord) {
    faultPlan().add({.operation = GetParam().operation});
    EXPECT_EQ(open(), GetParam().code);
    EXPECT_EQ(table_.address, nullptr);
    EXPECT_TRUE(fakeTrace().errorsAre(GetParam().lines()));
    expectRecord(GetParam().failure, GetParam().error);
    EXPECT_EQ(eventLog().count(Operation::mutexCreate), 0U);
}

INSTANTIATE_TEST_SUITE_P(MappedTable, MakingFails,
                         testing::Values(OpenFault{"Allocation", Operation::alloc, TableFailure::allocate,
                                                   TAVDB_ERR_MEMORY, ENOMEM,
                                                   [] { return std::vector{errorLine("open", 7, {ENOMEM})}; }},
                                         OpenFault{"Mapping", Operation::sysMmap, TableFailure::mapNew, TAVDB_ERR_MAP,
                                                   ENOMEM, [] { return std::vector{errorLine("open", 3, {ENOMEM})}; }}),
                         byName);

TEST_F(MappedTableTest, AShortWriteHasTheKindsOwnCodeAndBothLines) {
    faultPlan().add({.operation = Operation::sysWrite, .fault = shortBy(1, ENOSPC)});
    EXPECT_EQ(open(), kShortWrite);
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("open", 5, {ENOSPC}), errorTextLine("open", 6, path())}));
    expectRecord(TableFailure::write, ENOSPC);
}

TEST_F(MappedTableTest, AFileThatWasWrittenShortIsBuiltByTheNextProcess) {
    faultPlan().add({.operation = Operation::sysWrite, .fault = shortBy(100, ENOSPC)});
    open();
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(builds, 1);
    EXPECT_EQ(bytesOfFile(path()).size(), kSize);
}

TEST_F(MappedTableTest, WithoutOpeningAndMakingDeliberatelyTheResultIsZeroAndThereIsNoTable) {
    faultPlan().add({.operation = Operation::sysOpen, .times = 2});
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(table_.address, nullptr);
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("open", 9, {EACCES}), errorTextLine("open", 10, path())}));
    expectRecord(TableFailure::open, EACCES);
}

TEST_F(MappedTableTest, WhereTheFileSystemHasNoLocksTheTableIsMadeUnguarded) {
    faultPlan().add({.operation = Operation::sysFlock, .times = kForEver});
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(builds, 1);
}

TEST_F(MappedTableTest, AnInterruptedLockIsTriedAgain) {
    faultPlan().add({.operation = Operation::sysFlock, .fault = returning(-1, EINTR)});
    EXPECT_EQ(open(), 0);
    const auto lines = eventLog().lines(Category::libc);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "sys.flock small.tbl exclusive"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "sys.flock small.tbl exclusive -> -1 EINTR"), 1);
}

TEST_F(MappedTableTest, AFileThatAnotherProcessMadeMeanwhileIsUsed) {
    writeBuilt(kSize / sizeof(uint32_t));
    faultPlan().add({.operation = Operation::sysOpen, .fault = returning(-1, ENOENT)});
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(builds, 0);
    EXPECT_EQ(eventLog().count(Operation::sysWrite), 0U);
    EXPECT_EQ(static_cast<SmallTable *>(table_.address)->words[2], 77U);
}

TEST_F(MappedTableTest, ClosingForgetsTheAddress) {
    open();
    EXPECT_EQ(close(), 0);
    EXPECT_EQ(table_.address, nullptr);
}

TEST_F(MappedTableTest, ClosingWithoutATableDoesNothing) {
    EXPECT_EQ(close(), 0);
    EXPECT_EQ(eventLog().count(Operation::sysMunmap), 0U);
}

TEST_F(MappedTableTest, AFailedUnmappingKeepsTheAddress) {
    open();
    void *const address = table_.address;
    faultPlan().add({.operation = Operation::sysMunmap});
    EXPECT_EQ(close(), -1);
    EXPECT_EQ(table_.address, address);
    table_.address = nullptr;  // the fixture undoes the mapping that the plan kept
}

/// A table that is open, and its mutex.
class OpenMappedTable : public MappedTableTest {
protected:
    void SetUp() override {
        MappedTableTest::SetUp();
        ASSERT_EQ(open(), 0);
        eventLog().clear();
    }
};

TEST_F(OpenMappedTable, LockingTakesTheMutexAndAsksForItsLastHolder) {
    EXPECT_EQ(lockTable(table_, kKind), 0);
    EXPECT_EQ(unlockTable(table_), 0);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("mutexRequest small.tbl", "mutexAbandoned small.tbl", "mutexRelease small.tbl"));
    EXPECT_EQ(mends, 0);
}

TEST_F(OpenMappedTable, AfterAHoldersDeathTheTableIsMendedOnceAndWaitersAreWoken) {
    fakeSemaphores().abandonMutex("small.tbl");
    lockTable(table_, kKind);
    unlockTable(table_);
    EXPECT_EQ(mends, 1);
    EXPECT_EQ(static_cast<SmallTable *>(table_.address)->words[3], 6U);
    EXPECT_EQ(eventLog().count(Operation::eventPost), 1U);
    lockTable(table_, kKind);
    unlockTable(table_);
    EXPECT_EQ(mends, 1);
}

TEST_F(OpenMappedTable, AMutexThatFailsGivesItsCodeAndNothingIsMended) {
    fakeSemaphores().abandonMutex("small.tbl");
    faultPlan().add({.operation = Operation::mutexRequest});
    EXPECT_EQ(lockTable(table_, kKind), platformCode(EIO));
    EXPECT_EQ(mends, 0);
}

TEST_F(OpenMappedTable, AnEventThatCannotBePostedAfterMendingDoesNotStopTheLock) {
    fakeSemaphores().abandonMutex("small.tbl");
    faultPlan().add({.operation = Operation::eventPost});
    EXPECT_EQ(lockTable(table_, kKind), 0);
    EXPECT_EQ(mends, 1);
    unlockTable(table_);
}

TEST_F(OpenMappedTable, AScopeReleasesTheMutex) {
    lockTable(table_, kKind);
    { const TableUnlock unlock(table_); }
    EXPECT_THAT(fakeSemaphores().heldMutexes(), IsEmpty());
}

TEST_F(OpenMappedTable, AReleaseThatFailsGivesItsCode) {
    lockTable(table_, kKind);
    faultPlan().add({.operation = Operation::mutexRelease});
    EXPECT_EQ(unlockTable(table_), platformCode(EIO));
}

TEST_F(MappedTableTest, LockingWithoutATableGivesTheMutexCode) {
    EXPECT_EQ(lockTable(table_, kKind), platformCode(EBADF));
    EXPECT_EQ(mends, 0);
}

TEST_F(MappedTableTest, NoFailureLeavesAnythingBehindOrAFileThatStopsTheNextProcess) {
    const uint64_t failures = forEachFailingOperation([&](uint64_t index) {
        unlink(path().c_str());
        open();
        close();
        faultPlan().endFaults();
        LibcRecorder::instance().releaseRefusedMappings();
        table_ = {};
        EXPECT_EQ(open(), 0) << "after operation " << index << " failed";
        EXPECT_NE(table_.address, nullptr) << "after operation " << index << " failed";
        EXPECT_EQ(TableView<SmallTable>(path())->words[2], 5U) << "after operation " << index << " failed";
        close();
    });
    EXPECT_GT(failures, 10U);
}

}  // namespace
}  // namespace tavdb
