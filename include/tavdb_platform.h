/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file tavdb_platform.h
 * For who ports the library: every platform function that libtavdb calls. The
 * Linux port implements them in three shared libraries (OS wrapper, hook
 * library, media file library); a device maker may replace each. All of them
 * are ordinary dynamic symbols: a program that defines one itself is served by
 * its own definition.
 */
#ifndef TAVDB_PLATFORM_H
#define TAVDB_PLATFORM_H

#include <stdint.h>

#include "tavdb.h"
#include "tavdb_plugin.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- OS wrapper: semaphores ------------------------------------------- */

/**
 * @name Semaphores
 * One mutex, one counting semaphore and one event belong to each table file and
 * act on all processes that map that file. The library creates them in this
 * order, each time a process maps the table, and never destroys them: creating
 * them again for the same table must give the same objects.
 *
 * Handles are never 0; a request on handle 0 fails. All functions return 0 or a
 * code of the platform's own, which the library passes on to its caller. The
 * Linux port's codes are 0x1000 | errno.
 * @{
 */
/** @param handle receives the mutex @param option 0 @param initial 1 */
TAVDB_API int32_t tavOSWCreateMutexSem(uint32_t *handle, int32_t option, int32_t initial);
/** Takes the mutex. @param handle the mutex @param timeoutMs -1 waits without limit, 0 tries once */
TAVDB_API int32_t tavOSWRequestMutexSem(uint32_t handle, int32_t timeoutMs);
/** Releases the mutex. */
TAVDB_API int32_t tavOSWReleaseMutexSem(uint32_t handle);

/** @param handle receives the semaphore @param option 0 @param initial 0 */
TAVDB_API int32_t tavOSWCreateCountSem(uint32_t *handle, int32_t option, int32_t initial);
/** Waits until the count is above 0 and lowers it. @param handle the semaphore @param timeoutMs 0 waits without limit
 */
TAVDB_API int32_t tavOSWWaitCountSem(uint32_t handle, int32_t timeoutMs);
/** Raises the count and wakes one waiter. */
TAVDB_API int32_t tavOSWPostCountSem(uint32_t handle);

/** @param handle receives the event @param option 0 @param initial 0 */
TAVDB_API int32_t tavOSWCreateEventSem(uint32_t *handle, int32_t option, int32_t initial);
/**
 * Waits for a post that came after the calling thread last took the mutex of
 * the same table; returns at once when there was one already.
 * @param handle    the event
 * @param timeoutMs 0 waits without limit
 */
TAVDB_API int32_t tavOSWWaitEventSem(uint32_t handle, int32_t timeoutMs);
/** Wakes every waiter. */
TAVDB_API int32_t tavOSWPostEventSem(uint32_t handle);
/** @} */

/**
 * @name Optional: tables and their owners
 * The library calls these two only where the platform has them.
 * @{
 */
/**
 * Names the table that the calling thread's next three creations belong to.
 * @param path the table file; valid until the creations are done
 * @param fd   its descriptor, the library's; open until then
 */
TAVDB_API void tavOSWSemAnnounce(const char *path, int32_t fd);
/**
 * Asked by the holder of a mutex: did its previous holder die with it?
 * @return 1 once after such a death, else 0. The library then mends the table.
 */
TAVDB_API int32_t tavOSWMutexAbandoned(uint32_t handle);
/** @} */

/* ---- OS wrapper: memory ----------------------------------------------- */

/** @return size bytes, aligned for any type, or null with errno set; a request of 0 bytes is valid */
TAVDB_API void *tavOSWSubAllocMem(uint32_t size);
/** Gives memory back. @param part always 0 @param buffer from tavOSWSubAllocMem @return 0 */
TAVDB_API int32_t tavOSWOrgFreeMemPart(int32_t part, void *buffer);

/* ---- trace and system errors ------------------------------------------ */

/**
 * Writes one trace line; level 0 is an error, 2 an entry, return or remark, 5,
 * 98 and 99 are dumps. The platform filters and stores. errno stays as it was:
 * the library reads it afterwards.
 */
TAVDB_API void dbs_me_debug_trace(int32_t level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/** Reports a system error: module (62672 is the media module), event, detail; keeps errno. @return ignored */
TAVDB_API int32_t dbs_me_syserr_notify_system_error(int32_t module, int32_t event, int32_t detail);
/** The same without waiting for the report to be stored. */
TAVDB_API int32_t dbs_me_syserr_notify_system_error_async(int32_t module, int32_t event, int32_t detail, ...);

/* ---- hook library ----------------------------------------------------- */

/** Called by every tavDBMInit with the description's hook path. @return 0 or a code, which ends the start */
TAVDB_API int32_t hook_init(const char *path);
/** Called by every tavDBMTerm. @return 0 or a code, which becomes tavDBMTerm's */
TAVDB_API int32_t hook_term(void);
/** @return the hook with that id, valid until hook_term, or null: the leaf is then used without hooks */
TAVDB_API const tavDBMHook *getHook(tavDBMSession *session, uint32_t hookId);

/**
 * @name Dumps of the hook library and of the platform's queue module; as the library's own dumps
 * @{
 */
TAVDB_API int32_t dbs_me_db_hook_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_hook_entry_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_hook_post_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_queue_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
/** @} */

/* ---- media file library ----------------------------------------------- */

/**
 * Called when a process loads its media configuration, before any line is read.
 * @param path the media configuration file
 * @param arg  0
 * @return 0 or a code, which ends the start
 */
TAVDB_API int32_t dbs_me_db_media_file_init(const char *path, uint32_t arg);
/** The media file library's own dump; also the debug function of every built-in medium. */
TAVDB_API int32_t dbs_me_db_media_file_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);

