// SPDX-License-Identifier: Apache-2.0
// Hooks as the library runs them around an access to a value.
#pragma once

#include "tavdb_platform.h"

namespace tavdb {

/// The hook with that id; null for id 0 and for an id that the hook library does not know.
inline const tavDBMHook *findHook(tavDBMSession *session, uint32_t hookId) {
    return hookId != 0 ? getHook(session, hookId) : nullptr;
}

/// Runs one function of a hook, if it has it. @return the hook's result, 0 without one
inline int32_t runHook(tavDBMHookFunction function, uint32_t valueKey, void *data, int32_t *length) {
    return function != nullptr ? function(valueKey, data, length) : 0;
}

}  // namespace tavdb
