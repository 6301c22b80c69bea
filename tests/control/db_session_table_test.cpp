// SPDX-License-Identifier: Apache-2.0
// The session table's file: its bytes, its list primitives, the printed lists,
// and what happens when the file is damaged.
#include <errno.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SessionTable : public ControlFixture {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        ASSERT_EQ(attach(), 1);
        clearLogs();
    }
    void openMany(uint32_t count) {
        for (uint32_t i = 0; i < count; i++)
            ASSERT_EQ(tavDBMInitSession(&session, 1), 0);
    }
    std::vector<uint32_t> freeList() const {
        const SessionView table(sessionPath());
        return chain(table->slot, table->freeHead);
    }
    std::vector<uint32_t> sessionList() const {
        const SessionView table(sessionPath());
        return chain(table->slot, table->sessionHead);
    }
};

TEST_F(SessionTable, ANewFileHasTheseBytes) {
    const Bytes bytes = bytesOfFile(sessionPath());
    ASSERT_EQ(bytes.size(), 16412U);
    EXPECT_EQ(hexText(std::span(bytes).first(12)), hexWords(1, 1023, 0));
    EXPECT_EQ(hexText(std::span(bytes).subspan(12, 16)), hexWords(0, 0, 0, 0));
    EXPECT_EQ(hexText(std::span(bytes).subspan(12 + 16, 16)), hexWords(1, 0, 0, 2));
    EXPECT_EQ(hexText(std::span(bytes).subspan(12 + 16 * 1023, 16)), hexWords(1023, 0, 0, 0));
    EXPECT_EQ(hexText(std::span(bytes).subspan(12 + 16 * 1024, 16)), hexWords(0, 0, 0, 0));
    EXPECT_THAT(differences(newSessionTable().bytes(), bytes), IsEmpty());
}

TEST_F(SessionTable, ATableInUseHasTheseBytes) {
    openMany(2);
    ExpectedImage image = newSessionTable();
    image.word(0, 3);
    image.word(8, 2);
    for (uint32_t i = 1; i <= 2; i++) {
        image.word(12 + 16 * i + 4, static_cast<uint32_t>(getpid()));
        image.word(12 + 16 * i + 8, 1);
        image.word(12 + 16 * i + 12, i - 1);
    }
    EXPECT_THAT(differences(image.bytes(), bytesOfFile(sessionPath())), IsEmpty());
}

TEST_F(SessionTable, DeliberatelySlotZeroAndTheLastSlotAreNeverUsed) {
    openMany(kSessions);
    EXPECT_NE(tavDBMInitSession(&session, 1), 0);
    const SessionView table(sessionPath());
    EXPECT_EQ(bytesOf(table->slot[0]), Bytes(16));
    EXPECT_EQ(bytesOf(table->slot[1024]), Bytes(16));
}

