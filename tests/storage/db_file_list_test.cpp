// SPDX-License-Identifier: Apache-2.0
// Taking space from a free list, on a medium and in a file: first fit, splits,
// fragments, the order of accesses. Failures and damage have their own tests.
#include "storage/file_list_place.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

class FileListGet : public BothListsTest {
protected:
    uint32_t get(uint32_t size) {
        return place().get(&session, size);
    }
};
TAVDB_BOTH_FAMILIES(FileListGet);

TEST_P(FileListGet, FromAnEmptyListGivesNothingAndRecordsNoError) {
    putList({});
    EXPECT_EQ(get(16), 0U);
    EXPECT_TRUE(silent());
    EXPECT_TRUE(imageUntouched());
    EXPECT_THAT(place().accesses(), ElementsAre("open", "read 4@12", "close"));
}

TEST_P(FileListGet, LargerThanEveryBlockGivesNothingAndRecordsNoError) {
    putList({{100, 40}, {200, 60}});
    EXPECT_EQ(get(61), 0U);
    EXPECT_TRUE(silent());
    EXPECT_TRUE(imageUntouched());
    EXPECT_THAT(place().transfers(), ElementsAre("read 4@12", "read 8@100", "read 8@200"));
}

TEST_P(FileListGet, OfABlocksSizeUnlinksIt) {
    ListImage expected = putList({{100, 40}, {200, 60}});
    EXPECT_EQ(get(40), 100U);
    EXPECT_TRUE(silent());
    EXPECT_TRUE(imageIs(expected.word(kFirstFreeWord, 200)));
}

TEST_P(FileListGet, OfTheOnlyBlockEmptiesTheList) {
    ListImage expected = putList({{100, 40}});
    EXPECT_EQ(get(40), 100U);
    EXPECT_TRUE(imageIs(expected.word(kFirstFreeWord, 0)));
}

TEST_P(FileListGet, EightBytesSmallerLeavesABlockOfEight) {
    ListImage expected = putList({{100, 40}, {200, 60}});
    EXPECT_EQ(get(32), 100U);
    EXPECT_TRUE(imageIs(expected.word(kFirstFreeWord, 132).head(132, 200, 8)));
}

TEST_P(FileListGet, NineBytesSmallerLeavesABlockOfNine) {
    ListImage expected = putList({{100, 40}, {200, 60}});
    EXPECT_EQ(get(31), 100U);
    expected.word(kFirstFreeWord, 131);
    EXPECT_TRUE(imageIs(place().writeElement(expected, 131, 200, 9)));
}

TEST_P(FileListGet, SplitsALargeBlockAtItsFront) {
    ListImage expected = putList({{100, 3000}});
    EXPECT_EQ(get(40), 100U);
    EXPECT_TRUE(imageIs(expected.word(kFirstFreeWord, 140).head(140, 0, 2960)));
    EXPECT_TRUE(silent());
}

TEST_P(FileListGet, TakesTheFirstBlockThatFitsAndNotTheBest) {
    ListImage expected = putList({{100, 20}, {200, 2000}, {3000, 40}});
    EXPECT_EQ(get(40), 200U);
    EXPECT_TRUE(imageIs(expected.word(100, 240).head(240, 3000, 1960)));
}

TEST_P(FileListGet, ReadsNoBlockBehindTheOneItTakes) {
    putList({{100, 20}, {200, 40}, {300, 40}});
    EXPECT_EQ(get(40), 200U);
    EXPECT_THAT(place().transfers(), ElementsAre("read 4@12", "read 8@100", "read 8@200", "write 4@100"));
}

TEST_P(FileListGet, UnlinksABlockFromTheMiddle) {
    ListImage expected = putList({{100, 20}, {200, 40}, {300, 20}});
    EXPECT_EQ(get(40), 200U);
    EXPECT_TRUE(imageIs(expected.word(100, 300)));
}

TEST_P(FileListGet, UnlinksTheLastBlock) {
    ListImage expected = putList({{100, 20}, {200, 20}, {300, 40}});
    EXPECT_EQ(get(40), 300U);
    EXPECT_TRUE(imageIs(expected.word(200, 0)));
}

TEST_P(FileListGet, SplitsByTheLinkThenTheHeadEachAccessOnItsOwn) {
    putList({{100, 3000}});
    EXPECT_EQ(get(40), 100U);
    EXPECT_THAT(place().accesses(), ElementsAre("open", "read 4@12", "close", "open", "read 8@100", "close", "open",
                                                "write 4@12", "close", "open", "write 8@140", "close"));
}

TEST_P(FileListGet, OverwritesAFragmentBeforeItUnlinks) {
    putList({{100, 43}});
    EXPECT_EQ(get(40), 100U);
    EXPECT_THAT(place().transfers(), ElementsAre("read 4@12", "read 8@100", "write 3@140", "write 4@12"));
}

TEST_P(FileListGet, OfNothingGivesTheHeadAndLeavesTheListAsItWas) {
    ListImage expected = putList({{100, 2000}, {2200, 60}});
    EXPECT_EQ(get(0), 100U);
    EXPECT_TRUE(silent());
    EXPECT_TRUE(imageIs(expected));
}

TEST_P(FileListGet, SizesAreUnsigned) {
    ListImage expected = putList({{100, 0x90000000U}});
    EXPECT_EQ(get(0x90000000U), 100U);
    EXPECT_TRUE(imageIs(expected.word(kFirstFreeWord, 0)));
}

