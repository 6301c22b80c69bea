// SPDX-License-Identifier: Apache-2.0
// The fixture, driven from outside: a stand-in for the library forgets one
// thing after the other, and each time the fixture must say so.
#include "fakes/database_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "fakes/event_log.h"
#include "fakes/fake_media.h"
#include "fakes/fault_plan.h"
#include "fakes/fault_runs.h"
#include "fakes/stand_in_library.h"
#include "file_content.h"

namespace tavdb_test {
namespace {

class Probe : public DatabaseFixture {
public:
    using DatabaseFixture::attach;
    using DatabaseFixture::attachError;
    using DatabaseFixture::description;
    using DatabaseFixture::detach;
    using DatabaseFixture::file;
    using DatabaseFixture::finish;
    using DatabaseFixture::putRoot;
    using DatabaseFixture::removeTables;
    using DatabaseFixture::SetUp;
    using DatabaseFixture::start;
    using DatabaseFixture::stop;
    using DatabaseFixture::TearDown;

    void TestBody() override {}
};

/// The life of a test in which the stand-in forgets something.
void runWith(Forgotten what) {
    Probe probe;
    probe.SetUp();
    letStandInForget(what);
    probe.start();
    probe.TearDown();
}

TEST(DatabaseFixture, PreparesADatabase) {
    Probe probe;
    probe.SetUp();
    EXPECT_STREQ(getenv("TAVDB_DBTABLE"), probe.file("control.tbl").c_str());
    EXPECT_EQ(probe.description.sessionPath, probe.file("session.tbl"));
    EXPECT_EQ(probe.description.stringMedia, kStringMedia);
    EXPECT_EQ(fakeMedia().sizeOf(kMediaHints[kStringMedia - 1]), kRecordMediumSize);
    EXPECT_EQ(fakeMedia().sizeOf(kMediaHints[kDataMedia - 1]), 0U);
    const std::string text = contentOf(probe.description.mediaPath);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 6);
    EXPECT_THAT(text, testing::HasSubstr("tavdbMemSync1 value.med\n"));
    probe.TearDown();
}

TEST(DatabaseFixture, TheRootTakesTheFirstSlot) {
    Probe probe;
    probe.SetUp();
    EXPECT_EQ(Probe::putRoot(), 16U);
    const Bytes medium = fakeMedia().snapshot("component.med");
    EXPECT_EQ(hexText(std::span(medium).subspan(8, 8)), hexWords(16, 44));
    EXPECT_EQ(hexText(std::span(medium).subspan(16, 28)), hexWords(16, 0, 0, 0, 0, TAVDB_KIND_NODE, 0));
    EXPECT_EQ(hexText(std::span(medium).subspan(44, 8)), hexWords(0, kRecordMediumSize - 44));
    EXPECT_EQ(Bytes(medium.begin() + 52, medium.end()), Bytes(kRecordMediumSize - 52));
    probe.TearDown();
}

TEST(DatabaseFixture, ASoundTestPasses) {
    runWith(Forgotten::nothing);
}

TEST(DatabaseFixture, StartLeavesAnEmptyLogAndStopAnEmptyHouse) {
    Probe probe;
    probe.SetUp();
    probe.start();
    EXPECT_THAT(eventLog().lines(), testing::IsEmpty());
    probe.stop();
    EXPECT_THAT(eventLog().lines(), testing::ElementsAre("free 28", "sys.munmap control.tbl 4096"));
    EXPECT_NONFATAL_FAILURE(probe.detach(), "is not attached");
    probe.TearDown();
}

TEST(DatabaseFixture, TheFolderIsRemovedAtTheEnd) {
    std::string table;
    {
        Probe probe;
        probe.SetUp();
        probe.start();
        table = probe.file("control.tbl");
        EXPECT_TRUE(std::ifstream(table).good());
        probe.TearDown();
    }
    EXPECT_FALSE(std::ifstream(table).good());
}

TEST(DatabaseFixture, LiveMemoryFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(runWith(Forgotten::memory), "memory is still allocated: 1 block: 28");
}

TEST(DatabaseFixture, AnOpenDescriptorFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(runWith(Forgotten::descriptor), "control.tbl");
}

TEST(DatabaseFixture, AMappingFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(runWith(Forgotten::mapping), "mapping: ");
}

TEST(DatabaseFixture, AHeldMutexFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(runWith(Forgotten::mutex), "the mutex of control.tbl is still held");
}

TEST(DatabaseFixture, AnOpenMediumFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(runWith(Forgotten::mediumDescriptor), "value.med is still open");
}

TEST(DatabaseFixture, AFailedAttachIsEndedToo) {
    Probe probe;
    probe.SetUp();
    faultPlan().add({.operation = Operation::mediaInit, .fault = returning(7)});
    EXPECT_EQ(probe.attach(), -1);
    EXPECT_EQ(probe.attachError, 7);
    probe.TearDown();
}

TEST(DatabaseFixture, NoOperationThatFailsLeavesAnything) {
    Probe probe;
    probe.SetUp();
    const uint64_t failures = forEachFailingOperationInChild([&](uint64_t) {
        probe.removeTables();
        if (probe.attach() > 0)
            probe.detach();
        probe.finish();
    });
    EXPECT_EQ(failures, 8U);
    probe.TearDown();
}

// Not EXPECT_NONFATAL_FAILURE: the child would inherit it and hide its failure from itself.
TEST(DatabaseFixtureDeathTest, ALeakInAChildFailsTheTest) {
    Probe probe;
    probe.SetUp();
    letStandInForget(Forgotten::memory);
    const auto leakInAChild = [&] {
        forEachFailingOperationInChild([&](uint64_t) {
            faultPlan().endFaults();
            probe.attach();
            probe.finish();
        });
        exit(testing::Test::HasFailure() ? 3 : 0);
    };
    EXPECT_EXIT(leakInAChild(), testing::ExitedWithCode(3), "");
    letStandInForget(Forgotten::nothing);
    probe.TearDown();
}

TEST(DatabaseFixture, ACrashInAChildFailsTheTest) {
    const FaultRun crash = [](uint64_t index) {
        if (index == 0)
            faultPlan().next(Operation::alloc, "");
        else
            abort();
    };
    EXPECT_NONFATAL_FAILURE(forEachFailingOperationInChild(crash), "operation 1 failed");
}

}  // namespace
}  // namespace tavdb_test
