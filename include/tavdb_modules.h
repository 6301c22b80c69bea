/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file tavdb_modules.h
 * The module interface of libtavdb, for tools that build, inspect and mend
 * databases: the records as they lie on media and in shared tables, and the
 * functions that read, write and place them. Applications need tavdb.h only.
 *
 * What tavdb.h says about keys, errors, cost, processes and ownership holds here
 * too; "access" is one open, transfer and close of a medium. Functions whose
 * comment says nothing about processes and threads keep no state and take no
 * lock: they may run anywhere, and writers of one record keep themselves apart.
 *
 * A function that takes a session records its failure there. Functions that
 * return a pointer give back the buffer that they filled, or null.
 */
#ifndef TAVDB_MODULES_H
#define TAVDB_MODULES_H

#include <stdint.h>

#include "tavdb.h"
#include "tavdb_plugin.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================= */
/* Semaphores                                                              */
/* ======================================================================= */

/** The three objects of one shared table; 0 where there is none. */
typedef struct tavDBMSemaphoreSet {
    uint32_t mutex;
    uint32_t count;
    uint32_t event;
} tavDBMSemaphoreSet;

/**
 * Creates mutex, count and event, in this order.
 * @param set  filled
 * @param path of the table, for the trace
 * @return 0 or the OS wrapper's code; what was created before a failure stays
 */
TAVDB_API int32_t misc_getSems(tavDBMSemaphoreSet *set, const char *path);

/**
 * @name One object's operation, counted and traced
 * Return the OS wrapper's code unchanged, 0 for success. The counters are plain
 * words of the process: threads may lose counts.
 * @{
 */
TAVDB_API int32_t misc_waitMtx(tavDBMSemaphoreSet *set);
TAVDB_API int32_t misc_postMtx(tavDBMSemaphoreSet *set);
TAVDB_API int32_t misc_waitCount(tavDBMSemaphoreSet *set);
TAVDB_API int32_t misc_postCount(tavDBMSemaphoreSet *set);
/** @return always 0: a failed wait is only traced */
TAVDB_API int32_t misc_waitEvent(tavDBMSemaphoreSet *set);
TAVDB_API int32_t misc_postEvent(tavDBMSemaphoreSet *set);
/** Posts the event, like misc_postEvent: the OS wrapper offers no reset. */
TAVDB_API int32_t misc_resetEvent(tavDBMSemaphoreSet *set);
/** @} */

/** @return 0; the objects are never destroyed */
TAVDB_API int32_t misc_freeSems(tavDBMSemaphoreSet *set);

/**
 * Compares two paths; one that does not begin with "/" has the value of "PWD"
 * put directly in front of it, without a "/" between, cut at 4096 characters.
 * @return as strcmp()
 */
TAVDB_API int32_t misc_pathCompare(const char *a, const char *b);

/* ======================================================================= */
/* Control table                                                           */
/* ======================================================================= */

/** One open database in the control table. Links are indices, 0 = none. */
typedef struct tavDBMControlEntry {
    uint32_t dbId;                 /**< the entry's index */
    tavDBMDescription description; /**< as given to tavDBMInit */
    uint32_t refCount;             /**< calls of tavDBMInit that hold it */
    uint32_t next;
} tavDBMControlEntry;

/** The control-table file, 541740 bytes. Entry 0 and entry 32 are never used: 31 databases fit. */
typedef struct tavDBMControlTable {
    uint32_t freeHead;
    uint32_t freeTail;
    uint32_t usedHead;
    tavDBMControlEntry entry[33];
} tavDBMControlTable;

/** @return the description of an open database, in the shared table, or null. Takes no lock. */
TAVDB_API const tavDBMDescription *db_getDb(uint32_t dbId);

/** First step of tavDBMInit. @return the database id or -1 with *error (may be null) */
TAVDB_API int32_t dbs_me_db_control_init(const tavDBMDescription *description, int32_t *error);
/** Last step of tavDBMTerm: gives one reference back; the process's last call unmaps. @return 0, UNMAP */
TAVDB_API int32_t dbs_me_db_control_term(uint32_t dbId);
/** @return the value of "TAVDB_DBTABLE", or "/tmp/tavdb_dbTable" */
TAVDB_API const char *dbs_me_db_control_get_file_name(void);
/** Opens or makes the table and maps it. @return 0 (also when it can be neither opened nor made), CONTROL_FILE, MAP,
 * MEMORY */
TAVDB_API int32_t dbs_me_db_control_init_table(void);
/** Finds or adds a database, under the table's mutex. @return its id or -1 with *error (may be null) */
TAVDB_API int32_t dbs_me_db_control_init_table_entry(const tavDBMDescription *description, int32_t *error);
/** @return the id of the open database with an equal description, or -1. The caller holds the mutex. */
TAVDB_API int32_t dbs_me_db_control_search_table_entry(const tavDBMDescription *description);
/** Gives one reference back, under the table's mutex. @return 0, DATABASE_ID, the OS wrapper's code */
TAVDB_API int32_t dbs_me_db_control_term_table_entry(uint32_t dbId);

/**
 * @name List primitives of the mapped table; the caller holds the mutex
 * @{
 */
