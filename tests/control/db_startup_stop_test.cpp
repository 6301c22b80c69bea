// SPDX-License-Identifier: Apache-2.0
// Stop of the library: order of the modules, all of them whatever one returns,
// and the first failure as the result. The stops of components, values,
// constraints and media cannot fail.
#include <errno.h>
#include <gmock/gmock.h>

#include <algorithm>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_hooks.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

using Lines = std::vector<std::string>;

class Stop : public ControlFixture {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        ASSERT_EQ(attach(), 1);
        clearLogs();
    }
    /// The steps of the stop, one of each module that takes one.
    static Lines steps() {
        Lines lines = eventLog().lines(Category::libc | Category::hooks | Category::memory | Category::semaphores);
        std::erase(lines, "mutexAbandoned control.tbl");
        lines.erase(std::unique(lines.begin(), lines.end(),
                                [](const std::string &a, const std::string &b) {
                                    return a.starts_with("free ") && b.starts_with("free ");
                                }),
                    lines.end());
        for (std::string &line : lines)
            line = line.substr(0, line.find(" -> "));
        return lines;
    }
    static Lines allSteps() {
        return {"sys.munmap session.tbl 16412",
                "free 14",
                "hookTerm",
                "sys.munmap lock.tbl 24624",
                "mutexRequest control.tbl",
                "mutexRelease control.tbl",
                "sys.munmap control.tbl 541740"};
    }
    static Lines remarks() {
        return {enterLine("tavDBMTerm"), enterLine("dbs_me_db_control_term"), returnLine("dbs_me_db_control_term"),
                returnLine("tavDBMTerm")};
    }
    static uint32_t valueStops() {
        return dumped(dbs_me_db_value_debug_info, "s_debug_db_value_term") / 3;
    }
};

TEST_F(Stop, DeliberatelyTheMediaStopBeforeTheHooks) {
    EXPECT_EQ(detach(), 0);
    EXPECT_EQ(steps(), allSteps());
    EXPECT_EQ(valueStops(), 1U);
}

