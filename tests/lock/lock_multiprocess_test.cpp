// SPDX-License-Identifier: Apache-2.0
// Component locks on the real platform: several processes with several threads,
// each with a session of its own, that lock the same components and watch each
// other through memory that they share. TAVDB_LOCK_PAIRS sets how many pairs of
// lock and unlock the long test makes.
#include <sched.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <thread>
#include <vector>

#include "control/table_view.h"
#include "lock/lock_soundness.h"
#include "port/osw/osw_test_support.h"
#include "rounds.h"
#include "tavdb.h"
#include "tavdb_modules.h"

namespace tavdb_test {
namespace {

using tavdb::test::Child;
using tavdb::test::Clock;
using tavdb::test::eventually;
using tavdb::test::Shared;
using tavdb::test::since;
using tavdb::test::TempFolder;

constexpr uint32_t kProcesses = 4;
constexpr uint32_t kThreads = 2;
constexpr uint32_t kComponents = 3;
constexpr uint32_t kDefaultPairs = tavdb_test::kSlow ? 20000 : 200000;
constexpr uint32_t kLongestWaitMs = 20000;
constexpr auto kLongestStall = std::chrono::seconds(30);

enum Mode : int32_t { kWait = 0x000, kTry = 0x001, kWaitShared = 0x100, kTryShared = 0x101 };

/// The exit status of a child that met a failure; its own text tells which.
constexpr int kChildFailed = 3;

/// Waits for all children. Without progress for long, they hang: they are then killed. @return whether all succeeded
template <typename Progress>
bool joinAll(std::vector<Child> &children, Progress progress) {
    auto lastChange = Clock::now();
    auto lastSeen = progress();
    const auto areRunning = [&] {
        return std::any_of(children.begin(), children.end(), [](const Child &child) { return !child.hasEnded(); });
    };
    while (areRunning() && Clock::now() - lastChange < kLongestStall) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        if (progress() != lastSeen)
            lastChange = Clock::now();
        lastSeen = progress();
    }
    bool succeeded = !areRunning();
    for (Child &child : children) {
        if (!child.hasEnded())
            child.kill();
        else if (child.join() != 0)
            succeeded = false;
    }
    return succeeded;
}

/// A process that has attached to the database, for the time of its scope.
class Attached {
public:
    explicit Attached(const tavDBMDescription &description) : dbId_(tavDBMInit(&description, &error_)) {}
    ~Attached() {
        if (dbId_ > 0)
            tavDBMTerm(static_cast<uint32_t>(dbId_));
    }
    Attached(const Attached &) = delete;
    Attached &operator=(const Attached &) = delete;

    bool openSession(tavDBMSession &session) const {
        return dbId_ > 0 && tavDBMInitSession(&session, static_cast<uint32_t>(dbId_)) == 0;
    }

private:
    int32_t error_ = 0;
    int32_t dbId_;
};

class LockProcessTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("TAVDB_DBTABLE", (folder / "control.tbl").c_str(), 1);
        std::ofstream conf(folder / "media.conf");
        for (const char *const medium : {"component.med", "value.med", "constraint.med", "string.med"}) {
            conf << "libtavdbfile.so tavdbMemOpen tavdbMemClose tavdbMemRead tavdbMemWrite tavdbMemSeek tavdbMemSync1 "
                 << medium << '\n';
            tavdb::test::makeFile(folder / medium, 64);
        }
        setPath(description.sessionPath, "session.tbl");
        setPath(description.lockPath, "lock.tbl");
        setPath(description.mediaPath, "media.conf");
        setPath(description.hookPath, "hooks.conf");
        description.componentMedia = 1;
        description.valueMedia = 2;
        description.constraintMedia = 3;
        description.stringMedia = 4;
    }
    /// No lock is left, and both lists of the table are whole.
    void expectEmptyTable() const {
        const LockView table(folder / "lock.tbl");
        EXPECT_EQ(table->first, 0U);
        EXPECT_TRUE(isSound(*table));
    }

    TempFolder folder;
    tavDBMDescription description = {};

