// SPDX-License-Identifier: Apache-2.0
// Opening and closing sessions: the record, the slot, the mutex around both, and
// every failure.
#include <errno.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_media.h"
#include "fakes/fake_semaphores.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"
#include "fakes/fault_runs.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int32_t kCode = platformCode(EIO);

/// Attached, with a root; sessions are opened by the tests.
class Session : public ControlFixture {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        root_ = putRoot();
        ASSERT_EQ(attach(), 1);
        clearLogs();
    }
    static tavDBMSession filled() {
        return {.sessionId = 0xA1, .dbId = 0xA2, .errorCode = 0xA3, .errorDetail = 0xA4, .currentComponent = 0xA5};
    }
    static tavDBMSession opened(uint32_t dbId = 1) {
        tavDBMSession own = filled();
        EXPECT_EQ(tavDBMInitSession(&own, dbId), 0);
        return own;
    }
    static void openMany(uint32_t count) {
        for (uint32_t i = 0; i < count; i++)
            opened();
        clearLogs();
    }
    static std::string recordText(const tavDBMSession &own) {
        return hexText(bytesOf(own));
    }
    Bytes table() const {
        return bytesOfFile(sessionPath());
    }
    /// The failure stands in the record, and in it alone.
    static void expectError(const tavDBMSession &own, int32_t code, uint32_t detail) {
        EXPECT_EQ(own.errorCode, static_cast<uint32_t>(code));
        EXPECT_EQ(own.errorDetail, detail);
    }
    static std::vector<std::string> underMutex(const std::vector<std::string> &between) {
        return joined(joined({"mutexRequest session.tbl", "mutexAbandoned session.tbl"}, between),
                      {"mutexRelease session.tbl"});
    }

    uint32_t root_ = 0;
};

TEST_F(Session, OpeningFillsTheWholeRecord) {
    const tavDBMSession own = opened();
    EXPECT_EQ(recordText(own), hexWords(1, 1, 0, 0, root_));
}

TEST_F(Session, OpeningNotesProcessAndDatabaseInTheSlot) {
    opened();
    const tavDBMSessionSlot slot = SessionView(sessionPath())->slot[1];
    EXPECT_EQ(hexText(bytesOf(slot)), hexWords(1, getpid(), 1, 0));
}

TEST_F(Session, OpeningReadsTheRootUnderTheMutex) {
    opened();
    EXPECT_EQ(eventLog().lines(), underMutex({"open component.med", "read 16@0", "close"}));
}

TEST_F(Session, TheDatabaseIsNotCheckedWhenTheSessionIsOpened) {
    const tavDBMSession own = opened(17);
    EXPECT_EQ(recordText(own), hexWords(1, 17, 0, 0, 0));
}

TEST_F(Session, AWrongDatabaseShowsInTheNextCallAs83) {
    tavDBMSession own = opened(17);
    tavDBMNode node = {};
    EXPECT_EQ(comp_getNode(&own, root_, &node), nullptr);
    expectError(own, 83, 0);
}

TEST_F(Session, WithoutARootItIsOpenedAllTheSame) {
    faultPlan().add({.operation = Operation::mediaRead});
    const tavDBMSession own = opened();
    EXPECT_EQ(recordText(own), hexWords(1, 1, 0, 0, 0));
}

TEST_F(Session, TheNewestIsTheFirstOfTheList) {
    openMany(3);
    const SessionView table(sessionPath());
    EXPECT_THAT(chain(table->slot, table->sessionHead), ElementsAre(3, 2, 1));
    EXPECT_EQ(chain(table->slot, table->freeHead), ascending(4, kSessions));
}

TEST_F(Session, ClosingChangesTheListsUnderTheMutex) {
    tavDBMSession own = opened();
    eventLog().clear();
    EXPECT_EQ(tavDBMTermSession(&own), 0);
    EXPECT_EQ(eventLog().lines(), underMutex({}));
}

