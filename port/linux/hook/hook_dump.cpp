// SPDX-License-Identifier: Apache-2.0
// The hook library's part of the diagnostic dump, in the shape that all modules
// share: banner, the size lines at level 5, statics, and at every level but 98
// the functions. Changes nothing.
#include "common/library_lock.h"
#include "hook/hook_state.h"
#include "hook/hook_table.h"
#include "tavdb_platform.h"

namespace tavdb {
namespace {

constexpr int32_t kLevelWithSizes = 5;
constexpr int32_t kLevelStatics = 98;

uint32_t lowWord(const void *address) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address));
}

template <typename Function>
uint32_t lowWord(Function *function) {
    return lowWord(reinterpret_cast<const void *>(function));
}

void dumpWord(int32_t level, const char *name, uint32_t value) {
    dbs_me_debug_trace(level, "[0x%8x]:%s\n", value, name);
}

/// Banner and sizes; the module has no debug data, only RAM.
void dumpHead(const char *banner, int32_t level, uint32_t ramSize, uint32_t *ramTotal) {
    dbs_me_debug_trace(level, "%s", banner);
    if (level == kLevelWithSizes) {
        dumpWord(level, "debug_size", 0);
        dumpWord(level, "ram_size", ramSize);
    }
    if (ramTotal != nullptr)
        *ramTotal += ramSize;
}

struct Count {
    uint32_t hooks;
    uint32_t tableSize;
};

void countHook(uint32_t, const tavDBMHook *, void *count) {
    static_cast<Count *>(count)->hooks++;
}

Count countHooks() {
    Count count = {};
    count.tableSize = visitHooks(countHook, &count);
    return count;
}

void dumpEntry(uint32_t id, const tavDBMHook *hook, void *level) {
    dbs_me_debug_trace(*static_cast<int32_t *>(level), "[0x%8x]:[0x%8x][0x%8x][0x%8x][0x%8x]\n", id,
                       lowWord(hook->preWrite), lowWord(hook->postWrite), lowWord(hook->preRead),
                       lowWord(hook->postRead));
}

}  // namespace
}  // namespace tavdb

int32_t dbs_me_db_hook_debug_info(int32_t level, uint32_t *, uint32_t *ramSize) {
    const tavdb::LibraryLock lock;
    const tavdb::HookState state = tavdb::hookState();
    tavdb::dumpHead("====(db_hook)\n", level, sizeof state, ramSize);
    tavdb::dumpWord(level, "s_db_hook_file_count", state.files);
    tavdb::dumpWord(level, "s_db_hook_init_count", state.initCount);
    tavdb::dumpWord(level, "s_db_hook_count", tavdb::countHooks().hooks);
    if (level == tavdb::kLevelStatics)
        return 0;
    tavdb::dumpWord(level, "dbs_me_db_hook_debug_info", tavdb::lowWord(&dbs_me_db_hook_debug_info));
    tavdb::dumpWord(level, "hook_init", tavdb::lowWord(&hook_init));
    tavdb::dumpWord(level, "hook_term", tavdb::lowWord(&hook_term));
    tavdb::dumpWord(level, "getHook", tavdb::lowWord(&getHook));
    tavdb::dumpWord(level, "tavHookRegister", tavdb::lowWord(&tavHookRegister));
    return 0;
}

int32_t dbs_me_db_hook_entry_debug_info(int32_t level, uint32_t *, uint32_t *ramSize) {
    const tavdb::LibraryLock lock;
    tavdb::dumpHead("====(db_hook_entry)\n", level, tavdb::countHooks().tableSize, ramSize);
    tavdb::visitHooks(tavdb::dumpEntry, &level);
    return 0;
}

// Hooks run in the thread that reads or writes: this port has no queue of hooks
// that are still to run, and so neither of the next two has anything to show.
int32_t dbs_me_db_hook_post_debug_info(int32_t level, uint32_t *, uint32_t *ramSize) {
    tavdb::dumpHead("====(db_hook_post)\n", level, 0, ramSize);
    return 0;
}

int32_t dbs_me_db_queue_debug_info(int32_t level, uint32_t *, uint32_t *ramSize) {
    tavdb::dumpHead("====(db_queue)\n", level, 0, ramSize);
    return 0;
}
