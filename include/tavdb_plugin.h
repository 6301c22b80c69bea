/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file tavdb_plugin.h
 * For who writes a medium or a hook: the functions that the library calls.
 *
 * A medium is named by a line of the media configuration file:
 *
 *     LIBRARY OPEN CLOSE READ WRITE LSEEK SYNC HINT    # comment
 *
 * LIBRARY is a path for the dynamic loader, the next six tokens are names of
 * functions that the library exports, HINT is a text without blanks that only
 * the medium understands. The library must also export a debug function under
 * the name "dbs_me_db_media_file_debug_info".
 *
 * A medium is one flat space of bytes. Every access of the library is open, one
 * read or write at an explicit offset, close; nothing is held open between
 * calls. Several threads and processes may do so at the same time.
 */
#ifndef TAVDB_PLUGIN_H
#define TAVDB_PLUGIN_H

#include <stdint.h>

#include "tavdb.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @name Functions of a medium
 * A function that fails stores an error number (errno's values) through err and
 * returns -1. Lengths and offsets count bytes; offsets from the medium's start.
 * @{
 */
/** @return a descriptor, 0 or more. openArg is always 0. */
typedef int32_t (*tavDBMMediaOpen)(const char *hint, uint32_t openArg, uint32_t *err);
/** @return 0 */
typedef int32_t (*tavDBMMediaClose)(int32_t fd, uint32_t *err);
/** @return the bytes read; fewer than length at the medium's end */
typedef int32_t (*tavDBMMediaRead)(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err);
/** @return length, or -1 when not all could be written: fewer bytes are no failure where a value's data are stored */
typedef int32_t (*tavDBMMediaWrite)(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err);
/** whence as for lseek(). @return the resulting position */
typedef int32_t (*tavDBMMediaSeek)(int32_t fd, int32_t offset, int32_t whence, uint32_t *err);
/** arg is the caller's third argument of tavDBMSync. @return 0 */
typedef int32_t (*tavDBMMediaSync)(int32_t fd, uint32_t *err, uint32_t arg);
/** Prints the medium library's own state through the trace. @return 0 */
typedef int32_t (*tavDBMMediaDebug)(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
/** @} */

/**
 * A hook function.
 * @param valueKey the value that is read or written
 * @param data     its bytes; before a write the hook may change them in place
 * @param length   their count; before a write the hook may lower it. It must not
 *                 be raised beyond the bytes that are there.
 * @return 0 to go on, anything else to refuse; the result becomes the error detail
 */
typedef int32_t (*tavDBMHookFunction)(uint32_t valueKey, void *data, int32_t *length);

/** The functions that run around the accesses to a leaf; null where there is none. */
typedef struct tavDBMHook {
    void *reserved; /**< not read by the library */
    tavDBMHookFunction preWrite;
    tavDBMHookFunction postWrite;
    tavDBMHookFunction preRead;
    tavDBMHookFunction postRead;
} tavDBMHook;

/**
 * Gives a leaf's hook id a hook in this process (Linux port). It stands before
 * one of the hook file and stays until it is taken back, across tavDBMTerm.
 * @param hookId 1 or more
 * @param hook   copied; null takes the registration back
 * @return 0, or 0x1000 | errno: EINVAL for id 0, ENOMEM
 */
TAVDB_API int32_t tavHookRegister(uint32_t hookId, const tavDBMHook *hook);

#ifdef __cplusplus
}
#endif

#endif
