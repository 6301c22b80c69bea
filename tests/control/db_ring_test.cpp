// SPDX-License-Identifier: Apache-2.0
// Diagnostic rings: where records go, how they are numbered, what the dump shows.
#include "control/db_ring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "fakes/fake_trace.h"
#include "fakes/fakes_test.h"

namespace tavdb {
namespace {

using tavdb_test::fakeTrace;
using testing::ElementsAre;

class Ring : public tavdb_test::FakesTest {
protected:
    void putMany(uint32_t count) {
        for (uint32_t i = 0; i < count; i++)
            ring_->put(1, i);
    }
    uint32_t usedSlots() const {
        uint32_t used = 0;
        for (const auto &record : ring_->record)
            used += record[1] != 0 ? 1 : 0;
        return used;
    }

    using Three = DiagnosticRing<3, 128>;
    std::unique_ptr<Three> ring_ = std::make_unique<Three>();
};

TEST_F(Ring, TheFirstRecordGoesToSlotOneWithNumberOne) {
    ring_->put(4, 0xAB);
    EXPECT_THAT(ring_->record[1], ElementsAre(1, 4, 0xAB));
    EXPECT_THAT(ring_->record[0], ElementsAre(0, 0, 0));
}

TEST_F(Ring, TheSixtyFourthRecordGoesToSlotZero) {
    putMany(64);
    EXPECT_THAT(ring_->record[63], ElementsAre(63, 1, 62));
    EXPECT_THAT(ring_->record[0], ElementsAre(64, 1, 63));
}

TEST_F(Ring, OnlySixtyFourSlotsAreEverUsed) {
    putMany(500);
    EXPECT_EQ(usedSlots(), 64U);
    EXPECT_THAT(ring_->record[64], ElementsAre(0, 0, 0));
}

TEST_F(Ring, NumbersGoTo999AndStartAgainAtOne) {
    putMany(999);
    EXPECT_EQ(ring_->position.sequence, 999U);
    ring_->put(1, 7);
    EXPECT_THAT(ring_->record[ring_->position.index], ElementsAre(1, 1, 7));
}

TEST_F(Ring, ANegativeFieldIsKeptAsItsWord) {
    ring_->put(1, -1);
    EXPECT_EQ(ring_->record[1][2], 0xFFFFFFFFU);
}

TEST_F(Ring, ANewRingDumpsNothing) {
    ring_->dump(98);
    EXPECT_TRUE(fakeTrace().textsAre(98, {}));
}

TEST_F(Ring, TheDumpShowsEachUsedRecordInOneLineBySlot) {
    ring_->put(1, 0x12);
    ring_->put(2, 0xFFFFFFFF);
    ring_->dump(98);
    EXPECT_TRUE(fakeTrace().textsAre(
        98, {"[         1]:[0x       1][0x      12]\n", "[         2]:[0x       2][0xffffffff]\n"}));
}

TEST_F(Ring, TheDumpGoesToTheLevelThatWasAskedFor) {
    ring_->put(1, 2);
    ring_->dump(5);
    EXPECT_EQ(fakeTrace().texts(5).size(), 1U);
    EXPECT_EQ(fakeTrace().lines().size(), 1U);
}

TEST_F(Ring, TheLongestRecordFitsIntoItsLine) {
    const auto longest = std::make_unique<DiagnosticRing<kRingWordsMax, 64>>();
    longest->put(0xFFFFFFFF, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    longest->dump(99);
    std::string words;
    for (int i = 0; i < 10; i++)
        words += "[0xffffffff]";
    EXPECT_TRUE(fakeTrace().textsAre(99, {"[         1]:" + words + "\n"}));
}

}  // namespace
}  // namespace tavdb
