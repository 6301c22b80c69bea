// SPDX-License-Identifier: Apache-2.0
// The single accesses of the file list: root and head of the free list in the
// medium's header, and the head of a free block, with their failures.
#include <cerrno>

#include "fakes/fault_runs.h"
#include "storage/file_list_place.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

class FileListRoot : public ListTest {
protected:
    void SetUp() override {
        ListTest::SetUp();
        usePlace(Family::medium);
        putList({{100, 40}});
    }
    uint32_t getRoot() {
        return flst_m_getRoot(&session, kComponentMedia);
    }
    int32_t setRoot(uint32_t root) {
        return flst_m_setRoot(&session, kComponentMedia, root);
    }
    static void failReads(Fault fault) {
        faultPlan().add({.operation = Operation::mediaRead, .fault = fault});
    }
    static void failWrites(Fault fault) {
        faultPlan().add({.operation = Operation::mediaWrite, .fault = fault});
    }
};

TEST_F(FileListRoot, IsTheThirdWordOfTheHeader) {
    EXPECT_EQ(getRoot(), ListImage::kRoot);
    EXPECT_TRUE(silent());
    EXPECT_TRUE(imageUntouched());
    EXPECT_THAT(place().accesses(), ElementsAre("open", "read 16@0", "close"));
}

TEST_F(FileListRoot, MayBeNone) {
    putImage(ListImage(64, {}).word(kRootWord, 0));
    EXPECT_EQ(getRoot(), 0U);
    EXPECT_TRUE(silent());
}

TEST_F(FileListRoot, OfAMediumThatDoesNotOpenIsCode22) {
    faultPlan().add({.operation = Operation::mediaOpen, .fault = returning(-1, EACCES)});
    EXPECT_EQ(getRoot(), 0U);
    EXPECT_TRUE(accessFailed("getRoot", kGetRootSite, 22, 0, EACCES, 0));
}

TEST_F(FileListRoot, OfAFailedReadIsCode24AndZero) {
    failReads(returning(-1, EIO));
    EXPECT_EQ(getRoot(), 0U);
    EXPECT_TRUE(accessFailed("getRoot", kGetRootSite + 1, 24, 0, EIO, -1));
    EXPECT_THAT(place().accesses(), ElementsAre("open", "read 16@0", "close"));
}

TEST_F(FileListRoot, OfAnImpossibleCountIsCode24) {
    failReads(moreBy(1));
    getRoot();
    EXPECT_EQ(session.errorCode, 24U);
}

TEST_F(FileListRoot, GetIgnoresAFailingClose) {
    faultPlan().add({.operation = Operation::mediaClose});
    EXPECT_EQ(getRoot(), ListImage::kRoot);
    EXPECT_TRUE(silent());
}

/// Bytes of the header that came; the medium gives no error number.
class FileListShortHeader : public FileListRoot, public testing::WithParamInterface<int32_t> {};

TEST_P(FileListShortHeader, GivesDeliberatelyWhateverTheReadLeftThere) {
    const int32_t count = GetParam();
    failReads(returning(count));
    uint32_t expected = 0;
    if (count > 8)
        memcpy(&expected, &stored().bytes[8], static_cast<size_t>(std::min(count - 8, 4)));
    EXPECT_EQ(getRoot(), expected);
    EXPECT_TRUE(accessFailed("getRoot", kGetRootSite + 1, 24, 0, 0, count));
}

TEST_P(FileListShortHeader, KeepsTheRootFromBeingSet) {
    failReads(returning(GetParam()));
    EXPECT_EQ(setRoot(500), 24);
    EXPECT_TRUE(accessFailed("setRoot", kSetRootSite + 1, 24, 0, 0, GetParam()));
    EXPECT_TRUE(imageUntouched());
    EXPECT_THAT(place().accesses(), ElementsAre("open", "read 16@0", "close"));
}
INSTANTIATE_TEST_SUITE_P(Counts, FileListShortHeader, testing::Values(0, 8, 9, 10, 11, 12, 15));

TEST_F(FileListRoot, SetWithACompleteWriteDeliberatelyReportsCode23) {
    ListImage expected = stored();
    EXPECT_EQ(setRoot(500), 23);
    EXPECT_EQ(session.errorCode, 23U);
    EXPECT_EQ(session.errorDetail, 0U);
    const auto fd = static_cast<uint32_t>(eventLog().events(Category::media).at(0).fd);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("flst_m_setRoot", kSetRootSite + 2, {fd, 0, 0, 16})));
    EXPECT_TRUE(imageIs(expected.word(kRootWord, 500)));
}

