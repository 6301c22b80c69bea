// SPDX-License-Identifier: Apache-2.0
#include "fakes/dump_calls.h"

#include <string>

#include "fakes/errno_keeper.h"
#include "fakes/event_log.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {

int32_t dumpCall(Operation operation, const char *function, int32_t level) {
    const ErrnoKeeper keeper;
    Event event{.operation = operation,
                .subject = function,
                .details = std::to_string(level),
                .function = function,
                .argument = level};
    if (const auto fault = faultPlan().next(operation, event.subject)) {
        event.result = fault->resultFor(0);
        event.failed = true;
    }
    eventLog().add(event);
    return static_cast<int32_t>(event.result);
}

}  // namespace tavdb_test
