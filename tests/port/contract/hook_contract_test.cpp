// SPDX-License-Identifier: Apache-2.0
// The hook library: which hook an id has, and for how long.
#include <vector>

#include "port/contract/platform_under_test.h"

namespace tavdb::test {
namespace {

int32_t refuse(uint32_t, void *, int32_t *) {
    return 45;
}

int32_t allow(uint32_t, void *, int32_t *) {
    return 0;
}

class HookContract : public ContractTest {
protected:
    static int32_t start() {
        return hook_init(platformUnderTest().hookPath.c_str());
    }
    const tavDBMHook *find(uint32_t id) {
        return getHook(&session, id);
    }

    tavDBMSession session = {};
};

TEST_F(HookContract, WithoutHooksEveryIdHasNone) {
    ASSERT_EQ(start(), 0);
    for (const uint32_t id : {1U, 2U, 0x7FFFFFFFU, 0xFFFFFFFFU})
        EXPECT_EQ(find(id), nullptr) << id;
    EXPECT_EQ(session.errorCode, 0U) << "no hook is no error";
    EXPECT_EQ(hook_term(), 0);
}

TEST_F(HookContract, AnIdGivesItsFunctionsAndNoOthers) {
    platformUnderTest().installHook(0x80000001U, {nullptr, refuse, nullptr, allow, nullptr});
    platformUnderTest().installHook(2, {nullptr, nullptr, allow, nullptr, refuse});
    ASSERT_EQ(start(), 0);
    const tavDBMHook *const first = find(0x80000001U);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->preWrite, refuse);
    EXPECT_EQ(first->postWrite, nullptr);
    EXPECT_EQ(first->preRead, allow);
    EXPECT_EQ(first->postRead, nullptr);
    const tavDBMHook *const second = find(2);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->preWrite, nullptr);
    EXPECT_EQ(second->postRead, refuse);
    EXPECT_EQ(find(1), nullptr);
    EXPECT_EQ(hook_term(), 0);
}

TEST_F(HookContract, AHookStaysUntilTheLastStop) {
    platformUnderTest().installHook(7, {nullptr, refuse, nullptr, nullptr, nullptr});
    ASSERT_EQ(start(), 0);
    const tavDBMHook *const hook = find(7);
    ASSERT_NE(hook, nullptr);
    ASSERT_EQ(start(), 0);
    EXPECT_EQ(hook_term(), 0);
    EXPECT_EQ(hook->preWrite, refuse);
    ASSERT_NE(find(7), nullptr);
    EXPECT_EQ(find(7)->preWrite, refuse);
    EXPECT_EQ(hook_term(), 0);
}

TEST_F(HookContract, ThreadsMayLookUpAtOnce) {
    platformUnderTest().installHook(7, {nullptr, refuse, nullptr, nullptr, nullptr});
    ASSERT_EQ(start(), 0);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([] {
            tavDBMSession own = {};
            for (int i = 0; i < 500; ++i) {
                const tavDBMHook *const hook = getHook(&own, 7);
                ASSERT_NE(hook, nullptr);
                ASSERT_EQ(hook->preWrite, refuse);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(hook_term(), 0);
}

TEST_F(HookContract, DumpsAddTheirSizesAndTakeNullPointers) {
    using Dump = int32_t (*)(int32_t, uint32_t *, uint32_t *);
    ASSERT_EQ(start(), 0);
    for (const Dump dump : {dbs_me_db_hook_debug_info, dbs_me_db_hook_entry_debug_info, dbs_me_db_hook_post_debug_info,
                            dbs_me_db_queue_debug_info})
        for (const int32_t level : {0, 5, 98, 99}) {
            uint32_t debugSize = 1000;
            uint32_t ramSize = 2000;
            EXPECT_EQ(dump(level, &debugSize, &ramSize), 0);
            EXPECT_GE(debugSize, 1000U);
            EXPECT_GE(ramSize, 2000U);
            EXPECT_EQ(dump(level, nullptr, nullptr), 0);
        }
    EXPECT_EQ(hook_term(), 0);
}

}  // namespace
}  // namespace tavdb::test