private:
    template <size_t Size>
    void setPath(char (&field)[Size], const char *name) const {
        const std::string path = folder / name;
        ASSERT_LT(path.size(), Size);
        memcpy(field, path.c_str(), path.size() + 1);
    }
};

/// What protects itself by a component's lock, and what shows that it failed to.
struct Section {
    std::atomic<uint32_t> writers;
    std::atomic<uint32_t> readers;
    uint32_t first;  ///< plain words: the two are equal whenever no writer is inside
    uint32_t second;

    /// @return whether nobody else was inside
    bool write() {
        bool alone = writers.fetch_add(1) == 0 && readers.load() == 0 && first == second;
        first++;
        sched_yield();
        alone = alone && writers.load() == 1 && readers.load() == 0 && first == second + 1;
        second++;
        writers.fetch_sub(1);
        return alone;
    }
    /// @return whether no writer was inside
    bool read() {
        readers.fetch_add(1);
        bool sound = writers.load() == 0 && first == second;
        sched_yield();
        sound = sound && writers.load() == 0 && first == second;
        readers.fetch_sub(1);
        return sound;
    }
};

/// All that the processes share.
struct Board {
    std::array<Section, kComponents> sections;
    std::array<std::atomic<uint32_t>, kComponents> writes;
    std::atomic<uint32_t> pairs;
    std::atomic<uint32_t> sharedPairs;
    std::atomic<uint32_t> refusals;
    std::atomic<uint32_t> intrusions;
    std::atomic<uint32_t> wrongResults;
    std::atomic<uint32_t> longestWaitMs;

    void waited(Clock::duration time) {
        const auto ms = static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
        uint32_t longest = longestWaitMs.load();
        while (ms > longest && !longestWaitMs.compare_exchange_weak(longest, ms)) {
        }
    }
};
static_assert(std::atomic<uint32_t>::is_always_lock_free);

/// One thread with a session of its own.
class Worker {
public:
    Worker(Board &board, const Attached &database, uint32_t seed) : board_(board), random_(seed) {
        if (!database.openSession(session_))
            board_.wrongResults++;
    }

    void work(uint32_t pairs) {
        for (uint32_t done = 0; done < pairs && board_.wrongResults == 0;)
            done += lockOnce() ? 1U : 0U;
    }

private:
    /// @return whether the lock was had
    bool lockOnce() {
        static constexpr Mode kModes[] = {kWait, kTry, kWaitShared, kTryShared};
        const uint32_t which = static_cast<uint32_t>(random_()) % kComponents;
        const Mode mode = kModes[random_() % std::size(kModes)];
        const auto start = Clock::now();
        const int32_t result = tavDBMLock(&session_, which + 1, mode);
        board_.waited(Clock::now() - start);
        if (result == TAVDB_ERR_LOCKED && (mode == kTry || mode == kTryShared)) {
            board_.refusals++;
            return false;
        }
        if (result != 0)
            return fail();
        use(which, mode);
        if (tavDBMUnlock(&session_, which + 1) != 0)
            return fail();
        board_.pairs++;
        return true;
    }
    void use(uint32_t which, Mode mode) {
        const bool isShared = mode == kWaitShared || mode == kTryShared;
        Section &section = board_.sections[which];
        if (!(isShared ? section.read() : section.write()))
            board_.intrusions++;
        if (isShared)
            board_.sharedPairs++;
        else
            board_.writes[which]++;
    }
    bool fail() {
        board_.wrongResults++;
        return false;
    }

    Board &board_;
    std::minstd_rand random_;
    tavDBMSession session_ = {};
};

uint32_t wantedPairs() {
    const char *const text = getenv("TAVDB_LOCK_PAIRS");
    return text != nullptr ? static_cast<uint32_t>(std::stoul(text)) : kDefaultPairs;
}

