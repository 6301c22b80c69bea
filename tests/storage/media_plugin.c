/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A medium as a plug-in, for the tests: 4096 bytes in memory, and a text that
 * tells which functions were called. Compiled once for each function that a
 * plug-in can lack. It checks nothing about its caller.
 */
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "tavdb_plugin.h"

enum { kPluginBytes = 4096, kPluginDescriptor = 7 };

TAVDB_API extern char pluginCalls[1024];
char pluginCalls[1024];
static uint8_t s_bytes[kPluginBytes];

#define NOTE(...)                                                             \
    do {                                                                      \
        const size_t used = strlen(pluginCalls);                              \
        snprintf(pluginCalls + used, sizeof pluginCalls - used, __VA_ARGS__); \
    } while (0)

#ifndef PLUGIN_LACKS_DEBUG
TAVDB_API int32_t dbs_me_db_media_file_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
int32_t dbs_me_db_media_file_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    (void)debugSize;
    (void)ramSize;
    NOTE("debug %d;", (int)level);
    return 0;
}
#endif

#ifdef PLUGIN_UNRESOLVED
extern int32_t pluginFunctionThatNothingDefines(void);
#endif

#ifndef PLUGIN_LACKS_OPEN
TAVDB_API int32_t pluginOpen(const char *hint, uint32_t openArg, uint32_t *err);
int32_t pluginOpen(const char *hint, uint32_t openArg, uint32_t *err) {
#ifdef PLUGIN_UNRESOLVED
    if (pluginFunctionThatNothingDefines() != 0)
        return -1;
#endif
    NOTE("open %s %u;", hint, (unsigned)openArg);
    if (strcmp(hint, "flash0") == 0)
        return kPluginDescriptor;
    *err = ENOENT;
    return -1;
}
#endif

#ifndef PLUGIN_LACKS_CLOSE
TAVDB_API int32_t pluginClose(int32_t fd, uint32_t *err);
int32_t pluginClose(int32_t fd, uint32_t *err) {
    (void)err;
    NOTE("close %d;", (int)fd);
    return 0;
}
#endif

static int lies_inside(int32_t length, uint32_t offset) {
    return length >= 0 && offset <= kPluginBytes && (uint32_t)length <= kPluginBytes - offset;
}

#ifndef PLUGIN_LACKS_READ
TAVDB_API int32_t pluginRead(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err);
int32_t pluginRead(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    NOTE("read %d %d@%u;", (int)fd, (int)length, (unsigned)offset);
    if (lies_inside(length, offset)) {
        memcpy(buffer, s_bytes + offset, (size_t)length);
        return length;
    }
    *err = EINVAL;
    return -1;
}
#endif

#ifndef PLUGIN_LACKS_WRITE
TAVDB_API int32_t pluginWrite(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err);
int32_t pluginWrite(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    NOTE("write %d %d@%u;", (int)fd, (int)length, (unsigned)offset);
    if (lies_inside(length, offset)) {
        memcpy(s_bytes + offset, buffer, (size_t)length);
        return length;
    }
    *err = ENOSPC;
    return -1;
}
#endif

#ifndef PLUGIN_LACKS_LSEEK
TAVDB_API int32_t pluginSeek(int32_t fd, int32_t offset, int32_t whence, uint32_t *err);
int32_t pluginSeek(int32_t fd, int32_t offset, int32_t whence, uint32_t *err) {
    (void)err;
    NOTE("seek %d %d %d;", (int)fd, (int)offset, (int)whence);
    return offset;
}
#endif

#ifndef PLUGIN_LACKS_SYNC
TAVDB_API int32_t pluginSync(int32_t fd, uint32_t *err, uint32_t arg);
int32_t pluginSync(int32_t fd, uint32_t *err, uint32_t arg) {
    (void)err;
    NOTE("sync %d %u;", (int)fd, (unsigned)arg);
    return 0;
}
#endif
