// SPDX-License-Identifier: Apache-2.0
// Taking and releasing databases in the control table: which descriptions are
// one database, references, ids, capacity, and every failure.
#include <errno.h>
#include <gmock/gmock.h>

#include <algorithm>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_semaphores.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kTakeFunction[] = "dbs_me_db_control_init_table_entry";
constexpr char kReleaseFunction[] = "dbs_me_db_control_term_table_entry";

class Control : public ControlFixture {
protected:
    uint32_t references(uint32_t id) const {
        return ControlView(controlPath())->entry[id].refCount;
    }
};

TEST_F(Control, TheFirstDatabaseGetsIdOneWithOneReference) {
    EXPECT_EQ(attach(), 1);
    EXPECT_EQ(references(1), 1U);
}

TEST_F(Control, EqualDescriptionsShareOneEntryAndCountTwoReferences) {
    EXPECT_EQ(attach(), 1);
    EXPECT_EQ(attach(), 1);
    EXPECT_EQ(references(1), 2U);
}

TEST_F(Control, OneDetachOfTwoLeavesTheEntryInUse) {
    attach();
    attach();
    EXPECT_EQ(detach(), 0);
    EXPECT_EQ(references(1), 1U);
    EXPECT_NE(db_getDb(1), nullptr);
}

TEST_F(Control, TheLastDetachFreesTheEntry) {
    attachMany(2);
    dbs_me_db_control_term_table_entry(1);
    EXPECT_EQ(references(1), 0U);
    EXPECT_EQ(db_getDb(1), nullptr);
}

/// A part of the description that tells databases apart.
struct Part {
    const char *name;
    std::function<void(tavDBMDescription &)> change;
};

void PrintTo(const Part &part, std::ostream *stream) {
    *stream << part.name;
}

class DescriptionPart : public Control, public testing::WithParamInterface<Part> {};

INSTANTIATE_TEST_SUITE_P(
    Control, DescriptionPart,
    testing::Values(Part{"SessionPath", [](tavDBMDescription &d) { d.sessionPath[strlen(d.sessionPath) - 1] = 'x'; }},
                    Part{"LockPath", [](tavDBMDescription &d) { d.lockPath[strlen(d.lockPath) - 1] = 'x'; }},
                    Part{"MediaPath", [](tavDBMDescription &d) { d.mediaPath[strlen(d.mediaPath) - 1] = 'x'; }},
                    Part{"HookPath", [](tavDBMDescription &d) { d.hookPath[strlen(d.hookPath) - 1] = 'x'; }},
                    Part{"ComponentMedia", [](tavDBMDescription &d) { d.componentMedia = 9; }},
                    Part{"ValueMedia", [](tavDBMDescription &d) { d.valueMedia = 9; }},
                    Part{"ConstraintMedia", [](tavDBMDescription &d) { d.constraintMedia = 9; }},
                    Part{"StringMedia", [](tavDBMDescription &d) { d.stringMedia = 9; }},
                    Part{"FifthWord", [](tavDBMDescription &d) { d.fifthWord = 9; }}),
    byName);

TEST_P(DescriptionPart, ThatDiffersMakesAnotherDatabase) {
    EXPECT_EQ(attach(), 1);
    tavDBMDescription other = description;
    GetParam().change(other);
    EXPECT_EQ(attach(other), 2);
    EXPECT_EQ(references(1), 1U);
    EXPECT_EQ(references(2), 1U);
}

TEST_F(Control, BytesBehindAPathsNulDoNotTellDatabasesApart) {
    EXPECT_EQ(attach(), 1);
    tavDBMDescription other = description;
    other.lockPath[TAVDB_PATH_SIZE - 2] = 'x';
    EXPECT_EQ(attach(other), 1);
}

TEST_F(Control, TheSameFileByARelativePathIsTheSameDatabase) {
    EXPECT_EQ(attach(), 1);
    environment().set("PWD", folder() + "/");
    tavDBMDescription other = description;
    strcpy(other.hookPath, "hooks.conf");
    EXPECT_EQ(dbs_me_db_control_search_table_entry(&other), 1);
}

