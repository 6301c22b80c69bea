/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file tavdb.h
 * The application interface of libtavdb: attach to a database, open a session,
 * read, write and walk a device's configuration tree.
 *
 * Keys. Components, values, constraints and strings are named by unsigned
 * 32-bit keys, the byte offsets of their records on a medium. 0 is "none".
 *
 * Errors. A function that returns a status returns 0 or a code of
 * tavdb_errors.h; a function that returns a key returns 0 when it fails. The
 * code, and a detail word (an error number, a hook's result or a key), are left
 * in the session record. A successful call does not clear them, so look at them
 * only after a call that failed, or set errorCode to 0 before the call.
 * Codes that any function taking a session may record besides those it lists:
 *   - TAVDB_ERR_NOT_OPEN      the session's database is not open,
 *   - TAVDB_ERR_MEDIA_ID      the description names a medium that is not configured,
 *   - TAVDB_ERR_COMPONENT_*   a component record could not be accessed,
 *   - TAVDB_ERR_VALUE_OPEN, _WRITE, _READ  a value record could not be accessed.
 *
 * Cost. One access is open, one transfer and close of a medium: three system
 * calls on file media, none on memory media. Nothing is cached between calls.
 *
 * Processes and threads. Any number of processes may use one database at the
 * same time; each call sees what the others have written. No function but
 * tavDBMInit, tavDBMTerm, tavDBMInitSession, tavDBMTermSession, tavDBMLock and
 * tavDBMUnlock takes a lock: keep writers of one component apart with
 * tavDBMLock, and writers that create or delete records of one database apart
 * from each other. A session record belongs to one thread at a time. Attaching
 * and detaching from several threads of one process at once is not supported.
 *
 * Ownership. The library keeps no pointer that a caller passes in.
 */
#ifndef TAVDB_H
#define TAVDB_H

#include <stdint.h>

#include "tavdb_errors.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What a library exports, also one of hooks or media. */
#define TAVDB_API __attribute__((visibility("default")))

/** Value type codes. Any other code is kept as given; 1 and 12 are this project's own use. */
enum tavDBMType {
    TAVDB_TYPE_TEXT = 1, /**< bytes with a terminating NUL */
    TAVDB_TYPE_S8 = 2,
    TAVDB_TYPE_S16 = 3,
    TAVDB_TYPE_S32 = 4,
    TAVDB_TYPE_S64 = 5,
    TAVDB_TYPE_U8 = 6,
    TAVDB_TYPE_U16 = 7,
    TAVDB_TYPE_U32 = 8,
    TAVDB_TYPE_U64 = 9,
    TAVDB_TYPE_F32 = 10,
    TAVDB_TYPE_F64 = 11,
    TAVDB_TYPE_BYTES = 12
};

/** A range constraint has its value type's code; an enumeration that code shifted left by this. */
#define TAVDB_ENUMERATION_SHIFT 8

/** Kinds of component. */
enum tavDBMKind { TAVDB_KIND_NODE = 0, TAVDB_KIND_LEAF = 1 };

/** Modes of tavDBMLock: one wait mode, optionally or-ed with TAVDB_LOCK_SHARED. */
enum tavDBMLockMode { TAVDB_LOCK_WAIT = 0, TAVDB_LOCK_TRY = 1, TAVDB_LOCK_SHARED = 0x100 };

/** Bytes of one path in a description, its NUL included. */
#define TAVDB_PATH_SIZE 4096

/**
 * What makes up one database. Two processes that pass equal descriptions share
 * one database; relative paths are compared with the value of "PWD" put
 * directly in front of them, so use absolute ones.
 */
typedef struct tavDBMDescription {
    char sessionPath[TAVDB_PATH_SIZE]; /**< session table file */
    char lockPath[TAVDB_PATH_SIZE];    /**< component lock table file */
    char mediaPath[TAVDB_PATH_SIZE];   /**< media configuration file */
    char hookPath[TAVDB_PATH_SIZE];    /**< handed to the hook library */
    uint32_t componentMedia;           /**< media id of the component records */
    uint32_t valueMedia;               /**< media id of the value records */
    uint32_t constraintMedia;          /**< media id of the constraint records */
    uint32_t stringMedia;              /**< media id of the string entries */
    uint32_t fifthWord;                /**< part of the identity, read by nothing else */
} tavDBMDescription;

/** A session, owned by the caller: filled by tavDBMInitSession, passed to every call. */
typedef struct tavDBMSession {
    uint32_t sessionId;        /**< slot in the session table, 1 to 1023 */
    uint32_t dbId;             /**< database id, 1 to 31 */
    uint32_t errorCode;        /**< code of the last failure, 0 = none */
    uint32_t errorDetail;      /**< second word of the last failure */
    uint32_t currentComponent; /**< where relative searches start */
} tavDBMSession;

/* ---- start and stop --------------------------------------------------- */

/**
 * Attaches this process to a database and starts the library.
 * @param description copied into the shared control table
 * @param error       receives the code when the call fails; may be null
 * @return the database id, 1 to 31, or -1 with *error:
 *   NULL_ARGUMENT no description; DATABASES_FULL 31 databases are open;
 *   CONTROL_MUTEX, CONTROL_FILE, MAP, MEMORY the control table cannot be used;
 *   SESSION_FILE, LOCK_FILE a table cannot be made; MEDIA_FILE, 13 to 20 the
 *   media configuration is not usable; codes of the hook library and of the OS
 *   wrapper. Modules that were started stay started, and the reference that was
 *   taken stays counted: correct the cause and attach anew in a new process.
 * Cost: maps three table files and reads the media configuration on the first
 * call of the process; later calls only count.
 * Environment: "TAVDB_DBTABLE" names the control table (else /tmp/tavdb_dbTable).
 */
TAVDB_API int32_t tavDBMInit(const tavDBMDescription *description, int32_t *error);

/**
 * Detaches from a database; the process's last call stops the library.
 * @param dbId what tavDBMInit returned
 * @return 0, or the first failure of a module's stop: UNMAP, a hook library's code.
 * Every module is stopped whatever an earlier one returned. Call it once for each
 * tavDBMInit that succeeded: one call too many makes the next tavDBMInit fail.
 */
TAVDB_API int32_t tavDBMTerm(uint32_t dbId);

/* ---- sessions --------------------------------------------------------- */

/**
 * Opens a session: takes a slot of the shared session table, or that of a
 * process that died, and makes the root the current component.
 * @param session filled; the caller's, in any storage
 * @param dbId    not checked here: a wrong id shows up as NOT_OPEN later
 * @return 0; SESSIONS_FULL; NULL_ARGUMENT (returned only); an OS wrapper code.
 * Cost: one access (the root) under the session table's mutex.
 */
TAVDB_API int32_t tavDBMInitSession(tavDBMSession *session, uint32_t dbId);

/**
 * Closes a session. The record itself is left as it is.
 * @return 0; NO_SESSION when it is not open; NULL_ARGUMENT; an OS wrapper code.
 */
TAVDB_API int32_t tavDBMTermSession(tavDBMSession *session);

/* ---- values ----------------------------------------------------------- */

/**
 * Reads a leaf's current value as bytes, through its read hooks.
 * @param session   the caller's
 * @param component the leaf
 * @param buffer receives at most *length bytes; the caller's
 * @param length in: bytes that fit into buffer; out: bytes read
 * @return 0; NOT_LEAF; PRE_READ, POST_READ a hook refused; MEDIUM_OPEN;
 *   NULL_ARGUMENT without buffer or length; the code of the component's lookup.
 * A failed transfer of the data returns 0, records MEDIUM_READ and sets *length
 * to -1. Never more than the value's own length is read.
 * Cost: three accesses: leaf, value record, data.
 */
TAVDB_API int32_t tavDBMGetGeneric(tavDBMSession *session, uint32_t component, void *buffer, int32_t *length);

/** As tavDBMGetGeneric, for the default value. */
TAVDB_API int32_t tavDBMGetDefaultGeneric(tavDBMSession *session, uint32_t component, void *buffer, int32_t *length);

/** As tavDBMGetGeneric, for the factory value. */
TAVDB_API int32_t tavDBMGetFactoryGeneric(tavDBMSession *session, uint32_t component, void *buffer, int32_t *length);

/**
 * As tavDBMGetGeneric, but reads exactly *length bytes from the start of the
 * value's data, even beyond the value's own length, and leaves *length alone.
 */
TAVDB_API int32_t tavDBMGetCreateListGeneric(tavDBMSession *session, uint32_t component, void *buffer, int32_t *length);

/**
 * Writes a leaf's current value, through its write hooks and its constraint.
 * @param session   the caller's
 * @param component the leaf
 * @param data   a pre-write hook of the leaf may change these bytes in place:
 *               hand writable storage to a leaf that has such a hook
 * @param length bytes in data; more than the value's own length is cut off,
 *               fewer leave the value's remaining bytes as they were
 * @return 0; NOT_LEAF; PRE_WRITE, POST_WRITE a hook refused; VALUE_TYPE, LENGTH,
 *   BELOW_MINIMUM, ABOVE_MAXIMUM, OFF_STEP, CHECK_CONSTRAINT, NOT_ENUMERATED the
 *   constraint refused and nothing was written; MEDIUM_OPEN; NULL_ARGUMENT
 *   without data; the code of the component's lookup.
 * A failed transfer of the data returns 0 and records MEDIUM_WRITE.
 * Cost: three accesses, five under a range, six under an enumeration.
 */
TAVDB_API int32_t tavDBMSetGeneric(tavDBMSession *session, uint32_t component, const void *data, int32_t length);

/** As tavDBMSetGeneric, for the default value. There is no write of the factory value. */
TAVDB_API int32_t tavDBMSetDefaultGeneric(tavDBMSession *session, uint32_t component, const void *data, int32_t length);

/**
 * @name Typed reads and writes of the current value
 * tavDBMGetGeneric and tavDBMSetGeneric with the type's width; same results and
 * cost. The value's own type is not compared with the function's: only a
 * constraint compares it, on writes.
 * @{
 */
TAVDB_API int32_t tavDBMGetSint8(tavDBMSession *session, uint32_t component, int8_t *value);
TAVDB_API int32_t tavDBMGetSint16(tavDBMSession *session, uint32_t component, int16_t *value);
TAVDB_API int32_t tavDBMGetSint32(tavDBMSession *session, uint32_t component, int32_t *value);
TAVDB_API int32_t tavDBMGetSint64(tavDBMSession *session, uint32_t component, int64_t *value);
TAVDB_API int32_t tavDBMGetUint8(tavDBMSession *session, uint32_t component, uint8_t *value);
TAVDB_API int32_t tavDBMGetUint16(tavDBMSession *session, uint32_t component, uint16_t *value);
TAVDB_API int32_t tavDBMGetUint32(tavDBMSession *session, uint32_t component, uint32_t *value);
TAVDB_API int32_t tavDBMGetUint64(tavDBMSession *session, uint32_t component, uint64_t *value);
TAVDB_API int32_t tavDBMGetFloat32(tavDBMSession *session, uint32_t component, float *value);
TAVDB_API int32_t tavDBMGetFloat64(tavDBMSession *session, uint32_t component, double *value);
TAVDB_API int32_t tavDBMSetSint8(tavDBMSession *session, uint32_t component, int8_t value);
TAVDB_API int32_t tavDBMSetSint16(tavDBMSession *session, uint32_t component, int16_t value);
TAVDB_API int32_t tavDBMSetSint32(tavDBMSession *session, uint32_t component, int32_t value);
TAVDB_API int32_t tavDBMSetSint64(tavDBMSession *session, uint32_t component, int64_t value);
TAVDB_API int32_t tavDBMSetUint8(tavDBMSession *session, uint32_t component, uint8_t value);
TAVDB_API int32_t tavDBMSetUint16(tavDBMSession *session, uint32_t component, uint16_t value);
TAVDB_API int32_t tavDBMSetUint32(tavDBMSession *session, uint32_t component, uint32_t value);
TAVDB_API int32_t tavDBMSetUint64(tavDBMSession *session, uint32_t component, uint64_t value);
TAVDB_API int32_t tavDBMSetFloat32(tavDBMSession *session, uint32_t component, float value);
TAVDB_API int32_t tavDBMSetFloat64(tavDBMSession *session, uint32_t component, double value);
/** @} */

/**
 * Reads a text. The stored NUL is read when it fits: a text as long as the
 * buffer comes without one.
 * @param session, component as for tavDBMGetGeneric
 * @param buffer       receives the text; the caller's
 * @param bufferLength bytes that fit into buffer
 * @return as tavDBMGetGeneric
 */
TAVDB_API int32_t tavDBMGetString(tavDBMSession *session, uint32_t component, char *buffer, int32_t bufferLength);

/**
 * Writes a text with its NUL; what does not fit into the value is cut off.
 * @return as tavDBMSetGeneric
 */
TAVDB_API int32_t tavDBMSetString(tavDBMSession *session, uint32_t component, const char *text);

/** @return the type code of a leaf's current value, or -1 (NOT_LEAF, NO_VALUE). Cost: two accesses. */
TAVDB_API int32_t tavDBMGetType(tavDBMSession *session, uint32_t component);

/**
 * @return the bytes of a leaf's current value, 0 when the component is no
 *   readable leaf (NOT_LEAF), -1 when its value is not readable (NO_VALUE).
 * Cost: two accesses.
 */
TAVDB_API int32_t tavDBMGetLength(tavDBMSession *session, uint32_t component);

/**
 * Copies one leaf's current value into another's, through the hooks of both and
 * the destination's constraint. The whole destination is written: cut off or
 * filled with zeros.
 * @return 0; MEMORY; NOT_LEAF; else as the read and the write.
 * Cost: four accesses for the lengths, a read and a write.
 */
TAVDB_API int32_t tavDBMCopy(tavDBMSession *session, uint32_t source, uint32_t destination);

/** Makes a component the start of relative searches. @return its key, or 0 (KIND, NO_COMPONENT). Cost: one access. */
TAVDB_API uint32_t tavDBMSetCurrentComponent(tavDBMSession *session, uint32_t component);

/* ---- walking the tree ------------------------------------------------- */

/**
 * Finds a component by its path: names are matched as prefixes of the path
 * along the way, so a node's stored name carries its own "/".
 * @param session the caller's; its current component is where a relative path starts
 * @param name from the root when it begins with "/", else from the current component
 * @return the key, or 0: NO_MATCH for an absolute path, NOT_BELOW for a
 *   relative one, NULL_ARGUMENT.
 * Cost: four accesses for each component compared.
 */
TAVDB_API uint32_t tavDBMSearchByName(tavDBMSession *session, const char *name);

/** @return the root's key, or 0. Cost: one access. */
TAVDB_API uint32_t tavDBMGetRoot(tavDBMSession *session);

/** @return the parent's key, 0 for the root. Cost: one access. */
TAVDB_API uint32_t tavDBMGetParent(tavDBMSession *session, uint32_t component);

/** @return the first child's key, 0 without children and for a leaf. Cost: two accesses. */
TAVDB_API uint32_t tavDBMGetFirstChild(tavDBMSession *session, uint32_t component);

/** @return the next sibling's key, 0 for the last one. Cost: one access. */
TAVDB_API uint32_t tavDBMGetNextChild(tavDBMSession *session, uint32_t component);

/** @return the number of children; 0 with NOT_NODE for a leaf. Cost: two accesses and one per child. */
TAVDB_API uint32_t tavDBMGetChildCount(tavDBMSession *session, uint32_t component);

/**
 * @param session, component the caller's; the node
 * @param index 0 is the first child
 * @return the child's key, 0 behind the last one; 0 with NOT_NODE for a leaf.
 * Cost: two accesses and index more.
 */
TAVDB_API uint32_t tavDBMGetChildByIndex(tavDBMSession *session, uint32_t component, uint32_t index);

/* ---- changing the tree ------------------------------------------------ */

/**
 * Creates a node.
 * @param session  the caller's
 * @param name     string key, see tavDBMCreateString; not checked for uniqueness
 * @param parent   the node's parent; not checked
 * @param previous the sibling to stand behind, 0 to become the first child
 * @param child    0, or the component directly behind the insertion point, which
 *                 becomes the new node's only child
 * @return the key, or 0. A call that fails half-way leaves a reserved record unused.
 * Cost: an allocation (two accesses and two per free block passed), two to five more.
 */
TAVDB_API uint32_t tavDBMCreateNode(tavDBMSession *session, uint32_t name, uint32_t parent, uint32_t previous,
                                    uint32_t child);

/**
 * Creates a leaf.
 * @param session the caller's
 * @param name, parent, previous as for tavDBMCreateNode
 * @param currentValue, defaultValue, factoryValue value keys, see tavDBMCreateValue; may be 0
 * @param hookId 0, or the id of the leaf's hook
 * @return the key, or 0
 */
TAVDB_API uint32_t tavDBMCreateLeaf(tavDBMSession *session, uint32_t name, uint32_t parent, uint32_t previous,
                                    uint32_t currentValue, uint32_t defaultValue, uint32_t factoryValue,
                                    uint32_t hookId);

/**
 * Creates a value without a constraint and appends its data to a medium.
 * @param session      the caller's
 * @param type         enum tavDBMType, or a code of the caller's own
 * @param creationWord kept with the value, read by nothing
 * @param data         length bytes; null means zeros
 * @param length       the value's length for good, 0 or more
 * @param mediaId      medium that the data are appended to
 * @return the key, or 0: MEMORY, MEDIUM_OPEN, MEDIUM_WRITE
 */
TAVDB_API uint32_t tavDBMCreateValue(tavDBMSession *session, int32_t type, uint32_t creationWord, const void *data,
                                     int32_t length, int32_t mediaId);

/**
 * Stores a text, for example a component's name. Equal texts are stored twice.
 * @param session the caller's
 * @param text    stored with its NUL
 * @param mediaId medium that the text is appended to
 * @return the string key, or 0: STRING_OPEN, STRING_SLOT, MEDIUM_OPEN, MEDIUM_WRITE, NULL_ARGUMENT
 */
TAVDB_API uint32_t tavDBMCreateString(tavDBMSession *session, const char *text, int32_t mediaId);

/**
 * Moves a leaf below another parent.
 * A leaf that is its old parent's FIRST child stays linked there as well: the
 * old parent's chain then runs on into the new neighbours, and the siblings
 * that followed it drop out. Move a later child, or put another child in front
 * first.
 * @param session, leaf the caller's; what to move
 * @param parent   the new parent; not checked
 * @param previous new sibling to stand behind, 0 to become the first child
 * @return 0, or a code of the record accesses
 */
TAVDB_API int32_t tavDBMMoveLeaf(tavDBMSession *session, uint32_t leaf, uint32_t parent, uint32_t previous);

/**
 * Moves a node alone: its children take its place and keep naming it as parent.
 * @param session, node the caller's; what to move
 * @param parent, previous as for tavDBMMoveLeaf
 * @param child 0, or the component directly behind the insertion point, which
 *              becomes the node's only child
 * @return 0, or a code of the record accesses
 */
TAVDB_API int32_t tavDBMMoveNode(tavDBMSession *session, uint32_t node, uint32_t parent, uint32_t previous,
                                 uint32_t child);

/** Moves a node with everything below it. Moving it below itself is not refused. @return as tavDBMMoveNode */
TAVDB_API int32_t tavDBMMoveSubTree(tavDBMSession *session, uint32_t node, uint32_t parent, uint32_t previous);

/**
 * Deletes one component. A node's children take its place and keep naming it as
 * parent. Values and names stay allocated. Children that cannot be read to the
 * last one are not lost: nothing is changed then.
 * @return 0, KIND, or a code of the record accesses
 */
TAVDB_API int32_t tavDBMDeleteComponent(tavDBMSession *session, uint32_t component);

/**
 * Deletes a component and everything below it; values and names stay allocated.
 * @return as tavDBMDeleteComponent; MEMORY, only for trees of more than 16 levels: what is left of the subtree then
 *         stays allocated
 */
TAVDB_API int32_t tavDBMDeleteComponentWithSub(tavDBMSession *session, uint32_t component);

/** Releases a value's record; its data stay on their medium. @return 0, NO_VALUE, or a code of the record accesses */
TAVDB_API int32_t tavDBMDeleteValue(tavDBMSession *session, uint32_t value);

/** Releases a string's entry; its text stays on its medium. @return 0, STRING_OPEN, STRING_READ */
TAVDB_API int32_t tavDBMDeleteString(tavDBMSession *session, uint32_t string);

/**
 * @name Copies between the three values of every leaf below a component
 * tavDBMDefaultToCurrent runs the leaf's write hooks; all check constraints.
 * The first failure ends the walk and is returned; KIND, COPY_LENGTH, MEMORY
 * and the codes of reads and writes.
 * Cost: about ten accesses a leaf.
 * @{
 */
TAVDB_API int32_t tavDBMCurrentToDefault(tavDBMSession *session, uint32_t component);
TAVDB_API int32_t tavDBMFactoryToDefault(tavDBMSession *session, uint32_t component);
TAVDB_API int32_t tavDBMDefaultToCurrent(tavDBMSession *session, uint32_t component);
/** @} */

/* ---- keys and constraints --------------------------------------------- */

/**
 * @name Keys of a leaf's values
 * Getters return the key, 0 for none and with NOT_LEAF. Setters return 0,
 * NOT_LEAF or a code of the record accesses; the key is not checked.
 * Cost: one access to get, two to set.
 * @{
 */
TAVDB_API uint32_t tavDBMGetCurrentValueKey(tavDBMSession *session, uint32_t component);
TAVDB_API uint32_t tavDBMGetDefaultValueKey(tavDBMSession *session, uint32_t component);
TAVDB_API uint32_t tavDBMGetFactoryValueKey(tavDBMSession *session, uint32_t component);
TAVDB_API int32_t tavDBMSetCurrentValueKey(tavDBMSession *session, uint32_t component, uint32_t value);
TAVDB_API int32_t tavDBMSetDefaultValueKey(tavDBMSession *session, uint32_t component, uint32_t value);
TAVDB_API int32_t tavDBMSetFactoryValueKey(tavDBMSession *session, uint32_t component, uint32_t value);
/** @} */

/** @return the string key of a component's name, or 0. Cost: one access. */
TAVDB_API uint32_t tavDBMGetStringKey(tavDBMSession *session, uint32_t component);
/** Gives a component another name. @return 0 or a code of the record accesses. Cost: two accesses. */
TAVDB_API int32_t tavDBMSetStringKey(tavDBMSession *session, uint32_t component, uint32_t string);

/** @return the constraint key of a value, 0 for none. Cost: one access. */
TAVDB_API uint32_t tavDBMGetConstraintKey(tavDBMSession *session, uint32_t value);
/**
 * Ties a value to a constraint; 0 unties it.
 * @return 0 when the record could be read: a failed write shows in the session only.
 */
TAVDB_API int32_t tavDBMSetConstraintKey(tavDBMSession *session, uint32_t value, uint32_t constraint);

/**
 * Reads the constraint of a leaf's current value: minimum, maximum and step
 * packed, or the elements of the enumeration, in the machine's byte order.
 * @param session, component the caller's; the leaf
 * @param buffer       receives the data; the caller's
 * @param bufferLength bytes that fit into buffer, see tavDBMGetConstraintLength
 * @return 0, BUFFER, CONSTRAINT_TYPE or a code of the record accesses. Also 0,
 *   with the code in the session only, when there is no such constraint:
 *   NOT_LEAF, NO_CURRENT, NO_CONSTRAINT.
 * Cost: four accesses for a range, five for an enumeration.
 */
TAVDB_API int32_t tavDBMGetConstraintData(tavDBMSession *session, uint32_t component, void *buffer,
                                          int32_t bufferLength);
/**
 * Replaces the data of a constraint, in the form that tavDBMGetConstraintData
 * gives. An enumeration keeps its element count: fewer elements leave the old
 * ones behind them, more are written past the end of its array.
 * @return as tavDBMGetConstraintData; LENGTH when a range's length is wrong
 */
TAVDB_API int32_t tavDBMSetConstraintData(tavDBMSession *session, uint32_t component, const void *data, int32_t length);
/** @return the bytes of the constraint's data, -1 when there is no constraint. Cost: three or four accesses. */
TAVDB_API int32_t tavDBMGetConstraintLength(tavDBMSession *session, uint32_t component);
/** @return the constraint's type code, 0 when there is no constraint. Cost: three accesses. */
TAVDB_API int32_t tavDBMGetConstraintType(tavDBMSession *session, uint32_t component);

/* ---- locks, media, printing ------------------------------------------- */

/**
 * Locks a component for this session, across all processes. Locks are not
 * re-entrant and are not released when a session or process ends.
 * @param session, component the caller's; what to lock
 * @param mode TAVDB_LOCK_WAIT or TAVDB_LOCK_TRY, or-ed with TAVDB_LOCK_SHARED for a shared lock
 * @return 0; LOCKED with TAVDB_LOCK_TRY; LOCK_MODE; LOCK_FULL; an OS wrapper code.
 * Cost: linear in the locks held on the machine.
 */
TAVDB_API int32_t tavDBMLock(tavDBMSession *session, uint32_t component, int32_t mode);

/** Releases a component's newest lock, whoever holds it. @return 0, NOT_LOCKED, an OS wrapper code */
TAVDB_API int32_t tavDBMUnlock(tavDBMSession *session, uint32_t component);

/**
 * Flushes one medium to its device.
 * @param session the caller's
 * @param mediaId the medium
 * @param arg handed to the medium's sync function
 * @return 0, MEDIUM_OPEN, MEDIUM_SYNC; 0 with MEDIA_ID in the session for an unknown medium
 */
TAVDB_API int32_t tavDBMSync(tavDBMSession *session, int32_t mediaId, uint32_t arg);

/** Walks a subtree (0: the whole tree) and prints its indentation to standard output. MEMORY is recorded as for
 * tavDBMDeleteComponentWithSub. */
TAVDB_API void tavDBMtraverseAndPrint(tavDBMSession *session, uint32_t component);

#ifdef __cplusplus
}
#endif

#endif
