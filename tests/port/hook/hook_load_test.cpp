// SPDX-License-Identifier: Apache-2.0
// Where the libraries and functions of a hook file come from, and what a file
// whose libraries or functions are missing leaves behind.
#include <unistd.h>

#include <filesystem>

#include "hook_test_support.h"

namespace {

class HookLoad : public HookTest {
protected:
    std::string path() const {
        return folder() + "/hooks.conf";
    }
    /// Checks that there is one line, that it has the site and starts with the reason.
    void expectRefusal(int site, const std::string &start) {
        const std::vector<TraceLine> lines = takeTrace();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].level, 0);
        const std::string head = "hook_init():[Error]:[" + std::to_string(site) + "][" + start;
        EXPECT_EQ(lines[0].text.substr(0, head.size()), head);
        EXPECT_EQ(lines[0].text.substr(lines[0].text.size() - 2), "]\n");
    }
};

TEST_F(HookLoad, FunctionsOfALibraryAreFoundInTheirOrder) {
    EXPECT_EQ(initWith("3 " + pluginPath(1) + " pluginPreWrite pluginPostWrite pluginPreRead pluginPostRead\n"), 0);
    ASSERT_NE(getHook(nullptr, 3), nullptr);
    EXPECT_EQ(resultsOf(getHook(nullptr, 3)), (std::vector<int32_t>{11, 12, 13, 14}));
    EXPECT_EQ(getHook(nullptr, 3)->reserved, nullptr);
}

TEST_F(HookLoad, EachLineHasItsOwnLibrary) {
    EXPECT_EQ(initWith("1 " + pluginPath(1) + " pluginPreWrite - - -\n2 " + pluginPath(2) + " pluginPreWrite - - -\n"),
              0);
    EXPECT_EQ(resultsOf(getHook(nullptr, 1))[0], 11);
    EXPECT_EQ(resultsOf(getHook(nullptr, 2))[0], 21);
}

TEST_F(HookLoad, DashIsTheRunningProgram) {
    EXPECT_EQ(initWith("1 - programPreWrite - - programPostRead\n"), 0);
    ASSERT_NE(getHook(nullptr, 1), nullptr);
    EXPECT_EQ(resultsOf(getHook(nullptr, 1)), (std::vector<int32_t>{1001, 0, 0, 1004}));
}

TEST_F(HookLoad, RelativeLibraryIsBesideTheHookFile) {
    std::filesystem::create_directory(folder() + "/lib");
    std::filesystem::copy_file(pluginPath(1), folder() + "/lib/mine.so");
    ASSERT_EQ(chdir("/"), 0);
    EXPECT_EQ(initWith("1 lib/mine.so pluginPreWrite - - -\n2 ./lib/mine.so - pluginPostWrite - -\n"), 0);
    ASSERT_NE(getHook(nullptr, 1), nullptr);
    EXPECT_EQ(resultsOf(getHook(nullptr, 1))[0], 11);
    EXPECT_EQ(resultsOf(getHook(nullptr, 2))[1], 12);
}

TEST_F(HookLoad, HookFileWithoutAFolderIsInTheWorkingFolder) {
    std::filesystem::copy_file(pluginPath(1), folder() + "/mine.so");
    writeFile("hooks.conf", "1 ./mine.so pluginPreWrite - - -\n");
    ASSERT_EQ(chdir(folder().c_str()), 0);
    EXPECT_EQ(hook_init("hooks.conf"), 0);
    EXPECT_NE(getHook(nullptr, 1), nullptr);
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(HookLoad, LibraryWithoutASlashIsTheLoadersToFind) {
    std::filesystem::copy_file(pluginPath(1), folder() + "/only_here.so");
    EXPECT_EQ(initWith("1 only_here.so pluginPreWrite - - -\n"), 121) << "not beside the file";
    takeTrace();
    EXPECT_EQ(initWith("1 libc.so.6 - - - -\n"), 0);
}

TEST_F(HookLoad, LibraryThatCannotBeLoadedIsRefused) {
    const std::string missing = folder() + "/missing.so";
    EXPECT_EQ(initWith("# x\n1 " + missing + " - - - -\n"), 121);
    expectRefusal(170, path() + ":2: the library cannot be loaded: " + missing + ": cannot open");
    EXPECT_EQ(getHook(nullptr, 1), nullptr);
}

TEST_F(HookLoad, FileThatIsNoLibraryIsRefused) {
    writeFile("text.so", "not a library");
    EXPECT_EQ(initWith("1 ./text.so - - - -\n"), 121);
    expectRefusal(170, path() + ":1: the library cannot be loaded: ");
}

TEST_F(HookLoad, MissingFunctionIsRefusedInEachPlace) {
    for (const std::string functions : {"none - - -", "- none - -", "- - none -", "- - - none"}) {
        EXPECT_EQ(initWith("1 " + pluginPath(1) + " " + functions + "\n"), 122) << functions;
        expectRefusal(180, path() + ":1: the function is not found: none]");
        EXPECT_EQ(initWith("1 - " + functions + "\n"), 122) << functions;
        expectRefusal(180, path() + ":1: the function is not found: none]");
    }
}

TEST_F(HookLoad, FailureUnloadsWhatTheSameCallLoaded) {
    EXPECT_EQ(initWith("1 " + pluginPath(1) + " pluginPreWrite - - -\n2 " + pluginPath(2) + " none - - -\n"), 122);
    EXPECT_FALSE(isPluginLoaded(1));
    EXPECT_FALSE(isPluginLoaded(2));
    EXPECT_EQ(getHook(nullptr, 1), nullptr);
    EXPECT_EQ(getHook(nullptr, 2), nullptr);
    EXPECT_EQ(initWith("1 " + pluginPath(1) + " pluginPreWrite - - -\n"), 0) << "its ids are free again";
}

TEST_F(HookLoad, FailureLeavesWhatEarlierCallsLoaded) {
    ASSERT_EQ(hook_init(writeFile("first.conf", "1 " + pluginPath(1) + " pluginPreWrite - - -\n").c_str()), 0);
    const tavDBMHook *const hook = getHook(nullptr, 1);
    EXPECT_EQ(initWith("2 " + pluginPath(1) + " none - - -\n"), 122);
    EXPECT_EQ(initWith("2 " + pluginPath(2) + " - - - -\nnonsense\n"), 120);
    EXPECT_TRUE(isPluginLoaded(1));
    EXPECT_FALSE(isPluginLoaded(2));
    EXPECT_EQ(getHook(nullptr, 1), hook);
    EXPECT_EQ(resultsOf(hook)[0], 11);
}

TEST_F(HookLoad, PluginMayRegisterHooksWhileItIsLoaded) {
    const tavDBMHook own = hookWith(programPreWrite);
    pluginLoaded = [&](int number) { registerHook(500U + static_cast<uint32_t>(number), own); };
    EXPECT_EQ(initWith("1 " + pluginPath(1) + " - - - -\n"), 0);
    ASSERT_NE(getHook(nullptr, 501), nullptr);
    EXPECT_EQ(resultsOf(getHook(nullptr, 501))[0], 1001);
}

}  // namespace
