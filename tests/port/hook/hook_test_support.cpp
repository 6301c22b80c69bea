// SPDX-License-Identifier: Apache-2.0
#include "hook_test_support.h"

#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>

namespace {

std::mutex traceMutex;
std::vector<TraceLine> traceLines;
std::atomic<int32_t> allocationsLeft{-1};
std::atomic<int32_t> blocks{0};

}  // namespace

std::function<void(int number)> pluginLoaded;

extern "C" TAVDB_API void onPluginLoaded(int number);

void onPluginLoaded(int number) {
    if (pluginLoaded)
        pluginLoaded(number);
}

void dbs_me_debug_trace(int32_t level, const char *format, ...) {
    char text[8192];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::scoped_lock lock(traceMutex);
    traceLines.push_back({level, text});
}

void *tavOSWSubAllocMem(uint32_t size) {
    if (allocationsLeft >= 0 && allocationsLeft-- == 0)
        return nullptr;
    blocks++;
    return malloc(size != 0 ? size : 1);
}

int32_t tavOSWOrgFreeMemPart(int32_t, void *buffer) {
    blocks--;
    // Whoever still uses it gets nonsense, with or without a sanitizer.
    memset(buffer, 0xDD, malloc_usable_size(buffer));
    free(buffer);
    return 0;
}

int32_t programPreWrite(uint32_t, void *, int32_t *) {
    return 1001;
}

int32_t programPostRead(uint32_t, void *, int32_t *) {
    return 1004;
}

std::vector<TraceLine> takeTrace() {
    const std::scoped_lock lock(traceMutex);
    return std::exchange(traceLines, {});
}

void failAllocationAfter(int32_t count) {
    allocationsLeft = count;
}

int32_t liveBlocks() {
    return blocks;
}

HookTest::HookTest() {
    char name[] = "/tmp/hook_test_XXXXXX";
    folder_ = mkdtemp(name);
    takeTrace();
}

HookTest::~HookTest() {
    failAllocationAfter(-1);
    for (const uint32_t id : registered_)
        EXPECT_EQ(tavHookRegister(id, nullptr), 0);
    // One of these is the last detach; the others find nothing to do.
    EXPECT_EQ(hook_init(nullptr), 0);
    for (int i = 0; i < 10; i++)
        EXPECT_EQ(hook_term(), 0);
    EXPECT_EQ(liveBlocks(), 0) << "everything is given back";
    EXPECT_FALSE(isPluginLoaded(1));
    EXPECT_FALSE(isPluginLoaded(2));
    pluginLoaded = nullptr;
    std::filesystem::remove_all(folder_);
}

std::string HookTest::writeFile(const std::string &name, const std::string &content) {
    const std::string path = folder_ + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

int32_t HookTest::initWith(const std::string &content) {
    return hook_init(writeFile("hooks.conf", content).c_str());
}

void HookTest::registerHook(uint32_t id, const tavDBMHook &hook) {
    registered_.push_back(id);
    ASSERT_EQ(tavHookRegister(id, &hook), 0);
}

std::vector<int32_t> resultsOf(const tavDBMHook *hook) {
    std::vector<int32_t> results;
    for (const tavDBMHookFunction function : {hook->preWrite, hook->postWrite, hook->preRead, hook->postRead})
        results.push_back(function != nullptr ? function(0, nullptr, nullptr) : 0);
    return results;
}

tavDBMHook hookWith(tavDBMHookFunction preWrite) {
    return {.reserved = nullptr, .preWrite = preWrite, .postWrite = nullptr, .preRead = nullptr, .postRead = nullptr};
}

std::string pluginPath(int number) {
    return HOOK_PLUGIN_FOLDER "/hook_plugin_" + std::to_string(number) + ".so";
}

bool isPluginLoaded(int number) {
    void *const handle = dlopen(pluginPath(number).c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr)
        dlclose(handle);
    return handle != nullptr;
}