/// One process with all its threads.
int runProcess(Board &board, const tavDBMDescription &description, uint32_t number, uint32_t pairsPerThread) {
    const Attached database(description);
    std::vector<std::thread> threads;
    for (uint32_t thread = 0; thread < kThreads; thread++)
        threads.emplace_back(
            [&, seed = number * kThreads + thread + 1] { Worker(board, database, seed).work(pairsPerThread); });
    for (std::thread &thread : threads)
        thread.join();
    return board.wrongResults == 0 ? 0 : kChildFailed;
}

TEST_F(LockProcessTest, SharedAndExclusiveLocksOfManyProcessesKeepWritersAlone) {
    const uint32_t perThread = (wantedPairs() + kProcesses * kThreads - 1) / (kProcesses * kThreads);
    const Shared<Board> board;
    std::vector<Child> children;
    for (uint32_t number = 0; number < kProcesses; number++)
        children.emplace_back([&] { return runProcess(*board, description, number, perThread); });
    EXPECT_TRUE(joinAll(children, [&] { return board->pairs.load(); }));
    EXPECT_EQ(board->wrongResults, 0U);
    EXPECT_EQ(board->intrusions, 0U);
    EXPECT_EQ(board->pairs, perThread * kProcesses * kThreads);
    EXPECT_GT(board->sharedPairs, 0U);
    EXPECT_GT(board->refusals, 0U);
    EXPECT_LT(board->longestWaitMs, kLongestWaitMs);
    for (uint32_t which = 0; which < kComponents; which++) {
        EXPECT_GT(board->writes[which], 0U);
        EXPECT_EQ(board->sections[which].first, board->writes[which]);
        EXPECT_EQ(board->sections[which].second, board->writes[which]);
    }
    expectEmptyTable();
    RecordProperty("longestWaitMs", static_cast<int>(board->longestWaitMs));
    RecordProperty("refusals", static_cast<int>(board->refusals));
}

/// Two processes that take turns: each holds the lock until the other is on its way to wait for it.
struct Turns {
    std::array<std::atomic<uint32_t>, 2> attempts;
    std::array<std::atomic<uint32_t>, 2> had;
    std::array<std::atomic<uint32_t>, 2> done;

    bool isAttempting(size_t who) const {
        return attempts[who] > had[who];
    }
};

int takeTurns(Turns &turns, size_t me, uint32_t count, const tavDBMDescription &description) {
    const Attached database(description);
    tavDBMSession own;
    if (!database.openSession(own))
        return kChildFailed;
    const size_t other = 1 - me;
    for (uint32_t turn = 0; turn < count; turn++) {
        turns.attempts[me]++;
        if (tavDBMLock(&own, 1, kWait) != 0)
            return kChildFailed;
        turns.had[me]++;
        while (!turns.isAttempting(other) && turns.done[other] == 0)
            sched_yield();
        if (tavDBMUnlock(&own, 1) != 0)
            return kChildFailed;
    }
    turns.done[me] = 1;
    return 0;
}

// Nobody else posts the event here, so an unlock that a waiter misses leaves it waiting for good.
TEST_F(LockProcessTest, AnUnlockBetweenAFailedAttemptAndTheWaitIsNeverMissed) {
    constexpr uint32_t kTurns = 3000;
    const Shared<Turns> turns;
    std::vector<Child> children;
    for (const size_t me : {size_t{0}, size_t{1}})
        children.emplace_back([&] { return takeTurns(*turns, me, kTurns, description); });
    EXPECT_TRUE(joinAll(children, [&] { return turns->had[0] + turns->had[1]; }));
    EXPECT_EQ(turns->had[0] + turns->had[1], 2 * kTurns);
    expectEmptyTable();
}

