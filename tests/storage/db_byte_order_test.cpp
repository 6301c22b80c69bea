// SPDX-License-Identifier: Apache-2.0
// The byte-order setting, the reversal of words, and what the setting does to
// the writer of free blocks: it ends the process before anything is written.
#include <csignal>
#include <fstream>

#include "file_content.h"
#include "storage/file_list_place.h"

namespace tavdb_test {
namespace {

class ByteOrder : public MediaTest {};

TEST_F(ByteOrder, WordsAreStoredAsTheyAreByDefault) {
    EXPECT_EQ(boadj_judge(), 0);
    EXPECT_EQ(boadj_type(), 0);
}

TEST_F(ByteOrder, TheDefaultDoesNotFollowTheSetting) {
    environment().set("SIM_BYTE_ORDER", "LITTLE_ENDIAN");
    EXPECT_EQ(boadj_judge(), 0);
}

TEST_F(ByteOrder, OnlyTheExactWordIsRecognised) {
    environment().set("SIM_BYTE_ORDER", "LITTLE_ENDIAN");
    EXPECT_EQ(boadj_type(), 1);
}

TEST_F(ByteOrder, TheSettingIsReadOnEveryCall) {
    environment().set("SIM_BYTE_ORDER", "LITTLE_ENDIAN");
    EXPECT_EQ(boadj_type(), 1);
    environment().set("SIM_BYTE_ORDER", "BIG_ENDIAN");
    EXPECT_EQ(boadj_type(), 0);
    environment().unset("SIM_BYTE_ORDER");
    EXPECT_EQ(boadj_type(), 0);
}

struct Spelling {
    const char *name;
    const char *value;
};

void PrintTo(const Spelling &spelling, std::ostream *stream) {
    *stream << spelling.name;
}

class ByteOrderOther : public ByteOrder, public testing::WithParamInterface<Spelling> {};

TEST_P(ByteOrderOther, SpellingMeansWordsAsTheyAre) {
    environment().set("SIM_BYTE_ORDER", GetParam().value);
    EXPECT_EQ(boadj_type(), 0);
}
INSTANTIATE_TEST_SUITE_P(Values, ByteOrderOther,
                         testing::Values(Spelling{"Empty", ""}, Spelling{"LowerCase", "little_endian"},
                                         Spelling{"MixedCase", "Little_Endian"},
                                         Spelling{"TrailingBlank", "LITTLE_ENDIAN "},
                                         Spelling{"LeadingBlank", " LITTLE_ENDIAN"},
                                         Spelling{"TrailingDigit", "LITTLE_ENDIAN1"}, Spelling{"Beginning", "LITTLE"},
                                         Spelling{"Big", "BIG_ENDIAN"}, Spelling{"One", "1"}),
                         kRowName);

TEST_F(ByteOrder, AWordIsReversedInPlace) {
    uint8_t bytes[] = {1, 2, 3, 4, 5};
    boadj_word(bytes, 0);
    EXPECT_EQ(hexText(bytes), "04 03 02 01 05");
}

TEST_F(ByteOrder, AWordThatIsKeptDeliberatelyChangesNoMemory) {
    uint8_t bytes[] = {1, 2, 3, 4};
    for (const int32_t keep : {1, -1, 256}) {
        boadj_word(bytes, keep);
        EXPECT_EQ(hexText(bytes), "01 02 03 04") << keep;
    }
}

TEST_F(ByteOrder, TwoWordsAreReversedEachInItsPlaceAtBothEnds) {
    uint8_t source[] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    uint8_t destination[] = {0, 0, 0, 0, 0, 0, 0, 0, 9};
    boadj_wordx2(source, 0, destination);
    EXPECT_EQ(hexText(source), "04 03 02 01 08 07 06 05 09");
    EXPECT_EQ(hexText(destination), "04 03 02 01 08 07 06 05 09");
}

TEST_F(ByteOrder, TwoWordsThatAreKeptAreReversedInTheDestinationOnly) {
    uint8_t source[] = {1, 2, 3, 4, 5, 6, 7, 8};
    uint8_t destination[8] = {};
    boadj_wordx2(source, 1, destination);
    EXPECT_EQ(hexText(source), "01 02 03 04 05 06 07 08");
    EXPECT_EQ(hexText(destination), "04 03 02 01 08 07 06 05");
}

TEST_F(ByteOrder, AnyKeepFlagButZeroKeeps) {
    uint8_t source[] = {1, 2, 3, 4, 5, 6, 7, 8};
    uint8_t destination[8] = {};
    boadj_wordx2(source, -1, destination);
    EXPECT_EQ(hexText(source), "01 02 03 04 05 06 07 08");
}

TEST_F(ByteOrder, WordsNeedNoAlignment) {
    uint8_t bytes[9] = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    uint8_t destination[9] = {};
    boadj_word(bytes + 1, 0);
    boadj_wordx2(bytes + 1, 1, destination + 1);
    EXPECT_EQ(hexText(bytes), "00 04 03 02 01 05 06 07 08");
    EXPECT_EQ(hexText(destination), "00 01 02 03 04 08 07 06 05");
}

TEST_F(ByteOrder, ReversingTwiceGivesTheWordBack) {
    uint32_t word = 0x01020304;
    boadj_word(&word, 0);
    EXPECT_EQ(word, 0x04030201U);
    boadj_word(&word, 0);
    EXPECT_EQ(word, 0x01020304U);
}

/// The setting is on; the medium is a real file, so that what a dying process wrote can be seen.
class LittleEndianSetting : public MediaTest {
protected:
    void SetUp() override {
        MediaTest::SetUp();
        testing::FLAGS_gtest_death_test_style = "fast";
        environment().set("TAVDB_DEFMEDIA", file("default.med"));
        environment().set("SIM_BYTE_ORDER", "LITTLE_ENDIAN");
    }
    void putList(const std::vector<FreeRange> &blocks) {
        image_ = ListImage(4096, blocks);
        std::ofstream stream(file("default.med"), std::ios::binary);
        stream.write(reinterpret_cast<const char *>(image_.bytes.data()),
                     static_cast<std::streamsize>(image_.bytes.size()));
    }
    std::vector<std::string> changes() const {
        return differences(image_.bytes, contentOf<Bytes>(file("default.med")));
    }
    static bool endedByASignal(int status) {
        return WIFSIGNALED(status) &&
               (WTERMSIG(status) == SIGILL || WTERMSIG(status) == SIGTRAP || WTERMSIG(status) == SIGSEGV);
    }

