// SPDX-License-Identifier: Apache-2.0
// Start of the library: order of the modules, what each failure leaves started
// and traces. The starts of constraints, values and components cannot fail, so
// their lines are only seen behind those of an earlier module.
#include <errno.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_hooks.h"
#include "fakes/fake_semaphores.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using Lines = std::vector<std::string>;

constexpr char kGetFileName[] = "dbs_me_db_control_get_file_name";

class Start : public ControlFixture {
protected:
    /// The modules that were started, in order, each by a step that only it makes.
    static Lines started() {
        static const std::map<std::string, std::string> kFirstSteps = {{"sys.open control.tbl", "control"},
                                                                       {"sys.open lock.tbl", "lock"},
                                                                       {"mediaInit media.conf", "media"},
                                                                       {"hookInit hooks.conf", "hook"},
                                                                       {"sys.open session.tbl", "session"}};
        Lines modules;
        for (const std::string &line : eventLog().lines())
            for (const auto &[step, module] : kFirstSteps)
                if (line.starts_with(step) && (modules.empty() || modules.back() != module))
                    modules.push_back(module);
        return modules;
    }
    /// How often the value module was started: the last module but one, and the only one of the three behind the
    /// session table that leaves a trace of itself.
    static uint32_t valueStarts() {
        return dumped(dbs_me_db_value_debug_info, "s_debug_db_value_init") / 3;
    }
    Lines remarks(bool namesFile = true) const {
        Lines lines = {enterLine("tavDBMInit"), enterLine("dbs_me_db_control_init")};
        if (namesFile)
            lines.push_back(debugTextLine(kGetFileName, 282, controlPath()));
        return joined(lines, {returnLine("dbs_me_db_control_init"), returnLine("tavDBMInit")});
    }
};

TEST_F(Start, TheModulesStartInTheirOrder) {
    EXPECT_EQ(attach(), 1);
    EXPECT_THAT(started(), ElementsAre("control", "lock", "media", "hook", "session"));
    EXPECT_EQ(valueStarts(), 1U);
}

TEST_F(Start, EachModuleGetsItsOwnPath) {
    attach();
    for (const char *const table : {"control.tbl", "lock.tbl", "session.tbl"})
        EXPECT_EQ(access(file(table).c_str(), F_OK), 0) << table;
    const Lines lines = eventLog().lines(Category::media | Category::hooks);
    EXPECT_THAT(lines, ElementsAre("mediaInit media.conf", "hookInit hooks.conf"));
}

