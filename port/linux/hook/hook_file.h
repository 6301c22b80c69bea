// SPDX-License-Identifier: Apache-2.0
// A hook file in memory: one FileHook per line that names a hook. Reading it
// checks the form of every line and loads nothing; hook_load.h finds the
// functions. Which hook an id has in the end is the table's matter
// (hook_table.h).
#pragma once

#include <cstddef>
#include <cstdint>

#include "tavdb_plugin.h"

namespace tavdb {

/// What hook_init returns for a file that it refuses.
enum HookFileError : int32_t {
    kHookMalformed = 120,      ///< a line that is not well formed, or an id that is taken
    kHookLibrary = 121,        ///< a library that cannot be loaded
    kHookFunction = 122,       ///< a function that is not found
    kHookSystemError = 0x1000  ///< or-ed with errno: the file cannot be read, or no memory
};

/// Where a file is refused: the site numbers of the trace lines.
enum HookSite : int32_t {
    kSiteTokens = 110,
    kSiteId = 120,
    kSiteLineTooLong = 130,
    kSiteNulByte = 140,
    kSiteTwiceInFile = 150,
    kSiteOtherFile = 160,
    kSiteLibrary = 170,
    kSiteFunction = 180,
    kSiteUnreadable = 190,
    kSiteMemory = 200
};

/// Characters of a line at most, its end not counted.
inline constexpr size_t kHookLineMax = 4095;

/// The functions that a line names, in its order; the record's order is the same.
inline constexpr size_t kHookFunctions = 4;

/// One hook of a file. Its address is what getHook hands out, so it stays where it is.
struct FileHook {
    tavDBMHook hook;
    FileHook *next;
    void *library;  ///< what to unload with it; null when its functions are the running program's
    uint32_t id;
    uint32_t line;  ///< counted from 1
    const char *libraryName;
    const char *functionNames[kHookFunctions];
};

/// A file and its hooks, in the order of its lines.
struct HookFile {
    HookFile *next;  ///< the file that was loaded before it
    FileHook *first;
    FileHook *last;
    uint32_t hookCount;
    const char *path;
};

/**
 * Reads a file. One that does not exist has no hooks.
 * @param file receives it; the caller gives it back with freeHookFile
 * @return 0, or a code of HookFileError after one trace line; *file is then null
 */
int32_t readHookFile(const char *path, HookFile **file);

/// Gives a file's memory back. Its libraries must be unloaded already.
void freeHookFile(HookFile *file);

/**
 * Writes the trace line that says why a file is refused.
 * @param line   0: the whole file
 * @param detail the name or text that the reason speaks of, or null
 * @return code
 */
int32_t refuseHookFile(int32_t code, HookSite site, const char *path, uint32_t line, const char *reason,
                       const char *detail);

}  // namespace tavdb
