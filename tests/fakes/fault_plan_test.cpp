// SPDX-License-Identifier: Apache-2.0
#include "fakes/fault_plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <vector>

#include "fakes/fake_media.h"
#include "fakes/fakes_test.h"
#include "fakes/fault_runs.h"
#include "tavdb_platform.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

class FaultPlanTest : public FakesTest {
protected:
    /// Which of the next operations fail, as their numbers.
    static std::vector<int> failing(Operation operation, int operations, const char *subject = "") {
        std::vector<int> numbers;
        for (int number = 0; number < operations; ++number) {
            if (faultPlan().next(operation, subject))
                numbers.push_back(number);
        }
        return numbers;
    }
};

TEST_F(FaultPlanTest, WithoutRulesNothingFails) {
    EXPECT_THAT(failing(Operation::alloc, 10), ElementsAre());
    EXPECT_FALSE(faultPlan().fired());
}

TEST_F(FaultPlanTest, SkipsThenFails) {
    faultPlan().add({.operation = Operation::alloc, .skip = 2, .times = 3});
    EXPECT_THAT(failing(Operation::alloc, 10), ElementsAre(2, 3, 4));
    EXPECT_TRUE(faultPlan().fired());
}

TEST_F(FaultPlanTest, RulesOfOneOperationFollowEachOther) {
    faultPlan().add({.operation = Operation::alloc, .skip = 1});
    faultPlan().add({.operation = Operation::alloc, .skip = 2, .times = kForEver});
    EXPECT_THAT(failing(Operation::alloc, 7), ElementsAre(1, 4, 5, 6));
}

TEST_F(FaultPlanTest, ARuleForASubjectLeavesTheOthersAlone) {
    faultPlan().add({.operation = Operation::mediaRead, .subject = "value.med"});
    EXPECT_THAT(failing(Operation::mediaRead, 2, "component.med"), ElementsAre());
    EXPECT_THAT(failing(Operation::mediaWrite, 2, "value.med"), ElementsAre());
    EXPECT_THAT(failing(Operation::mediaRead, 2, "value.med"), ElementsAre(0));
}

TEST_F(FaultPlanTest, ARuleForNoTimesDoesNothing) {
    faultPlan().add({.operation = Operation::alloc, .times = 0});
    EXPECT_THAT(failing(Operation::alloc, 3), ElementsAre());
}

TEST_F(FaultPlanTest, AFaultHasTheOperationsOwnResultUnlessOneIsGiven) {
    faultPlan().add({.operation = Operation::mutexRequest});
    faultPlan().add({.operation = Operation::mutexRequest, .fault = returning(5, EPERM)});
    const auto standard = faultPlan().next(Operation::mutexRequest, "");
    const auto given = faultPlan().next(Operation::mutexRequest, "");
    ASSERT_TRUE(standard && given);
    EXPECT_EQ(standard->resultFor(0), platformCode(EIO));
    EXPECT_EQ(standard->error, EIO);
    EXPECT_EQ(given->resultFor(0), 5);
    EXPECT_EQ(given->error, EPERM);
}

TEST_F(FaultPlanTest, TransfersMayFailStopShortOrClaimMore) {
    EXPECT_EQ(returning(-1).resultFor(28), -1);
    EXPECT_EQ(returning(-1).movedOf(28), 0);
    EXPECT_EQ(returning(1).movedOf(28), 1);
    EXPECT_EQ(shortBy(1).resultFor(28), 27);
    EXPECT_EQ(shortBy(1).movedOf(28), 27);
    EXPECT_EQ(shortBy(5).resultFor(4), 0);
    EXPECT_EQ(moreBy(3).resultFor(28), 31);
    EXPECT_EQ(moreBy(3).movedOf(28), 28);
}

TEST_F(FaultPlanTest, OperationsOfAnyKindAreCounted) {
    faultPlan().failOperation(2);
    EXPECT_FALSE(faultPlan().next(Operation::alloc, ""));
    EXPECT_FALSE(faultPlan().next(Operation::hookGet, "5"));  // has no way to fail, so it is not counted
    EXPECT_FALSE(faultPlan().next(Operation::mediaOpen, "value.med"));
    EXPECT_TRUE(faultPlan().next(Operation::mediaRead, "value.med"));
    EXPECT_FALSE(faultPlan().next(Operation::mediaClose, "value.med"));
    EXPECT_EQ(faultPlan().operations(), 4U);
}

