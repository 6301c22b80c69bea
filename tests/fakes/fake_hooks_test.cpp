// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_hooks.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "fakes/event_log.h"
#include "fakes/fakes_test.h"
#include "fakes/fault_plan.h"
#include "tavdb_platform.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using Hooks = FakesTest;

TEST_F(Hooks, ServeTheRecordsOfTheTest) {
    tavDBMSession session{};
    fakeHooks().put(5, {});
    EXPECT_NE(getHook(&session, 5), nullptr);
    EXPECT_EQ(getHook(&session, 6), nullptr);
    EXPECT_THAT(eventLog().lines(), ElementsAre("getHook 5", "getHook 6"));
    EXPECT_NONFATAL_FAILURE(getHook(&session, 0), "hook 0");
    EXPECT_NONFATAL_FAILURE(getHook(nullptr, 5), "without a session");
}

TEST_F(Hooks, TheReadyRecordLogsAndAsksTheTest) {
    tavDBMSession session{};
    fakeHooks().putReady(5);
    fakeHooks().onCall([](const HookCall &call) {
        *call.length = 2;
        return call.phase == HookPhase::postRead ? 13 : 0;
    });
    const tavDBMHook *const hook = getHook(&session, 5);
    ASSERT_NE(hook, nullptr);
    eventLog().clear();
    char data[4] = {};
    int32_t length = 4;
    EXPECT_EQ(hook->preWrite(120, data, &length), 0);
    EXPECT_EQ(length, 2);
    EXPECT_EQ(hook->postWrite(120, data, &length), 0);
    EXPECT_EQ(hook->preRead(120, data, &length), 0);
    EXPECT_EQ(hook->postRead(120, data, &length), 13);
    EXPECT_THAT(eventLog().lines(), ElementsAre("hook preWrite 120 4", "hook postWrite 120 2", "hook preRead 120 2",
                                                "hook postRead 120 2"));
}

TEST_F(Hooks, StartsAndStopsAreCounted) {
    faultPlan().add({.operation = Operation::hookInit, .skip = 1, .fault = returning(120)});
    EXPECT_EQ(hook_init("/x/hooks.conf"), 0);
    EXPECT_EQ(fakeHooks().starts(), 1);
    EXPECT_EQ(hook_init("/x/hooks.conf"), 120);
    EXPECT_EQ(fakeHooks().starts(), 1);
    EXPECT_EQ(hook_term(), 0);
    EXPECT_EQ(fakeHooks().starts(), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("hookInit /x/hooks.conf", "hookInit /x/hooks.conf -> 120", "hookTerm"));
}

TEST_F(Hooks, DumpsAreLogged) {
    faultPlan().add(
        {.operation = Operation::platformDump, .subject = "dbs_me_db_hook_post_debug_info", .fault = returning(7)});
    EXPECT_EQ(dbs_me_db_queue_debug_info(99, nullptr, nullptr), 0);
    EXPECT_EQ(dbs_me_db_hook_debug_info(99, nullptr, nullptr), 0);
    EXPECT_EQ(dbs_me_db_hook_entry_debug_info(99, nullptr, nullptr), 0);
    EXPECT_EQ(dbs_me_db_hook_post_debug_info(99, nullptr, nullptr), 7);
    EXPECT_EQ(eventLog().count(Operation::platformDump), 4U);
}

}  // namespace
}  // namespace tavdb_test