TEST_F(Session, ClosingPutsTheSlotBehindAllFreeOnes) {
    openMany(3);
    tavDBMSession second = filled();
    second.sessionId = 2;
    EXPECT_EQ(tavDBMTermSession(&second), 0);
    const SessionView table(sessionPath());
    EXPECT_THAT(chain(table->slot, table->sessionHead), ElementsAre(3, 1));
    EXPECT_EQ(chain(table->slot, table->freeHead).back(), 2U);
    EXPECT_EQ(table->freeTail, 2U);
}

TEST_F(Session, IdsAreReusedInTheOrderInWhichTheyWereClosed) {
    openMany(kSessions);
    for (const uint32_t id : {700U, 3U}) {
        tavDBMSession own = filled();
        own.sessionId = id;
        EXPECT_EQ(tavDBMTermSession(&own), 0);
    }
    EXPECT_EQ(opened().sessionId, 700U);
    EXPECT_EQ(opened().sessionId, 3U);
}

TEST_F(Session, AClosedSlotKeepsItsProcessAndItsDatabase) {
    tavDBMSession own = opened();
    tavDBMTermSession(&own);
    const tavDBMSessionSlot slot = SessionView(sessionPath())->slot[1];
    EXPECT_EQ(hexText(bytesOf(slot)), hexWords(1, getpid(), 1, 0));
}

TEST_F(Session, ClosingLeavesTheRecordAsItIs) {
    tavDBMSession own = opened();
    own.errorCode = 55;
    own.errorDetail = 66;
    tavDBMTermSession(&own);
    EXPECT_EQ(recordText(own), hexWords(1, 1, 55, 66, root_));
}

TEST_F(Session, ClosingReleasesNoReferenceToTheDatabase) {
    tavDBMSession own = opened();
    tavDBMTermSession(&own);
    EXPECT_EQ(ControlView(controlPath())->entry[1].refCount, 1U);
}

TEST_F(Session, OneThousandAndTwentyThreeFit) {
    openMany(kSessions - 1);
    EXPECT_EQ(opened().sessionId, kSessions);
    const SessionView table(sessionPath());
    EXPECT_EQ(hexText(bytesOf(table->freeHead, table->freeTail, table->sessionHead)), hexWords(0, 0, kSessions));
}

/// All slots taken, by this process, which lives.
class FullSession : public Session {
protected:
    void SetUp() override {
        Session::SetUp();
        openMany(kSessions);
    }
};

TEST_F(FullSession, DeliberatelyTheNextOneFailsWith80) {
    tavDBMSession own = filled();
    EXPECT_EQ(tavDBMInitSession(&own, 1), 80);
    EXPECT_EQ(recordText(own), hexWords(0xA1, 0xA2, 80, 0, 0xA5));
    // 301 is a number of this project's own, fixed for good.
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("tavDBMInitSession", 301, {1})));
}

TEST_F(FullSession, TheFailureLeavesTheTableAsItWasAndTheMutexFree) {
    const Bytes before = table();
    tavDBMSession own = filled();
    tavDBMInitSession(&own, 1);
    EXPECT_THAT(differences(before, table()), IsEmpty());
    EXPECT_THAT(eventLog().lines(Category::semaphores),
                ElementsAre("mutexRequest session.tbl", "mutexAbandoned session.tbl", "mutexRelease session.tbl"));
}

TEST_F(FullSession, AFailingReleaseOfTheMutexDoesNotHideTheFailure) {
    faultPlan().add({.operation = Operation::mutexRelease});
    tavDBMSession own = filled();
    EXPECT_EQ(tavDBMInitSession(&own, 1), 80);
    expectError(own, 80, 0);
}

TEST_F(FullSession, AClosedOneMakesRoomForOne) {
    tavDBMSession own = filled();
    own.sessionId = 512;
    EXPECT_EQ(tavDBMTermSession(&own), 0);
    EXPECT_EQ(opened().sessionId, 512U);
    EXPECT_EQ(tavDBMInitSession(&own, 1), 80);
}

