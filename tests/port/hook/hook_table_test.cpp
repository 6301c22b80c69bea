// SPDX-License-Identifier: Apache-2.0
// Registering and looking up: precedence, any number of hooks, and look-ups
// while other threads register.
#include <atomic>
#include <cerrno>
#include <thread>

#include "hook_test_support.h"

namespace {

int32_t answerOne(uint32_t, void *, int32_t *) {
    return 1;
}

int32_t answerTwo(uint32_t, void *, int32_t *) {
    return 2;
}

using HookTable = HookTest;

TEST_F(HookTable, RegisteredHookNeedsNoHookFile) {
    registerHook(4, hookWith(answerOne));
    ASSERT_NE(getHook(nullptr, 4), nullptr);
    EXPECT_EQ(resultsOf(getHook(nullptr, 4)), (std::vector<int32_t>{1, 0, 0, 0}));
}

TEST_F(HookTable, RecordIsCopied) {
    tavDBMHook hook = hookWith(answerOne);
    registerHook(4, hook);
    hook.preWrite = answerTwo;
    EXPECT_EQ(resultsOf(getHook(nullptr, 4))[0], 1);
    EXPECT_NE(getHook(nullptr, 4), &hook);
}

TEST_F(HookTable, AllFiveWordsAreKept) {
    int word = 0;
    const tavDBMHook hook = {&word, answerOne, answerTwo, programPreWrite, programPostRead};
    registerHook(4, hook);
    EXPECT_EQ(getHook(nullptr, 4)->reserved, &word);
    EXPECT_EQ(resultsOf(getHook(nullptr, 4)), (std::vector<int32_t>{1, 2, 1001, 1004}));
}

TEST_F(HookTable, RegisteredHookStandsBeforeTheFiles) {
    registerHook(1, hookWith(answerOne));
    ASSERT_EQ(initWith("1 - programPreWrite - - -\n2 - programPreWrite - - -\n"), 0);
    registerHook(2, hookWith(answerTwo));
    EXPECT_EQ(resultsOf(getHook(nullptr, 1))[0], 1);
    EXPECT_EQ(resultsOf(getHook(nullptr, 2))[0], 2);
}

TEST_F(HookTable, TakenBackUncoversTheFiles) {
    ASSERT_EQ(initWith("1 - programPreWrite - - -\n"), 0);
    registerHook(1, hookWith(answerOne));
    registerHook(2, hookWith(answerOne));
    EXPECT_EQ(tavHookRegister(1, nullptr), 0);
    EXPECT_EQ(tavHookRegister(2, nullptr), 0);
    EXPECT_EQ(resultsOf(getHook(nullptr, 1))[0], 1001);
    EXPECT_EQ(getHook(nullptr, 2), nullptr);
}

TEST_F(HookTable, TakingBackWhatWasNeverGivenIsFine) {
    EXPECT_EQ(tavHookRegister(77, nullptr), 0);
    EXPECT_EQ(getHook(nullptr, 77), nullptr);
}

TEST_F(HookTable, RegistrationSurvivesTheLastDetach) {
    ASSERT_EQ(initWith("1 - programPreWrite - - -\n"), 0);
    registerHook(1, hookWith(answerOne));
    registerHook(3, hookWith(answerTwo));
    hook_term();
    EXPECT_EQ(resultsOf(getHook(nullptr, 1))[0], 1);
    EXPECT_EQ(resultsOf(getHook(nullptr, 3))[0], 2);
    ASSERT_EQ(initWith("1 - programPreWrite - - -\n"), 0);
    EXPECT_EQ(resultsOf(getHook(nullptr, 1))[0], 1);
}

TEST_F(HookTable, IdZeroIsRefused) {
    const tavDBMHook hook = hookWith(answerOne);
    EXPECT_EQ(tavHookRegister(0, &hook), 0x1000 | EINVAL);
    EXPECT_EQ(tavHookRegister(0, nullptr), 0x1000 | EINVAL);
    EXPECT_EQ(getHook(nullptr, 0), nullptr);
}

TEST_F(HookTable, WithoutMemoryTheOldHookStays) {
    registerHook(1, hookWith(answerOne));
    const tavDBMHook other = hookWith(answerTwo);
    failAllocationAfter(0);
    EXPECT_EQ(tavHookRegister(1, &other), 0x1000 | ENOMEM);
    failAllocationAfter(0);
    EXPECT_EQ(tavHookRegister(123, &other), 0x1000 | ENOMEM);
    failAllocationAfter(-1);
    EXPECT_EQ(resultsOf(getHook(nullptr, 1))[0], 1);
    EXPECT_EQ(getHook(nullptr, 123), nullptr);
}

TEST_F(HookTable, WithoutMemoryToGrowNothingIsLost) {
    const tavDBMHook hook = hookWith(answerOne);
    uint32_t id = 1;
    failAllocationAfter(40);
    while (tavHookRegister(id, &hook) == 0)
        id++;
    failAllocationAfter(-1);
    EXPECT_GT(id, 20U);
    for (uint32_t known = 1; known < id; known++) {
        EXPECT_NE(getHook(nullptr, known), nullptr) << known;
        EXPECT_EQ(tavHookRegister(known, nullptr), 0);
    }
    EXPECT_EQ(getHook(nullptr, id), nullptr);
}

TEST_F(HookTable, ReplacedRecordStaysReadableUntilTheLastDetach) {
    ASSERT_EQ(initWith(""), 0);
    registerHook(1, hookWith(answerOne));
    const tavDBMHook *const before = getHook(nullptr, 1);
    registerHook(1, hookWith(answerTwo));
    EXPECT_EQ(resultsOf(before)[0], 1);
    EXPECT_EQ(resultsOf(getHook(nullptr, 1))[0], 2);
}

TEST_F(HookTable, SwitchingAHookForEverUsesNoMemoryUp) {
    const tavDBMHook hooks[] = {hookWith(answerOne), hookWith(answerTwo)};
    registerHook(1, hooks[0]);
    registerHook(1, hooks[1]);
    const int32_t blocksBefore = liveBlocks();
    for (uint32_t i = 0; i < 10000; i++) {
        ASSERT_EQ(tavHookRegister(1, &hooks[i % 2]), 0);
        ASSERT_EQ(tavHookRegister(1, nullptr), 0);
    }
    EXPECT_EQ(liveBlocks(), blocksBefore);
}

TEST_F(HookTable, LastDetachGivesReplacedRecordsAndTablesBack) {
    const tavDBMHook hooks[] = {hookWith(answerOne), hookWith(answerTwo)};
    ASSERT_EQ(initWith(""), 0);
    for (uint32_t id = 1; id <= 1000; id++)
        for (const tavDBMHook &hook : hooks)
            ASSERT_EQ(tavHookRegister(id, &hook), 0);
    EXPECT_GT(liveBlocks(), 2004) << "a record for each content, the file, and tables that were outgrown";
    hook_term();
    EXPECT_EQ(liveBlocks(), 1001) << "one record for each id and one table";
    for (uint32_t id = 1; id <= 1000; id++) {
        ASSERT_EQ(resultsOf(getHook(nullptr, id))[0], 2);
        ASSERT_EQ(tavHookRegister(id, nullptr), 0);
    }
    ASSERT_EQ(hook_init(nullptr), 0);
    hook_term();
    EXPECT_EQ(liveBlocks(), 0);
}

TEST_F(HookTable, IdsThatComeAndGoDoNotMakeTheTableGrow) {
    const tavDBMHook hook = hookWith(answerOne);
    registerHook(1000000, hook);
    for (uint32_t id = 1; id <= 100000; id++) {
        ASSERT_EQ(hook_init(nullptr), 0);
        ASSERT_EQ(tavHookRegister(id, &hook), 0);
        ASSERT_NE(getHook(nullptr, id), nullptr);
        ASSERT_EQ(tavHookRegister(id, nullptr), 0);
        hook_term();
    }
    uint32_t tableSize = 0;
    dbs_me_db_hook_entry_debug_info(98, nullptr, &tableSize);
    EXPECT_LT(tableSize, 10000U);
}

TEST_F(HookTable, ThousandsOfHooksOfAFile) {
    std::string content;
    for (uint32_t id = 1; id <= 20000; id++)
        content += std::to_string(id * 7) + " - programPreWrite - - -\n";
    ASSERT_EQ(initWith(content), 0);
    for (uint32_t id = 1; id <= 140000; id++)
        ASSERT_EQ(getHook(nullptr, id) != nullptr, id % 7 == 0) << id;
}

TEST_F(HookTable, IdsThatCollideAreAllFound) {
    const tavDBMHook hook = hookWith(answerOne);
    std::vector<uint32_t> ids;
    for (uint32_t bit = 0; bit < 32; bit++)
        ids.push_back(1U << bit);
    for (uint32_t i = 1; i < 2000; i++)
        ids.push_back(i << 16);
    for (const uint32_t id : ids)
        registerHook(id, hook);
    for (const uint32_t id : ids)
        EXPECT_NE(getHook(nullptr, id), nullptr) << id;
    EXPECT_EQ(getHook(nullptr, 3), nullptr);
}

TEST_F(HookTable, LookUpsWhileAnotherThreadRegisters) {
    constexpr uint32_t kIds = 3000;
    ASSERT_EQ(initWith("1 - programPreWrite - - -\n"), 0);
    const tavDBMHook hooks[] = {hookWith(answerOne), hookWith(answerTwo)};
    std::atomic<uint32_t> registered{1};
    std::atomic<bool> isDone{false};
    std::atomic<uint32_t> missed{0};
    std::atomic<uint32_t> wrong{0};
    const auto look = [&] {
        while (!isDone) {
            const uint32_t known = registered;
            for (uint32_t id = 1; id <= known; id++) {
                const tavDBMHook *const hook = getHook(nullptr, id);
                if (hook == nullptr) {
                    missed++;
                    continue;
                }
                const int32_t result = hook->preWrite(id, nullptr, nullptr);
                wrong += result != 1 && result != 2 && result != 1001;
            }
        }
    };
    std::thread readers[] = {std::thread(look), std::thread(look)};
    for (uint32_t id = 2; id <= kIds; id++) {
        EXPECT_EQ(tavHookRegister(id, &hooks[0]), 0);
        registered = id;
        EXPECT_EQ(tavHookRegister(1 + id / 2, &hooks[id % 2]), 0);
    }
    isDone = true;
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(missed, 0U);
    EXPECT_EQ(wrong, 0U);
    for (uint32_t id = 1; id <= kIds; id++)
        tavHookRegister(id, nullptr);
}

TEST_F(HookTable, SeveralThreadsRegisterAtOnce) {
    constexpr uint32_t kIds = 2000;
    const tavDBMHook hook = hookWith(answerOne);
    const auto fill = [&](uint32_t first) {
        for (uint32_t id = first; id <= kIds; id += 4)
            EXPECT_EQ(tavHookRegister(id, &hook), 0);
    };
    std::vector<std::thread> writers;
    for (uint32_t first = 1; first <= 4; first++)
        writers.emplace_back(fill, first);
    for (std::thread &writer : writers)
        writer.join();
    for (uint32_t id = 1; id <= kIds; id++) {
        EXPECT_NE(getHook(nullptr, id), nullptr) << id;
        tavHookRegister(id, nullptr);
    }
}

}  // namespace
