// SPDX-License-Identifier: Apache-2.0
// System calls of the media file library that a test can make fail, be
// interrupted, or watch. The test program's definitions stand before libc's;
// what is not told to fail goes to the kernel.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <vector>

struct FaultPlan {
    int fallocateError = 0;       ///< every fallocate fails with it
    int mmapError = 0;            ///< every mmap of a file fails with it
    int msyncError = 0;           ///< every msync fails with it
    int interruptions = 0;        ///< so many pread, pwrite and fsync calls are interrupted first
    size_t transferMax = 0;       ///< pread and pwrite move no more than that at once; 0: no limit
    int transfersUntilFail = -1;  ///< after so many, pread and pwrite fail with EIO; -1: never
};

struct Flush {
    const void *base;
    size_t length;
};

/// What holds from now on; each test starts with FaultPlan{}.
extern FaultPlan faultPlan;
/// The msync calls so far.
extern std::vector<Flush> flushes;
/// The fsync and fdatasync calls so far.
extern int fileFlushes;
