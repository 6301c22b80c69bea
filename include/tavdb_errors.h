/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file tavdb_errors.h
 * Every result code of the library, once: number, name, sentence, and what a
 * caller does about it. The constants TAVDB_ERR_* below, the texts of the
 * tavdb command and the error reference all come from this list.
 *
 * Codes of the OS wrapper pass through the library unchanged and are not
 * listed; those of the Linux port are 0x1000 | errno and so never collide.
 */
#ifndef TAVDB_ERRORS_H
#define TAVDB_ERRORS_H

/* clang-format off */
/** X(code, NAME, "sentence", "what a caller does") in ascending order. */
#define TAVDB_ERROR_LIST(X) \
    X(1, NOT_LEAF, "the component is not a leaf", "use a leaf's key") \
    X(2, NOT_NODE, "the component is not a node", "use a node's key") \
    X(3, KIND, "the component is neither a node nor a leaf", "check the database: the record is damaged") \
    X(4, NO_COMPONENT, "the component key is 0", "look the component up first") \
    X(5, NOT_BELOW, "the name was not found below a matching path", "correct the name") \
    X(7, PRE_READ, "the pre-read hook refused", "the detail is the hook's own result") \
    X(8, POST_READ, "the post-read hook failed", "the detail is the hook's own result; the value was read") \
    X(9, PRE_WRITE, "the pre-write hook refused", "the detail is the hook's own result; nothing was written") \
    X(10, POST_WRITE, "the post-write hook failed", "the detail is the hook's own result; the value was written") \
    X(12, MEDIA_FILE, "the media configuration file cannot be opened", "check the path and its permissions") \
    X(13, PLUGIN, "a plug-in library cannot be loaded", "see the trace for the loader's text") \
    X(14, FUNCTION_OPEN, "a medium's open or debug function was not found", "correct the media configuration line") \
    X(15, FUNCTION_CLOSE, "a medium's close function was not found", "correct the media configuration line") \
    X(16, FUNCTION_READ, "a medium's read function was not found", "correct the media configuration line") \
    X(17, FUNCTION_WRITE, "a medium's write function was not found", "correct the media configuration line") \
    X(18, FUNCTION_SEEK, "a medium's lseek function was not found", "correct the media configuration line") \
    X(19, FUNCTION_SYNC, "a medium's sync function was not found", "correct the media configuration line") \
    X(20, LIBRARY, "the library of a media configuration line was rejected", "see the trace for the library's name") \
    X(21, MEDIA_ID, "the media id is not below the media count", "check the description's media ids against the media configuration") \
    X(22, MEDIUM_OPEN, "the medium could not be opened", "the detail is the medium's error number") \
    X(23, MEDIUM_WRITE, "the medium was written short", "the detail is the medium's error number") \
    X(24, MEDIUM_READ, "the medium was read short", "the detail is the medium's error number") \
    X(26, MEDIUM_SYNC, "the medium's sync failed", "the detail is the medium's error number; what was written may not be on the device") \
    X(38, STRING_OPEN, "the medium of string entries could not be opened", "the detail is the medium's error number") \
    X(39, STRING_WRITE, "a string entry was written short", "the detail is the medium's error number") \
    X(40, STRING_READ, "a string entry could not be read", "the detail is the medium's error number") \
    X(41, STRING_SLOT, "no slot for a new string entry", "the string medium is full or failing") \
    X(44, VALUE_OPEN, "the medium of value records could not be opened", "the detail is the medium's error number") \
    X(45, VALUE_WRITE, "a value record was written short", "the detail is the medium's error number") \
    X(46, VALUE_READ, "a value record was read short", "the detail is the medium's error number") \
    X(49, COPY_LENGTH, "the source of the copy is longer than its destination", "copy between values of equal length") \
    X(50, NO_CURRENT, "the leaf has no current value", "give the leaf a current value first") \
    X(51, NO_VALUE, "the value key is 0", "the leaf lacks this value") \
    X(53, COMPONENT_OPEN, "the component medium or file could not be opened", "the detail is the medium's error number") \
    X(54, COMPONENT_WRITE, "a component record or file block was written short", "the detail is the medium's error number") \
    X(55, COMPONENT_READ, "a component record or file block was read short", "the detail is the medium's error number") \
    X(59, CONSTRAINT_OPEN, "the constraint medium could not be opened", "the detail is the medium's error number") \
    X(60, CONSTRAINT_WRITE, "a constraint record was written short", "the detail is the error number") \
    X(61, CONSTRAINT_READ, "a constraint record was read short, or an element array was transferred short", "the detail is the medium's error number") \
    X(62, CONSTRAINT_SLOT, "no slot for a new constraint record", "the constraint medium is full or failing") \
    X(64, VALUE_TYPE, "the value's type is not the constraint's type", "tie the value to a constraint of its own type") \
    X(65, LENGTH, "the length does not fit the type or the constraint", "write exactly the type's width") \
    X(66, BELOW_MINIMUM, "the value is below the minimum", "choose a value inside the range") \
    X(67, ABOVE_MAXIMUM, "the value is above the maximum", "choose a value inside the range") \
    X(68, OFF_STEP, "the value is not on the step grid", "choose the minimum plus a multiple of the step") \
    X(69, CHECK_CONSTRAINT, "the value's constraint is of no known type", "check the database: the constraint record is damaged") \
    X(70, CONSTRAINT_TYPE, "the constraint is of no known type", "check the database: the constraint record is damaged") \
    X(71, NOT_ENUMERATED, "the value is not in the enumeration", "choose one of the listed values") \
    X(72, BUFFER, "the caller's buffer is too small", "ask for the length first") \
    X(73, NO_CONSTRAINT, "the value has no constraint", "any value of the type is allowed") \
    X(74, LOCK_FILE, "the new lock table could not be written in full", "free space on its file system") \
    X(75, LOCKED, "the component is locked in a conflicting way", "try again later or wait for the lock") \
    X(76, NOT_LOCKED, "the component holds no lock", "unlock only what was locked") \
    X(77, LOCK_MODE, "the lock's wait mode is neither 0 nor 1", "correct the mode") \
    X(78, LOCK_FULL, "the lock table is full", "release locks; 1023 fit") \
    X(79, SESSION_FILE, "the new session table could not be written in full", "free space on its file system") \
    X(80, SESSIONS_FULL, "the session table is full and no slot is reclaimable", "close sessions; 1023 fit") \
    X(81, NO_SESSION, "the session is not in the session table", "open the session first, close it once") \
    X(82, CONTROL_FILE, "the new control table could not be written in full", "free space on its file system") \
    X(83, NOT_OPEN, "the session's database is not open", "attach with tavDBMInit first") \
    X(84, DATABASES_FULL, "the control table is full", "detach from databases; 31 fit") \
    X(85, DATABASE_ID, "the database id is not in the control table", "use the id that tavDBMInit returned") \
    X(86, MEMORY, "memory could not be allocated", "the detail is the error number") \
    X(87, MAP, "a table file could not be mapped", "check the table's file and its permissions") \
    X(88, UNMAP, "a table file could not be unmapped", "the process's mapping is damaged; end the process") \
    X(89, NULL_ARGUMENT, "a required argument is null", "pass the argument") \
    X(95, CONTROL_MUTEX, "the control table's mutex could not be taken", "check the control table's file and its permissions") \
    X(100, NO_MATCH, "the name does not match", "correct the name")
/* clang-format on */

/** The codes as constants: TAVDB_ERR_ and the name. */
enum tavDBMError {
    TAVDB_OK = 0,
#define TAVDB_ERROR_CONSTANT(code, name, sentence, action) TAVDB_ERR_##name = (code),
    TAVDB_ERROR_LIST(TAVDB_ERROR_CONSTANT)
#undef TAVDB_ERROR_CONSTANT
};

#endif
