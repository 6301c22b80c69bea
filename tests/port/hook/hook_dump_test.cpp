// SPDX-License-Identifier: Apache-2.0
// The four dump functions: banner, the size lines at level 5, contents, totals.
#include <cstdio>

#include "hook_test_support.h"

namespace {

using DumpFunction = int32_t (*)(int32_t, uint32_t *, uint32_t *);

struct Dump {
    const char *name;
    DumpFunction function;
};

const Dump kDumps[] = {{"db_hook", dbs_me_db_hook_debug_info},
                       {"db_hook_entry", dbs_me_db_hook_entry_debug_info},
                       {"db_hook_post", dbs_me_db_hook_post_debug_info},
                       {"db_queue", dbs_me_db_queue_debug_info}};

class HookDump : public HookTest {
protected:
    static std::vector<std::string> textsOf(DumpFunction function, int32_t level) {
        takeTrace();
        EXPECT_EQ(function(level, nullptr, nullptr), 0);
        std::vector<std::string> texts;
        for (const TraceLine &line : takeTrace()) {
            EXPECT_EQ(line.level, level);
            texts.push_back(line.text);
        }
        return texts;
    }
};

TEST_F(HookDump, BannerComesFirstAtEveryLevel) {
    for (const Dump &dump : kDumps)
        for (const int32_t level : {0, 5, 98, 99})
            EXPECT_EQ(textsOf(dump.function, level).at(0), "====(" + std::string(dump.name) + ")\n");
}

TEST_F(HookDump, SizesArePrintedAtLevel5AndAddedAtEveryLevel) {
    for (const Dump &dump : kDumps)
        for (const int32_t level : {0, 5, 98, 99}) {
            uint32_t debugSize = 1000;
            uint32_t ramSize = 2000;
            EXPECT_EQ(dump.function(level, &debugSize, &ramSize), 0);
            EXPECT_EQ(debugSize, 1000U);
            EXPECT_GE(ramSize, 2000U);
            const std::vector<std::string> texts = textsOf(dump.function, level);
            char expected[64];
            snprintf(expected, sizeof expected, "[0x%8x]:ram_size\n", ramSize - 2000U);
            const bool hasSizes = texts.size() >= 3 && texts[1] == "[0x       0]:debug_size\n" && texts[2] == expected;
            EXPECT_EQ(hasSizes, level == 5) << dump.name << " at " << level;
        }
}

TEST_F(HookDump, CountsOfFilesAttachesAndHooks) {
    ASSERT_EQ(initWith("1 - - - - -\n2 - - - - -\n"), 0);
    ASSERT_EQ(hook_init(nullptr), 0);
    registerHook(2, hookWith(programPreWrite));
    registerHook(3, hookWith(programPreWrite));
    const std::vector<std::string> statics = {"====(db_hook)\n", "[0x       1]:s_db_hook_file_count\n",
                                              "[0x       2]:s_db_hook_init_count\n", "[0x       3]:s_db_hook_count\n"};
    EXPECT_EQ(textsOf(dbs_me_db_hook_debug_info, 98), statics);
}

TEST_F(HookDump, FunctionsFollowTheStaticsButNotAtLevel98) {
    const std::vector<std::string> texts = textsOf(dbs_me_db_hook_debug_info, 99);
    ASSERT_EQ(texts.size(), 9U);
    const char *const names[] = {"dbs_me_db_hook_debug_info", "hook_init", "hook_term", "getHook", "tavHookRegister"};
    for (size_t i = 0; i < std::size(names); i++)
        EXPECT_EQ(texts[4 + i].substr(13), std::string(names[i]) + "\n");
}

TEST_F(HookDump, OneLineForEachHook) {
    const tavDBMHook hook = {nullptr, programPreWrite, nullptr, nullptr, programPostRead};
    registerHook(0x12, hook);
    char expected[128];
    snprintf(expected, sizeof expected, "[0x      12]:[0x%8x][0x       0][0x       0][0x%8x]\n",
             static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&programPreWrite)),
             static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&programPostRead)));
    EXPECT_EQ(textsOf(dbs_me_db_hook_entry_debug_info, 99),
              (std::vector<std::string>{"====(db_hook_entry)\n", expected}));
}

TEST_F(HookDump, PostAndQueueHaveNothingBeyondTheBanner) {
    ASSERT_EQ(initWith("1 - - - - -\n"), 0);
    EXPECT_EQ(textsOf(dbs_me_db_hook_post_debug_info, 99).size(), 1U);
    EXPECT_EQ(textsOf(dbs_me_db_queue_debug_info, 99).size(), 1U);
}

}  // namespace