TEST_F(LockProcessTest, AnExclusiveRequestOfAnotherProcessWaitsUntilBothSharedLocksAreReleased) {
    struct Progress {
        std::atomic<uint32_t> waiting;
        std::atomic<uint32_t> released;
    };
    const Shared<Progress> progress;
    const Attached database(description);
    tavDBMSession session;
    ASSERT_TRUE(database.openSession(session));
    ASSERT_EQ(tavDBMLock(&session, 1, kTryShared), 0);
    ASSERT_EQ(tavDBMLock(&session, 1, kTryShared), 0);
    Child waiter([&] {
        tavDBMSession own;
        if (!database.openSession(own) || tavDBMLock(&own, 1, kTry) != TAVDB_ERR_LOCKED)
            return kChildFailed;
        progress->waiting = 1;
        if (tavDBMLock(&own, 1, kWait) != 0 || progress->released != 2)
            return kChildFailed;
        return tavDBMUnlock(&own, 1) == 0 ? 0 : kChildFailed;
    });
    ASSERT_TRUE(eventually([&] { return progress->waiting == 1; }));
    progress->released = 1;
    EXPECT_EQ(tavDBMUnlock(&session, 1), 0);
    progress->released = 2;
    EXPECT_EQ(tavDBMUnlock(&session, 1), 0);
    EXPECT_EQ(waiter.join(), 0);
    expectEmptyTable();
}

TEST_F(LockProcessTest, ALockOutlivesItsProcessAndAnyOtherMayReleaseIt) {
    const Attached database(description);  // keeps the database's id while the holder comes and goes
    tavDBMSession session;
    ASSERT_TRUE(database.openSession(session));
    Child holder([&] {
        const Attached own(description);
        tavDBMSession other;
        return own.openSession(other) && tavDBMLock(&other, 1, kTry) == 0 ? 0 : kChildFailed;
    });
    ASSERT_EQ(holder.join(), 0);
    EXPECT_EQ(tavDBMLock(&session, 1, kTry), TAVDB_ERR_LOCKED);
    EXPECT_EQ(tavDBMUnlock(&session, 1), 0);
    EXPECT_EQ(tavDBMLock(&session, 1, kWait), 0);
    EXPECT_EQ(tavDBMUnlock(&session, 1), 0);
    expectEmptyTable();
}

/// Locks and unlocks until it is killed; each pair is counted.
int runUntilKilled(std::atomic<uint32_t> &pairs, const tavDBMDescription &description) {
    const Attached database(description);
    tavDBMSession own;
    if (!database.openSession(own))
        return kChildFailed;
    for (uint32_t component = 10;; component = component < 60 ? component + 1 : 10) {
        const int32_t locked = tavDBMLock(&own, component, kTryShared);
        if (locked != 0 || tavDBMUnlock(&own, component) != 0)
            return kChildFailed;
        pairs++;
    }
}

TEST_F(LockProcessTest, AProcessKilledAtAnyMomentStopsNobodyAndLeavesAWholeTable) {
    constexpr int kKills = 60;
    const Attached database(description);
    tavDBMSession session;
    ASSERT_TRUE(database.openSession(session));
    const Shared<std::atomic<uint32_t>> pairs;
    for (int kill = 0; kill < kKills; kill++) {
        const uint32_t before = *pairs;
        Child victim([&] { return runUntilKilled(*pairs, description); });
        ASSERT_TRUE(eventually([&] { return *pairs - before > 5 || victim.hasEnded(); }));
        ASSERT_FALSE(victim.hasEnded());
        victim.kill();
        ASSERT_EQ(tavDBMLock(&session, 1000, kWait), 0);
        ASSERT_EQ(tavDBMUnlock(&session, 1000), 0);
        ASSERT_TRUE(isSound(*LockView(folder / "lock.tbl")));
    }
    // What a victim held is still held, shared, and can be released.
    for (uint32_t component = 10; component <= 60; component++) {
        while (tavDBMUnlock(&session, component) == 0) {
        }
    }
    expectEmptyTable();
}

}  // namespace
}  // namespace tavdb_test
