// SPDX-License-Identifier: Apache-2.0
#include "osw/system_log.h"

#include <pthread.h>
#include <syslog.h>

namespace tavdb::osw {

namespace {

// syslog() has a lock of its own that a fork copies as it stands. With this one
// around it, no thread is inside when the process forks.
pthread_mutex_t gate = PTHREAD_MUTEX_INITIALIZER;
pthread_once_t prepared = PTHREAD_ONCE_INIT;

void beforeFork() {
    pthread_mutex_lock(&gate);
}

void afterFork() {
    pthread_mutex_unlock(&gate);
}

void prepare() {
    // Without memory for the registration only such a fork is at risk.
    pthread_atfork(beforeFork, afterFork, afterFork);
}

}  // namespace

void writeSystemLog(int32_t priority, const char *text) {
    pthread_once(&prepared, prepare);
    pthread_mutex_lock(&gate);
    ::syslog(priority, "%s", text);
    pthread_mutex_unlock(&gate);
}

}  // namespace tavdb::osw