TEST_F(FaultPlanTest, TheCountedTransferMayStopShort) {
    faultPlan().failOperation(0, shortBy(1));
    EXPECT_EQ(faultPlan().next(Operation::mediaWrite, "")->resultFor(8), 7);
    faultPlan().failOperation(0, shortBy(1));
    EXPECT_EQ(faultPlan().next(Operation::mediaOpen, "")->resultFor(0), -1);
}

TEST_F(FaultPlanTest, ClearingEndsEveryFault) {
    faultPlan().add({.operation = Operation::alloc, .times = kForEver});
    faultPlan().failOperation(0);
    faultPlan().clear();
    EXPECT_THAT(failing(Operation::alloc, 3), ElementsAre());
    EXPECT_EQ(faultPlan().operations(), 3U);
}

TEST_F(FaultPlanTest, EndingTheFaultsKeepsTheCounts) {
    faultPlan().failOperation(0);
    EXPECT_TRUE(faultPlan().next(Operation::alloc, ""));
    faultPlan().endFaults();
    EXPECT_TRUE(faultPlan().fired());
    EXPECT_EQ(faultPlan().operations(), 1U);
}

std::optional<Fault> onlyReads(Operation operation) {
    return operation == Operation::mediaRead ? std::optional(returning(7)) : std::nullopt;
}

TEST_F(FaultPlanTest, AChoiceCountsOnlyWhatItConcerns) {
    faultPlan().failOperation(1, onlyReads, Persistence::once);
    EXPECT_THAT(failing(Operation::alloc, 3), ElementsAre());
    EXPECT_THAT(failing(Operation::mediaRead, 4), ElementsAre(1));
    EXPECT_EQ(faultPlan().operations(), 4U);
}

TEST_F(FaultPlanTest, ALastingFaultMeetsAllThatFollow) {
    faultPlan().failOperation(1, onlyReads, Persistence::forEver);
    EXPECT_THAT(failing(Operation::mediaRead, 4), ElementsAre(1, 2, 3));
    EXPECT_THAT(failing(Operation::alloc, 2), ElementsAre());
}

TEST_F(FaultPlanTest, APauseNeitherFailsNorCounts) {
    faultPlan().failOperation(0, onlyReads, Persistence::once);
    {
        const FaultPause pause;
        EXPECT_THAT(failing(Operation::mediaRead, 3), ElementsAre());
        EXPECT_EQ(faultPlan().operations(), 0U);
    }
    EXPECT_THAT(failing(Operation::mediaRead, 2), ElementsAre(0));
}

TEST_F(FaultPlanTest, RunsThatDoNotEndFailTheTest) {
    EXPECT_NONFATAL_FAILURE(forEachFailingOperation([](uint64_t index) {
                                for (uint64_t i = 0; i <= index; ++i)
                                    faultPlan().next(Operation::alloc, "");
                            }),
                            "do not end");
}

TEST_F(FaultPlanTest, RunsUntilOnePassesUntouched) {
    fakeMedia().create("value.med", Bytes(8));
    std::vector<bool> succeeded;
    const uint64_t failures = forEachFailingOperation([&](uint64_t) {
        uint32_t err = 0;
        uint32_t word = 0;
        const int32_t fd = tavdbMemOpen("value.med", 0, &err);
        const bool read = fd >= 0 && tavdbMemRead(fd, &word, 4, 0, &err) == 4;
        const bool closed = fd >= 0 && tavdbMemClose(fd, &err) == 0;
        succeeded.push_back(read && closed);
    });
    EXPECT_EQ(failures, 3U);
    EXPECT_THAT(succeeded, ElementsAre(false, false, false, true));
    EXPECT_EQ(leftInFakes(), std::vector<std::string>{});
}

}  // namespace
}  // namespace tavdb_test
