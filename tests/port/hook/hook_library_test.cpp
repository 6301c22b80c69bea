// SPDX-License-Identifier: Apache-2.0
// Attaching and detaching: what counts, what is loaded besides, and when all of
// it is forgotten.
#include "hook_test_support.h"

namespace {

class HookLibrary : public HookTest {
protected:
    std::string first() {
        return writeFile("first.conf", "1 " + pluginPath(1) + " pluginPreWrite - - -\n");
    }
    std::string second() {
        return writeFile("second.conf", "2 " + pluginPath(2) + " pluginPreWrite - - -\n");
    }
};

TEST_F(HookLibrary, UnknownIdHasNoHook) {
    EXPECT_EQ(getHook(nullptr, 1), nullptr);
    ASSERT_EQ(hook_init(first().c_str()), 0);
    EXPECT_EQ(getHook(nullptr, 0), nullptr);
    EXPECT_EQ(getHook(nullptr, 2), nullptr);
}

TEST_F(HookLibrary, SamePathAgainOnlyCounts) {
    ASSERT_EQ(hook_init(first().c_str()), 0);
    const tavDBMHook *const hook = getHook(nullptr, 1);
    writeFile("first.conf", "this is not read any more");
    EXPECT_EQ(hook_init((folder() + "/first.conf").c_str()), 0);
    EXPECT_EQ(getHook(nullptr, 1), hook);
    EXPECT_EQ(hook_term(), 0);
    EXPECT_EQ(getHook(nullptr, 1), hook);
    EXPECT_EQ(hook_term(), 0);
    EXPECT_EQ(getHook(nullptr, 1), nullptr);
}

TEST_F(HookLibrary, MissingFileIsRememberedLikeAnyOther) {
    const std::string path = folder() + "/first.conf";
    ASSERT_EQ(hook_init(path.c_str()), 0);
    first();
    EXPECT_EQ(hook_init(path.c_str()), 0);
    EXPECT_EQ(getHook(nullptr, 1), nullptr);
    hook_term();
    hook_term();
    EXPECT_EQ(hook_init(path.c_str()), 0);
    EXPECT_NE(getHook(nullptr, 1), nullptr);
}

TEST_F(HookLibrary, AnotherPathIsLoadedBesides) {
    ASSERT_EQ(hook_init(first().c_str()), 0);
    ASSERT_EQ(hook_init(second().c_str()), 0);
    EXPECT_EQ(resultsOf(getHook(nullptr, 1))[0], 11);
    EXPECT_EQ(resultsOf(getHook(nullptr, 2))[0], 21);
    EXPECT_EQ(hook_term(), 0);
    EXPECT_NE(getHook(nullptr, 1), nullptr) << "all files stay until the last detach";
    EXPECT_NE(getHook(nullptr, 2), nullptr);
}

TEST_F(HookLibrary, IdOfAnotherFileIsRefused) {
    ASSERT_EQ(hook_init(first().c_str()), 0);
    const std::string path = writeFile("again.conf", "5 - - - - -\n1 - programPreWrite - - -\n");
    EXPECT_EQ(hook_init(path.c_str()), 120);
    const std::vector<TraceLine> expected = {
        {0, "hook_init():[Error]:[160][" + path + ":2: another file gives the id]\n"}};
    EXPECT_EQ(takeTrace(), expected);
    EXPECT_EQ(resultsOf(getHook(nullptr, 1))[0], 11);
    EXPECT_EQ(getHook(nullptr, 5), nullptr);
    EXPECT_EQ(hook_init(writeFile("five.conf", "5 - - - - -\n").c_str()), 0) << "the id is free again";
}

TEST_F(HookLibrary, LastDetachUnloadsAndForgets) {
    ASSERT_EQ(hook_init(first().c_str()), 0);
    ASSERT_EQ(hook_init(second().c_str()), 0);
    EXPECT_TRUE(isPluginLoaded(1));
    EXPECT_TRUE(isPluginLoaded(2));
    hook_term();
    hook_term();
    EXPECT_FALSE(isPluginLoaded(1));
    EXPECT_FALSE(isPluginLoaded(2));
    EXPECT_EQ(getHook(nullptr, 1), nullptr);
    EXPECT_EQ(getHook(nullptr, 2), nullptr);
}

TEST_F(HookLibrary, FileIsReadAnewAfterTheLastDetach) {
    ASSERT_EQ(hook_init(first().c_str()), 0);
    hook_term();
    writeFile("first.conf", "9 - programPreWrite - - -\n");
    ASSERT_EQ(hook_init((folder() + "/first.conf").c_str()), 0);
    EXPECT_EQ(getHook(nullptr, 1), nullptr);
    EXPECT_NE(getHook(nullptr, 9), nullptr);
}

TEST_F(HookLibrary, DetachTooManyDoesNothing) {
    EXPECT_EQ(hook_term(), 0);
    EXPECT_EQ(hook_term(), 0);
    ASSERT_EQ(hook_init(first().c_str()), 0);
    EXPECT_NE(getHook(nullptr, 1), nullptr);
}

TEST_F(HookLibrary, FailedAttachDoesNotCount) {
    EXPECT_EQ(initWith("nonsense\n"), 120);
    ASSERT_EQ(hook_init(first().c_str()), 0);
    EXPECT_EQ(initWith("nonsense\n"), 120);
    EXPECT_EQ(hook_term(), 0);
    EXPECT_EQ(getHook(nullptr, 1), nullptr);
}

TEST_F(HookLibrary, DetachAfterAFailedAttachIsHarmless) {
    EXPECT_EQ(initWith("nonsense\n"), 120);
    EXPECT_EQ(hook_term(), 0);
    EXPECT_EQ(hook_init(first().c_str()), 0);
    EXPECT_NE(getHook(nullptr, 1), nullptr);
}

TEST_F(HookLibrary, ManyCyclesUseNoMemoryUp) {
    const std::string paths[] = {first(), second()};
    for (const std::string &path : paths)
        ASSERT_EQ(hook_init(path.c_str()), 0);
    hook_term();
    hook_term();
    const int32_t blocksBefore = liveBlocks();
    for (int i = 0; i < 100; i++) {
        for (const std::string &path : paths)
            ASSERT_EQ(hook_init(path.c_str()), 0);
        hook_term();
        hook_term();
    }
    EXPECT_EQ(liveBlocks(), blocksBefore);
}

}  // namespace
