// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "fakes/fake_semaphores.h"
#include "faults/fault_rows.h"

namespace tavdb_test {

namespace {

/// A semaphore operation on the world's own set.
template <auto Function>
int64_t onSet(World &w) {
    return Function(&w.semaphores);
}

template <auto Function>
void first(World &w) {
    Function(&w.semaphores);
}

void takeEntry(World &w) {
    int32_t error = 0;
    dbs_me_db_control_init_table_entry(w.description, &error);
}

void releaseEntry(World &w) {
    dbs_me_db_control_term_table_entry(w.session->dbId);
}

void closeOther(World &w) {
    if (w.other.sessionId != 0)
        tavDBMTermSession(&w.other);
    w.other = {};
}

void openOther(World &w) {
    w.other = {};
    tavDBMInitSession(&w.other, w.session->dbId);
}

/// A call on the other session; its error is shown as that of the first one.
template <typename Call>
int64_t onOther(World &w, Call call) {
    w.other.errorCode = 0;
    w.other.errorDetail = 0;
    const int64_t result = call(&w.other);
    w.session->errorCode = w.other.errorCode;
    w.session->errorDetail = w.other.errorDetail;
    return result;
}

void releaseWhenAsked(World &) {
    fakeSemaphores().onEventWait([](const std::string &) { lock_compUnlockAll(); });
}

void askNoMore(World &) {
    fakeSemaphores().onEventWait(nullptr);
}

template <auto Lock>
void lockLeaf(World &w) {
    Lock(w.session, w.leaf, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED);
}

void lockNodeAndRelease(World &w) {
    lock_compLock(w.session, w.node, TAVDB_LOCK_TRY);
    releaseWhenAsked(w);
}

constexpr FaultRow kControlRows[] = {
    {"misc_getSems",
     [](World &w) {
         tavDBMSemaphoreSet set = {};
         return int64_t{misc_getSems(&set, w.listFile.c_str())};
     }},
    {"misc_waitMtx",
     [](World &w) {
         w.descriptor = misc_waitMtx(&w.semaphores);
         return int64_t{w.descriptor};
     },
     nullptr,
     [](World &w) {
         if (w.descriptor == 0)
             misc_postMtx(&w.semaphores);
     }},
    {"misc_postMtx", onSet<misc_postMtx>, first<misc_waitMtx>, nullptr},
    {"misc_waitCount", onSet<misc_waitCount>, first<misc_postCount>, nullptr},
    {"misc_postCount", onSet<misc_postCount>, nullptr, nullptr},
    {"misc_waitEvent", onSet<misc_waitEvent>, first<misc_postEvent>, nullptr},
    {"misc_postEvent", onSet<misc_postEvent>},
    {"misc_resetEvent", onSet<misc_resetEvent>},
    {"misc_pathCompare",
     [](World &) {
         const int32_t order = misc_pathCompare("a/b", "a/b");  // of which libc fixes the sign only
         return int64_t{(order > 0) - (order < 0)};
     }},
    {"dbs_me_db_control_search_table_entry",
     [](World &w) {
         tavDBMDescription relative = *w.description;
         strcpy(relative.sessionPath, "session.tbl");
         return int64_t{dbs_me_db_control_search_table_entry(&relative)};
     }},
    {"dbs_me_db_control_init_table_entry",
     [](World &w) {
         int32_t error = 0;
         const int64_t id = dbs_me_db_control_init_table_entry(w.description, &error);
         w.session->errorCode = static_cast<uint32_t>(error);
         w.descriptor = static_cast<int32_t>(id);
         return id;
     },
     nullptr,
     [](World &w) {
         if (w.descriptor > 0)
             releaseEntry(w);
     }},
    {"dbs_me_db_control_term_table_entry",
     [](World &w) {
         w.descriptor = dbs_me_db_control_term_table_entry(w.session->dbId);
         return int64_t{w.descriptor};
     },
     takeEntry,
     [](World &w) {
         if (w.descriptor != 0)
             releaseEntry(w);
     }},
    {"tavDBMInitSession",
     [](World &w) {
         return onOther(w, [&w](tavDBMSession *other) { return tavDBMInitSession(other, w.session->dbId); });
     },
     nullptr, closeOther},
    {"tavDBMTermSession",
     [](World &w) { return onOther(w, [](tavDBMSession *other) { return tavDBMTermSession(other); }); }, openOther,
     closeOther},
    {"tavDBMLock", [](World &w) { return int64_t{tavDBMLock(w.session, w.leaf, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED)}; }},
    {"tavDBMLock/exclusive", [](World &w) { return int64_t{tavDBMLock(w.session, w.leaf, TAVDB_LOCK_TRY)}; }},
    {"tavDBMLock/waiting", [](World &w) { return int64_t{tavDBMLock(w.session, w.node, TAVDB_LOCK_WAIT)}; },
     lockNodeAndRelease, askNoMore, Repeats::no},
    {"tavDBMUnlock", [](World &w) { return int64_t{tavDBMUnlock(w.session, w.leaf)}; }, lockLeaf<tavDBMLock>},
    {"lock_compLock", [](World &w) { return int64_t{lock_compLock(w.session, w.leaf, TAVDB_LOCK_SHARED)}; }},
    {"lock_compLockW", [](World &w) { return int64_t{lock_compLockW(w.session, w.leaf, TAVDB_LOCK_SHARED)}; }},
    {"lock_compLockW/waiting", [](World &w) { return int64_t{lock_compLockW(w.session, w.node, 0)}; },
     lockNodeAndRelease, askNoMore, Repeats::no},
    {"lock_compUnlock", [](World &w) { return int64_t{lock_compUnlock(w.session, w.leaf)}; }, lockLeaf<lock_compLock>},
};

}  // namespace

std::span<const FaultRow> controlRows() {
    return kControlRows;
}

}  // namespace tavdb_test