TEST_F(Session, ClosingItTwiceFailsTheSecondTimeWith81) {
    tavDBMSession own = opened();
    EXPECT_EQ(tavDBMTermSession(&own), 0);
    clearLogs();
    EXPECT_EQ(tavDBMTermSession(&own), 81);
    expectError(own, 81, 0);
    // 426 is a number of this project's own, fixed for good.
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("tavDBMTermSession", 426, {1})));
}

class UnknownSession : public Session, public testing::WithParamInterface<uint32_t> {};

INSTANTIATE_TEST_SUITE_P(Sessions, UnknownSession, testing::Values(0, 2, 1023, 1024, 1025, 0xFFFFFFFF),
                         testing::PrintToStringParamName());

TEST_P(UnknownSession, IsNotClosed) {
    opened();
    const Bytes before = table();
    tavDBMSession own = filled();
    own.sessionId = GetParam();
    EXPECT_EQ(tavDBMTermSession(&own), 81);
    expectError(own, 81, 0);
    EXPECT_THAT(differences(before, table()), IsEmpty());
    EXPECT_THAT(fakeSemaphores().heldMutexes(), IsEmpty());
}

TEST_F(Session, AFailingReleaseOfTheMutexDoesNotHideThatItIsUnknown) {
    faultPlan().add({.operation = Operation::mutexRelease});
    tavDBMSession own = filled();
    EXPECT_EQ(tavDBMTermSession(&own), 81);
    expectError(own, 81, 0);
}

/// An operation on a record, with the sites of its mutex failures.
struct MutexOperation {
    const char *name;
    const char *function;
    int32_t (*call)(tavDBMSession *own);
    int32_t requestSite;
    int32_t releaseSite;
};

void PrintTo(const MutexOperation &operation, std::ostream *stream) {
    *stream << operation.name;
}

class SessionMutex : public Session, public testing::WithParamInterface<MutexOperation> {
protected:
    void SetUp() override {
        Session::SetUp();
        session_ = opened();
        clearLogs();
    }
    int32_t call(tavDBMSession *own) {
        return GetParam().call(own);
    }

    tavDBMSession session_ = {};
};

INSTANTIATE_TEST_SUITE_P(Sessions, SessionMutex,
                         testing::Values(MutexOperation{"Opening", "tavDBMInitSession",
                                                        [](tavDBMSession *own) { return tavDBMInitSession(own, 1); },
                                                        346, 335},
                                         MutexOperation{"Closing", "tavDBMTermSession", tavDBMTermSession, 448, 435}),
                         byName);

TEST_P(SessionMutex, ThatCannotBeTakenGivesItsCodeAndChangesNothing) {
    const Bytes before = table();
    faultPlan().add({.operation = Operation::mutexRequest});
    EXPECT_EQ(call(&session_), kCode);
    EXPECT_EQ(recordText(session_), hexWords(1, 1, kCode, EIO, root_));
    EXPECT_THAT(differences(before, table()), IsEmpty());
    EXPECT_EQ(eventLog().count(Operation::mutexRelease), 0U);
}

TEST_P(SessionMutex, ThatCannotBeTakenIsTracedWithTheErrorNumber) {
    faultPlan().add({.operation = Operation::mutexRequest});
    call(&session_);
    EXPECT_TRUE(fakeTrace().errorsAre({wrapperLine("misc_waitMtx", 174, "session.tbl", kCode),
                                       errorLine(GetParam().function, GetParam().requestSite, {EIO})}));
}

TEST_P(SessionMutex, ThatCannotBeReleasedGivesItsCodeAndTheErrorNumber) {
    faultPlan().add({.operation = Operation::mutexRelease});
    EXPECT_EQ(call(&session_), kCode);
    expectError(session_, kCode, EIO);
}

