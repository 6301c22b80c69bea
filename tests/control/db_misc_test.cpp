// SPDX-License-Identifier: Apache-2.0
// The wrappers of the semaphores: their calls, results, lines and counters.
#include <errno.h>
#include <gmock/gmock.h>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_semaphores.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Lines = std::vector<std::string>;
using Function = int32_t (*)(tavDBMSemaphoreSet *set);

constexpr int32_t kOddCode = 0x1234;

/// A set of semaphores of the test's own; the fake platform numbers its handles.
class Semaphores : public ControlFixture {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        ASSERT_EQ(misc_getSems(&set_, "/some/table"), 0);
    }

    tavDBMSemaphoreSet set_ = {};
};

TEST_F(Semaphores, AreCreatedInTheOrderMutexCountEvent) {
    tavDBMSemaphoreSet other = {};
    eventLog().clear();
    EXPECT_EQ(misc_getSems(&other, "/some/table"), 0);
    Lines kinds;
    for (const std::string &line : eventLog().lines())
        kinds.push_back(line.substr(0, line.find(' ')));
    EXPECT_THAT(kinds, ElementsAre("mutexCreate", "countCreate", "eventCreate"));
}

TEST_F(Semaphores, AreThreeHandlesInTheOrderMutexCountEvent) {
    EXPECT_EQ(sizeof set_, 12U);
    EXPECT_EQ(hexText(bytesOf(set_)), hexWords(set_.mutex, set_.count, set_.event));
    EXPECT_NE(set_.mutex, 0U);
    EXPECT_NE(set_.count, 0U);
    EXPECT_NE(set_.event, 0U);
}

struct Creation {
    const char *name;
    Operation operation;
    Lines lines;
    bool mutexIsKept;
    bool countIsKept;
};

void PrintTo(const Creation &creation, std::ostream *stream) {
    *stream << creation.name;
}

class FailedCreationOf : public ControlFixture, public testing::WithParamInterface<Creation> {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        faultPlan().add({.operation = GetParam().operation, .fault = returning(kOddCode)});
        code_ = misc_getSems(&set_, "/some/table");
    }

    tavDBMSemaphoreSet set_ = {};
    int32_t code_ = 0;
};

INSTANTIATE_TEST_SUITE_P(
    Semaphores, FailedCreationOf,
    testing::Values(Creation{"Mutex",
                             Operation::mutexCreate,
                             {errorLine("misc_getSems", 111, {kOddCode}), errorLine("misc_getSems", 138, {kOddCode})},
                             false,
                             false},
                    Creation{"Count",
                             Operation::countCreate,
                             {errorLine("misc_getSems", 101, {kOddCode}), errorLine("misc_getSems", 138, {kOddCode})},
                             true,
                             false},
                    Creation{
                        "Event", Operation::eventCreate, {errorLine("misc_getSems", 126, {kOddCode})}, true, true}),
    byName);

TEST_P(FailedCreationOf, GivesThePlatformsCodeAndItsLines) {
    EXPECT_EQ(code_, kOddCode);
    EXPECT_TRUE(fakeTrace().errorsAre(GetParam().lines));
}

TEST_P(FailedCreationOf, KeepsWhatWasCreatedBeforeAndCreatesNoMore) {
    EXPECT_EQ(set_.mutex != 0, GetParam().mutexIsKept);
    EXPECT_EQ(set_.count != 0, GetParam().countIsKept);
    EXPECT_EQ(set_.event, 0U);
    EXPECT_EQ(eventLog().lines(Category::semaphores).size(), GetParam().countIsKept   ? 3U
                                                             : GetParam().mutexIsKept ? 2U
                                                                                      : 1U);
}

/// One wrapper: what it calls on which object, and what is needed before.
struct Wrapper {
    const char *name;
    Function function;
    Operation operation;
    int32_t argument;  ///< the time limit it passes
    uint32_t tavDBMSemaphoreSet::*handle;
    int32_t site;
    const char *counter;
    Function before;
};

void PrintTo(const Wrapper &wrapper, std::ostream *stream) {
    *stream << wrapper.name;
}

const Wrapper kWrappers[] = {
    {"misc_waitMtx", misc_waitMtx, Operation::mutexRequest, -1, &tavDBMSemaphoreSet::mutex, 174, "s_debug_db_misc_wait",
     nullptr},
    {"misc_postMtx", misc_postMtx, Operation::mutexRelease, 0, &tavDBMSemaphoreSet::mutex, 209, "s_debug_db_misc_post",
     misc_waitMtx},
    {"misc_waitCount", misc_waitCount, Operation::countWait, 0, &tavDBMSemaphoreSet::count, 244,
     "s_debug_db_misc_wait_count", misc_postCount},
    {"misc_postCount", misc_postCount, Operation::countPost, 0, &tavDBMSemaphoreSet::count, 279,
     "s_debug_db_misc_post_count", nullptr},
    {"misc_waitEvent", misc_waitEvent, Operation::eventWait, 0, &tavDBMSemaphoreSet::event, 314,
     "s_debug_db_misc_wait_event", misc_postEvent},
    {"misc_postEvent", misc_postEvent, Operation::eventPost, 0, &tavDBMSemaphoreSet::event, 347,
     "s_debug_db_misc_post_event", nullptr},
    {"misc_resetEvent", misc_resetEvent, Operation::eventPost, 0, &tavDBMSemaphoreSet::event, 382,
     "s_debug_db_misc_reset_event", nullptr},
};

