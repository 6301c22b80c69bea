// SPDX-License-Identifier: Apache-2.0
// A full session table takes over the slots of processes that died, together
// with their references to databases.
#include <errno.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_semaphores.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {
namespace {

using testing::IsEmpty;

constexpr int32_t kReferences = 3;

/// The id of a process that is no more.
int32_t deadProcess() {
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    return child;
}

/// Three attaches of database 1, and a table without a free slot: all are this process's own.
class Reclaim : public ControlFixture {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        for (int i = 0; i < kReferences; i++)
            ASSERT_EQ(attach(), 1);
        dead_ = deadProcess();
        fill();
        clearLogs();
    }
    /// In the session list from the last to the first, so that list order is not index order.
    void fill() const {
        const SessionView table(sessionPath());
        for (uint32_t i = 1; i <= kSessions; i++)
            table->slot[i] = {.sessionId = i, .processId = getpid(), .dbId = 1, .next = i - 1};
        table->freeHead = 0;
        table->freeTail = 0;
        table->sessionHead = kSessions;
    }
    void letDie(uint32_t index, uint32_t dbId = 1) const {
        const SessionView table(sessionPath());
        table->slot[index].processId = dead_;
        table->slot[index].dbId = dbId;
    }
    uint32_t references() const {
        return ControlView(controlPath())->entry[1].refCount;
    }
    int32_t open() {
        return tavDBMInitSession(&session, 1);
    }
    std::string reclaimText(uint32_t index, uint32_t dbId = 1) const {
        char text[80];
        snprintf(text, sizeof text, "tavDBMInitSession():[Debug]:[290][0x%8x][0x%8x][0x%8x]", index,
                 static_cast<uint32_t>(dead_), dbId);
        return text;
    }
    static std::string fullLine() {
        return errorLine("tavDBMInitSession", 301, {1});
    }

    int32_t dead_ = 0;
};

TEST_F(Reclaim, TheSlotOfADeadProcessIsTakenOver) {
    letDie(5);
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(session.sessionId, 5U);
    EXPECT_EQ(session.dbId, 1U);
    EXPECT_EQ(session.errorCode, 0U);
    EXPECT_EQ(hexText(bytesOf(SessionView(sessionPath())->slot[5])), hexWords(5, getpid(), 1, 4));
}

TEST_F(Reclaim, TheSlotStaysWhereItIsInTheList) {
    letDie(5);
    const SessionView table(sessionPath());
    const auto before = chain(table->slot, table->sessionHead);
    open();
    EXPECT_EQ(chain(table->slot, table->sessionHead), before);
    EXPECT_EQ(table->freeHead, 0U);
    EXPECT_EQ(table->freeTail, 0U);
}

TEST_F(Reclaim, OneReferenceIsReleasedForTheSlot) {
    letDie(5);
    letDie(6);
    open();
    EXPECT_EQ(references(), 2U);
    open();
    EXPECT_EQ(references(), 1U);
}

TEST_F(Reclaim, TheFirstDeadSlotInTheOrderOfTheIndicesIsTaken) {
    letDie(1000);
    letDie(7);
    letDie(300);
    open();
    EXPECT_EQ(session.sessionId, 7U);
    open();
    EXPECT_EQ(session.sessionId, 300U);
    open();
    EXPECT_EQ(session.sessionId, 1000U);
}

TEST_F(Reclaim, TheFirstAndTheLastSlotCanBeTakenOver) {
    letDie(1);
    letDie(kSessions);
    open();
    EXPECT_EQ(session.sessionId, 1U);
    open();
    EXPECT_EQ(session.sessionId, kSessions);
}

