// SPDX-License-Identifier: Apache-2.0
// The functions behind the names of a hook file: loads the libraries of its
// lines and finds their functions. Runs foreign code (constructors and
// destructors of libraries), so the hook library's lock must not be held.
#pragma once

#include <cstdint>

#include "hook/hook_file.h"

namespace tavdb {

/**
 * Finds every function of a file.
 * @return 0, or a code of HookFileError after one trace line; nothing stays loaded then
 */
int32_t loadHooks(HookFile *file);

/// Unloads what loadHooks loaded. The hooks' functions must no longer be in use.
void unloadHooks(HookFile *file);

}  // namespace tavdb