class EachWrapper : public Semaphores, public testing::WithParamInterface<Wrapper> {
protected:
    void SetUp() override {
        Semaphores::SetUp();
        if (GetParam().before != nullptr) {
            ASSERT_EQ(GetParam().before(&set_), 0);
        }
        clearLogs();
    }
    void TearDown() override {
        if (!fakeSemaphores().heldMutexes().empty())
            misc_postMtx(&set_);
        Semaphores::TearDown();
    }
    int32_t call() {
        return GetParam().function(&set_);
    }
    int32_t callWithFault() {
        faultPlan().add({.operation = GetParam().operation, .fault = returning(kOddCode)});
        return call();
    }
    static uint32_t counter(const char *name) {
        return dumped(dbs_me_db_misc_debug_info, name);
    }
};

INSTANTIATE_TEST_SUITE_P(Semaphores, EachWrapper, testing::ValuesIn(kWrappers), byName);

TEST_P(EachWrapper, MakesItsOneCallOnItsOwnObject) {
    EXPECT_EQ(call(), 0);
    const std::vector<Event> events = eventLog().events();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].operation, GetParam().operation);
    EXPECT_EQ(events[0].subject, "#" + std::to_string(set_.*GetParam().handle));
    EXPECT_EQ(events[0].argument, GetParam().argument);
}

TEST_P(EachWrapper, ASuccessTracesNothing) {
    call();
    EXPECT_THAT(fakeTrace().lines(), IsEmpty());
}

TEST_P(EachWrapper, AFailureIsTracedWithCodeAndHandle) {
    callWithFault();
    EXPECT_TRUE(
        fakeTrace().onlyError(errorLine(GetParam().name, GetParam().site, {kOddCode, set_.*GetParam().handle})));
}

TEST_P(EachWrapper, MovesItsOwnCounterByThreeAndNoOther) {
    std::vector<uint32_t> before;
    for (const Wrapper &wrapper : kWrappers)
        before.push_back(counter(wrapper.counter));
    call();
    for (size_t i = 0; i < before.size(); i++) {
        const bool isOwn = std::string(kWrappers[i].name) == GetParam().name;
        EXPECT_EQ(counter(kWrappers[i].counter), before[i] + (isOwn ? 3 : 0)) << kWrappers[i].counter;
    }
}

TEST_P(EachWrapper, MovesItsCounterByThreeWhenItFailsToo) {
    const uint32_t before = counter(GetParam().counter);
    callWithFault();
    EXPECT_EQ(counter(GetParam().counter), before + 3);
}

class PassingWrapper : public EachWrapper {};

INSTANTIATE_TEST_SUITE_P(Semaphores, PassingWrapper,
                         testing::Values(kWrappers[0], kWrappers[1], kWrappers[2], kWrappers[3], kWrappers[5],
                                         kWrappers[6]),
                         byName);

TEST_P(PassingWrapper, GivesThePlatformsCodeUnchanged) {
    EXPECT_EQ(callWithFault(), kOddCode);
}

TEST_F(Semaphores, DeliberatelyAFailedWaitForTheEventIsASuccess) {
    faultPlan().add({.operation = Operation::eventWait, .fault = returning(kOddCode)});
    EXPECT_EQ(misc_waitEvent(&set_), 0);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("misc_waitEvent", 314, {kOddCode, set_.event})));
}

TEST_F(Semaphores, DeliberatelyAResetOfTheEventPostsIt) {
    eventLog().clear();
    misc_resetEvent(&set_);
    misc_postEvent(&set_);
    const Lines lines = eventLog().lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], lines[1]);
}

TEST_F(Semaphores, DeliberatelyFreeingThemDoesNothing) {
    const tavDBMSemaphoreSet before = set_;
    eventLog().clear();
    EXPECT_EQ(misc_freeSems(&set_), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
    EXPECT_EQ(bytesOf(set_), bytesOf(before));
}

TEST_F(Semaphores, ACounterShowsACallThatIsStillInsideThePlatform) {
    uint32_t inside = 0;
    fakeSemaphores().onEventWait(
        [&](const std::string &) { inside = dumped(dbs_me_db_misc_debug_info, "s_debug_db_misc_wait_event"); });
    misc_waitEvent(&set_);
    EXPECT_EQ(inside, 2U);
    EXPECT_EQ(dumped(dbs_me_db_misc_debug_info, "s_debug_db_misc_wait_event"), 3U);
}

}  // namespace
}  // namespace tavdb_test