TEST_F(Reclaim, DeliberatelyItsTraceTextHasNoLineEnd) {
    letDie(5);
    open();
    EXPECT_TRUE(fakeTrace().textsAre(2, {reclaimText(5)}));
    EXPECT_EQ(fakeTrace().lines().at(0).format, "%s():[Debug]:[%d][0x%8x][0x%8x][0x%8x]");
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(Reclaim, TheControlMutexIsTakenInsideTheSessionMutex) {
    letDie(5);
    open();
    std::vector<std::string> lines = eventLog().lines(Category::semaphores);
    std::erase_if(lines, [](const std::string &line) { return line.starts_with("mutexAbandoned"); });
    EXPECT_THAT(lines, testing::ElementsAre("mutexRequest session.tbl", "mutexRequest control.tbl",
                                            "mutexRelease control.tbl", "mutexRelease session.tbl"));
}

TEST_F(Reclaim, TheSlotMayGoToAnotherDatabase) {
    attach(database(9));
    letDie(5);
    EXPECT_EQ(tavDBMInitSession(&session, 2), 0);
    EXPECT_EQ(SessionView(sessionPath())->slot[5].dbId, 2U);
    EXPECT_EQ(references(), 2U) << "the reference of the dead process's database is released";
    EXPECT_EQ(ControlView(controlPath())->entry[2].refCount, 1U);
}

TEST_F(Reclaim, TheLastReferenceFreesTheDatabase) {
    ControlView(controlPath())->entry[1].refCount = 1;
    letDie(5);
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(db_getDb(1), nullptr);
}

TEST_F(Reclaim, AFreeSlotIsTakenBeforeADeadOne) {
    letDie(5);
    tavDBMSession other = {.sessionId = 9, .dbId = 1, .errorCode = 0, .errorDetail = 0, .currentComponent = 0};
    ASSERT_EQ(tavDBMTermSession(&other), 0);
    open();
    EXPECT_EQ(session.sessionId, 9U);
    EXPECT_EQ(references(), 3U);
}

TEST_F(Reclaim, WithAllProcessesAliveTheTableIsFull) {
    EXPECT_EQ(open(), 80);
    EXPECT_TRUE(fakeTrace().onlyError(fullLine()));
    EXPECT_EQ(references(), 3U);
}

TEST_F(Reclaim, ADeadSlotWhoseDatabaseIsGoneIsNotTaken) {
    letDie(5, 17);
    const Bytes before = bytesOfFile(sessionPath());
    EXPECT_EQ(open(), 80);
    EXPECT_EQ(session.errorCode, 80U);
    EXPECT_EQ(session.errorDetail, 0U);
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("dbs_me_db_control_term_table_entry", 574, {85, 17}), fullLine()}));
    EXPECT_THAT(differences(before, bytesOfFile(sessionPath())), IsEmpty());
}

TEST_F(Reclaim, ADeadSlotWhoseDatabaseIsGoneDoesNotHideTheNextOne) {
    letDie(5, 17);
    letDie(6);
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(session.sessionId, 6U);
}

TEST_F(Reclaim, WithoutTheControlMutexNoSlotIsTaken) {
    letDie(5);
    faultPlan().add({.operation = Operation::mutexRequest, .subject = "control.tbl"});
    EXPECT_EQ(open(), 80);
    EXPECT_EQ(references(), 3U);
    EXPECT_EQ(SessionView(sessionPath())->slot[5].processId, dead_);
}

TEST_F(Reclaim, AProcessOfAnotherUserIsAlive) {
    if (geteuid() != 0 && kill(1, 0) == 0)
        GTEST_SKIP() << "process 1 belongs to the same user, and no other one is known";
    SessionView(sessionPath())->slot[5].processId = 1;
    inChild([this] {
        constexpr uid_t kNobody = 65534;
        if (geteuid() == 0) {
            ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
        }
        ASSERT_EQ(kill(1, 0), -1);
        ASSERT_EQ(errno, EPERM);
        EXPECT_EQ(open(), 80);
    });
}

TEST_F(Reclaim, AskingWhetherAProcessLivesSendsItNoSignal) {
    sigset_t all;
    sigset_t before;
    sigset_t pending;
    sigfillset(&all);
    ASSERT_EQ(sigprocmask(SIG_BLOCK, &all, &before), 0);
    EXPECT_EQ(open(), 80);
    ASSERT_EQ(sigpending(&pending), 0);
    for (int number = 1; number < NSIG; number++)
        EXPECT_NE(sigismember(&pending, number), 1) << "signal " << number;
    EXPECT_EQ(sigprocmask(SIG_SETMASK, &before, nullptr), 0);
}

class NotAProcess : public Reclaim, public testing::WithParamInterface<int32_t> {};

INSTANTIATE_TEST_SUITE_P(Sessions, NotAProcess, testing::Values(0, 1), testing::PrintToStringParamName());

TEST_P(NotAProcess, IsNotDead) {
    SessionView(sessionPath())->slot[5].processId = GetParam();
    EXPECT_EQ(open(), 80);
}

}  // namespace
}  // namespace tavdb_test
