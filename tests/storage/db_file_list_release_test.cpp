// SPDX-License-Identifier: Apache-2.0
// Giving space back to a medium's free list: where a range goes, what it is
// merged with, and which ranges are dropped. Files have a test of their own.
#include "storage/file_list_place.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

class FileListRelease : public ListTest {
protected:
    void SetUp() override {
        ListTest::SetUp();
        usePlace(Family::medium);
    }
};

TEST_F(FileListRelease, IntoAnEmptyListIsDeliberatelyDropped) {
    putList({});
    expectDropped(100, 40);
    EXPECT_THAT(place().accesses(), ElementsAre("open", "read 4@12", "close"));
}

TEST_F(FileListRelease, BehindTheLastBlockIsDeliberatelyDropped) {
    putList({{100, 40}, {200, 40}});
    expectDropped(240, 20);
    expectDropped(300, 20);
}

TEST_F(FileListRelease, InFrontOfTheHeadMakesANewHead) {
    ListImage expected = putList({{200, 40}});
    EXPECT_EQ(release(100, 40), 0);
    EXPECT_TRUE(imageIs(expected.word(kFirstFreeWord, 100).head(100, 200, 40)));
    EXPECT_TRUE(silent());
    EXPECT_THAT(place().accesses(), ElementsAre("open", "read 4@12", "close", "open", "read 8@200", "close", "open",
                                                "write 4@12", "close", "open", "write 8@100", "close"));
}

TEST_F(FileListRelease, TouchingTheHeadBecomesTheHeadMergedWithIt) {
    ListImage expected = putList({{200, 40}, {300, 40}});
    EXPECT_EQ(release(160, 40), 0);
    EXPECT_TRUE(imageIs(expected.word(kFirstFreeWord, 160).head(160, 300, 80)));
    EXPECT_THAT(place().transfers(), ElementsAre("read 4@12", "read 8@200", "write 4@12", "write 8@160"));
}

TEST_F(FileListRelease, BetweenTwoBlocksIsLinkedBetweenThem) {
    ListImage expected = putList({{100, 40}, {200, 40}, {300, 40}});
    EXPECT_EQ(release(150, 20), 0);
    EXPECT_TRUE(imageIs(expected.word(100, 150).head(150, 200, 20)));
    EXPECT_THAT(place().transfers(),
                ElementsAre("read 4@12", "read 8@100", "read 8@200", "write 4@100", "write 8@150"));
}

TEST_F(FileListRelease, TouchingTheBlockBeforeItEnlargesThatBlock) {
    ListImage expected = putList({{100, 40}, {200, 40}});
    EXPECT_EQ(release(140, 20), 0);
    EXPECT_TRUE(imageIs(expected.head(100, 200, 60)));
    EXPECT_THAT(place().transfers(), ElementsAre("read 4@12", "read 8@100", "read 8@200", "write 8@100"));
}

TEST_F(FileListRelease, TouchingTheBlockBehindItIsMergedWithThatBlock) {
    ListImage expected = putList({{100, 40}, {200, 40}, {300, 40}});
    EXPECT_EQ(release(180, 20), 0);
    EXPECT_TRUE(imageIs(expected.word(100, 180).head(180, 300, 60)));
}

TEST_F(FileListRelease, TouchingBothNeighboursMakesThreeBlocksOneAtTheLowerOffset) {
    ListImage expected = putList({{100, 40}, {200, 40}, {300, 40}});
    EXPECT_EQ(release(140, 60), 0);
    EXPECT_TRUE(imageIs(expected.head(100, 300, 140)));
    EXPECT_THAT(freeListOf(place().image()), ElementsAre(FreeRange{100, 140}, FreeRange{300, 40}));
    EXPECT_THAT(place().transfers(), ElementsAre("read 4@12", "read 8@100", "read 8@200", "write 8@100"));
}

TEST_F(FileListRelease, FarDownTheListIsLinkedInOrder) {
    ListImage expected = putList({{100, 20}, {200, 20}, {300, 20}, {400, 20}});
    EXPECT_EQ(release(350, 20), 0);
    EXPECT_TRUE(imageIs(expected.word(300, 350).head(350, 400, 20)));
}

TEST_F(FileListRelease, OfAFreeBlockAgainIsDropped) {
    putList({{100, 40}, {200, 40}, {300, 40}});
    expectDropped(100, 40);
    expectDropped(200, 40);
    expectDropped(300, 40);
}

