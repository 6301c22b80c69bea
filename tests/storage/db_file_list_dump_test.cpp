// SPDX-License-Identifier: Apache-2.0
// The dump of the file list: it has no statics, and names its functions in the
// order of the two families.
#include <algorithm>

#include "storage/storage_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

constexpr char kBanner[] = "====(db_file_list)\n";

class FileListDump : public MediaTest {
protected:
    static std::vector<std::string> dump(int32_t level) {
        fakeTrace().clear();
        EXPECT_EQ(dbs_me_db_file_list_debug_info(level, nullptr, nullptr), 0);
        return fakeTrace().texts(level);
    }
    static std::vector<DumpedWord> functions() {
        dump(99);
        return dumpedWords(99);
    }
};

TEST_F(FileListDump, IsOnlyABannerAtLevel98) {
    EXPECT_THAT(dump(98), ElementsAre(kBanner));
}

TEST_F(FileListDump, NamesTheFunctionsOfBothFamiliesInTheirOrder) {
    std::vector<std::string> names;
    for (const DumpedWord &word : functions()) {
        if (word.name.starts_with("flst_"))
            names.push_back(word.name);
    }
    EXPECT_THAT(names, ElementsAre("flst_m_getFirstOffset", "flst_m_setFirstOffset", "flst_m_getElement",
                                   "flst_m_setElement", "flst_m_setNext", "flst_m_fillFlagmented", "flst_m_getRoot",
                                   "flst_m_setRoot", "flst_m_get", "flst_m_release", "flst_getFirstOffset",
                                   "flst_getElement", "flst_setNext", "flst_fillFlagmented", "flst_setFirstOffset",
                                   "flst_setElement", "flst_get", "flst_release"));
}

TEST_F(FileListDump, ShowsTheAddressOfEachExportedFunction) {
    size_t exported = 0;
    for (const DumpedWord &word : functions()) {
        EXPECT_NE(word.value, 0U) << word.name;
        const uint32_t address = addressInLibrary(word.name);
        if (address == 0)
            continue;
        EXPECT_EQ(word.value, address) << word.name;
        ++exported;
    }
    EXPECT_EQ(exported, 15U) << "ten of the file list, four of the byte order, the dump";
}

TEST_F(FileListDump, ShowsNoFunctionTwice) {
    std::vector<uint32_t> addresses;
    for (const DumpedWord &word : functions())
        addresses.push_back(word.value);
    std::sort(addresses.begin(), addresses.end());
    EXPECT_EQ(std::adjacent_find(addresses.begin(), addresses.end()), addresses.end());
}

TEST_F(FileListDump, ShowsBothSizesAtLevel5Only) {
    std::vector<std::string> expected = dump(99);
    EXPECT_EQ(dump(2), expected);
    expected.insert(expected.begin() + 1, {dumpLine(0, "debug_size"), dumpLine(0, "ram_size")});
    EXPECT_EQ(dump(5), expected);
}

TEST_F(FileListDump, AddsNothingToTheTotals) {
    for (const int32_t level : {5, 98, 99}) {
        uint32_t totals[2] = {7, 9};
        EXPECT_EQ(dbs_me_db_file_list_debug_info(level, &totals[0], &totals[1]), 0);
        EXPECT_EQ(totals[0], 7U);
        EXPECT_EQ(totals[1], 9U);
    }
}

}  // namespace
}  // namespace tavdb_test