TEST_P(FileListGet, AHugeRequestDoesNotFitASmallBlock) {
    putList({{100, 40}});
    for (const uint32_t size : {0x80000000U, 0xFFFFFFF8U, UINT32_MAX})
        EXPECT_EQ(get(size), 0U) << size;
    EXPECT_TRUE(silent());
    EXPECT_TRUE(imageUntouched());
}

TEST_P(FileListGet, WorksWithoutASession) {
    putList({{100, 40}});
    EXPECT_EQ(place().get(nullptr, 40), 100U);
    EXPECT_EQ(place().get(nullptr, 40), 0U);
}

TEST_P(FileListGet, RecordsTakenOneAfterTheOtherLieSideBySide) {
    putList({{16, 4080}});
    EXPECT_EQ(get(40), 16U);
    EXPECT_EQ(get(28), 56U);
    EXPECT_EQ(get(28), 84U);
    EXPECT_THAT(freeListOf(place().image()), ElementsAre(FreeRange{112, 3984}));
}

/// Bytes that are left over and too few for a block's head.
class FileListFragment : public ListTest, public testing::WithParamInterface<std::tuple<Family, uint32_t>> {
protected:
    void SetUp() override {
        ListTest::SetUp();
        usePlace(std::get<0>(GetParam()));
    }
    static uint32_t left() {
        return std::get<1>(GetParam());
    }
};

TEST_P(FileListFragment, IsOverwrittenAndLostWithTheBlockGivenWhole) {
    constexpr uint8_t kFiller[] = {0xDE, 0xAD, 0xDE, 0xAD, 0xDE, 0xAD, 0xDE};
    ListImage expected = putList({{100, 40}, {200, 60}});
    EXPECT_EQ(place().get(&session, 40 - left()), 100U);
    expected.word(kFirstFreeWord, 200).put(140 - left(), {kFiller, kFiller + left()});
    EXPECT_TRUE(imageIs(expected));
    EXPECT_TRUE(silent());
}
INSTANTIATE_TEST_SUITE_P(Left, FileListFragment,
                         testing::Combine(testing::Values(Family::medium, Family::file), testing::Range(1U, 8U)),
                         [](const auto &test) {
                             return nameOf(std::get<0>(test.param)) + std::to_string(std::get<1>(test.param));
                         });

/// The bytes themselves, so that no helper hides them.
class FileListBytes : public ListTest {
protected:
    void SetUp() override {
        ListTest::SetUp();
        usePlace(Family::medium);
    }
    std::string bytesAt(uint32_t offset, size_t length) const {
        return hexText(fakeMedia().bytesAt("component.med", offset, length));
    }
};

TEST_F(FileListBytes, AHeaderAndAFreeBlockAreWordsInTheMachinesByteOrder) {
    putImage(ListImage(64, {}));
    EXPECT_EQ(flst_m_setFirstOffset(&session, kComponentMedia, 16), 0);
    const tavDBMFreeBlock block = {0, 48};
    EXPECT_EQ(flst_m_setElement(&session, kComponentMedia, 16, &block), 0);
    EXPECT_EQ(bytesAt(0, 16), hexWords(0xA1B2C3D4, 0x5E6F7081, 0x00C0FFEE, 16));
    EXPECT_EQ(bytesAt(16, 8), hexWords(0, 48));
    const bool big = std::endian::native == std::endian::big;
    EXPECT_EQ(bytesAt(12, 4), big ? "00 00 00 10" : "10 00 00 00");
    EXPECT_EQ(bytesAt(20, 4), big ? "00 00 00 30" : "30 00 00 00");
}

TEST_F(FileListBytes, ASplitLeavesTheseBytes) {
    putList({{16, 48}}, 64);
    EXPECT_EQ(flst_m_get(&session, kComponentMedia, 16), 16U);
    EXPECT_EQ(bytesAt(0, 16), hexWords(0xA1B2C3D4, 0x5E6F7081, 0x00C0FFEE, 32));
    EXPECT_EQ(bytesAt(16, 16), hexWords(0, 48, 0x77777777, 0x77777777)) << "the old head, and a body nobody touched";
    EXPECT_EQ(bytesAt(32, 16), hexWords(0, 32, 0x77777777, 0x77777777));
}

TEST_F(FileListBytes, AFragmentOfSevenIsThisPattern) {
    putList({{16, 23}}, 64);
    EXPECT_EQ(flst_m_get(&session, kComponentMedia, 16), 16U);
    EXPECT_EQ(bytesAt(31, 9), "77 de ad de ad de ad de 77");
    EXPECT_EQ(bytesAt(12, 4), "00 00 00 00");
}

TEST_P(FileListGet, WalksALongListWithOneReadPerBlock) {
    std::vector<FreeRange> blocks;
    for (uint32_t i = 0; i < 200; ++i)
        blocks.push_back({16 + i * 16, 8});
    blocks.push_back({3300, 100});
    ListImage expected = putList(blocks);
    EXPECT_EQ(get(100), 3300U);
    EXPECT_TRUE(silent());
    EXPECT_EQ(place().transfers().size(), 1U + 201U + 1U);
    EXPECT_EQ(place().accesses().size(), 3 * (1U + 201U + 1U));
    EXPECT_TRUE(imageIs(expected.word(blocks[199].offset, 0)));
}

}  // namespace
}  // namespace tavdb_test