TEST_F(FileListRelease, OfARangeThatOverlapsAFreeBlockIsDropped) {
    putList({{100, 40}, {200, 40}, {300, 40}});
    for (const FreeRange range : {FreeRange{90, 20}, {110, 10}, {130, 20}, {139, 1}, {150, 60}, {90, 160}, {199, 2}})
        expectDropped(range.offset, range.size);
}

TEST_F(FileListRelease, OfARangeThatRunsPastTheLargestOffsetIsDropped) {
    putList({{100, 40}, {200, 40}});
    for (const FreeRange range : {FreeRange{0xFFFFFFF0U, 0x20}, {UINT32_MAX, 101}})
        expectDropped(range.offset, range.size);
}

TEST_F(FileListRelease, OfTheHeadersBytesIsDropped) {
    putList({{100, 40}});
    expectDropped(0, 16);
    expectDropped(8, 4);
}

TEST_F(FileListRelease, AtTheListsHeadWordDeliberatelyWritesABlockThere) {
    ListImage expected = putList({{100, 40}});
    EXPECT_EQ(release(kFirstFreeWord, 20), 0);
    EXPECT_TRUE(imageIs(expected.head(kFirstFreeWord, 100, 20)));
}

TEST_F(FileListRelease, AtTheListsHeadWordMergesWithATouchingHead) {
    ListImage expected = putList({{100, 40}, {200, 20}});
    EXPECT_EQ(release(kFirstFreeWord, 88), 0);
    EXPECT_TRUE(imageIs(expected.head(kFirstFreeWord, 200, 128)));
}

TEST_F(FileListRelease, WorksWithoutASession) {
    ListImage expected = putList({{200, 40}});
    EXPECT_EQ(place().release(nullptr, 100, 40), 0);
    EXPECT_TRUE(imageIs(expected.word(kFirstFreeWord, 100).head(100, 200, 40)));
}

TEST_F(FileListRelease, GivesBackWhatGetTook) {
    ListImage before = putList({{16, 4080}});
    const uint32_t first = flst_m_get(&session, kComponentMedia, 40);
    const uint32_t second = flst_m_get(&session, kComponentMedia, 28);
    EXPECT_EQ(release(first, 40), 0);
    EXPECT_EQ(release(second, 28), 0);
    EXPECT_EQ(freeListOf(place().image()), freeListOf(before.bytes));
}

TEST_F(FileListRelease, WalksALongListWithOneReadPerBlock) {
    std::vector<FreeRange> blocks;
    for (uint32_t i = 0; i < 200; ++i)
        blocks.push_back({16 + i * 16, 8});
    putList(blocks);
    expectDropped(3300, 100);
    EXPECT_EQ(place().transfers().size(), 201U);
}

/// Offsets from 0x80000000 on, folded onto the medium's lower half.
constexpr uint32_t kHigh = 0x80000000U;

int32_t readFolded(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    return tavdbMemRead(fd, buffer, length, offset & ~kHigh, err);
}

int32_t writeFolded(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    return tavdbMemWrite(fd, buffer, length, offset & ~kHigh, err);
}

class FileListHighOffsets : public FileListRelease {
protected:
    void SetUp() override {
        FileListRelease::SetUp();
        media_table.entry[kComponentMedia].read = readFolded;
        media_table.entry[kComponentMedia].write = writeFolded;
    }
    /// A list whose only block lies at a high offset.
    ListImage putHighList(uint32_t offset, uint32_t size) {
        ListImage image(4096, {});
        image.word(kFirstFreeWord, offset).head(offset & ~kHigh, 0, size);
        putImage(image);
        return image;
    }
};

TEST_F(FileListHighOffsets, AreReachedByGet) {
    ListImage expected = putHighList(kHigh + 1000, 40);
    EXPECT_EQ(flst_m_get(&session, kComponentMedia, 32), kHigh + 1000);
    EXPECT_TRUE(imageIs(expected.word(kFirstFreeWord, kHigh + 1032).head(1032, 0, 8)));
}

TEST_F(FileListHighOffsets, DeliberatelyCompareAsNegativeSoALowRangeIsDropped) {
    putHighList(kHigh + 1000, 40);
    expectDropped(100, 40);
}

TEST_F(FileListHighOffsets, DeliberatelyCompareAsNegativeSoAHighRangeLiesBelowTheHead) {
    putList({{1000, 40}});
    expectDropped(kHigh + 100, 40);
}

}  // namespace
}  // namespace tavdb_test