/** Adds 1 to the reference count of every open database with that id. */
TAVDB_API void dbs_me_db_control_inclement_ref_count(uint32_t dbId);
/** Builds the free list from entries 1 to count - 1. */
TAVDB_API void dbs_me_db_control_set_table_entry(tavDBMControlTable *table, uint32_t count);
/** @return the first free entry, taken from its list, or null */
TAVDB_API tavDBMControlEntry *dbs_me_db_control_get_table_entry(void);
/** Appends an entry to the free list. */
TAVDB_API void dbs_me_db_control_free_table_entry(uint32_t index);
/** Puts an entry first into the used list. */
TAVDB_API void dbs_me_db_control_add_table_entry(uint32_t index);
/** Takes an entry out of the used list. @param index the entry @param predecessor 0 for the first one @return it, or
 * null */
TAVDB_API tavDBMControlEntry *dbs_me_db_control_remove_table_entry(uint32_t index, uint32_t predecessor);
/** @} */

/* ======================================================================= */
/* Session table                                                           */
/* ======================================================================= */

/** One slot of the session table. */
typedef struct tavDBMSessionSlot {
    uint32_t sessionId; /**< the slot's index */
    int32_t processId;  /**< owner; kept when the slot is free */
    uint32_t dbId;
    uint32_t next;
} tavDBMSessionSlot;

/** The session-table file, 16412 bytes. Slot 0 and slot 1024 are never used: 1023 sessions fit. */
typedef struct tavDBMSessionTable {
    uint32_t freeHead;
    uint32_t freeTail;
    uint32_t sessionHead;
    tavDBMSessionSlot slot[1025];
} tavDBMSessionTable;

/** Opens or makes the session table on the process's first call. @return 0, SESSION_FILE, MAP, MEMORY, an OS wrapper
 * code */
TAVDB_API int32_t session_init(const char *path);
/** Unmaps the table on the process's last call. @return 0, UNMAP */
TAVDB_API int32_t session_term(void);
/** Stores code and detail in the session, if there is one. @return code */
TAVDB_API int32_t session_setError(tavDBMSession *session, int32_t code, uint32_t detail);
/** Prints the free list (flags 2) and the session list (flags 1) to standard output, without the mutex. */
TAVDB_API void session_show(int32_t flags);

/**
 * @name List primitives of the mapped table; the caller holds the mutex
 * @{
 */
TAVDB_API void dbs_me_db_session_add(uint32_t index);
TAVDB_API tavDBMSessionSlot *dbs_me_db_session_remove(uint32_t index, uint32_t predecessor);
TAVDB_API tavDBMSessionSlot *dbs_me_db_session_get_entry(void);
TAVDB_API void dbs_me_db_session_free_entry(uint32_t index);
TAVDB_API void dbs_me_db_session_init_table(tavDBMSessionTable *table, uint32_t count);
/** @} */

/* ======================================================================= */
/* Media                                                                   */
/* ======================================================================= */

/** A medium of this process: ten words on the 32-bit target. */
typedef struct tavDBMMediaEntry {
    void *handle;     /**< plug-in library, null for the built-in functions */
    const char *hint; /**< first argument of open */
    uint32_t openArg; /**< second argument of open, always 0 */
    tavDBMMediaOpen open;
    tavDBMMediaClose close;
    tavDBMMediaRead read;
    tavDBMMediaWrite write;
    tavDBMMediaSeek lseek;
    tavDBMMediaSync sync;
    tavDBMMediaDebug debug;
} tavDBMMediaEntry;

/** The media of this process; entries 0 to count - 1 are valid, entry 0 is the default medium. */
typedef struct tavDBMMediaTable {
    tavDBMMediaEntry entry[128];
    int32_t count;
} tavDBMMediaTable;

/** Filled between the first media_init and the last media_term, then only read. */
extern TAVDB_API tavDBMMediaTable media_table;

/**
 * Loads the media configuration on the process's first call.
 * @param path the media configuration
 * @param arg  handed to the media file library
 * @return 0; MEDIA_FILE; MEMORY; the code of the last line that was rejected, if
 *   no line was accepted after it; a code of the media file library.
 * Start and stop run in one thread.
 */
TAVDB_API int32_t media_init(const char *path, uint32_t arg);
/** Empties the table on the process's last call. @return 0 */
TAVDB_API int32_t media_term(void);
/** @return the medium, or null (MEDIA_ID). A negative id gives a medium that cannot be opened. */
TAVDB_API tavDBMMediaEntry *getMedia(tavDBMSession *session, int32_t mediaId);
/** @return entries in use, the default medium included */
TAVDB_API uint32_t media_getCount(void);
/** Body of tavDBMSync. */
TAVDB_API int32_t dbs_me_db_media_sync(tavDBMSession *session, int32_t mediaId, uint32_t arg);
/**
 * Fills an entry from one line of the media configuration.
 * @param entry filled
 * @param line  changed by the call
 * @return 0; -1 for a line without or with too few tokens; 14 to 20
 */
TAVDB_API int32_t dbs_me_db_media_fill_media_entry(tavDBMMediaEntry *entry, char *line);

/**
 * @name The default medium: the file that "TAVDB_DEFMEDIA" names, written synchronously
 * @{
 */
TAVDB_API int32_t dbs_me_db_media_def_open(const char *hint, uint32_t openArg, uint32_t *err);
TAVDB_API int32_t dbs_me_db_media_def_close(int32_t fd, uint32_t *err);
TAVDB_API int32_t dbs_me_db_media_def_read(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err);
TAVDB_API int32_t dbs_me_db_media_def_write(int32_t fd, const void *buffer, int32_t length, uint32_t offset,
                                            uint32_t *err);
TAVDB_API int32_t dbs_me_db_media_def_seek(int32_t fd, int32_t offset, int32_t whence, uint32_t *err);
TAVDB_API int32_t dbs_me_db_media_def_sync(int32_t fd, uint32_t *err, uint32_t arg);
/** @} */

