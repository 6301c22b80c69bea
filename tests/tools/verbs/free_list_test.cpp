// SPDX-License-Identifier: Apache-2.0
// The free list: what the library would drop or damage is given back here.
#include "image/free_list.h"

#include "image/directory.h"
#include "tools/image/attached.h"
#include "tools/test_place.h"

namespace tavdb::image {
namespace {

class FreeList : public testing::Test {
protected:
    void SetUp() override {
        buildText("a: {type: u8, current: 1}\n", place / "db");
        directory = openDirectory(place / "db").value;
        ASSERT_TRUE(directory);
        auto attached = Database::attach(*directory->description);
        ASSERT_TRUE(attached) << attached.error.sentence;
        database = std::move(*attached.value);
    }
    std::vector<ByteRange> blocks() {
        const auto read = readFreeList(*database, kValueMedium);
        EXPECT_TRUE(read) << read.error.sentence;
        return read.value.value_or(std::vector<ByteRange>{});
    }
    uint32_t take(uint32_t sizeBytes) {
        return flst_m_get(database->session(), kValueMedium, sizeBytes);
    }
    Status release(std::vector<ByteRange> ranges) {
        return releaseRanges(*database, kValueMedium, std::move(ranges));
    }

    tavdb_test::TestPlace place;
    std::optional<DatabaseDirectory> directory;
    std::unique_ptr<Database> database;
};

TEST_F(FreeList, RangesComeBackMergedInAnyOrder) {
    const auto before = blocks();
    const uint32_t first = take(28);
    const uint32_t second = take(28);
    const uint32_t third = take(28);
    EXPECT_FALSE(release({{third, 28}, {first, 28}}));
    EXPECT_EQ(blocks().size(), 2U);
    EXPECT_FALSE(release({{second, 28}}));
    EXPECT_EQ(blocks(), before);
}

TEST_F(FreeList, EmptyListTakesARange) {
    const auto before = blocks();
    ASSERT_EQ(before.size(), 1U);
    const uint32_t all = take(before[0].sizeBytes);
    EXPECT_TRUE(blocks().empty());
    EXPECT_FALSE(release({{all, before[0].sizeBytes}}));
    EXPECT_EQ(blocks(), before);
}

TEST_F(FreeList, RangeBehindTheLastBlockIsKept) {
    const auto whole = blocks()[0];
    const uint32_t front = take(32);
    const uint32_t between = take(32);
    const uint32_t rest = take(whole.sizeBytes - 64);
    ASSERT_NE(rest, 0U);
    EXPECT_FALSE(release({{front, 32}}));
    EXPECT_FALSE(release({{rest, whole.sizeBytes - 64}}));
    EXPECT_EQ(blocks(), (std::vector<ByteRange>{{front, 32}, {rest, whole.sizeBytes - 64}}));
    EXPECT_FALSE(release({{between, 32}}));
    EXPECT_EQ(blocks(), std::vector<ByteRange>{whole});
}

TEST_F(FreeList, RangeDirectlyBehindTheLastBlockGrowsIt) {
    const auto whole = blocks()[0];
    const uint32_t front = take(32);
    const uint32_t rest = take(whole.sizeBytes - 32);
    EXPECT_FALSE(release({{front, 32}}));
    EXPECT_FALSE(release({{rest, whole.sizeBytes - 32}}));
    EXPECT_EQ(blocks(), std::vector<ByteRange>{whole});
}

TEST_F(FreeList, ShortRangeWithoutANeighbourOverwritesNothing) {
    const uint32_t small = take(3);
    const uint32_t next = take(28);
    const std::string marker(28, 'm');
    tavDBMValue record = {};
    std::memcpy(&record, marker.data(), marker.size());
    record.key = next;
    ASSERT_EQ(value_set(database->session(), &record), 0);
    const auto before = tavdb_test::bytesOf(place / "db/value.med");
    EXPECT_FALSE(release({{small, 3}}));
    EXPECT_EQ(tavdb_test::bytesOf(place / "db/value.med"), before);
    EXPECT_FALSE(release({{small, 3}, {next, 28}})) << "together they are long enough";
    EXPECT_EQ(blocks().size(), 1U);
}

TEST_F(FreeList, WhatIsFreeAlreadyIsRefused) {
    const uint32_t slot = take(28);
    EXPECT_FALSE(release({{slot, 28}}));
    const auto before = tavdb_test::bytesOf(place / "db/value.med");
    const auto fault = release({{slot, 28}});
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->kind, FaultKind::damaged);
    EXPECT_EQ(tavdb_test::bytesOf(place / "db/value.med"), before);
}

TEST_F(FreeList, DamagedListsAreFaults) {
    const auto path = place / "db/value.med";
    const uint32_t block = blocks()[0].offset;
    const auto sizeBytes = tavdb_test::bytesOf(path).size();
    const std::vector<std::pair<uint32_t, uint32_t>> damages = {
        {block, block},                                     // a circle
        {block, 16},                                        // backwards
        {block, static_cast<uint32_t>(sizeBytes)},          // outside
        {block + 4, static_cast<uint32_t>(sizeBytes) * 2},  // too long
        {block + 4, 4},                                     // too short
    };
    for (const auto &[offset, word] : damages) {
        const auto old = tavdb_test::wordAt(path, offset);
        tavdb_test::patch(path, offset, tavdb_test::word(word));
        const auto read = readFreeList(*database, kValueMedium);
        EXPECT_FALSE(read) << offset << " " << word;
        EXPECT_EQ(read.error.kind, FaultKind::damaged);
        tavdb_test::patch(path, offset, tavdb_test::word(old));
    }
    EXPECT_EQ(blocks().size(), 1U);
}

}  // namespace
}  // namespace tavdb::image
