// SPDX-License-Identifier: Apache-2.0
// The form of a hook file: what is accepted, and for each refusal the code and
// the trace line.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "hook_test_support.h"

namespace {

/// The line that a refused file leaves.
std::vector<TraceLine> refusal(int site, const std::string &text) {
    return {{0, "hook_init():[Error]:[" + std::to_string(site) + "][" + text + "]\n"}};
}

class HookFile : public HookTest {
protected:
    std::string path() const {
        return folder() + "/hooks.conf";
    }
};

TEST_F(HookFile, MissingFileMeansNoHooks) {
    EXPECT_EQ(hook_init((folder() + "/none.conf").c_str()), 0);
    EXPECT_EQ(getHook(nullptr, 1), nullptr);
    EXPECT_TRUE(takeTrace().empty());
}

TEST_F(HookFile, NullAndEmptyPathMeanNoHooks) {
    EXPECT_EQ(hook_init(nullptr), 0);
    EXPECT_EQ(hook_init(""), 0);
    EXPECT_EQ(getHook(nullptr, 1), nullptr);
}

TEST_F(HookFile, EmptyFileMeansNoHooks) {
    EXPECT_EQ(initWith(""), 0);
    EXPECT_EQ(getHook(nullptr, 1), nullptr);
}

TEST_F(HookFile, BlankLinesAndCommentsAreSkipped) {
    EXPECT_EQ(initWith("# hooks\n\n  \t \n   # indented\n1 - programPreWrite - - - # behind a hook\n#"), 0);
    ASSERT_NE(getHook(nullptr, 1), nullptr);
    EXPECT_EQ(resultsOf(getHook(nullptr, 1)), (std::vector<int32_t>{1001, 0, 0, 0}));
}

TEST_F(HookFile, LastLineNeedsNoEnd) {
    EXPECT_EQ(initWith("1 - - - - -\n2 - - - - programPostRead"), 0);
    ASSERT_NE(getHook(nullptr, 2), nullptr);
    EXPECT_EQ(resultsOf(getHook(nullptr, 2)), (std::vector<int32_t>{0, 0, 0, 1004}));
}

TEST_F(HookFile, TabsAndCarriageReturnsSeparateToo) {
    EXPECT_EQ(initWith("\t1\t-\t-  -\t - programPostRead\r\n"), 0);
    ASSERT_NE(getHook(nullptr, 1), nullptr);
    EXPECT_EQ(resultsOf(getHook(nullptr, 1)), (std::vector<int32_t>{0, 0, 0, 1004}));
}

TEST_F(HookFile, HookWithoutAnyFunctionIsAHook) {
    EXPECT_EQ(initWith("5 - - - - -\n"), 0);
    ASSERT_NE(getHook(nullptr, 5), nullptr);
    EXPECT_EQ(resultsOf(getHook(nullptr, 5)), (std::vector<int32_t>{0, 0, 0, 0}));
}

TEST_F(HookFile, IdsAreDecimalOrHexadecimalUpTo32Bits) {
    EXPECT_EQ(initWith("010 - - - - -\n0x20 - - - - -\n0XaBc - - - - -\n4294967295 - - - - -\n0xFFFFFFFE - - - - -\n"),
              0);
    for (const uint32_t id : {10U, 0x20U, 0xABCU, 0xFFFFFFFFU, 0xFFFFFFFEU})
        EXPECT_NE(getHook(nullptr, id), nullptr) << id;
    EXPECT_EQ(getHook(nullptr, 8), nullptr);
}

TEST_F(HookFile, BadIdsAreRefused) {
    for (const char *id : {"0", "0x", "0x0", "-1", "+1", "1a", "a", "0xG", "4294967296", "0x100000000", "-",
                           "99999999999999999999999999", "1.0"}) {
        EXPECT_EQ(initWith("1 - - - - -\n" + std::string(id) + " - - - - -\n"), 120) << id;
        EXPECT_EQ(takeTrace(), refusal(120, path() + ":2: not an id from 1 to 0xFFFFFFFF: " + id));
        EXPECT_EQ(getHook(nullptr, 1), nullptr);
    }
}

TEST_F(HookFile, LineWithTooFewOrTooManyTokensIsRefused) {
    for (const char *line : {"1", "1 - - - -", "1 - - - - - -", "1 - - - - - - - -"}) {
        EXPECT_EQ(initWith("# first\n\n" + std::string(line)), 120) << line;
        EXPECT_EQ(takeTrace(), refusal(110, path() + ":3: a line has an id, a library and four functions"));
    }
}

TEST_F(HookFile, IdGivenTwiceIsRefused) {
    EXPECT_EQ(initWith("7 - - - - -\n8 - - - - -\n0x7 - - - - -\n"), 120);
    EXPECT_EQ(takeTrace(), refusal(150, path() + ":3: the id is given twice"));
    EXPECT_EQ(getHook(nullptr, 7), nullptr);
    EXPECT_EQ(getHook(nullptr, 8), nullptr);
}

TEST_F(HookFile, LongestLineIsReadAndALongerOneRefused) {
    const std::string hook = "1 - - - - - #";
    const std::string longest = hook + std::string(4095 - hook.size(), 'x');
    EXPECT_EQ(initWith(longest + "\n"), 0);
    EXPECT_NE(getHook(nullptr, 1), nullptr);
    hook_term();
    EXPECT_EQ(initWith("\n" + longest + "x\n"), 120);
    EXPECT_EQ(takeTrace(), refusal(130, path() + ":2: the line is longer than 4095 characters"));
}

TEST_F(HookFile, NulByteIsRefused) {
    EXPECT_EQ(initWith(std::string("1 - - - - -\0 x\n", 15)), 120);
    EXPECT_EQ(takeTrace(), refusal(140, path() + ":1: the line holds a NUL byte"));
}

TEST_F(HookFile, FormIsCheckedBeforeAnyLibraryIsLoaded) {
    int loads = 0;
    pluginLoaded = [&](int) { loads++; };
    EXPECT_EQ(initWith("1 " + pluginPath(1) + " - - - -\nnonsense\n"), 120);
    EXPECT_EQ(initWith("1 " + pluginPath(1) + " - - - -\n1 - - - - -\n"), 120);
    EXPECT_EQ(loads, 0);
}

TEST_F(HookFile, DirectoryInsteadOfAFileIsAnErrorNumber) {
    EXPECT_EQ(hook_init(folder().c_str()), 0x1000 | EISDIR);
    EXPECT_EQ(takeTrace(), refusal(190, folder() + ": cannot be read: errno " + std::to_string(EISDIR)));
}

TEST_F(HookFile, FileThatCannotBeOpenedIsAnErrorNumber) {
    writeFile("file", "");
    const std::string below = folder() + "/file/hooks.conf";
    EXPECT_EQ(hook_init(below.c_str()), 0x1000 | ENOTDIR);
    EXPECT_EQ(takeTrace(), refusal(190, below + ": cannot be opened: errno " + std::to_string(ENOTDIR)));
}

TEST_F(HookFile, FifoDoesNotHang) {
    const std::string fifo = folder() + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(hook_init(fifo.c_str()), 0) << "without a writer it is an empty file";
    const int writer = open(fifo.c_str(), O_RDWR | O_NONBLOCK);
    hook_term();
    EXPECT_EQ(hook_init(fifo.c_str()), 0x1000 | EAGAIN);
    close(writer);
}

TEST_F(HookFile, LongPathIsShownByItsEnd) {
    std::string deep = folder();
    while (deep.size() < 900)
        deep += "/" + std::string(100, 'd');
    ASSERT_EQ(system(("mkdir -p " + deep).c_str()), 0);
    const std::string path = deep + "/hooks.conf";
    ASSERT_EQ(system(("echo x > " + path).c_str()), 0);
    EXPECT_EQ(hook_init(path.c_str()), 120);
    const std::string shown = path.substr(path.size() - 480);
    EXPECT_EQ(takeTrace(), refusal(110, shown + ":1: a line has an id, a library and four functions"));
}

TEST_F(HookFile, EveryFailingAllocationIsAnErrorAndLosesNothing) {
    const std::string content = "1 ./hook_plugin_1.so pluginPreWrite - - -\n2 - programPreWrite - - -\n";
    ASSERT_EQ(system(("cp " + pluginPath(1) + " " + folder()).c_str()), 0);
    int32_t code = -1;
    int32_t failures = 0;
    for (; failures < 100; failures++) {
        failAllocationAfter(failures);
        code = initWith(content);
        failAllocationAfter(-1);
        if (code == 0)
            break;
        EXPECT_EQ(code, 0x1000 | ENOMEM);
        EXPECT_EQ(takeTrace().size(), 1U);
        EXPECT_EQ(getHook(nullptr, 1), nullptr);
        EXPECT_LE(liveBlocks(), 1) << "the table of ids stays once there is one";
    }
    EXPECT_EQ(code, 0);
    EXPECT_EQ(failures, 6);
    EXPECT_NE(getHook(nullptr, 1), nullptr);
}

}  // namespace
