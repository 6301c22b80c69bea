// SPDX-License-Identifier: Apache-2.0
// Processes attach, open sessions, lock, close and detach without end and are
// killed at any moment. Afterwards every record is in exactly one list, the
// counts are what the processes did, and nothing of the capacity is lost.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>

#include "multiprocess/multiprocess_test_support.h"
#include "rounds.h"

namespace tavdb_test {
namespace {

constexpr uint32_t kWorkers = 3;
constexpr uint32_t kRandomKills = kSlow ? 200 : 1500;  ///< unless TAVDB_TEST_KILLS says how many
constexpr uint32_t kMostOperations = 40;               ///< between the start of a worker and its death
/// So many leave about half of the sessions behind. A full table takes over those of the dead, which no tally knows of.
constexpr uint32_t kKillsInARound = 5000;
constexpr uint32_t kWorkersDatabase = 1;

/// What the workers did, kept in shared memory; a worker that was killed may have begun one thing more.
struct Tally {
    std::atomic<uint32_t> attachBegun = 0, attachDone = 0, detachBegun = 0, detachDone = 0;
    std::atomic<uint32_t> openBegun = 0, openDone = 0, closeBegun = 0, closeDone = 0;
    std::atomic<uint32_t> lockBegun = 0, lockDone = 0, unlockBegun = 0, unlockDone = 0;
};

/// Counts an operation's begin and end.
template <typename Operation>
auto tallied(std::atomic<uint32_t> &begun, std::atomic<uint32_t> &done, Operation operation) {
    begun++;
    const auto result = operation();
    done++;
    return result;
}

class Worker {
public:
    Worker(const DatabaseFolder &database, Tally &tally, std::atomic<uint32_t> &operations, uint32_t component)
        : database_(database), tally_(tally), operations_(operations), component_(component) {}

    /// Works until it is killed. @return only when something fails that must not
    int run() {
        for (;;)
            if (const int failed = workOnce())
                return failed;
    }

private:
    int workOnce() {
        const int32_t dbId = tallied(tally_.attachBegun, tally_.attachDone, [&] { return database_.attach(); });
        if (dbId != static_cast<int32_t>(kWorkersDatabase))
            return 1;
        operations_++;
        tavDBMSession session = {};
        if (tallied(tally_.openBegun, tally_.openDone, [&] { return tavDBMInitSession(&session, kWorkersDatabase); }))
            return 2;
        operations_++;
        if (const int failed = lockAndUnlock(session))
            return failed;
        if (tallied(tally_.closeBegun, tally_.closeDone, [&] { return tavDBMTermSession(&session); }))
            return 5;
        operations_++;
        if (tallied(tally_.detachBegun, tally_.detachDone, [&] { return tavDBMTerm(kWorkersDatabase); }))
            return 6;
        operations_++;
        return 0;
    }
    /// Shared, so that the lock of a killed worker stops no other one.
    int lockAndUnlock(tavDBMSession &session) {
        const auto lock = [&] { return tavDBMLock(&session, component_, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED); };
        if (tallied(tally_.lockBegun, tally_.lockDone, lock))
            return 3;
        operations_++;
        if (tallied(tally_.unlockBegun, tally_.unlockDone, [&] { return tavDBMUnlock(&session, component_); }))
            return 4;
        operations_++;
        return 0;
    }

