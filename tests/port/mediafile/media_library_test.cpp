// SPDX-License-Identifier: Apache-2.0
// The library as a whole: its dump, what init drops, and the kind of medium that
// is not there yet.
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "media_test_support.h"

namespace {

class MediaLibrary : public MediaTest {
protected:
    static std::vector<std::string> dump(int32_t level, uint32_t *debugSize = nullptr, uint32_t *ramSize = nullptr) {
        takeTrace();
        EXPECT_EQ(dbs_me_db_media_file_debug_info(level, debugSize, ramSize), 0);
        std::vector<std::string> texts;
        for (const TraceLine &line : takeTrace()) {
            EXPECT_EQ(line.level, level);
            texts.push_back(line.text);
        }
        return texts;
    }
};

TEST_F(MediaLibrary, DumpHasABannerAndOneLinePerMappedMedium) {
    writeFile("a.med", "0123456789");
    writeFile("b.med", "01234");
    mapped("a.med");
    mapped("b.med");
    for (const int32_t level : {0, 98, 99}) {
        const std::vector<std::string> texts = dump(level);
        ASSERT_EQ(texts.size(), 3U);
        EXPECT_EQ(texts[0], "====(db_media_file)\n");
        EXPECT_EQ(texts[1].substr(0, 13), "[0x       0]:");
        EXPECT_EQ(texts[1].substr(25), "[0x       a][a.med]\n");
        EXPECT_EQ(texts[2].substr(0, 13), "[0x       1]:");
        EXPECT_EQ(texts[2].substr(25), "[0x       5][b.med]\n");
    }
}

TEST_F(MediaLibrary, DumpPrintsItsSizesAtLevel5AndAddsThemAlways) {
    for (const int32_t level : {0, 5, 98, 99}) {
        uint32_t debugSize = 1000;
        uint32_t ramSize = 2000;
        const std::vector<std::string> texts = dump(level, &debugSize, &ramSize);
        EXPECT_EQ(debugSize, 1000U);
        EXPECT_GT(ramSize, 2000U);
        char expected[64];
        snprintf(expected, sizeof expected, "[0x%8x]:ram_size\n", ramSize - 2000U);
        ASSERT_EQ(texts.size(), level == 5 ? 3U : 1U);
        if (level == 5) {
            EXPECT_EQ(texts[1], "[0x       0]:debug_size\n");
            EXPECT_EQ(texts[2], expected);
        }
    }
}

TEST_F(MediaLibrary, InitDropsAllMappings) {
    writeFile("a.med", "0123456789");
    const int descriptors = openDescriptors();
    mapped("a.med");
    EXPECT_EQ(dump(98).size(), 2U);
    initialise();
    EXPECT_EQ(dump(98).size(), 1U);
    EXPECT_EQ(openDescriptors(), descriptors);
}

}  // namespace
