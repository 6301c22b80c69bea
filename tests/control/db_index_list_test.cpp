// SPDX-License-Identifier: Apache-2.0
// Index-linked lists over an array of a test's own, sound and damaged: what is
// read from a shared table must never lead outside it or round in circles.
#include "control/db_index_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "control/control_test_support.h"

namespace tavdb {
namespace {

using tavdb_test::byName;

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kCapacity = 5;
constexpr uint32_t kUntouched = 0xAAAAAAAA;

struct Record {
    uint32_t next;
    uint32_t value;
};

using List = IndexList<Record, kCapacity>;
using Queue = IndexQueue<Record, kCapacity>;
using Indices = std::vector<uint32_t>;

/// A table of two lists, with guards at both ends that no list may touch.
class Lists : public testing::Test {
protected:
    Lists() {
        for (uint32_t i = 0; i < kCapacity + 2; i++)
            records_[i].value = i * 100;
        records_[0].next = kUntouched;
        records_[kCapacity + 1].next = kUntouched;
    }
    ~Lists() override {
        EXPECT_EQ(records_[0].next, kUntouched);
        EXPECT_EQ(records_[kCapacity + 1].next, kUntouched);
    }

    List list() {
        return {records_, used_};
    }
    Queue queue() {
        return {records_, free_, freeTail_};
    }
    /// Links the indices as a list by hand. @return its head
    uint32_t link(const Indices &indices) {
        for (size_t i = 0; i < indices.size(); i++)
            records_[indices[i]].next = i + 1 < indices.size() ? indices[i + 1] : 0;
        return indices.empty() ? 0 : indices.front();
    }
    /// What a walk visits.
    static Indices visited(const List &list) {
        Indices indices;
        list.find([&](const Record &record) {
            indices.push_back(list.indexOf(&record));
            return false;
        });
        return indices;
    }
    Record *findValue(uint32_t value, uint32_t *predecessor = nullptr) {
        return list().find([value](const Record &record) { return record.value == value; }, predecessor);
    }

