// SPDX-License-Identifier: Apache-2.0
// What is particular to the free list of a file: how the file is opened, the
// filled bodies, and a release that looks at the head of the list only.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "fakes/libc_recorder.h"
#include "storage/file_list_place.h"

namespace tavdb_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class FileListPath : public ListTest {
protected:
    void SetUp() override {
        ListTest::SetUp();
        usePlace(Family::file);
    }
    /// The image after release wrote an element.
    const ListImage &element(ListImage &image, uint32_t offset, uint32_t next, uint32_t size) {
        return place().writeElement(image, offset, next, size);
    }
};

TEST_F(FileListPath, IsOpenedReadOnlyForReadsAndReadWriteForWritesAndNeverCreated) {
    putList({{100, 48}});
    EXPECT_EQ(place().get(&session, 40), 100U);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("sys.open list.img O_RDONLY|O_CLOEXEC", "sys.pread list.img 4@12", "sys.close list.img",
                            "sys.open list.img O_RDONLY|O_CLOEXEC", "sys.pread list.img 8@100", "sys.close list.img",
                            "sys.open list.img O_RDWR|O_CLOEXEC", "sys.pwrite list.img 4@12", "sys.close list.img",
                            "sys.open list.img O_RDWR|O_CLOEXEC", "sys.pwrite list.img 8@140", "sys.close list.img"));
}

TEST_F(FileListPath, OfAMissingFileIsCode53AndCreatesNothing) {
    observe();
    EXPECT_EQ(place().get(&session, 16), 0U);
    EXPECT_TRUE(accessFailed("getFirstOffset", kGetFirstOffsetSite, 53, 12, ENOENT, 0));
    observe();
    EXPECT_EQ(place().setFirstOffset(&session, 16), 53);
    EXPECT_TRUE(accessFailed("setFirstOffset", kSetFirstOffsetSite, 53, 12, ENOENT, 0));
    observe();
    EXPECT_EQ(place().setElement(&session, 16, {0, 100}), 53);
    EXPECT_TRUE(accessFailed("setElement", kSetElementSite, 53, 16, ENOENT, 0));
    EXPECT_FALSE(std::filesystem::exists(file("list.img")));
}

