// SPDX-License-Identifier: Apache-2.0
// Processes take one component exclusively, again and again, and are killed at any
// moment. The lock of a dead one stays, as is stated; somebody gives it back in its
// place. No two are ever inside at once, and nobody waits long.
#include <algorithm>
#include <cstdlib>
#include <random>

#include "multiprocess/multiprocess_test_support.h"
#include "rounds.h"

namespace tavdb_test {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using tavdb::test::Clock;
using tavdb::test::since;

constexpr uint32_t kComponent = 77;
constexpr uint32_t kMostWorkers = 16;
constexpr uint32_t kLockKills = kSlow ? 175 : 700;  ///< with each number of workers, or TAVDB_TEST_KILLS
constexpr uint32_t kMostEntries = 20;               ///< into the section, by all workers, between two deaths
constexpr uint32_t kLongestWaitMs = kSlow ? 10000 : 2000;

/// Shared by all; a worker is known by its number from 1.
struct Section {
    std::atomic<uint32_t> inside = 0;  ///< the worker that is
    std::atomic<uint32_t> entries = 0;
    std::atomic<uint32_t> violations = 0;
    std::atomic<uint32_t> longestWaitMs = 0;
    std::atomic<uint32_t> sessions[kMostWorkers + 1] = {};
};

void enterAndLeave(Section &section, uint32_t number) {
    if (section.inside.exchange(number) != 0)
        section.violations++;
    section.entries++;
    std::this_thread::sleep_for(microseconds(50));
    uint32_t expected = number;
    if (!section.inside.compare_exchange_strong(expected, 0))
        section.violations++;
}

/// Works until it is killed. @return only when something fails that must not
int work(const DatabaseFolder &database, Section &section, uint32_t number) {
    tavDBMSession session = {};
    if (database.attach() != 1 || tavDBMInitSession(&session, 1) != 0)
        return 1;
    section.sessions[number] = session.sessionId;
    for (;;) {
        const auto start = Clock::now();
        if (tavDBMLock(&session, kComponent, TAVDB_LOCK_WAIT) != 0)
            return 2;
        const auto waitMs = static_cast<uint32_t>(since(start).count());
        if (waitMs > section.longestWaitMs)
            section.longestWaitMs = waitMs;
        enterAndLeave(section, number);
        if (tavDBMUnlock(&session, kComponent) != 0)
            return 3;
    }
}

class LockKills : public MultiProcess, public testing::WithParamInterface<uint32_t> {
protected:
    Child startWorker(uint32_t number) {
        section_->sessions[number] = 0;
        return Child([this, number] { return work(database_, *section_, number); });
    }
    /// In the place of a dead worker: gives back its lock and closes its session.
    void cleanUpAfter(uint32_t number) {
        uint32_t expected = number;
        section_->inside.compare_exchange_strong(expected, 0);
        Child heir([&] {
            tavDBMSession dead = {};
            dead.sessionId = section_->sessions[number];
            dead.dbId = 1;
            if (database_.attach() != 1 || dead.sessionId == 0)
                return 0;
            if (holdsTheLock(dead.sessionId) && tavDBMUnlock(&dead, kComponent) != 0)
                return 1;
            return tavDBMTermSession(&dead) == 0 ? 0 : 2;
        });
        ASSERT_EQ(joinInTime(heir), 0);
    }
    /// Unlocking asks nobody whose lock it is.
    bool holdsTheLock(uint32_t sessionId) const {
        const LockView locks(database_.path(Table::lock));
        const auto used = chain(locks->entry, locks->first);
        return std::any_of(used.begin(), used.end(), [&](uint32_t i) {
            return locks->entry[i].component == kComponent && locks->entry[i].owner == sessionId;
        });
    }
    void killMany(uint32_t workerCount, uint32_t kills) {
        std::mt19937 random(kills);
        std::vector<Child> workers;
        for (uint32_t i = 0; i < workerCount; i++)
            workers.push_back(startWorker(i + 1));
        for (uint32_t kill = 0; kill < kills && !HasFailure(); kill++) {
            const uint32_t victim = static_cast<uint32_t>(random() % workerCount);
            const uint32_t goal = section_->entries + static_cast<uint32_t>(random() % kMostEntries);
            EXPECT_TRUE(eventually([&] { return section_->entries >= goal; })) << "nobody comes in any more";
            ASSERT_FALSE(workers[victim].hasEnded()) << "a worker failed with " << workers[victim].join();
            workers[victim].kill();
            cleanUpAfter(victim + 1);
            workers[victim] = startWorker(victim + 1);
        }
    }

    Shared<Section> section_;
};

INSTANTIATE_TEST_SUITE_P(Workers, LockKills, testing::Values(2, 4, 8, kMostWorkers), testing::PrintToStringParamName());

TEST_P(LockKills, NeverLetTwoInsideNorKeepAnyoneWaiting) {
    killMany(GetParam(), plannedKills(kLockKills));
    EXPECT_EQ(section_->violations, 0U);
    EXPECT_LT(section_->longestWaitMs, kLongestWaitMs);
    EXPECT_GT(section_->entries, 0U);
}

}  // namespace
}  // namespace tavdb_test