/**
 * @name Filling and releasing a media entry
 * Start and stop only, in one thread.
 * @{
 */
/** Starts the media file library. @return its code */
TAVDB_API int32_t dbs_me_db_media_entry_init(const char *path, uint32_t arg);
/** Loads the plug-in library, or none for "libtavdbfile.so". @return 0, PLUGIN */
TAVDB_API int32_t dbs_me_db_media_entry_set_handle(const char *token, tavDBMMediaEntry *entry);
/** Looks a function up by name and fills its slot. @return 0, or the slot's code 14 to 19 */
TAVDB_API int32_t dbs_me_db_media_entry_set_open_function(const char *name, tavDBMMediaEntry *entry);
TAVDB_API int32_t dbs_me_db_media_entry_set_close_function(const char *name, tavDBMMediaEntry *entry);
TAVDB_API int32_t dbs_me_db_media_entry_set_read_function(const char *name, tavDBMMediaEntry *entry);
TAVDB_API int32_t dbs_me_db_media_entry_set_write_function(const char *name, tavDBMMediaEntry *entry);
TAVDB_API int32_t dbs_me_db_media_entry_set_lseek_function(const char *name, tavDBMMediaEntry *entry);
TAVDB_API int32_t dbs_me_db_media_entry_set_sync_function(const char *name, tavDBMMediaEntry *entry);
/** As the others, but a missing built-in function is no failure. */
TAVDB_API int32_t dbs_me_db_media_entry_set_debug_function(const char *name, tavDBMMediaEntry *entry);
/** Looks a built-in function up in its slot's group. @return 0 or -1 */
TAVDB_API int32_t dbs_me_db_media_entry_set_open(const char *name, tavDBMMediaEntry *entry);
TAVDB_API int32_t dbs_me_db_media_entry_set_close(const char *name, tavDBMMediaEntry *entry);
TAVDB_API int32_t dbs_me_db_media_entry_set_read(const char *name, tavDBMMediaEntry *entry);
TAVDB_API int32_t dbs_me_db_media_entry_set_write(const char *name, tavDBMMediaEntry *entry);
TAVDB_API int32_t dbs_me_db_media_entry_set_lseek(const char *name, tavDBMMediaEntry *entry);
TAVDB_API int32_t dbs_me_db_media_entry_set_sync(const char *name, tavDBMMediaEntry *entry);
TAVDB_API int32_t dbs_me_db_media_entry_set_debug(const char *name, tavDBMMediaEntry *entry);
/** Keeps a copy of the hint. @return 0 or -1 */
TAVDB_API int32_t dbs_me_db_media_entry_set_hint(const char *token, tavDBMMediaEntry *entry);
/** Unloads the library and frees the hint; the words stay. @return 0 */
TAVDB_API int32_t dbs_me_db_media_entry_close(tavDBMMediaEntry *entry);
/** @} */

/* ======================================================================= */
/* File list: record slots on a medium                                     */
/* ======================================================================= */

/** The first 16 bytes of a medium that holds records. */
typedef struct tavDBMMediumHeader {
    uint32_t preparer[2]; /**< kept as the medium's preparer wrote them */
    uint32_t root;        /**< key of the root component */
    uint32_t firstFree;   /**< offset of the first free block, 0 = none */
} tavDBMMediumHeader;

/** The head of a free block, itself inside the block. */
typedef struct tavDBMFreeBlock {
    uint32_t next; /**< offset of the next free block, 0 at the end */
    uint32_t size; /**< bytes, these 8 included */
} tavDBMFreeBlock;

/** @return the offset of size bytes, first fit; 0 when nothing fits; -1 when the split failed. Cost: one access and two
 * per free block passed, two to three more. */
TAVDB_API uint32_t flst_m_get(tavDBMSession *session, int32_t mediaId, uint32_t size);
/** Returns size bytes at offset to the free list, merging with neighbours. @return 0 always */
TAVDB_API int32_t flst_m_release(tavDBMSession *session, int32_t mediaId, uint32_t offset, uint32_t size);
/** @return the root's key, 0 on a failure (MEDIUM_OPEN, MEDIUM_READ). Cost: one access. */
TAVDB_API uint32_t flst_m_getRoot(tavDBMSession *session, int32_t mediaId);
/** Sets the root. @return MEDIUM_WRITE after a complete write: deliberate; look at flst_m_getRoot instead */
TAVDB_API int32_t flst_m_setRoot(tavDBMSession *session, int32_t mediaId, uint32_t root);
/** @return 0, MEDIUM_OPEN, MEDIUM_WRITE */
TAVDB_API int32_t flst_m_setFirstOffset(tavDBMSession *session, int32_t mediaId, uint32_t offset);
/** Writes the head of a free block. @return 0, MEDIUM_OPEN, MEDIUM_WRITE */
TAVDB_API int32_t flst_m_setElement(tavDBMSession *session, int32_t mediaId, uint32_t offset,
                                    const tavDBMFreeBlock *element);

/**
 * @name The same on a file named by its path, for tools
 * COMPONENT_OPEN, _WRITE, _READ instead of MEDIUM_OPEN, _WRITE, _READ.
 * @{
 */
