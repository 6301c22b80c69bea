// SPDX-License-Identifier: Apache-2.0
// What the tests of the hook library share: a folder for hook files, the trace
// lines that the library wrote, and memory that can be made to fail. The test
// program's own dbs_me_debug_trace and memory functions stand before the port's.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tavdb_platform.h"

struct TraceLine {
    int32_t level;
    std::string text;
    bool operator==(const TraceLine &) const = default;
};

/// All lines since the last call, oldest first.
std::vector<TraceLine> takeTrace();

/// Makes the allocation after `count` further ones fail; -1: none fails.
void failAllocationAfter(int32_t count);
/// Blocks that were allocated and not given back.
int32_t liveBlocks();

/// Called from the constructor of a plug-in.
extern std::function<void(int number)> pluginLoaded;

/// Starts without hooks and ends with nothing loaded and nothing lost.
class HookTest : public ::testing::Test {
protected:
    HookTest();
    ~HookTest() override;

    /// Writes a file into the test's folder. @return its path
    std::string writeFile(const std::string &name, const std::string &content);
    /// hook_init on a file of that content.
    int32_t initWith(const std::string &content);
    const std::string &folder() const {
        return folder_;
    }
    /// Takes a registration back when the test ends.
    void registerHook(uint32_t id, const tavDBMHook &hook);

private:
    std::string folder_;
    std::vector<uint32_t> registered_;
};

/// The four results of a hook's functions; 0 for one that it has not.
std::vector<int32_t> resultsOf(const tavDBMHook *hook);

/// A hook whose pre-write function is one of the test program's.
tavDBMHook hookWith(tavDBMHookFunction preWrite);

std::string pluginPath(int number);
bool isPluginLoaded(int number);

extern "C" {
/// Functions that hook files name with "-" as the library.
TAVDB_API int32_t programPreWrite(uint32_t valueKey, void *data, int32_t *length);
TAVDB_API int32_t programPostRead(uint32_t valueKey, void *data, int32_t *length);
}