    ListImage image_{16, {}};
};
using LittleEndianSettingDeathTest = LittleEndianSetting;

TEST_F(LittleEndianSettingDeathTest, DeliberatelyEndsTheProcessInTheElementWriterBeforeAnythingIsWritten) {
    putList({});
    const tavDBMFreeBlock element = {1, 2};
    EXPECT_EXIT(flst_m_setElement(&session, 0, 200, &element), endedByASignal, "");
    EXPECT_THAT(changes(), testing::IsEmpty());
}

TEST_F(LittleEndianSettingDeathTest, EndsASplitBehindItsLink) {
    putList({{100, 40}});
    EXPECT_EXIT(flst_m_get(&session, 0, 16), endedByASignal, "");
    EXPECT_EQ(changes(), differences(image_.bytes, ListImage(image_).word(kFirstFreeWord, 116).bytes));
}

TEST_F(LittleEndianSettingDeathTest, DeliberatelyEndsTheReversalWithoutADestination) {
    uint8_t words[8] = {};
    EXPECT_EXIT(boadj_wordx2(words, 1, nullptr), endedByASignal, "");
    EXPECT_EXIT(boadj_wordx2(words, 0, nullptr), endedByASignal, "");
}

TEST_F(LittleEndianSetting, LeavesReadsAndTheOtherWritesAsTheyAre) {
    putList({{100, 40}, {200, 60}});
    EXPECT_EQ(flst_m_getRoot(&session, 0), ListImage::kRoot);
    EXPECT_EQ(flst_m_get(&session, 0, 40), 100U);
    EXPECT_EQ(changes(), differences(image_.bytes, ListImage(image_).word(kFirstFreeWord, 200).bytes));
    EXPECT_EQ(flst_m_setRoot(&session, 0, 0x01020304), 23);
    EXPECT_EQ(flst_m_getRoot(&session, 0), 0x01020304U);
    EXPECT_EQ(flst_m_setFirstOffset(&session, 0, 100), 0);
    EXPECT_EQ(changes(), differences(image_.bytes, ListImage(image_).word(kRootWord, 0x01020304).bytes));
}

TEST_F(LittleEndianSetting, IsNotAskedForAFile) {
    putList({{100, 2000}});
    const std::string path = file("default.med");
    const tavDBMFreeBlock element = {0x01020304, 2000};
    EXPECT_EQ(flst_setElement(&session, path.c_str(), 100, &element), 0);
    EXPECT_EQ(flst_get(&session, path.c_str(), 100), 100U);
    ListImage expected = image_;
    expected.word(kFirstFreeWord, 200).head(100, 0x01020304, 2000).head(200, 0x01020304, 1900);
    EXPECT_EQ(changes(), differences(image_.bytes, expected.bytes));
}

TEST_F(LittleEndianSetting, SpeltOtherwiseLetsElementsBeWritten) {
    environment().set("SIM_BYTE_ORDER", "little_endian");
    putList({});
    const tavDBMFreeBlock element = {1, 2};
    EXPECT_EQ(flst_m_setElement(&session, 0, 200, &element), 0);
    EXPECT_EQ(changes(), differences(image_.bytes, ListImage(image_).head(200, 1, 2).bytes));
}

}  // namespace
}  // namespace tavdb_test