TEST_P(SessionMutex, ThatCannotBeReleasedIsTracedWithErrorNumberAndCode) {
    faultPlan().add({.operation = Operation::mutexRelease});
    call(&session_);
    EXPECT_TRUE(fakeTrace().errorsAre({wrapperLine("misc_postMtx", 209, "session.tbl", kCode),
                                       errorLine(GetParam().function, GetParam().releaseSite, {EIO, kCode})}));
}

TEST_P(SessionMutex, IsTakenBeforeTheRecordIsLookedAt) {
    faultPlan().add({.operation = Operation::mutexRequest});
    EXPECT_EQ(call(nullptr), kCode);
}

TEST_P(SessionMutex, IsGivenBackWhenThereIsNoRecord) {
    const Bytes before = table();
    EXPECT_EQ(call(nullptr), 89);
    EXPECT_EQ(eventLog().lines(Category::semaphores), underMutex({}));
    EXPECT_THAT(differences(before, table()), IsEmpty());
}

TEST_P(SessionMutex, ThatCannotBeReleasedDoesNotHideThatThereIsNoRecord) {
    faultPlan().add({.operation = Operation::mutexRelease});
    EXPECT_EQ(call(nullptr), 89);
}

TEST_F(Session, OpeningWithoutARecordIsTraced) {
    tavDBMInitSession(nullptr, 1);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("tavDBMInitSession", 322)));
}

TEST_F(Session, ClosingWithoutARecordIsDeliberatelyNotTraced) {
    EXPECT_EQ(tavDBMTermSession(nullptr), 89);
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(Session, AfterAMutexHoldersDeathTheListsAreMended) {
    openMany(2);
    const SessionView table(sessionPath());
    table->freeHead = 10;  // 3 to 9 are in no list
    fakeSemaphores().abandonMutex("session.tbl");
    EXPECT_EQ(opened().sessionId, 3U);
    EXPECT_EQ(chain(table->slot, table->freeHead), ascending(4, kSessions));
    EXPECT_THAT(chain(table->slot, table->sessionHead), ElementsAre(3, 2, 1));
    EXPECT_EQ(eventLog().count(Operation::eventPost), 1U);
}

/// The session table can be neither opened nor made: attached without it.
class NoSessionTable : public ControlFixture {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        faultPlan().add({.operation = Operation::sysOpen, .subject = "session.tbl", .times = 2});
        ASSERT_EQ(attach(), 1);
        clearLogs();
    }
};

TEST_F(NoSessionTable, OpeningASessionGivesTheMutexCode) {
    EXPECT_EQ(tavDBMInitSession(&session, 1), platformCode(EBADF));
    EXPECT_EQ(session.errorCode, static_cast<uint32_t>(platformCode(EBADF)));
    EXPECT_EQ(session.errorDetail, static_cast<uint32_t>(EBADF));
}

TEST_F(NoSessionTable, ClosingASessionGivesTheMutexCode) {
    EXPECT_EQ(tavDBMTermSession(&session), platformCode(EBADF));
}

TEST_F(NoSessionTable, WhereThePlatformTakesAnyMutexNoSessionFitsAndNoneIsKnown) {
    faultPlan().add({.operation = Operation::mutexRequest, .times = kForEver, .fault = returning(0)});
    faultPlan().add({.operation = Operation::mutexRelease, .times = kForEver, .fault = returning(0)});
    EXPECT_EQ(tavDBMInitSession(&session, 1), 80);
    EXPECT_EQ(session.errorCode, 80U);
    EXPECT_EQ(tavDBMTermSession(&session), 81);
    EXPECT_EQ(session.errorCode, 81U);
}

