// SPDX-License-Identifier: Apache-2.0
#include "common/library_lock.h"

#include <pthread.h>

namespace tavdb {
namespace {

pthread_mutex_t s_lock = PTHREAD_MUTEX_INITIALIZER;

void take() {
    pthread_mutex_lock(&s_lock);
}

void give() {
    pthread_mutex_unlock(&s_lock);
}

__attribute__((constructor)) void followForks() {
    pthread_atfork(take, give, give);
}

}  // namespace

LibraryLock::LibraryLock() {
    take();
}

LibraryLock::~LibraryLock() {
    give();
}

}  // namespace tavdb
