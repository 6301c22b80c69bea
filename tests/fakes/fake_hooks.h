// SPDX-License-Identifier: Apache-2.0
// The platform's hook library in a test: serves the records that the test puts
// under an id, and offers one ready record whose four functions log their call
// and ask the test what to do. The fault plan decides about start and stop.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

#include "tavdb_plugin.h"

namespace tavdb_test {

/// Which of a hook's functions is called.
enum class HookPhase : uint8_t { preWrite, postWrite, preRead, postRead };

/// A call of a ready record's function; data and length may be changed.
struct HookCall {
    HookPhase phase;
    uint32_t valueKey;
    void *data;
    int32_t *length;
};

class FakeHooks {
public:
    using Action = std::function<int32_t(const HookCall &call)>;

    /// Serves the record under that id.
    void put(uint32_t hookId, const tavDBMHook &hook);
    /// Serves the ready record: each call is logged as "hook preWrite 120 4", value key and length.
    void putReady(uint32_t hookId);
    /// What the functions of the ready record do after the call was logged; their result is the action's.
    void onCall(Action action);
    /// Starts that no stop has matched yet; below 0 after a stop too many.
    int32_t starts() const;
    /// Forgets everything between two tests.
    void reset();

    int32_t init(const char *path);
    int32_t term();
    const tavDBMHook *get(const tavDBMSession *session, uint32_t hookId);
    int32_t call(const HookCall &call);

private:
    mutable std::mutex mutex_;
    std::map<uint32_t, tavDBMHook> hooks_;
    Action action_;
    int32_t starts_ = 0;
};

/// The hooks of this process.
FakeHooks &fakeHooks();

}  // namespace tavdb_test
