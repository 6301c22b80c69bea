// SPDX-License-Identifier: Apache-2.0
// Sessions of several processes in one table: ids, capacity, and the slots of
// processes that were killed.
#include <gmock/gmock.h>

#include <algorithm>

#include "multiprocess/multiprocess_test_support.h"

namespace tavdb_test {
namespace {

using testing::Each;
using testing::Eq;

class Sessions : public MultiProcess {
protected:
    /// Attaches and opens that many sessions. @return 0, or the code that stopped it
    int32_t openMany(uint32_t count) const {
        const int32_t dbId = database_.attach();
        if (dbId < 1)
            return -1;
        int32_t code = 0;
        for (uint32_t i = 0; i < count && code == 0; i++) {
            tavDBMSession session = {};
            code = tavDBMInitSession(&session, static_cast<uint32_t>(dbId));
        }
        return code;
    }
    /// A process that opens that many sessions and is killed.
    void killWithSessions(uint32_t attaches, uint32_t count) const {
        Shared<Barrier> opened;
        Child child([&]() -> int {
            for (uint32_t i = 1; i < attaches; i++)
                database_.attach();
            openMany(count);
            opened->arrive();
            waitForTheEnd();
        });
        ASSERT_TRUE(opened->waitFor(1));
        child.kill();
    }
};

TEST_F(Sessions, OpenedAtOnceEachHasItsOwnSlot) {
    constexpr uint32_t kProcesses = 6;
    constexpr uint32_t kEach = 50;
    Shared<Barrier> opened;
    const auto statuses = runAtOnce(kProcesses, [&](uint32_t) {
        const int32_t code = openMany(kEach);
        return opened->arriveAndWait(kProcesses) ? code : 1;
    });
    EXPECT_THAT(statuses, Each(Eq(0)));
    std::vector<uint32_t> ids = database_.sessions();
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(ids.size(), kProcesses * kEach);
    EXPECT_EQ(ids.back(), kProcesses * kEach);
    EXPECT_EQ(database_.faults(), "");
}

TEST_F(Sessions, OpenedAndClosedAtOnceNoneIsLeft) {
    constexpr int kRepeats = 200;
    const auto statuses = runAtOnce(6, [&](uint32_t) {
        const int32_t dbId = database_.attach();
        for (int i = 0; i < kRepeats; i++) {
            tavDBMSession session = {};
            if (tavDBMInitSession(&session, static_cast<uint32_t>(dbId)) != 0 || session.currentComponent != kRootKey ||
                tavDBMTermSession(&session) != 0)
                return 1;
        }
        return tavDBMTerm(static_cast<uint32_t>(dbId)) == 0 ? 0 : 2;
    });
    EXPECT_THAT(statuses, Each(Eq(0)));
    EXPECT_THAT(database_.sessions(), testing::IsEmpty());
    EXPECT_EQ(database_.references(1), 0U);
    EXPECT_EQ(database_.faults(), "");
}

TEST_F(Sessions, TheThousandAndTwentyFourthOfAllProcessesFailsWith80) {
    constexpr uint32_t kProcesses = 3;
    Shared<Barrier> opened;
    Shared<Barrier> end;
    std::vector<Child> children;
    for (uint32_t i = 0; i < kProcesses; i++)
        children.emplace_back([&] {
            const int32_t code = openMany(kSessions / kProcesses);
            opened->arrive();
            return end->waitFor(1) ? code : 1;
        });
    ASSERT_TRUE(opened->waitFor(kProcesses));
    EXPECT_EQ(database_.sessions().size(), kSessions);
    Child late([&] { return openMany(1); });
    EXPECT_EQ(joinInTime(late), 80);
    end->arrive();
    for (Child &child : children)
        EXPECT_EQ(joinInTime(child), 0);
}

TEST_F(Sessions, TheSlotsOfAKilledProcessStayWhileOthersAreFree) {
    killWithSessions(1, 3);
    Child other([&] { return openMany(1); });
    EXPECT_EQ(joinInTime(other), 0);
    EXPECT_EQ(database_.sessions().size(), 4U);
}

TEST_F(Sessions, AFullTableTakesOverTheSlotOfAKilledProcessAndItsReference) {
    killWithSessions(1, 1);
    const pid_t dead = SessionView(database_.path(Table::session))->slot[1].processId;
    Child other([&] {
        const int32_t code = openMany(kSessions);
        const int32_t owner = SessionView(database_.path(Table::session))->slot[1].processId;
        return code == 0 && owner == getpid() ? 0 : 1;
    });
    EXPECT_NE(dead, other.pid());
    EXPECT_EQ(joinInTime(other), 0);
    EXPECT_EQ(database_.references(1), 1U) << "that of the process that took over";
    EXPECT_EQ(database_.faults(), "");
}

TEST_F(Sessions, OneReferenceGoesForEachSlotThatIsTakenOver) {
    killWithSessions(5, 4);
    EXPECT_EQ(database_.references(1), 5U);
    Child other([&] { return openMany(kSessions - 4 + 3); });
    EXPECT_EQ(joinInTime(other), 0);
    EXPECT_EQ(database_.references(1), 5U + 1U - 3U);
}

TEST_F(Sessions, EachSlotOfTheDeadIsTakenOverOnceWhenSeveralProcessesNeedThemAtOnce) {
    constexpr uint32_t kReferencesOfTheDead = 8;
    constexpr uint32_t kDead = 6;
    constexpr uint32_t kProcesses = 5;
    killWithSessions(kReferencesOfTheDead, kDead);
    Shared<Barrier> full;
    Shared<Barrier> end;
    Child rest([&] {
        const int32_t code = openMany(kSessions - kDead);
        full->arrive();
        return end->waitFor(1) ? code : 1;
    });
    ASSERT_TRUE(full->waitFor(1));
    Shared<Barrier> start;
    Shared<Barrier> tried;
    Shared<std::atomic<uint32_t>> opened;
    const auto statuses = runAtOnce(kProcesses, [&](uint32_t) {
        if (database_.attach() != 1 || !start->arriveAndWait(kProcesses))
            return 1;
        for (int i = 0; i < 2; i++) {
            tavDBMSession session = {};
            const int32_t code = tavDBMInitSession(&session, 1);
            if (code != 0 && code != TAVDB_ERR_SESSIONS_FULL)
                return 2;
            *opened += code == 0 ? 1 : 0;
        }
        return tried->arriveAndWait(kProcesses) ? 0 : 3;
    });
    end->arrive();
    EXPECT_THAT(statuses, Each(Eq(0)));
    EXPECT_EQ(joinInTime(rest), 0);
    EXPECT_EQ(*opened, kDead);
    EXPECT_EQ(database_.references(1), kReferencesOfTheDead + 1 + kProcesses - kDead);
    EXPECT_EQ(database_.sessions().size(), kSessions);
    EXPECT_EQ(database_.faults(), "");
}

TEST_F(Sessions, WhenTheDeadAreUsedUpTheTableIsFull) {
    killWithSessions(3, 2);
    Child other([&] { return openMany(kSessions + 1); });
    EXPECT_EQ(joinInTime(other), 80);
    EXPECT_EQ(database_.sessions().size(), kSessions);
    EXPECT_EQ(database_.faults(), "");
}

}  // namespace
}  // namespace tavdb_test
