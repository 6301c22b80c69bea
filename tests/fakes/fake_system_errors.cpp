// SPDX-License-Identifier: Apache-2.0
// The platform's system errors in a test: each report is an event of the log,
// "systemError 62672 401 5", the one without waiting "systemError 62672 403 5
// async". A fault plan's rule gives a report another result than 0.
#include <string>

#include "fakes/errno_keeper.h"
#include "fakes/event_log.h"
#include "fakes/fault_plan.h"
#include "tavdb_platform.h"

namespace tavdb_test {

namespace {

int32_t report(int32_t module, int32_t event, int32_t detail, const char *kind) {
    ErrnoKeeper keeper;
    Event entry{.operation = Operation::systemError,
                .subject = std::to_string(module) + ' ' + std::to_string(event) + ' ' + std::to_string(detail),
                .details = kind,
                .argument = event};
    if (const auto fault = faultPlan().next(entry.operation, entry.subject)) {
        entry.result = fault->resultFor(0);
        entry.error = fault->error;
        entry.failed = true;
    }
    keeper.set(entry.error);
    eventLog().add(entry);
    return static_cast<int32_t>(entry.result);
}

}  // namespace

}  // namespace tavdb_test

extern "C" {

int32_t dbs_me_syserr_notify_system_error(int32_t module, int32_t event, int32_t detail) {
    return tavdb_test::report(module, event, detail, "");
}

int32_t dbs_me_syserr_notify_system_error_async(int32_t module, int32_t event, int32_t detail, ...) {
    return tavdb_test::report(module, event, detail, "async");
}
}