TEST_F(Control, DeliberatelyNoSlashIsPutBehindTheWorkingFolder) {
    tavDBMDescription without = description;
    strcpy(without.hookPath, (folder() + "hooks.conf").c_str());
    EXPECT_EQ(attach(description), 1);
    EXPECT_EQ(attach(without), 2);
    environment().set("PWD", folder());
    tavDBMDescription relative = description;
    strcpy(relative.hookPath, "hooks.conf");
    EXPECT_EQ(dbs_me_db_control_search_table_entry(&relative), 2);
}

TEST_F(Control, PathsThatFillTheirFieldAreComparedWithinIt) {
    tavDBMDescription full = description;
    std::fill(std::begin(full.hookPath), std::end(full.hookPath), 'a');
    EXPECT_EQ(attach(full), 1);
    EXPECT_EQ(attach(full), 1);
    full.hookPath[TAVDB_PATH_SIZE - 1] = 'b';
    EXPECT_EQ(attach(full), 2);
}

TEST_F(Control, APathThatFillsItsFieldIsNotOneThatEndsInIt) {
    tavDBMDescription full = description;
    std::fill(std::begin(full.hookPath), std::end(full.hookPath), 'a');
    EXPECT_EQ(attach(full), 1);
    full.hookPath[TAVDB_PATH_SIZE - 1] = '\0';
    EXPECT_EQ(attach(full), 2);
}

TEST_F(Control, TheFirstMatchInTheUsedListWins) {
    attachMany(3);
    const tavDBMDescription same = database(1);
    ControlView(controlPath())->entry[2].description.fifthWord = 1;
    EXPECT_EQ(dbs_me_db_control_search_table_entry(&same), 2);
}

TEST_F(Control, AFreedDatabaseDoesNotMatch) {
    attachMany(2);
    dbs_me_db_control_term_table_entry(1);
    const tavDBMDescription freed = database(1);
    EXPECT_EQ(dbs_me_db_control_search_table_entry(&freed), -1);
}

TEST_F(Control, SearchingForNoDescriptionFindsNothing) {
    attach();
    EXPECT_EQ(dbs_me_db_control_search_table_entry(nullptr), -1);
}

TEST_F(Control, IdsAreReusedInTheOrderInWhichTheyWereFreed) {
    attachMany(3);
    EXPECT_EQ(dbs_me_db_control_term_table_entry(2), 0);
    EXPECT_EQ(dbs_me_db_control_term_table_entry(1), 0);
    for (uint32_t i = 4; i <= 31; i++)
        EXPECT_EQ(attach(database(i)), static_cast<int32_t>(i));
    EXPECT_EQ(attach(database(101)), 2);
    EXPECT_EQ(attach(database(102)), 1);
}

TEST_F(Control, ThirtyOneDatabasesFit) {
    EXPECT_EQ(attachMany(31), 31);
}

TEST_F(Control, DeliberatelyTheThirtySecondDatabaseFailsWith84) {
    attachMany(31);
    clearLogs();
    EXPECT_EQ(attachMany(32), -1);
    EXPECT_EQ(attachError, 84);
    EXPECT_TRUE(fakeTrace().errorsAre(joined({errorLine(kTakeFunction, 653)}, controlFailure(84))));
}

TEST_F(Control, AFullTableIsLeftAsItWas) {
    attachMany(31);
    const Bytes before = bytesOfFile(controlPath());
    EXPECT_EQ(attach(database(32)), -1);
    EXPECT_THAT(differences(before, bytesOfFile(controlPath())), IsEmpty());
}

TEST_F(Control, AFullTableStillSharesItsDatabases) {
    attachMany(31);
    EXPECT_EQ(attach(database(7)), 7);
    EXPECT_EQ(references(7), 2U);
}

TEST_F(Control, TheDescriptionOfAnOpenDatabaseLiesInTheSharedTable) {
    attach();
    const tavDBMDescription *const shared = db_getDb(1);
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(bytesOf(*shared), bytesOf(description));
    ControlView(controlPath())->entry[1].description.fifthWord = 4711;
    EXPECT_EQ(shared->fifthWord, 4711U);
}

