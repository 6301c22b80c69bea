// SPDX-License-Identifier: Apache-2.0
// What fuzz targets have in place of the machine. Process numbers that an input makes
// up are answered here, so that an input does the same everywhere; the system log is
// left alone; and memory that no medium of a target could fill is not given.
#include <errno.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include "tavdb_modules.h"
#include "tavdb_platform.h"

namespace {

constexpr pid_t kOthersEnd = 1000;
constexpr size_t kLogLineBytes = 256;
/// A length of some hundred megabytes costs the address sanitizer as much as a thousand inputs, and reads
/// the same few bytes as one of this size. The control table is larger.
constexpr uint32_t kAllocationBytesMax = 128 * 1024;

}  // namespace

/// Small numbers are those of processes, every second one somebody else's.
extern "C" int kill(pid_t process, int signal) noexcept {
    if (signal != 0)
        return static_cast<int>(syscall(SYS_kill, process, signal));
    const bool isForeign = process > 0 && process < kOthersEnd && process % 2 == 0;
    if (process <= 0 || (process < kOthersEnd && !isForeign) || process == getpid())
        return 0;
    errno = isForeign ? EPERM : ESRCH;
    return -1;
}

/// Formatted, for its arguments to be looked at.
extern "C" void syslog(int, const char *format, ...) {
    char line[kLogLineBytes];
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(vsnprintf(line, sizeof line, format, arguments));
    va_end(arguments);
}

void *tavOSWSubAllocMem(uint32_t size) {
    if (size <= kAllocationBytesMax || size == sizeof(tavDBMControlTable))
        return malloc(size != 0 ? size : 1);
    errno = ENOMEM;
    return nullptr;
}

/// No stacks of allocations, of which some inputs make thousands. Whoever looks at a finding asks for them by
/// ASAN_OPTIONS=malloc_context_size=30. What one input frees is kept from being used again, what many did is not.
extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options() {
    return "malloc_context_size=1:quarantine_size_mb=16";
}