TEST_F(Start, EntryAndReturnAreTracedAtLevelTwo) {
    attach();
    EXPECT_TRUE(fakeTrace().textsAre(2, remarks()));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(Start, TheSecondStartNamesNoFile) {
    attach();
    clearLogs();
    attach();
    EXPECT_TRUE(fakeTrace().textsAre(2, remarks(false)));
}

TEST_F(Start, ASuccessLeavesTheErrorWordAlone) {
    const Recording recording;
    int32_t error = 4711;
    EXPECT_EQ(tavDBMInit(&description, &error), 1);
    EXPECT_EQ(error, 4711);
    EXPECT_EQ(tavDBMTerm(1), 0);
}

TEST_F(Start, ASecondStartLoadsTheMediaOnceAndTheHooksAgain) {
    attach();
    eventLog().clear();
    attach(database(2));
    EXPECT_THAT(eventLog().lines(Category::media | Category::hooks), ElementsAre("hookInit hooks.conf"));
    EXPECT_EQ(valueStarts(), 2U);
}

TEST_F(Start, WithoutADescriptionTheCodeIs89AndNoModuleWithAPathIsStarted) {
    const Recording recording;
    int32_t error = 0;
    EXPECT_EQ(tavDBMInit(nullptr, &error), -1);
    EXPECT_EQ(error, 89);
    EXPECT_THAT(started(), ElementsAre("control"));
    EXPECT_EQ(valueStarts(), 1U);
    EXPECT_TRUE(
        fakeTrace().errorsAre(joined({errorLine("dbs_me_db_control_init_table_entry", 675)}, controlFailure(89))));
    tavDBMTerm(0);
}

TEST_F(Start, WithoutADescriptionEntryAndReturnAreTraced) {
    const Recording recording;
    tavDBMInit(nullptr, nullptr);
    EXPECT_TRUE(fakeTrace().textsAre(2, remarks()));
    tavDBMTerm(0);
}

/// A module whose start fails: how, with which code, what it traces itself, what is started by then.
struct StartFault {
    const char *name;
    FaultRule rule;
    int32_t code;
    Lines (*ownLines)(const std::string &folder);
    int32_t firstSite;
    Lines startedModules;
};

void PrintTo(const StartFault &fault, std::ostream *stream) {
    *stream << fault.name;
}

// 100, 200 and 210 are the media module's own numbers, fixed for good.
const StartFault kStartFaults[] = {
    {"Lock",
     {.operation = Operation::sysMmap, .subject = "lock.tbl"},
     87,
     [](const std::string &) { return Lines{errorLine("lock_init", 110, {ENOMEM})}; },
     836,
     {"control", "lock"}},
    {"MediaLibrary",
     {.operation = Operation::mediaInit, .fault = returning(4711)},
     4711,
     [](const std::string &) {
         return Lines{errorLine("dbs_me_db_media_entry_init", 100, {4711, 0}), errorLine("media_init", 200, {4711})};
     },
     846,
     {"control", "lock", "media"}},
    {"MediaConfiguration",
     {.operation = Operation::sysFopen, .subject = "media.conf"},
     12,
     [](const std::string &folder) {
         return Lines{errorCodeTextLine("media_init", 210, EACCES, folder + "/media.conf")};
     },
     846,
     {"control", "lock", "media"}},
    {"Hooks",
     {.operation = Operation::hookInit, .fault = returning(120)},
     120,
     [](const std::string &) { return Lines{}; },
     856,
     {"control", "lock", "media", "hook"}},
    {"Session",
     {.operation = Operation::sysWrite, .subject = "session.tbl", .fault = shortBy(1, ENOSPC)},
     79,
     [](const std::string &) { return Lines{errorLine("session_init", 525, {ENOSPC})}; },
     866,
     {"control", "lock", "media", "hook", "session"}},
};

class FailedStart : public Start, public testing::WithParamInterface<StartFault> {
protected:
    void SetUp() override {
        Start::SetUp();
        faultPlan().add(GetParam().rule);
    }
    Lines errorLines() const {
        return joined(GetParam().ownLines(folder()), cascade(GetParam().firstSite, GetParam().code));
    }
};

INSTANTIATE_TEST_SUITE_P(Modules, FailedStart, testing::ValuesIn(kStartFaults), byName);

TEST_P(FailedStart, GivesMinusOneAndItsCode) {
    EXPECT_EQ(attach(), -1);
    EXPECT_EQ(attachError, GetParam().code);
}

TEST_P(FailedStart, IsTracedForItselfAndForEachModuleBehindIt) {
    attach();
    EXPECT_TRUE(fakeTrace().errorsAre(errorLines()));
}

TEST_P(FailedStart, EndsWithItsReturnTraced) {
    attach();
    EXPECT_TRUE(fakeTrace().textsAre(2, remarks()));
}

TEST_P(FailedStart, StartsNoFurtherModule) {
    attach();
    EXPECT_EQ(started(), GetParam().startedModules);
    EXPECT_EQ(valueStarts(), 0U);
}

TEST_P(FailedStart, StopsNoModuleThatWasStarted) {
    attach();
    EXPECT_EQ(eventLog().count(Operation::sysMunmap), 0U);
    EXPECT_EQ(eventLog().count(Operation::hookTerm), 0U);
    EXPECT_NE(db_getDb(1), nullptr) << "the reference stays until tavDBMTerm";
}

TEST_P(FailedStart, NeedsNoErrorWord) {
    const Recording recording;
    EXPECT_EQ(tavDBMInit(&description, nullptr), -1);
    tavDBMTerm(1);
}

TEST_F(Start, ALockFailurePrintsSevenLines) {
    faultPlan().add({.operation = Operation::mutexCreate, .subject = "lock.tbl", .fault = returning(0x55)});
    attach();
    Lines lines = fakeTrace().errors();
    lines.erase(lines.begin(), lines.begin() + 2);  // those of misc_getSems
    EXPECT_EQ(lines, (Lines{errorLine("tavDBMInit", 836, {0x55}), errorLine("tavDBMInit", 846, {0x55}),
                            errorLine("tavDBMInit", 856, {0x55}), errorLine("tavDBMInit", 866, {0x55}),
                            errorLine("tavDBMInit", 876, {0x55}), errorLine("tavDBMInit", 886, {0x55}),
                            errorLine("tavDBMInit", 892, {0x55})}));
}

/// The control table fails: the locks are left out, all else is started.
class FailedControl : public Start {
protected:
    static void failControl() {
        faultPlan().add({.operation = Operation::sysMmap, .subject = "control.tbl"});
    }
    Lines controlLines() const {
        return joined({errorLine("dbs_me_db_control_init_table", 378, {ENOMEM}),
                       errorTextLine("dbs_me_db_control_init_table", 380, controlPath())},
                      controlFailure(87));
    }
};

TEST_F(FailedControl, DeliberatelyLeavesTheLocksOutAndStartsTheRest) {
    failControl();
    EXPECT_EQ(attach(), -1);
    EXPECT_EQ(attachError, 87);
    EXPECT_THAT(started(), ElementsAre("control", "media", "hook", "session"));
    EXPECT_EQ(valueStarts(), 1U);
}

TEST_F(FailedControl, IsTracedWithoutLinesForTheModulesBehindIt) {
    failControl();
    attach();
    EXPECT_TRUE(fakeTrace().errorsAre(controlLines()));
    EXPECT_TRUE(fakeTrace().textsAre(2, remarks()));
}

TEST_F(FailedControl, ALaterFailureIsTracedAndTheErrorWordKeepsTheControlError) {
    failControl();
    faultPlan().add({.operation = Operation::hookInit, .fault = returning(121)});
    EXPECT_EQ(attach(), -1);
    EXPECT_EQ(attachError, 87);
    EXPECT_THAT(started(), ElementsAre("control", "media", "hook"));
    EXPECT_TRUE(fakeTrace().errorsAre(joined(controlLines(), cascade(856, 121))));
}

TEST_F(FailedControl, NeedsNoErrorWord) {
    failControl();
    const Recording recording;
    EXPECT_EQ(tavDBMInit(&description, nullptr), -1);
    tavDBMTerm(0);
}

TEST_F(FailedControl, DeliberatelyCountsAsAttachedAndIsNotTriedAgain) {
    failControl();
    attach();
    EXPECT_EQ(dumped(dbs_me_db_control_debug_info, "s_db_control_init"), 1U);
    clearLogs();
    EXPECT_EQ(attach(), -1);
    EXPECT_EQ(attachError, 95);
    EXPECT_EQ(dumped(dbs_me_db_control_debug_info, "s_db_control_init"), 2U);
    const Lines lines = eventLog().lines(Category::libc);
    EXPECT_THAT(lines, Not(testing::Contains(testing::StartsWith("sys.open control.tbl"))));
}

TEST_F(FailedControl, AfterAsManyDetachesTheTableIsTriedAgain) {
    failControl();
    attach();
    attach();
    detach();
    detach();
    EXPECT_EQ(attach(), 1) << attachError;
}

/// Neither opening nor making of the control table works.
class ControlWithoutAFile : public Start {
protected:
    void SetUp() override {
        Start::SetUp();
        faultPlan().add({.operation = Operation::sysOpen, .subject = "control.tbl", .times = 2});
    }
    Lines ownLines() const {
        return {errorLine("dbs_me_db_control_init_table", 423, {EACCES}),
                errorTextLine("dbs_me_db_control_init_table", 425, controlPath())};
    }
};

TEST_F(ControlWithoutAFile, DeliberatelyOpeningGivesZeroAndMapsNothing) {
    const Recording recording;
    EXPECT_EQ(dbs_me_db_control_init_table(), 0);
    EXPECT_TRUE(fakeTrace().errorsAre(ownLines()));
    EXPECT_EQ(eventLog().count(Operation::sysMmap), 0U);
}

TEST_F(ControlWithoutAFile, AttachingFailsAtTheMutexThatIsNotThere) {
    EXPECT_EQ(attach(), -1);
    EXPECT_EQ(attachError, 95);
    const uint32_t noMutex = static_cast<uint32_t>(platformCode(EBADF));
    const Lines lines = {errorLine("misc_waitMtx", 174, {noMutex, 0}),
                         errorLine("dbs_me_db_control_init_table_entry", 693, {noMutex, 0xFFFFFFFF})};
    EXPECT_TRUE(fakeTrace().errorsAre(joined(joined(ownLines(), lines), controlFailure(95))));
}

TEST_F(ControlWithoutAFile, DetachingUnmapsNothingAndFailsNothing) {
    attach();
    eventLog().clear();
    EXPECT_EQ(detach(), 0);
    const Lines lines = eventLog().lines(Category::libc);
    EXPECT_THAT(lines, Not(testing::Contains(testing::StartsWith("sys.munmap control.tbl"))));
}

TEST_F(ControlWithoutAFile, WhereThePlatformTakesAnyMutexNoDatabaseFitsAndNoneIsKnown) {
    faultPlan().add({.operation = Operation::mutexRequest, .times = kForEver, .fault = returning(0)});
    faultPlan().add({.operation = Operation::mutexRelease, .times = kForEver, .fault = returning(0)});
    EXPECT_EQ(attach(), -1);
    EXPECT_EQ(attachError, 84);
    EXPECT_TRUE(fakeTrace().errorsAre(
        joined(joined(ownLines(), {errorLine("dbs_me_db_control_init_table_entry", 653)}), controlFailure(84))));
    EXPECT_EQ(db_getDb(1), nullptr);
    EXPECT_EQ(dbs_me_db_control_term_table_entry(1), 85);
}

/// Every operation of a start fails once, each time in a process of its own.
class StartUnderFaults : public Start {
protected:
    /// Attaches while operation k fails. What fails is told, and nothing stays behind. @return whether there was a k
    bool attachFailing(uint64_t k) {
        return tellFromChild([&] {
            faultPlan().failOperation(k);
            const int32_t dbId = attach();
            const bool fired = faultPlan().fired();
            EXPECT_EQ(dbId == -1, attachError != 0);
            if (dbId == -1) {
                EXPECT_TRUE(fired);
                EXPECT_THAT(fakeTrace().errors(), Not(IsEmpty()));
            }
            finish();
            return fired;
        });
    }
};

TEST_F(StartUnderFaults, OnAFreshMachineNothingIsLeftBehindAndTheNextProcessAttaches) {
    uint64_t k = 0;
    for (bool fired = true; fired && !HasFailure(); k++) {
        removeTables();
        fired = attachFailing(k);
        inChild([&] {
            EXPECT_GT(attach(), 0) << "after operation " << k << ": " << attachError;
            EXPECT_TRUE(fakeTrace().noErrors());
        });
    }
    EXPECT_GT(k, 40U);
}

TEST_F(StartUnderFaults, OtherDatabasesInTheTableAreLeftAlone) {
    inChild([this] { attach(database(77)); });  // ends attached: its reference stays
    const tavDBMControlEntry before = ControlView(controlPath())->entry[1];
    ASSERT_EQ(before.refCount, 1U);
    uint64_t k = 0;
    for (bool fired = true; fired && !HasFailure(); k++) {
        fired = attachFailing(k);
        EXPECT_EQ(hexText(bytesOf(ControlView(controlPath())->entry[1])), hexText(bytesOf(before))) << k;
    }
    EXPECT_GT(k, 25U);
}

}  // namespace
}  // namespace tavdb_test