TEST_F(FileListRoot, SetReadsTheHeaderAndWritesItBackWithOneWordChanged) {
    setRoot(500);
    EXPECT_THAT(place().accesses(), ElementsAre("open", "read 16@0", "write 16@0", "close"));
    EXPECT_EQ(hexText(fakeMedia().bytesAt("component.med", 0, 16)),
              hexWords(FakeMedia::kPreparer[0], FakeMedia::kPreparer[1], 500, 100));
    EXPECT_EQ(getRoot(), 500U);
}

TEST_F(FileListRoot, SetGivesZeroOnlyWhenExactlyFourBytesWereWrittenDeliberately) {
    failWrites(returning(4));
    EXPECT_EQ(setRoot(500), 0);
    EXPECT_TRUE(silent());
}

TEST_F(FileListRoot, SetThatDoesNotOpenIsCode22) {
    faultPlan().add({.operation = Operation::mediaOpen, .fault = returning(-1, EACCES)});
    EXPECT_EQ(setRoot(500), 22);
    EXPECT_TRUE(accessFailed("setRoot", kSetRootSite, 22, 0, EACCES, 0));
    EXPECT_TRUE(imageUntouched());
}

TEST_F(FileListRoot, SetWithAFailedReadIsCode24AndWritesNothing) {
    failReads(returning(-1, EIO));
    EXPECT_EQ(setRoot(500), 24);
    EXPECT_TRUE(accessFailed("setRoot", kSetRootSite + 1, 24, 0, EIO, -1));
    EXPECT_TRUE(imageUntouched());
    EXPECT_THAT(place().accesses(), ElementsAre("open", "read 16@0", "close"));
}

TEST_F(FileListRoot, SetWithAFailedWriteIsCode23WithTheMediumsErrorNumber) {
    failWrites(returning(-1, ENOSPC));
    EXPECT_EQ(setRoot(500), 23);
    EXPECT_TRUE(accessFailed("setRoot", kSetRootSite + 2, 23, 0, ENOSPC, -1));
    EXPECT_TRUE(imageUntouched());
}

TEST_F(FileListRoot, SetWithAnImpossibleCountIsCode23) {
    failWrites(moreBy(4));
    EXPECT_EQ(setRoot(500), 23);
    EXPECT_EQ(fakeTrace().errors().size(), 1U);
}

TEST_F(FileListRoot, SetIgnoresAFailingClose) {
    faultPlan().add({.operation = Operation::mediaClose, .fault = returning(-1, EIO)});
    EXPECT_EQ(setRoot(500), 23);
    EXPECT_EQ(session.errorDetail, 0U);
    EXPECT_EQ(fakeTrace().errors().size(), 1U);
}

TEST_F(FileListRoot, EachFailingOperationOfSetHasItsCode) {
    constexpr int32_t kResults[] = {22, 24, 23, 23, 23};
    const uint64_t operations = forEachFailingOperation([&](uint64_t failing) {
        putList({{100, 40}});
        ASSERT_LT(failing, 5U);
        EXPECT_EQ(setRoot(500), kResults[failing]) << failing;
        EXPECT_EQ(session.errorCode, static_cast<uint32_t>(kResults[failing]));
        EXPECT_EQ(fakeTrace().errors().size(), 1U);
        EXPECT_TRUE(failing < 3 ? imageUntouched() : imageIs(ListImage(stored()).word(kRootWord, 500))) << failing;
        EXPECT_THAT(fakeMedia().openDescriptors(), testing::IsEmpty());
    });
    EXPECT_EQ(operations, 4U) << "open, read, write, close";
}

class FileListHeader : public BothListsTest {
protected:
    const FamilyTraits &family() const {
        return place().family();
    }
};
TAVDB_BOTH_FAMILIES(FileListHeader);

TEST_P(FileListHeader, SetFirstOffsetWritesOneWordAt12) {
    ListImage expected = putList({{100, 40}});
    EXPECT_EQ(place().setFirstOffset(&session, 0x01020304), 0);
    EXPECT_TRUE(silent());
    EXPECT_TRUE(imageIs(expected.word(kFirstFreeWord, 0x01020304)));
    EXPECT_THAT(place().accesses(), ElementsAre("open", "write 4@12", "close"));
}

TEST_P(FileListHeader, SetElementWritesTwoWordsAndOpensOnce) {
    ListImage expected = putList({});
    EXPECT_EQ(place().setElement(&session, 200, {0x01020304, 0x05060708}), 0);
    EXPECT_TRUE(silent());
    EXPECT_TRUE(imageIs(expected.head(200, 0x01020304, 0x05060708)));
    EXPECT_THAT(place().accesses(), ElementsAre("open", "write 8@200", "close"));
}