/* clang-format off */
/**
 * @name The built-in media functions, slot by slot
 * A media configuration line whose library is "libtavdbfile.so" names these.
 * tavdbMem... work on mapped files, tavdbFile... on plain files (OpenHD to read
 * and write, OpenRom to read), tavdbMsg... on a media server's socket. Signatures
 * as in tavdb_plugin.h. X(name), in the order in which names are looked up.
 * @{
 */
#define TAVDB_MEDIA_SYNC_LIST(X) \
    X(tavdbMemSync1) X(tavdbMemSync2) X(tavdbFileSync3) X(tavdbMemSync4) X(tavdbMemSync5) X(tavdbFileSync6) \
    X(tavdbMemSync7) X(tavdbMemSync8) X(tavdbMemSync9) X(tavdbMemSync10) X(tavdbMemSync11) X(tavdbMemSync12) \
    X(tavdbMemSync13) X(tavdbMemSync14) X(tavdbMemSync15) X(tavdbMemSync16) X(tavdbMemSync17) X(tavdbMemSync18) \
    X(tavdbMemSync19) X(tavdbMemSync20) X(tavdbMemSync21) X(tavdbMemSync22) X(tavdbMemSync23) X(tavdbMemSync24) \
    X(tavdbMemSync25) X(tavdbMemSync26) X(tavdbMemSync27) X(tavdbMemSync28) X(tavdbMemSync29) X(tavdbMemSync30) \
    X(tavdbMemSync31) X(tavdbMemSync32) X(tavdbMemSync33) X(tavdbMemSync34) X(tavdbMemSync35) X(tavdbMemSync36) \
    X(tavdbMemSync37) X(tavdbMemSync38) X(tavdbMemSync39) X(tavdbMemSync40) X(tavdbMemSync41) X(tavdbMemSync42) \
    X(tavdbMemSync43) X(tavdbMemSync44) X(tavdbMemSync45) X(tavdbMemSync46) X(tavdbMemSync47) X(tavdbMemSync48) \
    X(tavdbMemSync49) X(tavdbMemSync50) X(tavdbMemSync51) X(tavdbMemSync52) X(tavdbMemSync53) X(tavdbMemSync54) \
    X(tavdbMemSync55) X(tavdbMemSync56) X(tavdbMemSync57) X(tavdbMemSync58) X(tavdbMemSync59) X(tavdbMemSync60) \
    X(tavdbMsgSync)
#define TAVDB_MEDIA_SEEK_LIST(X) X(tavdbMemSeek) X(tavdbFileSeek) X(tavdbMsgSeek)
#define TAVDB_MEDIA_WRITE_LIST(X) X(tavdbMemWrite) X(tavdbFileWrite) X(tavdbMsgWrite)
#define TAVDB_MEDIA_READ_LIST(X) X(tavdbMemRead) X(tavdbFileRead) X(tavdbMsgRead)
#define TAVDB_MEDIA_CLOSE_LIST(X) X(tavdbMemClose) X(tavdbFileClose) X(tavdbMsgClose)
#define TAVDB_MEDIA_OPEN_LIST(X) X(tavdbMemOpen) X(tavdbFileOpenHD) X(tavdbFileOpenRom) X(tavdbMsgOpen)

#define TAVDB_DECLARE_SYNC(name) TAVDB_API int32_t name(int32_t fd, uint32_t *err, uint32_t arg);
TAVDB_MEDIA_SYNC_LIST(TAVDB_DECLARE_SYNC)
#define TAVDB_DECLARE_SEEK(name) TAVDB_API int32_t name(int32_t fd, int32_t offset, int32_t whence, uint32_t *err);
TAVDB_MEDIA_SEEK_LIST(TAVDB_DECLARE_SEEK)
#define TAVDB_DECLARE_WRITE(name) \
    TAVDB_API int32_t name(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err);
TAVDB_MEDIA_WRITE_LIST(TAVDB_DECLARE_WRITE)
#define TAVDB_DECLARE_READ(name) \
    TAVDB_API int32_t name(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err);
TAVDB_MEDIA_READ_LIST(TAVDB_DECLARE_READ)
#define TAVDB_DECLARE_CLOSE(name) TAVDB_API int32_t name(int32_t fd, uint32_t *err);
TAVDB_MEDIA_CLOSE_LIST(TAVDB_DECLARE_CLOSE)
#define TAVDB_DECLARE_OPEN(name) TAVDB_API int32_t name(const char *hint, uint32_t openArg, uint32_t *err);
TAVDB_MEDIA_OPEN_LIST(TAVDB_DECLARE_OPEN)
#undef TAVDB_DECLARE_SYNC
#undef TAVDB_DECLARE_SEEK
#undef TAVDB_DECLARE_WRITE
#undef TAVDB_DECLARE_READ
#undef TAVDB_DECLARE_CLOSE
#undef TAVDB_DECLARE_OPEN
/** @} */
/* clang-format on */

#ifdef __cplusplus
}
#endif

#endif