TEST_F(NoSessionTable, ShowsAnEmptyLine) {
    testing::internal::CaptureStdout();
    session_show(3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n");
}

TEST_F(NoSessionTable, ThePrimitivesDoNothing) {
    dbs_me_db_session_add(1);
    dbs_me_db_session_free_entry(1);
    EXPECT_EQ(dbs_me_db_session_get_entry(), nullptr);
    EXPECT_EQ(dbs_me_db_session_remove(1, 0), nullptr);
}

TEST(SessionError, IsStoredAndItsCodeReturned) {
    tavDBMSession own = {1, 2, 3, 4, 5};
    EXPECT_EQ(session_setError(&own, 80, 0xFFFFFFFE), 80);
    EXPECT_EQ(hexText(bytesOf(own)), hexWords(1, 2, 80, 0xFFFFFFFE, 5));
}

TEST(SessionError, ACodeOfZeroClearsTheErrorBefore) {
    tavDBMSession own = {1, 2, 3, 4, 5};
    EXPECT_EQ(session_setError(&own, 0, 0), 0);
    EXPECT_EQ(hexText(bytesOf(own)), hexWords(1, 2, 0, 0, 5));
}

TEST(SessionError, WithoutARecordOnlyTheCodeIsReturned) {
    EXPECT_EQ(session_setError(nullptr, 80, 7), 80);
    EXPECT_EQ(session_setError(nullptr, -1, 7), -1);
}

/// Every operation of opening and of closing fails once.
class SessionUnderFaults : public Session {
protected:
    void expectSound(uint64_t index) const {
        const SessionView table(sessionPath());
        const auto sessions = chain(table->slot, table->sessionHead).size();
        EXPECT_EQ(sessions + chain(table->slot, table->freeHead).size(), kSessions) << "operation " << index;
        EXPECT_LE(sessions, 2U) << "operation " << index;
        EXPECT_THAT(fakeSemaphores().heldMutexes(), IsEmpty()) << "operation " << index;
        EXPECT_THAT(fakeMedia().openDescriptors(), IsEmpty()) << "operation " << index;
    }
};

TEST_F(SessionUnderFaults, OpeningTellsTheMutexFailuresAndSurvivesTheOthers) {
    const tavDBMSession other = opened();
    const uint64_t failures = forEachFailingOperation([&](uint64_t index) {
        tavDBMSession own = filled();
        const int32_t code = tavDBMInitSession(&own, 1);
        faultPlan().endFaults();
        EXPECT_EQ(own.errorCode, static_cast<uint32_t>(code)) << "operation " << index;
        EXPECT_TRUE(code == 0 || code == kCode) << "operation " << index;
        expectSound(index);
        if (own.sessionId != 0xA1) {
            EXPECT_EQ(tavDBMTermSession(&own), 0) << "operation " << index;
        }
        EXPECT_EQ(SessionView(sessionPath())->sessionHead, other.sessionId) << "operation " << index;
    });
    EXPECT_EQ(failures, 5U) << "request, open, read, close, release";
}

TEST_F(SessionUnderFaults, ClosingTellsTheMutexFailures) {
    opened();
    const uint64_t failures = forEachFailingOperation([&](uint64_t index) {
        const uint64_t operation = index;
        tavDBMSession own = filled();
        faultPlan().clear();
        ASSERT_EQ(tavDBMInitSession(&own, 1), 0);
        faultPlan().failOperation(operation);
        const int32_t code = tavDBMTermSession(&own);
        EXPECT_TRUE(code == kCode || !faultPlan().fired()) << "operation " << index;
        EXPECT_EQ(own.errorCode, static_cast<uint32_t>(code)) << "operation " << index;
        expectSound(index);
        // The run's own end: what the failed closing left open is closed without a fault.
        const bool fired = faultPlan().fired();
        faultPlan().endFaults();
        if (SessionView(sessionPath())->sessionHead == own.sessionId) {
            EXPECT_EQ(tavDBMTermSession(&own), 0);
        }
        EXPECT_EQ(fired, faultPlan().fired());
    });
    EXPECT_EQ(failures, 2U) << "request, release";
}

}  // namespace
}  // namespace tavdb_test