TEST_P(FileListHeader, WritesIgnoreAFailingClose) {
    putList({});
    faultPlan().add({.operation = family().close, .times = kForEver});
    EXPECT_EQ(place().setFirstOffset(&session, 16), 0);
    EXPECT_EQ(place().setElement(&session, 200, {0, 8}), 0);
    EXPECT_TRUE(silent());
}

TEST_P(FileListHeader, AWriteThatDoesNotOpenHasTheFamilysOpenCode) {
    putList({});
    faultPlan().add({.operation = family().open, .times = 2, .fault = returning(-1, EROFS)});
    EXPECT_EQ(place().setFirstOffset(&session, 16), family().openCode);
    EXPECT_TRUE(accessFailed("setFirstOffset", kSetFirstOffsetSite, family().openCode, 12, EROFS, 0));
    observe();
    EXPECT_EQ(place().setElement(&session, 200, {0, 8}), family().openCode);
    EXPECT_TRUE(accessFailed("setElement", kSetElementSite, family().openCode, 200, EROFS, 0));
    EXPECT_TRUE(imageUntouched());
}

TEST_P(FileListHeader, AFailedWriteHasTheFamilysWriteCodeAndTheErrorNumber) {
    putList({});
    faultPlan().add({.operation = family().write, .times = 2, .fault = returning(-1, ENOSPC)});
    EXPECT_EQ(place().setFirstOffset(&session, 16), family().writeCode);
    EXPECT_TRUE(accessFailed("setFirstOffset", kSetFirstOffsetSite + 1, family().writeCode, 12, ENOSPC, -1));
    observe();
    EXPECT_EQ(place().setElement(&session, 200, {0, 8}), family().writeCode);
    EXPECT_TRUE(accessFailed("setElement", kSetElementSite + 1, family().writeCode, 200, ENOSPC, -1));
    EXPECT_TRUE(imageUntouched());
}

TEST_P(FileListHeader, AShortWriteHasDetailZeroWhenThePlaceGivesNoErrorNumber) {
    putList({});
    faultPlan().add({.operation = family().write, .fault = shortBy(1)});
    EXPECT_EQ(place().setFirstOffset(&session, 16), family().writeCode);
    EXPECT_TRUE(accessFailed("setFirstOffset", kSetFirstOffsetSite + 1, family().writeCode, 12, 0, 3));
}

TEST_P(FileListHeader, AnImpossibleCountIsAFailedWrite) {
    putList({});
    faultPlan().add({.operation = family().write, .fault = moreBy(1)});
    EXPECT_EQ(place().setElement(&session, 200, {0, 8}), family().writeCode);
    EXPECT_EQ(fakeTrace().errors().size(), 1U);
}

/// An operation of the medium family with a media id outside the table.
struct IdOperation {
    const char *name;
    int64_t (*run)(tavDBMSession *session, int32_t mediaId);
};

void PrintTo(const IdOperation &operation, std::ostream *stream) {
    *stream << operation.name;
}

constexpr tavDBMFreeBlock kElement = {0, 8};

const IdOperation kIdOperations[] = {
    {"get", [](tavDBMSession *s, int32_t id) { return int64_t{flst_m_get(s, id, 16)}; }},
    {"release", [](tavDBMSession *s, int32_t id) { return int64_t{flst_m_release(s, id, 16, 16)}; }},
    {"getRoot", [](tavDBMSession *s, int32_t id) { return int64_t{flst_m_getRoot(s, id)}; }},
    {"setRoot", [](tavDBMSession *s, int32_t id) { return int64_t{flst_m_setRoot(s, id, 16)}; }},
    {"setFirstOffset", [](tavDBMSession *s, int32_t id) { return int64_t{flst_m_setFirstOffset(s, id, 16)}; }},
    {"setElement", [](tavDBMSession *s, int32_t id) { return int64_t{flst_m_setElement(s, id, 16, &kElement)}; }},
};

class FileListUnknownMedium : public LoadedMediaTest, public testing::WithParamInterface<IdOperation> {};

TEST_P(FileListUnknownMedium, GivesZeroAndRecords21) {
    EXPECT_EQ(GetParam().run(&session, 7), 0);
    EXPECT_TRUE(failedWith(21, 0, {errorLine("getMedia", kGetMediaSite, {7})}));
    EXPECT_TRUE(mediaUnchanged());
    EXPECT_THAT(eventLog().lines(Category::media), testing::IsEmpty());
}

TEST_P(FileListUnknownMedium, GivesZeroWithoutASessionToo) {
    EXPECT_EQ(GetParam().run(nullptr, 7), 0);
    EXPECT_EQ(fakeTrace().errors().size(), 1U);
}
INSTANTIATE_TEST_SUITE_P(Operations, FileListUnknownMedium, testing::ValuesIn(kIdOperations), kRowName);

}  // namespace
}  // namespace tavdb_test
