// SPDX-License-Identifier: Apache-2.0
#include "osw/futex.h"

#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <limits>

namespace tavdb::osw {

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

// The kernel's time structure goes with the call's number and not with the C
// library's time_t. Slices are short, so 32 bits of seconds are plenty.
#if defined(SYS_futex)
constexpr long kFutexCall = SYS_futex;
struct KernelTime {
    long seconds;
    long nanoseconds;
};
#else
constexpr long kFutexCall = SYS_futex_time64;
struct KernelTime {
    int64_t seconds;
    int64_t nanoseconds;
};
#endif

int64_t nowNs() {
    struct timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * kNsPerSecond + now.tv_nsec;
}

}  // namespace

Deadline::Deadline(int32_t timeoutMs) : atNs_(timeoutMs > 0 ? nowNs() + timeoutMs * kNsPerMs : kNever) {}

int64_t Deadline::nextSliceNs() const {
    if (atNs_ == kNever)
        return kSliceNs;
    const int64_t leftNs = atNs_ - nowNs();
    if (leftNs <= 0)
        return 0;
    return leftNs < kSliceNs ? leftNs : kSliceNs;
}

void sleepFor(int64_t durationNs) {
    struct timespec duration;
    duration.tv_sec = static_cast<time_t>(durationNs / kNsPerSecond);
    duration.tv_nsec = static_cast<long>(durationNs % kNsPerSecond);
    ::nanosleep(&duration, nullptr);
}

void futexWait(uint32_t *word, uint32_t value, int64_t limitNs) {
    KernelTime limit;
    limit.seconds = static_cast<decltype(limit.seconds)>(limitNs / kNsPerSecond);
    limit.nanoseconds = static_cast<decltype(limit.nanoseconds)>(limitNs % kNsPerSecond);
    if (::syscall(kFutexCall, word, FUTEX_WAIT, value, &limit, nullptr, 0) == 0)
        return;
    // A kernel that refuses the call must not turn the caller's loop into a busy one.
    if (errno != EAGAIN && errno != EINTR && errno != ETIMEDOUT)
        sleepFor(limitNs);
}

void futexWake(uint32_t *word, int32_t sleepers) {
    ::syscall(kFutexCall, word, FUTEX_WAKE, sleepers, nullptr, nullptr, 0);
}

}  // namespace tavdb::osw