    const DatabaseFolder &database_;
    Tally &tally_;
    std::atomic<uint32_t> &operations_;
    uint32_t component_;
};

class RandomKills : public MultiProcess {
protected:
    void SetUp() override {
        startRound();
    }
    /// A reference keeps the database's id for the workers.
    void startRound() {
        tally_.emplace();
        Child first([&] { return database_.attach() == 1 ? 0 : 1; });
        ASSERT_EQ(joinInTime(first), 0);
    }
    /// Starts workers, kills each at a random operation, starts the next, until so many are dead.
    void killMany(uint32_t kills) {
        std::mt19937 random(4711);
        const auto pick = [&](uint32_t count) { return std::uniform_int_distribution<uint32_t>(0, count - 1)(random); };
        Shared<std::array<std::atomic<uint32_t>, kWorkers>> operations;
        std::vector<Child> workers;
        for (uint32_t i = 0; i < kWorkers; i++)
            workers.push_back(startWorker((*operations)[i], i));
        for (uint32_t kill = 0; kill < kills && !HasFailure(); kill++) {
            const uint32_t victim = pick(kWorkers);
            const uint32_t goal = (*operations)[victim] + pick(kMostOperations);
            EXPECT_TRUE(eventually([&] { return (*operations)[victim] >= goal || workers[victim].hasEnded(); }));
            ASSERT_FALSE(workers[victim].hasEnded()) << "worker failed with " << workers[victim].join();
            workers[victim].kill();
            workers[victim] = startWorker((*operations)[victim], victim);
        }
        for (uint32_t i = 0; i < kWorkers; i++)
            ASSERT_FALSE(workers[i].hasEnded()) << "worker failed with " << workers[i].join();
    }
    Child startWorker(std::atomic<uint32_t> &operations, uint32_t number) {
        return Child(
            [this, &operations, number] { return Worker(database_, **tally_, operations, 100 + number % 2).run(); });
    }
    /// Uses each table once, so that the death of the last holder of each mutex is noticed.
    void useEachTable() {
        Child child([&] {
            tavDBMSession session = {};
            const bool used = database_.attach() == 1 && tavDBMInitSession(&session, 1) == 0 &&
                              tavDBMLock(&session, 999, TAVDB_LOCK_TRY) == 0 && tavDBMUnlock(&session, 999) == 0 &&
                              tavDBMTermSession(&session) == 0 && tavDBMTerm(1) == 0;
            return used ? 0 : 1;
        });
        ASSERT_EQ(joinInTime(child), 0);
    }
    /// The number lies between what was certainly done and what may have been done.
    static void expectBetween(size_t actual, uint32_t done, uint32_t undoneBegun, uint32_t begun, uint32_t undone) {
        EXPECT_GE(actual, done - undoneBegun);
        EXPECT_LE(actual, begun - undone);
    }

    void expectWhatTheTallySays() {
        const Tally &t = **tally_;
        const uint32_t references = database_.references(1) - 1;  // that of the round
        expectBetween(references, t.attachDone, t.detachBegun, t.attachBegun, t.detachDone);
        expectBetween(database_.sessions().size(), t.openDone, t.closeBegun, t.openBegun, t.closeDone);
        const LockView locks(database_.path(Table::lock));
        expectBetween(chain(locks->entry, locks->first).size(), t.lockDone, t.unlockBegun, t.lockBegun, t.unlockDone);
        EXPECT_GE(references, database_.sessions().size()) << "a session is opened after its attach";
    }

    std::optional<Shared<Tally>> tally_;
};

TEST_F(RandomKills, LeaveEveryRecordInExactlyOneListAndTheCountsRight) {
    for (uint32_t left = plannedKills(kRandomKills); left > 0 && !HasFailure();) {
        const uint32_t kills = std::min(left, kKillsInARound);
        left -= kills;
        killMany(kills);
        useEachTable();
        EXPECT_EQ(database_.faults(), "");
        expectWhatTheTallySays();
        ASSERT_TRUE(database_.removeTables());
        startRound();
    }
}

TEST_F(RandomKills, LoseNothingOfTheCapacitiesWhenTheDeadAreCleanedUp) {
    killMany(plannedKills(kRandomKills) / 2);
    Child cleaner([&] { return database_.cleanUp() ? 0 : 1; });
    ASSERT_EQ(joinInTime(cleaner), 0);
    EXPECT_EQ(database_.faults(), "");
    Child user([&] { return database_.fill(); });
    EXPECT_EQ(joinInTime(user), 0);
}

}  // namespace
}  // namespace tavdb_test
