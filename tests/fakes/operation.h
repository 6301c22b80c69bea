// SPDX-License-Identifier: Apache-2.0
// The kinds of operation that the fakes see, as one list: what the event log
// calls each of them, which group it belongs to, and how it fails when a fault
// plan does not say how. What an operation does is in the fake of its group.
#pragma once

#include <errno.h>

#include <cstdint>

namespace tavdb_test {

/// Groups of operations, to look at a part of the event log. Joined with |.
enum class Category : uint32_t {
    memory = 0x01,
    semaphores = 0x02,
    media = 0x04,
    hooks = 0x08,
    trace = 0x10,
    systemErrors = 0x20,
    libc = 0x40,
    all = 0x7f
};

constexpr Category operator|(Category a, Category b) {
    return static_cast<Category>(static_cast<uint32_t>(a) | static_cast<uint32_t>(b));
}

constexpr bool includes(Category set, Category member) {
    return (static_cast<uint32_t>(set) & static_cast<uint32_t>(member)) != 0;
}

/// What an event's text shows of its subject.
enum class Subject : uint8_t { shown, hidden };

/// Whether "fail operation k of any kind" counts an operation.
enum class Any : uint8_t { counted, left };

/// A failure code as the platform's semaphores give it.
constexpr int32_t platformCode(int32_t error) {
    return 0x1000 | error;
}

// clang-format off
/// X(name, text in the log, category, subject, any, result of a failure, its error number)
#define TAVDB_TEST_OPERATIONS(X) \
    X(alloc,          "alloc",           memory,       hidden, counted, 0,                 ENOMEM) \
    X(free,           "free",            memory,       hidden, left,    0,                 0)      \
    X(mutexCreate,    "mutexCreate",     semaphores,   shown,  counted, platformCode(EIO), EIO)    \
    X(countCreate,    "countCreate",     semaphores,   shown,  counted, platformCode(EIO), EIO)    \
    X(eventCreate,    "eventCreate",     semaphores,   shown,  counted, platformCode(EIO), EIO)    \
    X(mutexRequest,   "mutexRequest",    semaphores,   shown,  counted, platformCode(EIO), EIO)    \
    X(mutexRelease,   "mutexRelease",    semaphores,   shown,  counted, platformCode(EIO), EIO)    \
    X(countWait,      "countWait",       semaphores,   shown,  counted, platformCode(EIO), EIO)    \
    X(countPost,      "countPost",       semaphores,   shown,  counted, platformCode(EIO), EIO)    \
    X(eventWait,      "eventWait",       semaphores,   shown,  counted, platformCode(EIO), EIO)    \
    X(eventPost,      "eventPost",       semaphores,   shown,  counted, platformCode(EIO), EIO)    \
    X(semAnnounce,    "semAnnounce",     semaphores,   shown,  left,    0,                 0)      \
    X(mutexAbandoned, "mutexAbandoned",  semaphores,   shown,  left,    1,                 0)      \
    X(mediaInit,      "mediaInit",       media,        shown,  counted, platformCode(EIO), EIO)    \
    X(mediaOpen,      "open",            media,        shown,  counted, -1,                EIO)    \
    X(mediaClose,     "close",           media,        hidden, counted, -1,                EIO)    \
    X(mediaRead,      "read",            media,        hidden, counted, -1,                EIO)    \
    X(mediaWrite,     "write",           media,        hidden, counted, -1,                EIO)    \
    X(mediaSeek,      "seek",            media,        hidden, counted, -1,                EIO)    \
    X(mediaSync,      "sync",            media,        hidden, counted, -1,                EIO)    \
    X(mediaDump,      "dump",            media,        shown,  left,    platformCode(EIO), 0)      \
    X(hookInit,       "hookInit",        hooks,        shown,  counted, platformCode(EIO), EIO)    \
    X(hookTerm,       "hookTerm",        hooks,        shown,  counted, platformCode(EIO), EIO)    \
    X(hookGet,        "getHook",         hooks,        shown,  left,    0,                 0)      \
    X(hookCall,       "hook",            hooks,        shown,  counted, 77,                0)      \
    X(platformDump,   "dump",            hooks,        shown,  left,    platformCode(EIO), 0)      \
    X(trace,          "trace",           trace,        hidden, left,    0,                 0)      \
    X(systemError,    "systemError",     systemErrors, shown,  left,    -1,                0)      \
    X(sysOpen,        "sys.open",        libc,         shown,  counted, -1,                EACCES) \
    X(sysClose,       "sys.close",       libc,         shown,  counted, -1,                EIO)    \
    X(sysMmap,        "sys.mmap",        libc,         shown,  counted, -1,                ENOMEM) \
    X(sysMunmap,      "sys.munmap",      libc,         shown,  counted, -1,                EINVAL) \
    X(sysRead,        "sys.pread",       libc,         shown,  counted, -1,                EIO)    \
    X(sysWrite,       "sys.write",       libc,         shown,  counted, -1,                ENOSPC) \
    X(sysPwrite,      "sys.pwrite",      libc,         shown,  counted, -1,                EIO)    \
    X(sysSeek,        "sys.lseek",       libc,         shown,  counted, -1,                EIO)    \
    X(sysSync,        "sys.fsync",       libc,         shown,  counted, -1,                EIO)    \
    X(sysStat,        "sys.fstat",       libc,         shown,  counted, -1,                EIO)    \
    X(sysFlock,       "sys.flock",       libc,         shown,  counted, -1,                ENOLCK) \
    X(sysAllocate,    "sys.fallocate",   libc,         shown,  counted, ENOSPC,            0)      \
    X(sysFopen,       "sys.fopen",       libc,         shown,  counted, 0,                 EACCES) \
    X(sysFclose,      "sys.fclose",      libc,         shown,  counted, -1,                EIO)    \
    X(sysDlopen,      "sys.dlopen",      libc,         shown,  counted, 0,                 ENOENT) \
    X(sysDlclose,     "sys.dlclose",     libc,         shown,  counted, -1,                0)
// clang-format on

enum class Operation : uint8_t {
#define TAVDB_TEST_ENUMERATOR(name, text, category, subject, any, result, error) name,
    TAVDB_TEST_OPERATIONS(TAVDB_TEST_ENUMERATOR)
#undef TAVDB_TEST_ENUMERATOR
};

/// One row of the list.
struct OperationTraits {
    const char *text;
    Category category;
    Subject subject;
    Any any;
    int64_t failureResult;
    int32_t failureError;
};

inline constexpr OperationTraits kOperations[] = {
#define TAVDB_TEST_ROW(name, text, category, subject, any, result, error) \
    {text, Category::category, Subject::subject, Any::any, result, error},
    TAVDB_TEST_OPERATIONS(TAVDB_TEST_ROW)
#undef TAVDB_TEST_ROW
};

constexpr const OperationTraits &traitsOf(Operation operation) {
    return kOperations[static_cast<uint8_t>(operation)];
}

constexpr bool isTransfer(Operation operation) {
    return operation == Operation::mediaRead || operation == Operation::mediaWrite || operation == Operation::sysRead ||
           operation == Operation::sysWrite || operation == Operation::sysPwrite;
}

}  // namespace tavdb_test
