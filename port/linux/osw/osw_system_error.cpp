// SPDX-License-Identifier: Apache-2.0
// System errors: a line for syslog and the same for the trace. The error numbers
// of the caller survive.
#include <errno.h>
#include <stdio.h>
#include <syslog.h>

#include "osw/system_log.h"
#include "tavdb_platform.h"

namespace {

constexpr int32_t kErrorLevel = 0;
constexpr size_t kLineBytes = 128;

void report(int32_t module, int32_t event, int32_t detail) {
    const int error = errno;
    char line[kLineBytes];
    static_cast<void>(snprintf(line, sizeof line, "tavdb: system error: module %d event %d detail %d (0x%x)\n", module,
                               event, detail, static_cast<uint32_t>(detail)));
    tavdb::osw::writeSystemLog(LOG_ERR, line);
    dbs_me_debug_trace(kErrorLevel, "%s", line);
    errno = error;
}

}  // namespace

int32_t dbs_me_syserr_notify_system_error(int32_t module, int32_t event, int32_t detail) {
    report(module, event, detail);
    return 0;
}

int32_t dbs_me_syserr_notify_system_error_async(int32_t module, int32_t event, int32_t detail, ...) {
    report(module, event, detail);
    return 0;
}
