// SPDX-License-Identifier: Apache-2.0
// A child process inherits the hooks, and it is not stopped by a lock that a
// thread of its parent held at the fork.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "hook_test_support.h"

namespace {

int32_t answer(uint32_t, void *, int32_t *) {
    return 5;
}

/// Runs `work` in a child. @return its result, or -1 when it did not end by itself in 10 s
int inChild(const std::function<int()> &work) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(10);
        _exit(work());
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

using HookFork = HookTest;

TEST_F(HookFork, ChildInheritsTheHooks) {
    ASSERT_EQ(initWith("1 " + pluginPath(1) + " pluginPreWrite - - -\n"), 0);
    registerHook(2, hookWith(answer));
    EXPECT_EQ(inChild([] { return getHook(nullptr, 1)->preWrite(0, nullptr, nullptr); }), 11);
    EXPECT_EQ(inChild([] { return getHook(nullptr, 2)->preWrite(0, nullptr, nullptr); }), 5);
    EXPECT_EQ(inChild([] { return hook_term() == 0 && getHook(nullptr, 1) == nullptr ? 0 : 1; }), 0);
    EXPECT_NE(getHook(nullptr, 1), nullptr) << "the parent's stay";
}

TEST_F(HookFork, ChildCanRegisterWhateverTheParentsThreadsDid) {
    const tavDBMHook hook = hookWith(answer);
    std::atomic<bool> isDone{false};
    std::thread busy([&] {
        while (!isDone)
            EXPECT_EQ(tavHookRegister(1, &hook), 0);
    });
    for (int i = 0; i < 200; i++)
        EXPECT_EQ(inChild([&] { return tavHookRegister(2, &hook); }), 0);
    isDone = true;
    busy.join();
    tavHookRegister(1, nullptr);
}

}  // namespace