    Record records_[kCapacity + 2] = {};
    uint32_t used_ = 0;
    uint32_t free_ = 0;
    uint32_t freeTail_ = 0;
};

using IndexListTest = Lists;
using IndexQueueTest = Lists;

struct Index {
    uint32_t index;
    bool isValid;
    const char *name;
};

class IndexCheck : public testing::TestWithParam<Index> {};

TEST_P(IndexCheck, AdmitsOneToTheCapacity) {
    EXPECT_EQ(List::valid(GetParam().index), GetParam().isValid);
}

INSTANTIATE_TEST_SUITE_P(IndexList, IndexCheck,
                         testing::Values(Index{0, false, "None"}, Index{1, true, "First"},
                                         Index{kCapacity, true, "Last"}, Index{kCapacity + 1, false, "BeyondTheLast"},
                                         Index{0xFFFFFFFF, false, "Largest"}),
                         byName);

TEST_F(IndexListTest, AnEmptyListHasNoFirst) {
    EXPECT_EQ(list().first(), nullptr);
    EXPECT_THAT(visited(list()), IsEmpty());
}

TEST_F(IndexListTest, TheNewestStandsFirst) {
    list().pushFront(3);
    list().pushFront(1);
    EXPECT_THAT(visited(list()), ElementsAre(1, 3));
    EXPECT_EQ(list().first(), &records_[1]);
}

TEST_F(IndexListTest, PushingAnIndexOutsideDoesNothing) {
    used_ = link({2});
    list().pushFront(0);
    list().pushFront(kCapacity + 1);
    EXPECT_THAT(visited(list()), ElementsAre(2));
}

TEST_F(IndexListTest, FindTellsThePredecessor) {
    used_ = link({2, 4, 1});
    uint32_t predecessor = kUntouched;
    EXPECT_EQ(findValue(100, &predecessor), &records_[1]);
    EXPECT_EQ(predecessor, 4U);
    EXPECT_EQ(findValue(200, &predecessor), &records_[2]);
    EXPECT_EQ(predecessor, 0U);
}

TEST_F(IndexListTest, FindingNothingLeavesThePredecessor) {
    used_ = link({2, 4});
    uint32_t predecessor = kUntouched;
    EXPECT_EQ(findValue(100, &predecessor), nullptr);
    EXPECT_EQ(predecessor, kUntouched);
}

TEST_F(IndexListTest, RemovesTheFirst) {
    used_ = link({2, 4, 1});
    EXPECT_EQ(list().remove(2, 0), &records_[2]);
    EXPECT_THAT(visited(list()), ElementsAre(4, 1));
}

TEST_F(IndexListTest, RemovesFromTheMiddle) {
    used_ = link({2, 4, 1});
    EXPECT_EQ(list().remove(4, 2), &records_[4]);
    EXPECT_THAT(visited(list()), ElementsAre(2, 1));
}

TEST_F(IndexListTest, RemovesTheLast) {
    used_ = link({2, 4, 1});
    EXPECT_EQ(list().remove(1, 4), &records_[1]);
    EXPECT_THAT(visited(list()), ElementsAre(2, 4));
}

TEST_F(IndexListTest, RemovingAnIndexOutsideDoesNothing) {
    used_ = link({2, 4});
    EXPECT_EQ(list().remove(0, 0), nullptr);
    EXPECT_EQ(list().remove(kCapacity + 1, 2), nullptr);
    EXPECT_THAT(visited(list()), ElementsAre(2, 4));
}

TEST_F(IndexListTest, AWalkRoundALoopEnds) {
    used_ = link({2, 4, 1});
    records_[1].next = 4;
    EXPECT_EQ(visited(list()).size(), kCapacity);
    EXPECT_EQ(findValue(300), nullptr);
}

TEST_F(IndexListTest, ARecordThatFollowsItselfEndsTheWalk) {
    used_ = link({3});
    records_[3].next = 3;
    EXPECT_EQ(findValue(100), nullptr);
}

TEST_F(IndexListTest, ALinkBeyondTheCapacityEndsTheList) {
    used_ = link({2, 4});
    records_[4].next = kCapacity + 1;
    EXPECT_THAT(visited(list()), ElementsAre(2, 4));
}

TEST_F(IndexListTest, AHeadBeyondTheCapacityIsAnEmptyList) {
    used_ = 0xFFFFFFFF;
    EXPECT_EQ(list().first(), nullptr);
    EXPECT_THAT(visited(list()), IsEmpty());
}

TEST_F(IndexQueueTest, FillChainsAllInAscendingOrder) {
    queue().fill(kCapacity + 1);
    EXPECT_THAT(visited(queue()), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(freeTail_, kCapacity);
}

TEST_F(IndexQueueTest, FillLeavesTheRestAsItWas) {
    records_[4].next = 77;
    queue().fill(4);
    EXPECT_THAT(visited(queue()), ElementsAre(1, 2, 3));
    EXPECT_EQ(freeTail_, 3U);
    EXPECT_EQ(records_[4].next, 77U);
}

TEST_F(IndexQueueTest, FillStopsAtTheCapacity) {
    queue().fill(1000);
    EXPECT_THAT(visited(queue()), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(freeTail_, kCapacity);
}

TEST_F(IndexQueueTest, FillWithNothingChangesNothing) {
    free_ = link({2});
    freeTail_ = 2;
    queue().fill(0);
    queue().fill(1);
    EXPECT_THAT(visited(queue()), ElementsAre(2));
    EXPECT_EQ(freeTail_, 2U);
}

TEST_F(IndexQueueTest, LeavesAtTheHeadAndJoinsAtTheTail) {
    queue().fill(4);
    EXPECT_EQ(queue().popFront(), &records_[1]);
    queue().pushBack(1);
    EXPECT_THAT(visited(queue()), ElementsAre(2, 3, 1));
    EXPECT_EQ(freeTail_, 1U);
}

TEST_F(IndexQueueTest, TheLastOneOutClearsTheTail) {
    free_ = link({3});
    freeTail_ = 3;
    EXPECT_EQ(queue().popFront(), &records_[3]);
    EXPECT_EQ(free_, 0U);
    EXPECT_EQ(freeTail_, 0U);
    EXPECT_EQ(queue().popFront(), nullptr);
}

TEST_F(IndexQueueTest, TheFirstOneInIsHeadAndTail) {
    records_[3].next = 77;
    queue().pushBack(3);
    EXPECT_EQ(free_, 3U);
    EXPECT_EQ(freeTail_, 3U);
    EXPECT_EQ(records_[3].next, 0U);
}

TEST_F(IndexQueueTest, AppendingAnIndexOutsideDoesNothing) {
    queue().fill(3);
    queue().pushBack(0);
    queue().pushBack(kCapacity + 1);
    EXPECT_THAT(visited(queue()), ElementsAre(1, 2));
    EXPECT_EQ(freeTail_, 2U);
}

TEST_F(IndexQueueTest, AHeadBeyondTheCapacityGivesNothing) {
    free_ = kCapacity + 1;
    freeTail_ = kCapacity + 1;
    EXPECT_EQ(queue().popFront(), nullptr);
}

TEST_F(IndexQueueTest, ATailBeyondTheCapacityIsNotFollowed) {
    freeTail_ = 0xFFFFFFFF;
    queue().pushBack(2);
    EXPECT_EQ(free_, 2U);
    EXPECT_EQ(freeTail_, 2U);
}

/// Mending, as after the death of a process that held the mutex.
class Mend : public Lists {
protected:
    void mendAll() {
        mendWith([](const Record &) { return true; });
    }
    template <typename InUse>
    void mendWith(InUse inUse) {
        mend<Record, kCapacity>(records_, used_, free_, freeTail_, inUse);
    }
    Indices used() {
        return visited(list());
    }
    Indices free() {
        return visited(queue());
    }
};

TEST_F(Mend, ASoundTableKeepsItsUsedListAndItsOrder) {
    used_ = link({4, 1, 3});
    free_ = link({2, 5});
    freeTail_ = 5;
    mendAll();
    EXPECT_THAT(used(), ElementsAre(4, 1, 3));
    EXPECT_THAT(free(), ElementsAre(2, 5));
    EXPECT_EQ(freeTail_, 5U);
}

TEST_F(Mend, ARecordOnItsWayBetweenTheListsIsFree) {
    used_ = link({4});
    free_ = link({5});
    freeTail_ = 5;
    mendAll();
    EXPECT_THAT(used(), ElementsAre(4));
    EXPECT_THAT(free(), ElementsAre(1, 2, 3, 5));
    EXPECT_EQ(freeTail_, 5U);
}

TEST_F(Mend, ARecordInBothListsStaysUsedOnly) {
    used_ = link({3});
    free_ = link({3});
    freeTail_ = 3;
    mendAll();
    EXPECT_THAT(used(), ElementsAre(3));
    EXPECT_THAT(free(), ElementsAre(1, 2, 4, 5));
}

TEST_F(Mend, ARecordThatIsNotInUseLeavesTheUsedList) {
    used_ = link({4, 1, 3});
    mendWith([](const Record &record) { return record.value != 100; });
    EXPECT_THAT(used(), ElementsAre(4, 3));
    EXPECT_THAT(free(), ElementsAre(1, 2, 5));
}

TEST_F(Mend, TheFirstOfTheUsedListMayLeaveToo) {
    used_ = link({4, 1});
    mendWith([](const Record &record) { return record.value != 400; });
    EXPECT_THAT(used(), ElementsAre(1));
}

TEST_F(Mend, ALoopInTheUsedListIsOpened) {
    used_ = link({2, 4, 1});
    records_[1].next = 2;
    mendAll();
    EXPECT_THAT(used(), ElementsAre(2, 4, 1));
    EXPECT_THAT(free(), ElementsAre(3, 5));
}

TEST_F(Mend, ALoopOfRecordsNotInUseEndsToo) {
    used_ = link({2, 4});
    records_[4].next = 4;
    mendWith([](const Record &record) { return record.value != 400; });
    EXPECT_THAT(used(), ElementsAre(2));
    EXPECT_THAT(free(), ElementsAre(1, 3, 4, 5));
}

TEST_F(Mend, ALinkBeyondTheCapacityEndsTheUsedList) {
    used_ = link({2, 4});
    records_[4].next = kCapacity + 1;
    mendAll();
    EXPECT_THAT(used(), ElementsAre(2, 4));
    EXPECT_EQ(records_[4].next, 0U);
}

TEST_F(Mend, AHeadBeyondTheCapacityEmptiesTheUsedList) {
    used_ = 0xFFFFFFFF;
    mendAll();
    EXPECT_EQ(used_, 0U);
    EXPECT_THAT(free(), ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(Mend, WithAllInUseNothingIsFree) {
    used_ = link({1, 2, 3, 4, 5});
    free_ = 3;
    freeTail_ = 3;
    mendAll();
    EXPECT_EQ(used().size(), kCapacity);
    EXPECT_EQ(free_, 0U);
    EXPECT_EQ(freeTail_, 0U);
}

TEST_F(Mend, WordsOtherThanTheLinksStay) {
    used_ = link({2});
    mendAll();
    for (uint32_t i = 0; i < kCapacity + 2; i++)
        EXPECT_EQ(records_[i].value, i * 100);
}

TEST_F(Mend, MendingTwiceIsAsMendingOnce) {
    used_ = link({4, 1});
    records_[1].next = 4;
    mendAll();
    mendAll();
    EXPECT_THAT(used(), ElementsAre(4, 1));
    EXPECT_THAT(free(), ElementsAre(2, 3, 5));
    EXPECT_EQ(freeTail_, 5U);
}

}  // namespace
}  // namespace tavdb