TAVDB_API uint32_t flst_get(tavDBMSession *session, const char *path, uint32_t size);
/** Looks at the head of the free list only: a range behind it is not returned. */
TAVDB_API int32_t flst_release(tavDBMSession *session, const char *path, uint32_t offset, uint32_t size);
TAVDB_API int32_t flst_setFirstOffset(tavDBMSession *session, const char *path, uint32_t offset);
/** Also fills the block's body with 0xBA when its size is 9 to 1032. */
TAVDB_API int32_t flst_setElement(tavDBMSession *session, const char *path, uint32_t offset,
                                  const tavDBMFreeBlock *element);
/** @} */

/** @return 0: words are stored as they are in memory */
TAVDB_API int32_t boadj_judge(void);
/** @return 1 when "SIM_BYTE_ORDER" is "LITTLE_ENDIAN", else 0 */
TAVDB_API int32_t boadj_type(void);
/** Reverses the bytes of a 32-bit word in place, unless keep is not 0: then nothing happens. */
TAVDB_API void boadj_word(void *word, int32_t keep);
/** Reverses the bytes of two words each into destination, and in place when keep is 0. */
TAVDB_API void boadj_wordx2(void *source, int32_t keep, void *destination);

/* ======================================================================= */
/* Constraints                                                             */
/* ======================================================================= */

/** What every constraint record begins with. */
typedef struct tavDBMConstraint {
    uint32_t key; /**< the record's own offset */
    int32_t type; /**< value type code, shifted left by 8 for an enumeration */
} tavDBMConstraint;

/** An enumeration's record, 20 bytes. */
typedef struct tavDBMEnumeration {
    uint32_t key;
    int32_t type;
    uint32_t arrayKey;   /**< offset of the element array */
    int32_t elementSize; /**< bytes: 1, 2, 4 or 8 */
    int32_t elementCount;
} tavDBMEnumeration;

/**
 * @name Range records, 12, 16, 20 or 32 bytes
 * @{
 */
typedef struct tavDBMRangeS8 {
    uint32_t key;
    int32_t type;
    int8_t minimum, maximum, step;
    uint8_t padding;
} tavDBMRangeS8;
typedef struct tavDBMRangeU8 {
    uint32_t key;
    int32_t type;
    uint8_t minimum, maximum, step;
    uint8_t padding;
} tavDBMRangeU8;
typedef struct tavDBMRangeS16 {
    uint32_t key;
    int32_t type;
    int16_t minimum, maximum, step;
    uint16_t padding;
} tavDBMRangeS16;
typedef struct tavDBMRangeU16 {
    uint32_t key;
    int32_t type;
    uint16_t minimum, maximum, step;
    uint16_t padding;
} tavDBMRangeU16;
typedef struct tavDBMRangeS32 {
    uint32_t key;
    int32_t type;
    int32_t minimum, maximum, step;
} tavDBMRangeS32;
typedef struct tavDBMRangeU32 {
    uint32_t key;
    int32_t type;
    uint32_t minimum, maximum, step;
} tavDBMRangeU32;
typedef struct tavDBMRangeF32 {
    uint32_t key;
    int32_t type;
    float minimum, maximum, step;
} tavDBMRangeF32;
typedef struct tavDBMRangeS64 {
    uint32_t key;
    int32_t type;
    int64_t minimum, maximum, step;
} tavDBMRangeS64;
typedef struct tavDBMRangeU64 {
    uint32_t key;
    int32_t type;
    uint64_t minimum, maximum, step;
} tavDBMRangeU64;
typedef struct tavDBMRangeF64 {
    uint32_t key;
    int32_t type;
    double minimum, maximum, step;
} tavDBMRangeF64;
/** @} */

/** @return 0 */
TAVDB_API int32_t constraint_init(void);
/** @return 0 */
TAVDB_API int32_t constraint_term(void);
/** Reserves 8 bytes and stores their offset; writes nothing. @return key, or null: CONSTRAINT_OPEN, CONSTRAINT_SLOT */
TAVDB_API uint32_t *constraint_new(tavDBMSession *session, uint32_t *key);
/** Writes an 8-byte header at its key; a full write clears the session's error. @return the medium's close result, or
 * NOT_OPEN, CONSTRAINT_OPEN */
TAVDB_API int32_t constraint_set(tavDBMSession *session, const void *header);
/** Reads the 8-byte header. @return buffer, or null: CONSTRAINT_OPEN, CONSTRAINT_READ */
TAVDB_API void *constraint_get(tavDBMSession *session, uint32_t key, void *buffer);
/** @return the type code, or 0 */
TAVDB_API int32_t constraint_getType(tavDBMSession *session, uint32_t key);
/** @return the bytes of the constraint's data, 0 on a failure (CONSTRAINT_TYPE) */
TAVDB_API int32_t constraint_getLength(tavDBMSession *session, uint32_t key);
/** @return 0, BUFFER, CONSTRAINT_TYPE, a code of the record accesses */
TAVDB_API int32_t constraint_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
/** @return 0, LENGTH, CONSTRAINT_TYPE, a code of the record accesses */
TAVDB_API int32_t constraint_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length);

/**
 * @name Ranges, one family for each value type
 * new: reserves a slot, stores its offset as the record's key and writes it;
 *   returns the record or null (CONSTRAINT_OPEN, CONSTRAINT_SLOT, CONSTRAINT_WRITE).
 * get: reads the whole record; returns buffer or null.
 * set: writes the record at its key; returns the medium's close result; a full
 *   write clears the session's error, a short one records CONSTRAINT_WRITE.
 * getData, setData: minimum, maximum and step, packed; return 0, BUFFER, LENGTH,
 *   or a code of the record accesses.
 * Cost: new an allocation and a write; get and set one access; getData one, setData two.
 * @{
 */
