// SPDX-License-Identifier: Apache-2.0
// A process is killed while it holds the mutex of a table: the others go on, and
// what it left half-done is mended.
#include <gmock/gmock.h>

#include <fstream>

#include "multiprocess/multiprocess_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A table, an operation that needs its mutex, and a change after which a record is in no list.
struct TableUse {
    const char *name;
    Table table;
    int (*use)(const DatabaseFolder &database);  ///< by an attached process; 0 when it worked
    void (*loseRecord)(const DatabaseFolder &database);
};

void PrintTo(const TableUse &use, std::ostream *stream) {
    *stream << use.name;
}

int useSession() {
    tavDBMSession session = {};
    const int32_t opened = tavDBMInitSession(&session, 1);
    return opened == 0 ? tavDBMTermSession(&session) : opened;
}

int useLock() {
    tavDBMSession session = {.sessionId = 7, .dbId = 1, .errorCode = 0, .errorDetail = 0, .currentComponent = 0};
    const int32_t locked = tavDBMLock(&session, kRootKey, TAVDB_LOCK_WAIT);
    return locked == 0 ? tavDBMUnlock(&session, kRootKey) : locked;
}

const TableUse kUses[] = {
    {"Control", Table::control, [](const DatabaseFolder &database) { return database.attach(2) == 2 ? 0 : 1; },
     [](const DatabaseFolder &) { dbs_me_db_control_get_table_entry(); }},
    {"Session", Table::session, [](const DatabaseFolder &) { return useSession(); },
     [](const DatabaseFolder &) { dbs_me_db_session_get_entry(); }},
    {"Lock", Table::lock, [](const DatabaseFolder &) { return useLock(); },
     [](const DatabaseFolder &database) {
         const LockView table(database.path(Table::lock));
         table->freeHead = table->entry[table->freeHead].next;
     }},
};

class MutexHolder : public MultiProcess, public testing::WithParamInterface<TableUse> {
protected:
    std::string tablePath() const {
        return database_.path(GetParam().table);
    }
    /// An attached process that takes the mutex and does something more, then stays.
    template <typename More>
    Child holder(Barrier &holds, More more) {
        return Child([this, &holds, more]() -> int {
            if (database_.attach() != 1 || holdMutex(tablePath()) != 0)
                return 1;
            more();
            holds.arrive();
            waitForTheEnd();
        });
    }
    /// An attached process that uses the table when it is told to.
    Child user(Barrier &attached, const Barrier &start) {
        return Child([this, &attached, &start]() -> int {
            const bool isAttached = database_.attach() == 1;
            attached.arrive();
            return isAttached && start.waitFor(1) ? GetParam().use(database_) : 100;
        });
    }
    /// The table is used once more, so that whoever comes next has mended it.
    void useOnce() {
        Child next([this] { return database_.attach() == 1 ? GetParam().use(database_) : 100; });
        EXPECT_EQ(joinInTime(next), 0);
    }

    Shared<Barrier> attached_;
    Shared<Barrier> holds_;
    Shared<Barrier> start_;
};

INSTANTIATE_TEST_SUITE_P(Tables, MutexHolder, testing::ValuesIn(kUses),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(MutexHolder, KeepsTheMutexWhileItLives) {
    Child child = holder(*holds_, [] {});
    ASSERT_TRUE(holds_->waitFor(1));
    EXPECT_TRUE(isMutexHeld(tablePath()));
}

TEST_P(MutexHolder, ThatIsKilledStopsNobodyWhoWaits) {
    constexpr uint32_t kWaiting = 3;
    std::vector<Child> waiting;
    for (uint32_t i = 0; i < kWaiting; i++)
        waiting.push_back(user(*attached_, *start_));
    ASSERT_TRUE(attached_->waitFor(kWaiting));
    Child killed = holder(*holds_, [] {});
    ASSERT_TRUE(holds_->waitFor(1));
    start_->arrive();
    ASSERT_TRUE(isMutexHeld(tablePath()));
    for (Child &child : waiting)
        EXPECT_FALSE(child.hasEnded());
    killed.kill();
    for (Child &child : waiting)
        EXPECT_EQ(joinInTime(child), 0);
}

TEST_P(MutexHolder, ThatIsKilledStopsNobodyWhoComesLater) {
    Child killed = holder(*holds_, [] {});
    ASSERT_TRUE(holds_->waitFor(1));
    killed.kill();
    useOnce();
    EXPECT_EQ(database_.faults(), "");
}

TEST_P(MutexHolder, ThatIsKilledWithARecordInNoListLosesItNotForGood) {
    Child killed = holder(*holds_, [this] { GetParam().loseRecord(database_); });
    ASSERT_TRUE(holds_->waitFor(1));
    ASSERT_NE(database_.faults(), "") << "the record is in no list";
    killed.kill();
    useOnce();
    EXPECT_EQ(database_.faults(), "");
}

TEST_P(MutexHolder, DeathsOfSeveralHoldersOneAfterTheOtherAreSurvived) {
    for (int i = 0; i < 10; i++) {
        Shared<Barrier> holds;
        Child killed = holder(*holds, [this] { GetParam().loseRecord(database_); });
        ASSERT_TRUE(holds->waitFor(1)) << i;
        killed.kill();
    }
    useOnce();
    EXPECT_EQ(database_.faults(), "");
}

/// A process that is killed while the opening of its session waits for the component medium, inside the mutex.
class StoppedInside : public MultiProcess {
protected:
    StoppedInside() : hint_(database_.path("component.med")) {
        database_.writeMediaConf(TAVDB_TEST_BLOCKING_MEDIUM
                                 " blockingOpen blockingClose blockingRead blockingWrite blockingSeek blockingSync");
    }
    void SetUp() override {
        std::ofstream(hint_ + ".stop").put('x');
        Child inside([this] {
            tavDBMSession session = {};
            return database_.attach() == 1 ? tavDBMInitSession(&session, 1) : 1;
        });
        ASSERT_TRUE(eventually([&] { return access((hint_ + ".stopped").c_str(), F_OK) == 0; }));
        EXPECT_TRUE(isMutexHeld(database_.path(Table::session)));
        inside.kill();
        unlink((hint_ + ".stop").c_str());
    }

    std::string hint_;
};

TEST_F(StoppedInside, TheOthersOpenTheirSessions) {
    Child other([this] {
        tavDBMSession session = {};
        const int32_t code = database_.attach() == 1 ? tavDBMInitSession(&session, 1) : 1;
        return code == 0 && session.currentComponent == kRootKey ? 0 : 2;
    });
    EXPECT_EQ(joinInTime(other), 0);
    EXPECT_EQ(database_.faults(), "");
}

TEST_F(StoppedInside, ItsHalfOpenedSessionIsASessionOfADeadProcess) {
    Child other([this] { return database_.attach() == 1 ? useSession() : 1; });
    EXPECT_EQ(joinInTime(other), 0);
    EXPECT_THAT(database_.sessions(), ElementsAre(1));
    const pid_t owner = SessionView(database_.path(Table::session))->slot[1].processId;
    EXPECT_EQ(kill(owner, 0), -1) << "the slot can be taken over";
}

}  // namespace
}  // namespace tavdb_test
