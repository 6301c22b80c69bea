// SPDX-License-Identifier: Apache-2.0
// Taking and releasing the lock of one component while others are held, and
// attaching to a database with everything that belongs to it.
#include "workloads.h"

namespace tavdb_benchmark {

namespace {

void lockAndUnlock(benchmark::State &state, Device &device, uint32_t held) {
    tavDBMSession *const session = device.session();
    const std::vector<uint32_t> &others = device.leaves(Kind::u8);
    const uint32_t leaf = device.leaf(static_cast<uint32_t>(Kind::u32));
    bool isGood = held <= others.size();
    for (uint32_t i = 0; isGood && i < held; i++)
        isGood = tavDBMLock(session, others[i], TAVDB_LOCK_TRY) == TAVDB_OK;
    if (!isGood)
        return state.SkipWithError("the other locks are not to be had");
    measure(state, [&] {
        return tavDBMLock(session, leaf, TAVDB_LOCK_TRY) == TAVDB_OK && tavDBMUnlock(session, leaf) == TAVDB_OK;
    });
    for (uint32_t i = 0; i < held; i++)
        tavDBMUnlock(session, others[i]);
}

}  // namespace

void addLocks(Device &device) {
    for (const uint32_t held : {0U, 10U, 100U, 1000U})
        add("lock and unlock/" + std::to_string(held) + " others held",
            [&device, held](auto &state) { lockAndUnlock(state, device, held); });
}

void addAttach(const Directory &directory) {
    add(nameOf("attach to detach", directory.media(), directory.settings()), [&directory](auto &state) {
        const tavDBMDescription description = directory.description();
        measure(state, [&] {
            tavDBMSession session;
            const int32_t database = tavDBMInit(&description, nullptr);
            return database > 0 && tavDBMInitSession(&session, static_cast<uint32_t>(database)) == TAVDB_OK &&
                   tavDBMTermSession(&session) == TAVDB_OK && tavDBMTerm(static_cast<uint32_t>(database)) == TAVDB_OK;
        });
    });
}

}  // namespace tavdb_benchmark
