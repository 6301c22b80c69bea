// SPDX-License-Identifier: Apache-2.0
// The hooks of this process by id: a hash table that is read without a lock
// while it changes. An id may have a hook of the program and one of a file; the
// program's stands before the file's.
//
// Whatever a reader may have in its hands stays in memory until
// forgetReplaced(): records that were replaced and tables that were outgrown.
// An id keeps one record for each different content it was ever given, so
// switching a hook on and off does not use memory up.
#pragma once

#include <cstdint>

#include "hook/hook_file.h"
#include "tavdb_plugin.h"

namespace tavdb {

/// The hook with that id, or null. Any thread, no lock.
const tavDBMHook *lookUpHook(uint32_t id);

/// @name The caller holds LibraryLock
/// @{
/// Gives an id a hook of the program; null takes it back. @return false: no memory, nothing changed
bool registerHook(uint32_t id, const tavDBMHook *hook);

/// What became of a file's claim on its ids.
enum class Claim : uint8_t { granted, twiceInFile, otherFile, noMemory };

/**
 * Reserves a file's ids, all or none; readers see nothing of it yet.
 * @param refused receives the hook whose id is taken
 */
Claim claimIds(const HookFile *file, const FileHook **refused);
/// Lets readers find the hooks of a file that has its claim.
void publishHooks(const HookFile *file);
/// Takes a file's hooks and its claim back.
void withdrawHooks(const HookFile *file);
/// Frees what readers may have held. No thread may be using a hook that it looked up before.
void forgetReplaced();

/// Calls visit(id, hook, visitor) for each hook that look-ups find. @return bytes that the table has in memory
uint32_t visitHooks(void (*visit)(uint32_t id, const tavDBMHook *hook, void *visitor), void *visitor);
/// @}

}  // namespace tavdb
