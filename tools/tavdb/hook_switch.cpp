// SPDX-License-Identifier: Apache-2.0
// The library calls its platform by ordinary symbols, so what a program defines
// goes first. These three hand on to the hook library, or leave it out.
#include "hook_switch.h"

#include <dlfcn.h>

#include "tavdb_platform.h"

namespace tavdb::command {

namespace {

bool hooksEnabled = true;

/// The definition behind the program's own; null where there is none.
template <typename Function>
Function *next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

template <typename Function, typename Result, typename... Arguments>
Result handOn(const char *name, Result without, Arguments... arguments) {
    auto *const function = hooksEnabled ? next<Function>(name) : nullptr;
    return function != nullptr ? function(arguments...) : without;
}

}  // namespace

void switchHooks(bool enabled) {
    hooksEnabled = enabled;
}

}  // namespace tavdb::command

using tavdb::command::handOn;

int32_t hook_init(const char *path) {
    return handOn<decltype(hook_init)>("hook_init", int32_t{0}, path);
}

int32_t hook_term() {
    return handOn<decltype(hook_term)>("hook_term", int32_t{0});
}

const tavDBMHook *getHook(tavDBMSession *session, uint32_t hookId) {
    return handOn<decltype(getHook)>("getHook", static_cast<const tavDBMHook *>(nullptr), session, hookId);
}