TEST_F(FileListPath, WithoutAPathIsCode53) {
    EXPECT_EQ(flst_get(&session, nullptr, 16), 0U);
    EXPECT_EQ(session.errorCode, 53U);
    EXPECT_EQ(session.errorDetail, static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(flst_release(&session, nullptr, 100, 16), 0);
    EXPECT_EQ(flst_setFirstOffset(&session, nullptr, 16), 53);
}

TEST_F(FileListPath, NeedsNoMediumAtAll) {
    putList({{100, 40}});
    unload();
    observe();
    EXPECT_EQ(place().get(&session, 40), 100U);
    EXPECT_THAT(eventLog().lines(Category::media), IsEmpty());
}

TEST_F(FileListPath, ReleaseInFrontOfTheHeadMakesANewHeadAndFillsItsBody) {
    ListImage expected = putList({{200, 40}});
    EXPECT_EQ(release(100, 40), 0);
    expected.word(kFirstFreeWord, 100);
    EXPECT_TRUE(imageIs(element(expected, 100, 200, 40)));
    EXPECT_TRUE(silent());
}

TEST_F(FileListPath, ReleaseReadsTheHeadThenWritesTheListsWordThenTheElement) {
    putList({{2000, 40}});
    EXPECT_EQ(release(100, 1900), 0);
    EXPECT_THAT(place().transfers(), ElementsAre("read 4@12", "read 8@2000", "write 4@12", "write 8@100"));
}

TEST_F(FileListPath, ReleaseTouchingTheHeadBecomesTheHeadMergedWithIt) {
    ListImage expected = putList({{200, 40}, {300, 40}});
    EXPECT_EQ(release(160, 40), 0);
    expected.word(kFirstFreeWord, 160);
    EXPECT_TRUE(imageIs(element(expected, 160, 300, 80)));
}

TEST_F(FileListPath, ReleaseBehindTheHeadIsDeliberatelyDropped) {
    putList({{100, 40}, {200, 40}, {300, 40}});
    for (const FreeRange range : {FreeRange{140, 20}, {150, 20}, {140, 60}, {180, 20}, {240, 60}, {400, 20}})
        expectDropped(range.offset, range.size);
}

TEST_F(FileListPath, ReleaseBehindTheHeadReadsTheHeadOnly) {
    putList({{100, 40}, {200, 40}});
    expectDropped(150, 20);
    EXPECT_THAT(place().transfers(), ElementsAre("read 4@12", "read 8@100"));
}

TEST_F(FileListPath, ReleaseOfARangeThatOverlapsTheHeadIsDropped) {
    putList({{100, 40}});
    expectDropped(90, 20);
    expectDropped(100, 40);
    expectDropped(110, 10);
}

TEST_F(FileListPath, ReleaseIntoAnEmptyListIsDropped) {
    putList({});
    expectDropped(100, 40);
    EXPECT_THAT(place().transfers(), ElementsAre("read 4@12"));
}

TEST_F(FileListPath, ReleaseOfTheHeadersBytesIsDropped) {
    putList({{100, 40}});
    expectDropped(0, 16);
    expectDropped(8, 4);
}

TEST_F(FileListPath, ReleaseAtTheListsHeadWordDeliberatelyWritesTheElementThere) {
    ListImage expected = putList({{100, 40}});
    EXPECT_EQ(release(kFirstFreeWord, 20), 0);
    EXPECT_TRUE(imageIs(element(expected, kFirstFreeWord, 100, 20)));
    EXPECT_THAT(place().transfers()[2], "write 8@12") << "the list's word is not written on its own";
}

TEST_F(FileListPath, ReleaseAtTheListsHeadWordMergesWithATouchingHead) {
    ListImage expected = putList({{1100, 40}, {2000, 20}});
    EXPECT_EQ(release(kFirstFreeWord, 1088), 0);
    EXPECT_TRUE(imageIs(element(expected, kFirstFreeWord, 2000, 1128)));
}

TEST_F(FileListPath, ReleaseAtTheListsHeadWordReachingIntoTheHeadIsDropped) {
    putList({{100, 40}});
    expectDropped(kFirstFreeWord, 89);
}

/// A sparse file with its only block beyond two gigabytes.
class FileListHighPath : public ListTest {
protected:
    static constexpr uint32_t kHigh = 0x80001000U;

    void SetUp() override {
        ListTest::SetUp();
        fd_ = open64(file("list.img").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_EQ(ftruncate64(fd_, off64_t{kHigh} + 4096), 0);
        put(kFirstFreeWord, kHigh);
        put(kHigh + 4, 40);
        observe();
    }
    void TearDown() override {
        close(fd_);
        ListTest::TearDown();
    }
    void put(uint32_t offset, uint32_t word) const {
        ASSERT_EQ(pwrite64(fd_, &word, sizeof(word), off64_t{offset}), 4);
    }
    uint32_t wordAt(uint32_t offset) const {
        uint32_t word = 0;
        EXPECT_EQ(pread64(fd_, &word, sizeof(word), off64_t{offset}), 4);
        return word;
    }

private:
    int fd_ = -1;
};

TEST_F(FileListHighPath, IsReachedByGet) {
    EXPECT_EQ(flst_get(&session, file("list.img").c_str(), 32), kHigh);
    EXPECT_EQ(wordAt(kFirstFreeWord), kHigh + 32);
    EXPECT_EQ(wordAt(kHigh + 36), 8U);
    EXPECT_TRUE(silent());
}

TEST_F(FileListHighPath, DeliberatelyComparesAsNegativeSoALowRangeIsDropped) {
    EXPECT_EQ(flst_release(&session, file("list.img").c_str(), 100, 40), 0);
    EXPECT_EQ(wordAt(kFirstFreeWord), kHigh);
    EXPECT_EQ(wordAt(104), 0U);
    EXPECT_TRUE(silent());
}

/// The size of an element, and whether its body is filled.
class FileListBody : public FileListPath, public testing::WithParamInterface<std::pair<uint32_t, bool>> {};

TEST_P(FileListBody, IsFilledForSizesFrom9To1032) {
    const auto [size, isFilled] = GetParam();
    putList({});
    ListImage expected = stored();
    EXPECT_EQ(place().setElement(&session, 200, {0x1234, size}), 0);
    expected.head(200, 0x1234, size);
    if (isFilled)
        expected.put(208, Bytes(size - 8, 0xBA));
    EXPECT_TRUE(imageIs(expected));
    EXPECT_TRUE(silent());
    if (!isFilled) {
        EXPECT_THAT(place().accesses(), ElementsAre("open", "write 8@200", "close"));
    }
}
INSTANTIATE_TEST_SUITE_P(Sizes, FileListBody,
                         testing::Values(std::pair(0U, false), std::pair(7U, false), std::pair(8U, false),
                                         std::pair(9U, true), std::pair(10U, true), std::pair(264U, true),
                                         std::pair(265U, true), std::pair(1031U, true), std::pair(1032U, true),
                                         std::pair(1033U, false), std::pair(2000U, false),
                                         std::pair(UINT32_MAX, false)),
                         [](const auto &test) { return "Size" + std::to_string(test.param.first); });

TEST_F(FileListPath, AFailingBodyIsDeliberatelyNotNoticed) {
    putList({});
    ListImage expected = stored();
    faultPlan().add({.operation = Operation::sysPwrite, .skip = 1, .times = kForEver});
    EXPECT_EQ(place().setElement(&session, 200, {0, 1000}), 0);
    EXPECT_TRUE(silent());
    faultPlan().endFaults();
    EXPECT_TRUE(imageIs(expected.head(200, 0, 1000)));
}

TEST_F(FileListPath, ABodyIsNotFilledWhenTheHeadWasNotWritten) {
    putList({});
    faultPlan().add({.operation = Operation::sysPwrite, .fault = returning(-1, ENOSPC)});
    EXPECT_EQ(place().setElement(&session, 200, {0, 1000}), 54);
    EXPECT_TRUE(accessFailed("setElement", kSetElementSite + 1, 54, 200, ENOSPC, -1));
    EXPECT_TRUE(imageUntouched());
    EXPECT_EQ(eventLog().count(Operation::sysPwrite), 1U);
}

TEST_F(FileListPath, TheHeadIsWrittenBeforeTheBodyWhileTheFileIsOpenOnce) {
    putList({});
    EXPECT_EQ(place().setElement(&session, 200, {0, 100}), 0);
    EXPECT_THAT(place().accesses(), ElementsAre("open", "write 8@200", "write 92@208", "close"));
}

TEST_F(FileListPath, TheBodyOfASplitsRestIsFilled) {
    ListImage expected = putList({{100, 140}});
    EXPECT_EQ(place().get(&session, 40), 100U);
    expected.word(kFirstFreeWord, 140).head(140, 0, 100).put(148, Bytes(92, 0xBA));
    EXPECT_TRUE(imageIs(expected));
}

TEST_F(FileListPath, GetDeliberatelyGivesTheOffsetAlsoWhenTheSplitsHeadWasNotWritten) {
    ListImage expected = putList({{100, 140}});
    faultPlan().add({.operation = Operation::sysPwrite, .skip = 1, .fault = returning(-1, ENOSPC)});
    EXPECT_EQ(place().get(&session, 40), 100U);
    EXPECT_TRUE(accessFailed("setElement", kSetElementSite + 1, 54, 140, ENOSPC, -1));
    EXPECT_TRUE(imageIs(expected.word(kFirstFreeWord, 140)));
}

TEST_F(FileListPath, AWriteThatCannotOpenTheFileIsCode53) {
    putList({{100, 40}});
    faultPlan().add({.operation = Operation::sysOpen, .skip = 2, .fault = returning(-1, EROFS)});
    EXPECT_EQ(place().get(&session, 40), 100U);
    EXPECT_TRUE(accessFailed("setNext", kSetNextSite, 53, 12, EROFS, 0));
    EXPECT_TRUE(imageUntouched());
}

}  // namespace
}  // namespace tavdb_test