TEST_F(Control, LookingADatabaseUpTakesNoLock) {
    attach();
    eventLog().clear();
    db_getDb(1);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

class UnknownId : public Control, public testing::WithParamInterface<uint32_t> {};

INSTANTIATE_TEST_SUITE_P(Control, UnknownId, testing::Values(0, 2, 31, 32, 33, 0xFFFFFFFF),
                         testing::PrintToStringParamName());

TEST_P(UnknownId, HasNoDescription) {
    attach();
    EXPECT_EQ(db_getDb(GetParam()), nullptr);
}

TEST_P(UnknownId, IsRefusedWith85AndReleasesNothing) {
    attach();
    clearLogs();
    const Bytes before = bytesOfFile(controlPath());
    EXPECT_EQ(dbs_me_db_control_term_table_entry(GetParam()), 85);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine(kReleaseFunction, 574, {85, GetParam()})));
    EXPECT_THAT(eventLog().lines(Category::semaphores),
                ElementsAre("mutexRequest control.tbl", "mutexAbandoned control.tbl", "mutexRelease control.tbl"));
    EXPECT_THAT(differences(before, bytesOfFile(controlPath())), IsEmpty());
}

TEST_P(UnknownId, IsDetachedFromAllTheSame) {
    attach();
    attach();
    clearLogs();
    EXPECT_EQ(tavDBMTerm(GetParam()), 0);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine(kReleaseFunction, 574, {85, GetParam()})));
    EXPECT_EQ(references(1), 2U);
    EXPECT_EQ(dumped(dbs_me_db_control_debug_info, "s_db_control_init"), 1U);
    EXPECT_EQ(attach(), 1);
}

/// Operations on entries, called for themselves on an open table.
class ControlEntries : public Control {
protected:
    void SetUp() override {
        Control::SetUp();
        attach();
        clearLogs();
    }
    Bytes table() const {
        return bytesOfFile(controlPath());
    }
};

TEST_F(ControlEntries, TakingOneHappensUnderTheMutex) {
    const tavDBMDescription other = database(5);
    EXPECT_EQ(dbs_me_db_control_init_table_entry(&other, nullptr), 2);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("mutexRequest control.tbl", "mutexAbandoned control.tbl", "mutexRelease control.tbl"));
}

TEST_F(ControlEntries, ReleasingOneHappensUnderTheMutex) {
    EXPECT_EQ(dbs_me_db_control_term_table_entry(1), 0);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("mutexRequest control.tbl", "mutexAbandoned control.tbl", "mutexRelease control.tbl"));
}

TEST_F(ControlEntries, ASuccessLeavesTheErrorWordAlone) {
    int32_t error = 4711;
    EXPECT_EQ(dbs_me_db_control_init_table_entry(&description, &error), 1);
    EXPECT_EQ(error, 4711);
}

TEST_F(ControlEntries, WithoutAMutexNoneIsTaken95) {
    faultPlan().add({.operation = Operation::mutexRequest});
    const Bytes before = table();
    int32_t error = 0;
    EXPECT_EQ(dbs_me_db_control_init_table_entry(&description, &error), -1);
    EXPECT_EQ(error, 95);
    EXPECT_TRUE(fakeTrace().errorsAre({wrapperLine("misc_waitMtx", 174, "control.tbl", platformCode(EIO)),
                                       errorLine(kTakeFunction, 693, {0x1005, 0xFFFFFFFF})}));
    EXPECT_EQ(eventLog().count(Operation::mutexRelease), 0U);
    EXPECT_THAT(differences(before, table()), IsEmpty());
}

TEST_F(ControlEntries, WithoutAMutexAndWithoutAnErrorWordTheResultIsAllThereIs) {
    faultPlan().add({.operation = Operation::mutexRequest});
    EXPECT_EQ(dbs_me_db_control_init_table_entry(&description, nullptr), -1);
}