TAVDB_API void *rangeS8_new(tavDBMSession *session, void *record);
TAVDB_API void *rangeS8_get(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API int32_t rangeS8_set(tavDBMSession *session, const void *record);
TAVDB_API int32_t rangeS8_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
TAVDB_API int32_t rangeS8_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
TAVDB_API void *rangeS16_new(tavDBMSession *session, void *record);
TAVDB_API void *rangeS16_get(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API int32_t rangeS16_set(tavDBMSession *session, const void *record);
TAVDB_API int32_t rangeS16_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
TAVDB_API int32_t rangeS16_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
TAVDB_API void *rangeS32_new(tavDBMSession *session, void *record);
TAVDB_API void *rangeS32_get(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API int32_t rangeS32_set(tavDBMSession *session, const void *record);
TAVDB_API int32_t rangeS32_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
TAVDB_API int32_t rangeS32_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
TAVDB_API void *rangeS64_new(tavDBMSession *session, void *record);
TAVDB_API void *rangeS64_get(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API int32_t rangeS64_set(tavDBMSession *session, const void *record);
TAVDB_API int32_t rangeS64_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
TAVDB_API int32_t rangeS64_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
TAVDB_API void *rangeU8_new(tavDBMSession *session, void *record);
TAVDB_API void *rangeU8_get(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API int32_t rangeU8_set(tavDBMSession *session, const void *record);
TAVDB_API int32_t rangeU8_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
TAVDB_API int32_t rangeU8_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
TAVDB_API void *rangeU16_new(tavDBMSession *session, void *record);
TAVDB_API void *rangeU16_get(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API int32_t rangeU16_set(tavDBMSession *session, const void *record);
TAVDB_API int32_t rangeU16_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
TAVDB_API int32_t rangeU16_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
TAVDB_API void *rangeU32_new(tavDBMSession *session, void *record);
TAVDB_API void *rangeU32_get(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API int32_t rangeU32_set(tavDBMSession *session, const void *record);
TAVDB_API int32_t rangeU32_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
TAVDB_API int32_t rangeU32_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
TAVDB_API void *rangeU64_new(tavDBMSession *session, void *record);
TAVDB_API void *rangeU64_get(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API int32_t rangeU64_set(tavDBMSession *session, const void *record);
TAVDB_API int32_t rangeU64_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
TAVDB_API int32_t rangeU64_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
TAVDB_API void *rangeF32_new(tavDBMSession *session, void *record);
TAVDB_API void *rangeF32_get(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API int32_t rangeF32_set(tavDBMSession *session, const void *record);
TAVDB_API int32_t rangeF32_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
TAVDB_API int32_t rangeF32_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
TAVDB_API void *rangeF64_new(tavDBMSession *session, void *record);
TAVDB_API void *rangeF64_get(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API int32_t rangeF64_set(tavDBMSession *session, const void *record);
TAVDB_API int32_t rangeF64_getData(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
TAVDB_API int32_t rangeF64_setData(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
/** @} */

/** Reserves an array of zeros. @return its offset, or -1: CONSTRAINT_OPEN, CONSTRAINT_SLOT. A failed fill (MEMORY,
 * CONSTRAINT_WRITE) still returns the offset. */
TAVDB_API uint32_t constraint_newEnumArray(tavDBMSession *session, int32_t elementSize, int32_t elementCount);
/** Writes elements at an array's offset. @return 0, CONSTRAINT_OPEN, CONSTRAINT_READ after a short write */
TAVDB_API int32_t constraint_setEnumArray(tavDBMSession *session, uint32_t arrayKey, int32_t elementSize,
                                          int32_t elementCount, const void *data);
/** @return the elements, to be freed with tavOSWOrgFreeMemPart(0, ...), or null: CONSTRAINT_OPEN, CONSTRAINT_READ,
 * MEMORY */
TAVDB_API void *constraint_getEnumArray(tavDBMSession *session, uint32_t arrayKey, int32_t elementSize,
                                        int32_t elementCount);
/** Reserves 20 bytes, stores their offset as the record's key and writes it. @return the record or null */
TAVDB_API void *enum_new(tavDBMSession *session, void *record);
/** Reads the 20-byte record. @return buffer or null */
TAVDB_API void *enum_get(tavDBMSession *session, uint32_t key, void *buffer);
/** Writes the record at its key. @return the medium's close result, NOT_OPEN, CONSTRAINT_OPEN */
TAVDB_API int32_t enum_set(tavDBMSession *session, const void *record);
/** Writes elements into the enumeration's array; the record's own count stays. @return 0 (also when the record cannot
 * be read), or constraint_setEnumArray's */
TAVDB_API int32_t enum_setData(tavDBMSession *session, uint32_t key, int32_t elementSize, int32_t elementCount,
                               const void *data);

/** Checks a value against any constraint. @return 0 (also when the header cannot be read), CHECK_CONSTRAINT, or the
 * check's code */
TAVDB_API int32_t constraint_check(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                                   int32_t length);
/**
 * @name Checks against one type's range or enumeration
 * @return 0; VALUE_TYPE; LENGTH; BELOW_MINIMUM, ABOVE_MAXIMUM, OFF_STEP of a
 *   range; NOT_ENUMERATED of an enumeration; the code of the record's read.
 * Cost: a range one access, an enumeration two and one allocation.
 * @{
 */
TAVDB_API int32_t checkRangeS8(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                               int32_t length);
TAVDB_API int32_t checkRangeS16(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                                int32_t length);
TAVDB_API int32_t checkRangeS32(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                                int32_t length);
TAVDB_API int32_t checkRangeS64(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                                int32_t length);
TAVDB_API int32_t checkRangeU8(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                               int32_t length);
TAVDB_API int32_t checkRangeU16(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                                int32_t length);
TAVDB_API int32_t checkRangeU32(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                                int32_t length);
TAVDB_API int32_t checkRangeU64(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                                int32_t length);
TAVDB_API int32_t checkRangeF32(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                                int32_t length);
TAVDB_API int32_t checkRangeF64(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                                int32_t length);
TAVDB_API int32_t checkEnumS8(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                              int32_t length);
TAVDB_API int32_t checkEnumS16(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                               int32_t length);
TAVDB_API int32_t checkEnumS32(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                               int32_t length);
TAVDB_API int32_t checkEnumS64(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                               int32_t length);
TAVDB_API int32_t checkEnumU8(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                              int32_t length);
TAVDB_API int32_t checkEnumU16(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                               int32_t length);
TAVDB_API int32_t checkEnumU32(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                               int32_t length);
TAVDB_API int32_t checkEnumU64(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                               int32_t length);
TAVDB_API int32_t checkEnumF32(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                               int32_t length);
TAVDB_API int32_t checkEnumF64(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                               int32_t length);
/** @} */

/* ======================================================================= */
/* Values and strings                                                      */
/* ======================================================================= */

/** A value's record, 28 bytes. */
typedef struct tavDBMValue {
    uint32_t key;
    int32_t type;
    int32_t dataMedia;   /**< media id of the data */
    uint32_t dataOffset; /**< where they begin */
    int32_t length;      /**< bytes, fixed at creation */
    uint32_t creationWord;
    uint32_t constraintKey; /**< 0 = unconstrained */
} tavDBMValue;

/** A string's entry, 16 bytes. */
typedef struct tavDBMString {
    uint32_t key;
    int32_t textMedia;
    uint32_t textOffset;
    int32_t textLength; /**< bytes, the NUL included */
} tavDBMString;

/** Counts. @return 0 */
TAVDB_API int32_t value_init(void);
/** Counts. @return 0 */
TAVDB_API int32_t value_term(void);
/** Reserves a record and stores its offset as the buffer's key. @return buffer or null (NOT_OPEN; nothing recorded when
 * the medium is full) */
TAVDB_API void *value_new(tavDBMSession *session, void *buffer);
/** Body of tavDBMCreateValue. */
TAVDB_API uint32_t value_create(tavDBMSession *session, int32_t type, uint32_t creationWord, const void *data,
                                int32_t length, int32_t mediaId);
/** Writes a record at its key; a full write clears the session's error. @return 0, VALUE_OPEN, VALUE_WRITE, NOT_OPEN */
TAVDB_API int32_t value_set(tavDBMSession *session, const void *record);
/** Reads a record. @return buffer, or null: NO_VALUE, VALUE_OPEN, VALUE_READ, NOT_OPEN */
TAVDB_API void *value_get(tavDBMSession *session, uint32_t key, void *buffer);
/** @return the type code, or -1 */
TAVDB_API int32_t value_getType(tavDBMSession *session, uint32_t key);
/** @return the length, or -1 */
TAVDB_API int32_t value_getLength(tavDBMSession *session, uint32_t key);
/** Body of tavDBMSetConstraintKey. */
TAVDB_API int32_t value_setConstraintKey(tavDBMSession *session, uint32_t key, uint32_t constraintKey);
/** @return the constraint key, or 0 */
TAVDB_API uint32_t value_getConstraintKey(tavDBMSession *session, uint32_t key);
/** Checks and writes data, at most the value's length. @return the medium's close result, the constraint's refusal,
 * MEDIUM_OPEN; 0 when the record cannot be read */
TAVDB_API int32_t value_setGeneric(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
/** Reads data, at most the value's length; *length becomes the count, -1 after a failed read. @return the medium's
 * close result, MEDIUM_OPEN; 0 when the record cannot be read */
TAVDB_API int32_t value_getGeneric(tavDBMSession *session, uint32_t key, void *buffer, int32_t *length);
/** Reads exactly length bytes from the start of the data. @return as value_getGeneric */
TAVDB_API int32_t value_getCreateListGeneric(tavDBMSession *session, uint32_t key, void *buffer, int32_t length);
/** Copies data. @return 0, COPY_LENGTH, MEMORY, or value_setGeneric's */
TAVDB_API int32_t value_copy(tavDBMSession *session, uint32_t destination, uint32_t source);
/** Copies data through the write hooks of a hook id. @return as value_copy, PRE_WRITE, POST_WRITE */
TAVDB_API int32_t value_copy2(tavDBMSession *session, uint32_t destination, uint32_t source, uint32_t hookId);
/** Releases a record's slot, named by the record's key word. @return 0 */
TAVDB_API int32_t value_setDeleted(tavDBMSession *session, const void *record);
/** Body of tavDBMDeleteValue. */
TAVDB_API int32_t value_delete(tavDBMSession *session, uint32_t key);
/** Does nothing. */
TAVDB_API void value_print(tavDBMSession *session, uint32_t key);

/** Reserves an entry and stores its offset as the buffer's key. @return buffer or null: STRING_OPEN, STRING_SLOT */
TAVDB_API void *str_newEntry(tavDBMSession *session, void *buffer);
/** Writes an entry at its key; a full write clears the session's error. @return the medium's close result, STRING_OPEN,
 * NOT_OPEN; 0 without a medium */
TAVDB_API int32_t str_setEntry(tavDBMSession *session, const void *entry);
/** Reads an entry; key 0 is not refused. @return buffer, or null: STRING_OPEN, STRING_READ */
TAVDB_API void *tavdb_getStrEntry(tavDBMSession *session, uint32_t key, void *buffer);
/** Reads a text, at most size bytes; a text that does not fit comes without its NUL. @return buffer, or null:
 * MEDIUM_OPEN, MEDIUM_READ */
TAVDB_API char *tavdb_getString(tavDBMSession *session, uint32_t key, char *buffer, int32_t size);
/** Body of tavDBMCreateString. */
TAVDB_API uint32_t str_create(tavDBMSession *session, const char *text, int32_t mediaId);
/** Releases an entry's slot, named by the entry's key word. @return 0 */
TAVDB_API int32_t str_setDeleted(tavDBMSession *session, const void *entry);
/** Body of tavDBMDeleteString. */
TAVDB_API int32_t dbs_me_db_string_delete(tavDBMSession *session, uint32_t key);

/* ======================================================================= */
/* Components                                                              */
/* ======================================================================= */

/** What every component record begins with, 24 bytes. */
typedef struct tavDBMComponent {
    uint32_t key;
    uint32_t name;     /**< string key, 0 = none */
    uint32_t reserved; /**< 0 */
    uint32_t parent;   /**< 0 for the root */
    uint32_t next;     /**< next sibling, 0 = last */
    int32_t kind;      /**< enum tavDBMKind */
} tavDBMComponent;

/** A node's record, 28 bytes. */
typedef struct tavDBMNode {
    tavDBMComponent component;
    uint32_t firstChild;
} tavDBMNode;

/** A leaf's record, 40 bytes. */
typedef struct tavDBMLeaf {
    tavDBMComponent component;
    uint32_t currentValue;
    uint32_t defaultValue;
    uint32_t factoryValue;
    uint32_t hookId;
} tavDBMLeaf;

/** @return 0 */
TAVDB_API int32_t comp_init(void);
/** @return 0 */
TAVDB_API int32_t comp_term(void);

/**
 * @name Records
 * Read or write 24, 28 or 40 bytes. Readers return buffer or null:
 * NO_COMPONENT (node and leaf only), COMPONENT_OPEN, COMPONENT_READ, NOT_OPEN.
 * Writers write at the record's key and return 0, COMPONENT_OPEN,
 * COMPONENT_WRITE, NOT_OPEN; a success does not clear the session's error.
 * @{
 */
TAVDB_API void *comp_getComponent(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API void *comp_getNode(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API void *comp_getLeaf(tavDBMSession *session, uint32_t key, void *buffer);
TAVDB_API int32_t comp_setComponent(tavDBMSession *session, const void *record);
TAVDB_API int32_t comp_setNode(tavDBMSession *session, const void *record);
TAVDB_API int32_t comp_setLeaf(tavDBMSession *session, const void *record);
/** @} */

/** Reserves a node's record; sets the buffer's key and kind. @return buffer or null (nothing recorded when the medium
 * is full) */
TAVDB_API void *comp_newNode(tavDBMSession *session, void *buffer);
/** Reserves a leaf's record; sets the buffer's key and kind. @return as comp_newNode */
TAVDB_API void *comp_newLeaf(tavDBMSession *session, void *buffer);
/** Body of tavDBMCreateNode. */
TAVDB_API uint32_t node_create(tavDBMSession *session, uint32_t name, uint32_t parent, uint32_t previous,
                               uint32_t child);
/** Body of tavDBMCreateLeaf. */
TAVDB_API uint32_t leaf_create(tavDBMSession *session, uint32_t name, uint32_t parent, uint32_t previous,
                               uint32_t currentValue, uint32_t defaultValue, uint32_t factoryValue, uint32_t hookId);

/**
 * @name Links and names
 * Getters return the word, 0 on a failure; setters the result of the write, or
 * the session's last error when the record cannot be read.
 * @{
 */
TAVDB_API uint32_t comp_getStringKey(tavDBMSession *session, uint32_t key);
TAVDB_API int32_t comp_setStringKey(tavDBMSession *session, uint32_t key, uint32_t name);
TAVDB_API uint32_t comp_getParent(tavDBMSession *session, uint32_t key);
TAVDB_API int32_t comp_setParent(tavDBMSession *session, uint32_t key, uint32_t parent);
TAVDB_API uint32_t comp_getNextSibling(tavDBMSession *session, uint32_t key);
TAVDB_API int32_t comp_setNextSibling(tavDBMSession *session, uint32_t key, uint32_t next);
/** @return 0 for a leaf, with no error recorded */
TAVDB_API uint32_t comp_getFirstChild(tavDBMSession *session, uint32_t key);
/** @return also NOT_NODE */
TAVDB_API int32_t comp_setFirstChild(tavDBMSession *session, uint32_t key, uint32_t child);
/** @return 0 with NOT_NODE for a leaf */
TAVDB_API uint32_t comp_getChildCount(tavDBMSession *session, uint32_t key);
/** @return 0 behind the last child; 0 with NOT_NODE for a leaf */
TAVDB_API uint32_t comp_getChildByIndex(tavDBMSession *session, uint32_t key, uint32_t index);
/** @return the root's key, or 0 */
TAVDB_API uint32_t comp_getRoot(tavDBMSession *session);
/** @} */

/**
 * @name Bodies of the tavDBM functions on a leaf's value keys
 * @{
 */
TAVDB_API uint32_t leaf_getCurrentValueKey(tavDBMSession *session, uint32_t key);
TAVDB_API uint32_t leaf_getDefaultValueKey(tavDBMSession *session, uint32_t key);
TAVDB_API uint32_t leaf_getFactoryValueKey(tavDBMSession *session, uint32_t key);
TAVDB_API int32_t leaf_setCurrentValueKey(tavDBMSession *session, uint32_t key, uint32_t valueKey);
TAVDB_API int32_t leaf_setDefaultValueKey(tavDBMSession *session, uint32_t key, uint32_t valueKey);
TAVDB_API int32_t leaf_setFactoryValueKey(tavDBMSession *session, uint32_t key, uint32_t valueKey);
/** @} */

/**
 * @name Bodies of the tavDBM functions that work on several components
 * @{
 */
TAVDB_API int32_t leaf_move(tavDBMSession *session, uint32_t key, uint32_t parent, uint32_t previous);
TAVDB_API int32_t node_move(tavDBMSession *session, uint32_t key, uint32_t parent, uint32_t previous, uint32_t child);
TAVDB_API int32_t node_moveWithSub(tavDBMSession *session, uint32_t key, uint32_t parent, uint32_t previous);
TAVDB_API int32_t comp_delete(tavDBMSession *session, uint32_t key);
/** @param session, key as for comp_delete @param unlink 0 leaves the parent's chain as it is */
TAVDB_API int32_t comp_deleteWithSub(tavDBMSession *session, uint32_t key, int32_t unlink);
TAVDB_API int32_t comp_defaultToCurrent(tavDBMSession *session, uint32_t key);
TAVDB_API int32_t comp_factoryToDefault(tavDBMSession *session, uint32_t key);
TAVDB_API int32_t comp_currentToDefault(tavDBMSession *session, uint32_t key);
TAVDB_API void comp_traverseAndPrint(tavDBMSession *session, uint32_t key, int32_t depth);
TAVDB_API int32_t comp_lock(tavDBMSession *session, uint32_t key, int32_t mode);
TAVDB_API int32_t comp_unlock(tavDBMSession *session, uint32_t key);
/** @} */

/** Releases a record's slot, its size by the header's kind. @return 0, KIND, NOT_OPEN */
TAVDB_API int32_t comp_setDeleted(tavDBMSession *session, const void *header);
/**
 * Matches names along the tree as prefixes of a path.
 * @return the component reached, or 0: NO_MATCH at the start component,
 *   NOT_BELOW further down. A leaf whose name is only a prefix gives 0 and no error.
 */
TAVDB_API uint32_t comp_searchByName(tavDBMSession *session, uint32_t key, const char *path);
/** @return 1 when the first 8 characters are those of "compMedia" */
TAVDB_API int32_t IsCompMedia(const char *name);
/** A medium's read function on a file descriptor. @return the bytes read, or -1 with *err = -1 */
TAVDB_API int32_t compFileRead(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err);

/* ======================================================================= */
/* Component locks                                                         */
/* ======================================================================= */

/** One held lock. */
typedef struct tavDBMLockEntry {
    uint32_t dbId;
    uint32_t component;
    uint32_t owner; /**< session id */
    uint32_t mode;  /**< 0x100 shared, else exclusive */
    uint32_t next;
    uint32_t prev;
} tavDBMLockEntry;

/** The lock-table file, 24624 bytes. Entry 0 and entry 1024 are never used: 1023 locks fit. */
typedef struct tavDBMLockTable {
    uint32_t freeHead;
    uint32_t first;
    uint32_t last;
    uint32_t unused[3];
    tavDBMLockEntry entry[1025];
} tavDBMLockTable;

/** Opens or makes the lock table on the process's first call. @return 0, LOCK_FILE, MAP, MEMORY, an OS wrapper code */
TAVDB_API int32_t lock_init(const char *path);
/** Unmaps the table on the process's last call. @return 0, UNMAP */
TAVDB_API int32_t lock_term(void);
/** One attempt. @return 0, LOCKED (not recorded), LOCK_FULL, an OS wrapper code */
TAVDB_API int32_t lock_compLock(tavDBMSession *session, uint32_t component, int32_t mode);
/** Attempts until the component is free. @return 0, LOCK_FULL, an OS wrapper code */
TAVDB_API int32_t lock_compLockW(tavDBMSession *session, uint32_t component, int32_t mode);
/** Body of tavDBMUnlock. @return 0, NOT_LOCKED (not recorded), an OS wrapper code */
TAVDB_API int32_t lock_compUnlock(tavDBMSession *session, uint32_t component);
/** Empties the lock list; takes no mutex and wakes nobody, so only when no other process uses the table. @return 0 */
TAVDB_API int32_t lock_compUnlockAll(void);

/* ======================================================================= */
/* Diagnostic dump                                                         */
/* ======================================================================= */

/**
 * Prints every module's statics and function addresses through the trace.
 * @param level 99 all, 5 all with sizes, 98 nothing
 * @param debugSize, ramSize grow by each module's sizes; may be null
 * @return the last module's result
 */
TAVDB_API int32_t dbs_me_db_debug(int32_t level, uint32_t *debugSize, uint32_t *ramSize);

/**
 * @name One module's dump; arguments as dbs_me_db_debug, level 98 prints statics only. Return 0.
 * @{
 */
TAVDB_API int32_t dbs_me_db_manager_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_value_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_session_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_lock_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_misc_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_media_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_media_entry_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_control_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_constraint_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_string_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_component_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
TAVDB_API int32_t dbs_me_db_file_list_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
