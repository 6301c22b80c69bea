// SPDX-License-Identifier: Apache-2.0
// A lock table that is not what it should be: damaged indices neither crash nor
// hang, and after the death of a process in the middle of a change the lists are
// made whole again.
#include <functional>

#include "lock/lock_test_support.h"

namespace tavdb_test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

/// One way to damage a table in which entries 1 to 3 hold the components 100, 200 and 300.
using LockDamage = Damage<tavDBMLockTable>;

/// The same damage with each index that is none.
void addIndices(std::vector<LockDamage> &all, const std::string &name,
                const std::function<uint32_t &(tavDBMLockTable &table)> &word) {
    for (const auto &[text, index] : {std::pair{"JustOutside", 1024U}, std::pair{"FarOutside", 50000U},
                                      std::pair{"Negative", 0xFFFFFFFFU}, std::pair{"None", 0U}})
        all.push_back({name + text, [word, index](tavDBMLockTable &table) { word(table) = index; }});
}

std::vector<LockDamage> damages() {
    using Table = tavDBMLockTable;
    std::vector<LockDamage> all;
    addIndices(all, "First", [](Table &t) -> uint32_t & { return t.first; });
    addIndices(all, "Last", [](Table &t) -> uint32_t & { return t.last; });
    addIndices(all, "FreeHead", [](Table &t) -> uint32_t & { return t.freeHead; });
    addIndices(all, "NextOfALock", [](Table &t) -> uint32_t & { return t.entry[1].next; });
    addIndices(all, "PrevOfALock", [](Table &t) -> uint32_t & { return t.entry[2].prev; });
    addIndices(all, "NextOfAFreeEntry", [](Table &t) -> uint32_t & { return t.entry[4].next; });
    const std::vector<LockDamage> loops = {
        {"ALockThatFollowsItself", [](Table &t) { t.entry[2].next = 2; }},
        {"LocksInACircle", [](Table &t) { t.entry[3].next = 1; }},
        {"AFreeEntryThatFollowsItself", [](Table &t) { t.entry[4].next = 4; }},
        {"AFreeListThatBeginsAtALock", [](Table &t) { t.freeHead = 2; }},
        {"AFreeListThatRunsIntoALock", [](Table &t) { t.entry[4].next = 1; }},
        {"ALockListThatRunsIntoTheFreeList", [](Table &t) { t.entry[3].next = 500; }},
        {"OneListForBoth", [](Table &t) { t.freeHead = t.first; }},
        {"LocksOutOfOrder", [](Table &t) { t.entry[2].component = 5; }},
        {"AllOnes", [](Table &t) { memset(&t.freeHead, 0xFF, 12); }},
        {"AllZeros", [](Table &t) { t = {}; }},
    };
    all.insert(all.end(), loops.begin(), loops.end());
    return all;
}

class DamagedLockTableTest : public LockTest, public testing::WithParamInterface<LockDamage> {
protected:
    void SetUp() override {
        LockTest::SetUp();
        lockAll({100, 200, 300});
        GetParam().apply(*table());
    }
    /// Every operation ends, with one of its own codes, and gives the mutex back.
    void useEverything() {
        for (const uint32_t component : {50U, 100U, 150U, 200U, 250U, 300U, 400U}) {
            EXPECT_THAT(lock_compLock(&session, component, kTryShared), AnyOf(0, 75, 78)) << component;
            EXPECT_THAT(lock_compLock(&session, component, kTry), AnyOf(0, 75, 78)) << component;
        }
        for (const uint32_t component : {400U, 50U, 200U, 999U, 100U, 300U, 100U})
            EXPECT_THAT(lock_compUnlock(&session, component), AnyOf(0, 76)) << component;
        EXPECT_THAT(fakeSemaphores().heldMutexes(), IsEmpty());
    }
    /// What lies outside the entries that are ever used is still zero.
    testing::AssertionResult nothingOutsideWasTouched() const {
        const Bytes bytes = tableBytes();
        const auto isZero = [&](size_t from, size_t count) {
            return std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                               bytes.begin() + static_cast<std::ptrdiff_t>(from + count),
                               [](uint8_t byte) { return byte == 0; });
        };
        if (bytes.size() == 24624 && isZero(12, 12) && isZero(24, 24) && isZero(24 + 24 * 1024, 24))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "bytes outside the 1023 entries changed";
    }
};

INSTANTIATE_TEST_SUITE_P(Damages, DamagedLockTableTest, testing::ValuesIn(damages()), byName);