TEST_F(ControlEntries, WithoutADescriptionNoneIsTaken89) {
    int32_t error = 0;
    EXPECT_EQ(dbs_me_db_control_init_table_entry(nullptr, &error), -1);
    EXPECT_EQ(error, 89);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine(kTakeFunction, 675)));
    EXPECT_THAT(fakeSemaphores().heldMutexes(), IsEmpty());
}

TEST_F(ControlEntries, WithoutADescriptionAndWithoutAnErrorWordTheResultIsAllThereIs) {
    EXPECT_EQ(dbs_me_db_control_init_table_entry(nullptr, nullptr), -1);
}

TEST_F(ControlEntries, AFullTableNeedsNoErrorWord) {
    attachMany(31);
    const tavDBMDescription other = database(99);
    EXPECT_EQ(dbs_me_db_control_init_table_entry(&other, nullptr), -1);
}

TEST_F(ControlEntries, AFailingReleaseOfTheMutexDoesNotUndoTheTaking) {
    faultPlan().add({.operation = Operation::mutexRelease});
    int32_t error = 0;
    EXPECT_EQ(dbs_me_db_control_init_table_entry(&description, &error), 1);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(references(1), 2U);
    EXPECT_TRUE(fakeTrace().onlyError(wrapperLine("misc_postMtx", 209, "control.tbl", platformCode(EIO))));
}

TEST_F(ControlEntries, WithoutAMutexNoneIsReleased) {
    faultPlan().add({.operation = Operation::mutexRequest});
    const Bytes before = table();
    EXPECT_EQ(dbs_me_db_control_term_table_entry(1), platformCode(EIO));
    EXPECT_TRUE(fakeTrace().errorsAre({wrapperLine("misc_waitMtx", 174, "control.tbl", platformCode(EIO)),
                                       errorLine(kReleaseFunction, 588, {0x1005, 0, 1})}));
    EXPECT_EQ(eventLog().count(Operation::mutexRelease), 0U);
    EXPECT_THAT(differences(before, table()), IsEmpty());
}

TEST_F(ControlEntries, AFailingReleaseOfTheMutexDoesNotUndoTheReleasing) {
    faultPlan().add({.operation = Operation::mutexRelease});
    EXPECT_EQ(dbs_me_db_control_term_table_entry(1), 0);
    EXPECT_EQ(references(1), 0U);
}

TEST_F(ControlEntries, AnEntryInUseWithoutAReferenceIsFreedAndCountsNotBelowZero) {
    const ControlView table(controlPath());
    table->entry[1].refCount = 0;
    EXPECT_EQ(dbs_me_db_control_term_table_entry(1), 0);
    EXPECT_EQ(references(1), 0U);
    EXPECT_THAT(chain(table->entry, table->usedHead), IsEmpty());
    EXPECT_EQ(chain(table->entry, table->freeHead).back(), 1U);
}

TEST_F(ControlEntries, AfterAHoldersDeathTheTableIsMended) {
    const ControlView table(controlPath());
    table->freeHead = 9;  // 2 to 8 are in no list
    fakeSemaphores().abandonMutex("control.tbl");
    EXPECT_EQ(dbs_me_db_control_term_table_entry(31), 85);
    EXPECT_EQ(chain(table->entry, table->freeHead), ascending(2, 31));
    EXPECT_EQ(table->freeTail, 31U);
    EXPECT_THAT(chain(table->entry, table->usedHead), ElementsAre(1));
    EXPECT_EQ(eventLog().count(Operation::eventPost), 1U);
}

TEST_F(ControlEntries, AnEntryThatADeadProcessTookHalfIsFreeAgain) {
    const ControlView table(controlPath());
    dbs_me_db_control_get_table_entry();
    dbs_me_db_control_add_table_entry(2);  // in use, but no reference was counted yet
    fakeSemaphores().abandonMutex("control.tbl");
    dbs_me_db_control_term_table_entry(31);
    EXPECT_THAT(chain(table->entry, table->usedHead), ElementsAre(1));
    EXPECT_EQ(chain(table->entry, table->freeHead), ascending(2, 31));
}

}  // namespace
}  // namespace tavdb_test