TEST_F(Stop, EntryAndReturnAreTracedAtLevelTwo) {
    detach();
    EXPECT_TRUE(fakeTrace().textsAre(2, remarks()));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(Stop, OfOneOfTwoAttachesOnlyTheHooksAndTheReferenceGo) {
    attach();
    eventLog().clear();
    EXPECT_EQ(detach(), 0);
    EXPECT_THAT(steps(), ElementsAre("hookTerm", "mutexRequest control.tbl", "mutexRelease control.tbl"));
}

TEST_F(Stop, TheMediaTableIsEmptyAfterTheLast) {
    EXPECT_EQ(media_getCount(), 7U);
    detach();
    EXPECT_EQ(media_getCount(), 1U);
}

TEST_F(Stop, TheDatabaseIsNotFoundAfterTheLast) {
    detach();
    EXPECT_EQ(db_getDb(1), nullptr);
}

TEST_F(Stop, TheLibraryCanBeStartedAgain) {
    detach();
    EXPECT_EQ(attach(), 2);
    EXPECT_TRUE(fakeTrace().noErrors());
}

/// A stop that fails: its position among the eight and its code.
struct StopFault {
    const char *name;
    FaultRule rule;
    uint32_t position;
    int32_t code;
    Lines ownLines;
};

void PrintTo(const StopFault &fault, std::ostream *stream) {
    *stream << fault.name;
}

// 170 is the lock module's own number, fixed for good.
const StopFault kStopFaults[] = {
    {"Session",
     {.operation = Operation::sysMunmap, .subject = "session.tbl"},
     3,
     88,
     {errorLine("session_term", 576, {EINVAL})}},
    {"Hooks", {.operation = Operation::hookTerm, .fault = returning(0x77)}, 5, 0x77, {}},
    {"Lock",
     {.operation = Operation::sysMunmap, .subject = "lock.tbl"},
     6,
     88,
     {errorLine("lock_term", 170, {EINVAL})}},
    {"Control",
     {.operation = Operation::sysMunmap, .subject = "control.tbl"},
     7,
     88,
     {errorLine("dbs_me_db_control_term", 788, {0xFFFFFFFF, EINVAL})}},
};

class FailedStop : public Stop, public testing::WithParamInterface<StopFault> {
protected:
    void SetUp() override {
        Stop::SetUp();
        faultPlan().add(GetParam().rule);
    }
    static std::string resultLine(uint32_t position, int32_t code) {
        return errorLine("tavDBMTerm", 930, {position, static_cast<uint32_t>(code)});
    }
};

INSTANTIATE_TEST_SUITE_P(Modules, FailedStop, testing::ValuesIn(kStopFaults), byName);

TEST_P(FailedStop, GivesItsCode) {
    EXPECT_EQ(detach(), GetParam().code);
}

TEST_P(FailedStop, IsTracedWithItsPosition) {
    detach();
    EXPECT_TRUE(fakeTrace().errorsAre(joined(GetParam().ownLines, {resultLine(GetParam().position, GetParam().code)})));
    EXPECT_TRUE(fakeTrace().textsAre(2, remarks()));
}

TEST_P(FailedStop, StopsAllTheOthersAllTheSame) {
    detach();
    EXPECT_EQ(steps(), allSteps());
    EXPECT_EQ(valueStops(), 1U);
}

TEST_P(FailedStop, LetsTheProcessAttachAgain) {
    detach();
    EXPECT_EQ(attach(), 2) << attachError;
    EXPECT_EQ(detach(), 0);
}

TEST_F(Stop, OfSeveralFailuresTheFirstInOrderIsTheResult) {
    for (const StopFault &fault : kStopFaults)
        faultPlan().add(fault.rule);
    EXPECT_EQ(detach(), 88);
    EXPECT_EQ(fakeTrace().errors().back(), errorLine("tavDBMTerm", 930, {3, 88}));
}

TEST_F(Stop, AHookFailureComesBeforeThatOfTheControlTable) {
    faultPlan().add({.operation = Operation::sysMunmap, .subject = "control.tbl"});
    faultPlan().add({.operation = Operation::hookTerm, .fault = returning(0x77)});
    EXPECT_EQ(detach(), 0x77);
    EXPECT_EQ(fakeTrace().errors().back(), errorLine("tavDBMTerm", 930, {5, 0x77}));
}

TEST_F(Stop, AReferenceThatCannotBeReleasedIsNoFailure) {
    faultPlan().add({.operation = Operation::mutexRequest, .subject = "control.tbl"});
    EXPECT_EQ(detach(), 0);
    EXPECT_TRUE(fakeTrace().errorsAre({wrapperLine("misc_waitMtx", 174, "control.tbl", platformCode(EIO)),
                                       errorLine("dbs_me_db_control_term_table_entry", 588, {0x1005, 0, 1})}));
    EXPECT_EQ(ControlView(controlPath())->entry[1].refCount, 1U);
}

TEST_F(Stop, OneTooManyIsHarmless) {
    EXPECT_EQ(detach(), 0);
    const Recording recording;
    EXPECT_EQ(tavDBMTerm(1), 0);
    EXPECT_EQ(eventLog().count(Operation::sysMunmap), 3U);
}

TEST_F(Stop, TheStartAfterOneTooManyFailsAndTheOneBehindItWorks) {
    EXPECT_EQ(detach(), 0);
    const Recording recording;
    EXPECT_EQ(tavDBMTerm(1), 0);
    EXPECT_EQ(dumped(dbs_me_db_control_debug_info, "s_db_control_init"), 0xFFFFFFFF);
    int32_t error = 0;
    EXPECT_EQ(tavDBMInit(&description, &error), -1) << "it counts as a later start and opens nothing";
    EXPECT_EQ(error, 84);
    EXPECT_EQ(attach(), 2) << attachError;
}

TEST_F(Stop, NoOperationThatFailsLeavesAnythingBehind) {
    detach();
    uint64_t k = 0;
    for (bool fired = true; fired && !HasFailure(); k++) {
        fired = tellFromChild([&] {
            const int32_t dbId = attach();
            EXPECT_GT(dbId, 0);
            clearLogs();
            faultPlan().failOperation(k);
            const int32_t code = detach();
            const bool failed = faultPlan().fired();
            if (code != 0) {
                EXPECT_TRUE(failed);
                EXPECT_EQ(fakeTrace().errors().back().substr(0, 24), "tavDBMTerm():[Error]:[93");
            }
            EXPECT_EQ(eventLog().count(Operation::hookTerm), 1U);
            EXPECT_EQ(eventLog().count(Operation::sysMunmap), 3U);
            finish();
            return failed;
        });
    }
    EXPECT_EQ(k, 7U) << "six operations and the run in which none fails";
}

}  // namespace
}  // namespace tavdb_test