TEST_P(DamagedLockTableTest, NeitherCrashesNorHangsNorWritesElsewhere) {
    useEverything();
    EXPECT_TRUE(nothingOutsideWasTouched());
}

TEST_P(DamagedLockTableTest, CanBeEmptiedAndUsedAgain) {
    EXPECT_EQ(lock_compUnlockAll(), 0);
    EXPECT_EQ(table()->first, 0U);
    EXPECT_EQ(table()->last, 0U);
    useEverything();
    EXPECT_TRUE(nothingOutsideWasTouched());
}

TEST_P(DamagedLockTableTest, IsMadeWholeOnceItsMutexWasAbandoned) {
    fakeSemaphores().abandonMutex(kTableFile);
    EXPECT_THAT(lock_compLock(&session, 5000, kTry), AnyOf(0, 75, 78));
    const tavDBMLockTable mended = *table();
    std::vector<uint32_t> free = chain(mended.entry, mended.freeHead);
    std::vector<uint32_t> all = chain(mended.entry, mended.first);
    all.insert(all.end(), free.begin(), free.end());
    std::sort(all.begin(), all.end());
    EXPECT_EQ(all, ascending(1, 1023));
    EXPECT_TRUE(nothingOutsideWasTouched());
}

/// A process that dies between two stores leaves the forward links of the lock list whole.
class AbandonedLockTableTest : public LockTest {
protected:
    void SetUp() override {
        LockTest::SetUp();
        lockAll({100, 200, 300});
    }
    static void abandon() {
        fakeSemaphores().abandonMutex(kTableFile);
        clearLogs();
    }
    void expectMendedWith(const std::vector<uint32_t> &components) {
        EXPECT_TRUE(sound());
        EXPECT_EQ(heldComponents(), components);
    }
};

TEST_F(AbandonedLockTableTest, AnEntryThatWasTakenAndNotYetLinkedIsFreeAgain) {
    table()->freeHead = 5;  // entry 4 is in no list
    abandon();
    EXPECT_EQ(tavDBMLock(&session, 400, kTry), 0);
    expectMendedWith({100, 200, 300, 400});
}

TEST_F(AbandonedLockTableTest, ALockWhoseBackwardLinksWereNotYetWrittenIsKept) {
    {
        const LockView view = table();
        view->freeHead = 5;
        view->entry[4] = {session.dbId, 150, 9, 0, 2, 1};
        view->entry[1].next = 4;  // entry 2 still points back at entry 1
    }
    abandon();
    EXPECT_EQ(tavDBMLock(&session, 400, kTry), 0);
    expectMendedWith({100, 150, 200, 300, 400});
}

TEST_F(AbandonedLockTableTest, ALockAppendedWithoutTheListsLastIsKept) {
    {
        const LockView view = table();
        view->freeHead = 5;
        view->entry[4] = {session.dbId, 350, 9, 0, 0, 3};
        view->entry[3].next = 4;  // the list's last is still entry 3
    }
    abandon();
    EXPECT_EQ(tavDBMLock(&session, 400, kTry), 0);
    expectMendedWith({100, 200, 300, 350, 400});
}

TEST_F(AbandonedLockTableTest, ALockThatWasUnlinkedAndNotYetGivenBackIsFreeAgain) {
    table()->entry[1].next = 3;  // entry 2 is in no list, entry 3 still points back at it
    abandon();
    EXPECT_EQ(tavDBMUnlock(&session, 300), 0);
    expectMendedWith({100});
}

TEST_F(AbandonedLockTableTest, WaitersAreWokenAfterMending) {
    abandon();
    EXPECT_EQ(tavDBMLock(&session, 400, kTry), 0);
    EXPECT_THAT(eventLog().lines(Category::semaphores),
                ElementsAre("mutexRequest lock.tbl", "mutexAbandoned lock.tbl -> 1", "eventPost lock.tbl",
                            "mutexRelease lock.tbl"));
}

TEST_F(AbandonedLockTableTest, LocksOfTheDeadProcessStay) {
    abandon();
    EXPECT_EQ(tavDBMLock(&session, 200, kTry), 75);
    EXPECT_EQ(tavDBMUnlock(&session, 200), 0);
}

TEST_F(AbandonedLockTableTest, WithoutADeathNothingIsMended) {
    table()->freeHead = 5;
    EXPECT_EQ(tavDBMLock(&session, 400, kTry), 0);
    EXPECT_THAT(held(), ElementsAre(1, 2, 3, 5));
}

}  // namespace
}  // namespace tavdb_test
