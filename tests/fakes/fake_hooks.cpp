// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_hooks.h"

#include <string>
#include <utility>

#include "fakes/dump_calls.h"
#include "fakes/errno_keeper.h"
#include "fakes/event_log.h"
#include "fakes/fault_plan.h"
#include "fakes/home_folder.h"
#include "fakes/misuse.h"
#include "tavdb_platform.h"

namespace tavdb_test {

namespace {

constexpr char kHooks[] = "hook library";

template <HookPhase Phase>
int32_t readyFunction(uint32_t valueKey, void *data, int32_t *length) {
    return fakeHooks().call({Phase, valueKey, data, length});
}

const char *nameOf(HookPhase phase) {
    constexpr const char *kNames[] = {"preWrite", "postWrite", "preRead", "postRead"};
    return kNames[static_cast<uint8_t>(phase)];
}

void applyPlan(Event &event) {
    if (const auto fault = faultPlan().next(event.operation, event.subject)) {
        event.result = fault->resultFor(0);
        event.error = fault->error;
        event.failed = true;
    }
}

}  // namespace

void FakeHooks::put(uint32_t hookId, const tavDBMHook &hook) {
    const std::lock_guard guard(mutex_);
    hooks_[hookId] = hook;
}

void FakeHooks::putReady(uint32_t hookId) {
    put(hookId, {.reserved = nullptr,
                 .preWrite = readyFunction<HookPhase::preWrite>,
                 .postWrite = readyFunction<HookPhase::postWrite>,
                 .preRead = readyFunction<HookPhase::preRead>,
                 .postRead = readyFunction<HookPhase::postRead>});
}

void FakeHooks::onCall(Action action) {
    const std::lock_guard guard(mutex_);
    action_ = std::move(action);
}

int32_t FakeHooks::starts() const {
    const std::lock_guard guard(mutex_);
    return starts_;
}

void FakeHooks::reset() {
    const std::lock_guard guard(mutex_);
    hooks_.clear();
    action_ = nullptr;
    starts_ = 0;
}

int32_t FakeHooks::init(const char *path) {
    ErrnoKeeper keeper;
    const std::lock_guard guard(mutex_);
    Event event{.operation = Operation::hookInit, .subject = nameInHome(path)};
    applyPlan(event);
    starts_ += event.result == 0 ? 1 : 0;
    keeper.set(event.error);
    eventLog().add(event);
    return static_cast<int32_t>(event.result);
}

int32_t FakeHooks::term() {
    ErrnoKeeper keeper;
    const std::lock_guard guard(mutex_);
    Event event{.operation = Operation::hookTerm};
    applyPlan(event);
    --starts_;
    keeper.set(event.error);
    eventLog().add(event);
    return static_cast<int32_t>(event.result);
}

const tavDBMHook *FakeHooks::get(const tavDBMSession *session, uint32_t hookId) {
    const ErrnoKeeper keeper;
    const std::lock_guard guard(mutex_);
    if (session == nullptr || hookId == 0)
        reportMisuse(kHooks, session == nullptr ? "a hook was asked for without a session" : "hook 0 was asked for");
    const auto found = hooks_.find(hookId);
    eventLog().add({.operation = Operation::hookGet, .subject = std::to_string(hookId), .argument = hookId});
    return found != hooks_.end() ? &found->second : nullptr;
}

int32_t FakeHooks::call(const HookCall &call) {
    ErrnoKeeper keeper;
    Event event{.operation = Operation::hookCall, .subject = nameOf(call.phase), .offset = call.valueKey};
    if (call.length == nullptr || call.data == nullptr)
        reportMisuse(kHooks, "a hook was called without " + std::string(call.data == nullptr ? "data" : "a length"));
    event.length = call.length != nullptr ? *call.length : 0;
    event.details = std::to_string(call.valueKey) + ' ' + std::to_string(event.length);
    applyPlan(event);
    eventLog().add(event);
    if (event.failed)
        return static_cast<int32_t>(event.result);
    std::unique_lock lock(mutex_);
    const Action action = action_;
    lock.unlock();  // the action may call the library, which comes back here
    return action ? action(call) : 0;
}

FakeHooks &fakeHooks() {
    static auto *const hooks = new FakeHooks;
    return *hooks;
}

}  // namespace tavdb_test

using tavdb_test::dumpCall;
using tavdb_test::fakeHooks;
using tavdb_test::Operation;

extern "C" {

int32_t hook_init(const char *path) {
    return fakeHooks().init(path);
}

int32_t hook_term(void) {
    return fakeHooks().term();
}

const tavDBMHook *getHook(tavDBMSession *session, uint32_t hookId) {
    return fakeHooks().get(session, hookId);
}

int32_t dbs_me_db_hook_debug_info(int32_t level, uint32_t * /*debugSize*/, uint32_t * /*ramSize*/) {
    return dumpCall(Operation::platformDump, "dbs_me_db_hook_debug_info", level);
}

int32_t dbs_me_db_hook_entry_debug_info(int32_t level, uint32_t * /*debugSize*/, uint32_t * /*ramSize*/) {
    return dumpCall(Operation::platformDump, "dbs_me_db_hook_entry_debug_info", level);
}

int32_t dbs_me_db_hook_post_debug_info(int32_t level, uint32_t * /*debugSize*/, uint32_t * /*ramSize*/) {
    return dumpCall(Operation::platformDump, "dbs_me_db_hook_post_debug_info", level);
}

int32_t dbs_me_db_queue_debug_info(int32_t level, uint32_t * /*debugSize*/, uint32_t * /*ramSize*/) {
    return dumpCall(Operation::platformDump, "dbs_me_db_queue_debug_info", level);
}
}
