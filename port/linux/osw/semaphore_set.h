// SPDX-License-Identifier: Apache-2.0
// A process's sets of semaphores, one for each table, and the lock that makes a
// set's mutex: a lock on the table's file against other processes, with a mutex
// of this process in front of it for the threads. Sets are never given back; a
// table that is opened again, or was made anew, finds its old one.
#pragma once

#include <pthread.h>

#include "osw/handle.h"
#include "osw/semaphore_page.h"
#include "osw/table_file.h"

namespace tavdb::osw {

struct SemaphoreSet {
    pthread_mutex_t gate;  ///< held with the table's lock; guards what follows
    const void *holder;    ///< the thread that was given the mutex, see thisThread()
    bool abandoned;        ///< a holder's death that was not asked for yet
    TableFile table;       ///< identity and paths change under the registry's lock too
    PageView view;
};

/// @return the set of a handle, or null when it is none of that kind
SemaphoreSet *setOf(uint32_t handle, Kind kind);

/// Finds or makes the set of a table. @return 0 or an error number
int obtainTableSet(const char *path, int fd, uint32_t &index);

/// Makes a set that only this process and its later children share. @return 0 or an error number
int obtainAnonymousSet(uint32_t &index);

/// The process's id; costs no system call.
uint32_t ownProcessId();

/// Takes gate and lock, waiting without limit. @return 0 or an error number
int take(SemaphoreSet &set);

/// Takes gate and lock if both are free. @return 0, EAGAIN or an error number
int tryTake(SemaphoreSet &set);

/// Gives both back. @return 0 or an error number; the gate is open in any case
int leave(SemaphoreSet &set);

/// Makes sure of the page. The caller has taken the set. @return whether a holder of the mutex died
bool inspect(SemaphoreSet &set, Making making);

/// Whether the page was looked for.
inline bool isSettled(const SemaphoreSet &set) {
    return errorOf(set.view) != kNotLookedYet;
}

/// Makes sure that the page was looked for, waiting for the lock if need be. @return 0 or an error number
int settle(SemaphoreSet &set);

bool isHeldByThisThread(const SemaphoreSet &set);

/// Lets everybody know that the event was posted.
void post(SemaphoreSet &set);

/**
 * Looks after the set for a thread that uses its page without the mutex: has the
 * mutex's holder died, was the page deleted, or not even looked for? Then the
 * event is posted, or the page put right. Waits for nobody: does nothing while
 * the mutex is held.
 */
void lookAfter(SemaphoreSet &set);

/// Looks after the set where a glance at the page says so: before a thread uses it without the mutex.
inline void checkPage(SemaphoreSet &set) {
    if (!isSettled(set) || !looksCurrent(set.view))
        lookAfter(set);
}

}  // namespace tavdb::osw