TEST_F(SessionTable, ASecondStartOnlyCounts) {
    const Recording recording;
    EXPECT_EQ(session_init("/no/such/file"), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
    EXPECT_EQ(session_term(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

/// The table in a process that is attached to nothing.
class SessionStart : public ControlFixture {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        clearLogs();
    }
    int32_t init() {
        return session_init(sessionPath().c_str());
    }

private:
    const Recording recording_;
};

TEST_F(SessionStart, ATermWithoutAnInitKeepsTheNextInitFromOpening) {
    EXPECT_EQ(session_term(), 0);
    EXPECT_EQ(init(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
    EXPECT_EQ(tavDBMInitSession(&session, 1), platformCode(EBADF)) << "there is no table";
}

TEST_F(SessionStart, WithoutAPathThereIsNoTable) {
    EXPECT_EQ(session_init(nullptr), 0);
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("session_init", kSession.open.errnoSite, {ENOENT}),
                                       errorTextLine("session_init", kSession.open.pathSite, "")}));
    EXPECT_EQ(session_term(), 0);
}

TEST_F(SessionStart, TheInitAfterATermTooManyIsMadeUpForByTheNext) {
    session_term();
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(tavDBMInitSession(&session, 1), 0);
    EXPECT_EQ(session_term(), 0);
}

TEST_F(SessionStart, AFailedInitCountsAsAStartAndIsNotTriedAgain) {
    faultPlan().add({.operation = Operation::sysMmap, .subject = "session.tbl"});
    EXPECT_EQ(init(), 87);
    eventLog().clear();
    EXPECT_EQ(init(), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
    EXPECT_EQ(session_term(), 0);
    EXPECT_EQ(session_term(), 0);
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(tavDBMInitSession(&session, 1), 0);
    EXPECT_EQ(session_term(), 0);
}

/// A new lock table is made by the same start.
TEST_F(SessionTable, ANewLockTableHasTheseBytes) {
    const Bytes bytes = bytesOfFile(file("lock.tbl"));
    ASSERT_EQ(bytes.size(), 24624U);
    EXPECT_EQ(hexText(std::span(bytes).first(24)), hexWords(1, 0, 0, 0, 0, 0));
    EXPECT_EQ(hexText(std::span(bytes).subspan(24 + 24, 24)), hexWords(0, 0, 0, 0, 2, 0));
    EXPECT_EQ(hexText(std::span(bytes).subspan(24 + 24 * 1023, 24)), hexWords(0, 0, 0, 0, 0, 1022));
    EXPECT_THAT(differences(newLockTable().bytes(), bytes), IsEmpty());
}

using SessionPrimitives = SessionTable;

TEST_F(SessionPrimitives, GetTakesTheFreeHead) {
    const tavDBMSessionSlot *const slot = dbs_me_db_session_get_entry();
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(slot->sessionId, 1U);
    EXPECT_EQ(freeList(), ascending(2, kSessions));
}

TEST_F(SessionPrimitives, GetGivesNullWhenNothingIsFree) {
    for (uint32_t i = 0; i < kSessions; i++)
        EXPECT_NE(dbs_me_db_session_get_entry(), nullptr);
    EXPECT_EQ(dbs_me_db_session_get_entry(), nullptr);
    EXPECT_EQ(SessionView(sessionPath())->freeTail, 0U);
}

TEST_F(SessionPrimitives, AddPutsASlotFirst) {
    dbs_me_db_session_add(5);
    dbs_me_db_session_add(7);
    EXPECT_THAT(sessionList(), ElementsAre(7, 5));
}

TEST_F(SessionPrimitives, RemoveTakesTheFirstOut) {
    openMany(3);
    const tavDBMSessionSlot *const slot = dbs_me_db_session_remove(3, 0);
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(slot->sessionId, 3U);
    EXPECT_THAT(sessionList(), ElementsAre(2, 1));
}

TEST_F(SessionPrimitives, RemoveTakesASlotOutBehindItsPredecessor) {
    openMany(3);
    EXPECT_NE(dbs_me_db_session_remove(2, 3), nullptr);
    EXPECT_THAT(sessionList(), ElementsAre(3, 1));
}

TEST_F(SessionPrimitives, FreeAppendsToTheTail) {
    dbs_me_db_session_get_entry();
    dbs_me_db_session_free_entry(1);
    EXPECT_EQ(freeList().back(), 1U);
    EXPECT_EQ(SessionView(sessionPath())->freeTail, 1U);
}

TEST_F(SessionPrimitives, FreeIntoAnEmptyListMakesHeadAndTail) {
    openMany(kSessions);
    dbs_me_db_session_free_entry(9);
    const SessionView table(sessionPath());
    EXPECT_EQ(table->freeHead, 9U);
    EXPECT_EQ(table->freeTail, 9U);
    EXPECT_EQ(table->slot[9].next, 0U);
}

TEST_F(SessionPrimitives, InitChainsTheFirstSlotsOfATableOfTheCallers) {
    const auto table = std::make_unique<tavDBMSessionTable>();
    table->sessionHead = 3;
    dbs_me_db_session_init_table(table.get(), 4);
    EXPECT_EQ(hexText(bytesOf(table->freeHead, table->freeTail, table->sessionHead)), hexWords(1, 3, 0));
    EXPECT_EQ(chain(table->slot, table->freeHead), ascending(1, 3));
    EXPECT_EQ(table->slot[3].sessionId, 3U);
    EXPECT_EQ(table->slot[4].sessionId, 0U);
}

TEST_F(SessionPrimitives, InitWithACountBeyondTheTableChainsWhatThereIs) {
    for (const uint32_t count : {1024U, 1025U, 1026U, 0xFFFFFFFFU}) {
        const auto table = std::make_unique<tavDBMSessionTable>();
        dbs_me_db_session_init_table(table.get(), count);
        EXPECT_EQ(chain(table->slot, table->freeHead), ascending(1, kSessions)) << count;
        EXPECT_EQ(table->freeTail, kSessions) << count;
        EXPECT_EQ(bytesOf(table->slot[1024]), Bytes(16)) << count;
    }
}

TEST_F(SessionPrimitives, InitWithoutASlotToChainTouchesNone) {
    for (const uint32_t count : {0U, 1U}) {
        const auto table = std::make_unique<tavDBMSessionTable>();
        dbs_me_db_session_init_table(table.get(), count);
        EXPECT_EQ(bytesOf(*table), Bytes(sizeof *table)) << count;
    }
}

TEST_F(SessionPrimitives, IndicesOutsideTheTableDoNothing) {
    openMany(2);
    const Bytes before = bytesOfFile(sessionPath());
    for (const uint32_t index : {0U, 1024U, 1025U, 0xFFFFFFFFU}) {
        dbs_me_db_session_add(index);
        dbs_me_db_session_free_entry(index);
        EXPECT_EQ(dbs_me_db_session_remove(index, 0), nullptr);
    }
    EXPECT_THAT(differences(before, bytesOfFile(sessionPath())), IsEmpty());
}

/// The lists as they are printed.
class SessionShow : public SessionTable {
protected:
    static std::string shown(int32_t flags) {
        testing::internal::CaptureStdout();
        session_show(flags);
        return testing::internal::GetCapturedStdout();
    }
    /// " 1 2 ... 3ff"
    static std::string indices(uint32_t first) {
        std::string text;
        for (uint32_t i = first; i <= kSessions; i++) {
            char word[16];
            snprintf(word, sizeof word, " %x", i);
            text += word;
        }
        return text;
    }
};

TEST_F(SessionShow, AFreshTableShowsAllSlotsFreeAndNoSession) {
    EXPECT_EQ(shown(3), "\nfree  head ->" + indices(1) + "\nsession  head ->\n");
}

TEST_F(SessionShow, TheLastFreeSlotIsShownAs3ff) {
    EXPECT_TRUE(shown(2).ends_with(" 3fe 3ff\n"));
}

TEST_F(SessionShow, FlagTwoShowsTheFreeListOnly) {
    openMany(2);
    EXPECT_EQ(shown(2), "\nfree  head ->" + indices(3) + "\n");
}

TEST_F(SessionShow, FlagOneShowsTheSessionsOnlyNewestFirst) {
    openMany(0x11);
    EXPECT_EQ(shown(1), "\nsession  head -> 11 10 f e d c b a 9 8 7 6 5 4 3 2 1\n");
}

TEST_F(SessionShow, SessionsAreShownByTheirIdAndFreeSlotsByTheirIndex) {
    openMany(1);
    const SessionView table(sessionPath());
    table->slot[1].sessionId = 0xABC;
    table->slot[2].sessionId = 0xDEF;
    EXPECT_EQ(shown(3), "\nfree  head ->" + indices(2) + "\nsession  head -> abc\n");
}

TEST_F(SessionShow, OtherFlagsShowALineEndOnly) {
    EXPECT_EQ(shown(0), "\n");
    EXPECT_EQ(shown(4), "\n");
}

TEST_F(SessionShow, FurtherFlagsAreIgnored) {
    openMany(1);
    EXPECT_EQ(shown(0x11), "\nsession  head -> 1\n");
}

TEST_F(SessionShow, TakesNoMutexAndTracesNothing) {
    shown(3);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

TEST_F(SessionShow, AfterTheDetachOnlyALineEndIsLeft) {
    detach();
    EXPECT_EQ(shown(3), "\n");
}

using SessionDamage = Damage<tavDBMSessionTable>;

/// Three sessions open (3, 2, 1 in list order), then the damage.
class DamagedSessionTable : public SessionShow, public testing::WithParamInterface<SessionDamage> {
protected:
    void SetUp() override {
        SessionShow::SetUp();
        openMany(3);
        const SessionView table(sessionPath());
        GetParam().apply(*table);
    }
};

INSTANTIATE_TEST_SUITE_P(
    Sessions, DamagedSessionTable,
    testing::Values(SessionDamage{"SessionListIsALoop", [](auto &table) { table.slot[1].next = 3; }},
                    SessionDamage{"SlotFollowsItself", [](auto &table) { table.slot[3].next = 3; }},
                    SessionDamage{"SessionHeadIsTheUnusedSlot", [](auto &table) { table.sessionHead = 1024; }},
                    SessionDamage{"SessionHeadIsBeyondTheTable", [](auto &table) { table.sessionHead = 1025; }},
                    SessionDamage{"SessionHeadIsHuge", [](auto &table) { table.sessionHead = 0xFFFFFFFF; }},
                    SessionDamage{"SessionLinkIsHuge", [](auto &table) { table.slot[3].next = 0x80000001; }},
                    SessionDamage{"FreeHeadIsHuge", [](auto &table) { table.freeHead = 0xFFFFFFFF; }},
                    SessionDamage{"FreeLinkIsHuge", [](auto &table) { table.slot[4].next = 0xFFFFFFFF; }},
                    SessionDamage{"FreeTailIsHuge", [](auto &table) { table.freeTail = 0xFFFFFFFF; }},
                    SessionDamage{"FreeListIsALoop", [](auto &table) { table.slot[1023].next = 4; }},
                    SessionDamage{"FreeListRunsIntoTheSessions", [](auto &table) { table.slot[4].next = 3; }},
                    SessionDamage{"ProcessIdsAreNegative", [](auto &table) { table.slot[2].processId = INT32_MIN; }},
                    SessionDamage{"EverythingIsSet", [](auto &table) { memset(&table, 0xFF, sizeof table); }},
                    SessionDamage{"EverythingIsCleared", [](auto &table) { memset(&table, 0, sizeof table); }}),
    byName);

TEST_P(DamagedSessionTable, EndsNoProcessAndHangsNone) {
    int32_t opened = 0;
    for (uint32_t i = 0; i < 2 * kSessions && opened == 0; i++) {
        opened = tavDBMInitSession(&session, 1);
        ASSERT_TRUE(opened == 0 || opened == 80) << opened;
    }
    for (uint32_t id = 0; id < 1030; id++) {
        session.sessionId = id;
        const int32_t code = tavDBMTermSession(&session);
        ASSERT_TRUE(code == 0 || code == 81) << code;
    }
}

TEST_P(DamagedSessionTable, IsShownWithoutEndlessLines) {
    EXPECT_LT(shown(3).size(), 2 * 12 * kSessions);
}

TEST_F(SessionTable, TheSlotBeyondTheCapacityIsNoSession) {
    openMany(1);
    const SessionView table(sessionPath());
    table->slot[1024].sessionId = 1024;
    table->slot[1].next = 1024;
    session.sessionId = 1024;
    EXPECT_EQ(tavDBMTermSession(&session), 81);
}

}  // namespace
}  // namespace tavdb_test
