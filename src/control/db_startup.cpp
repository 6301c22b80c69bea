// SPDX-License-Identifier: Apache-2.0
// Start and stop of the library: every module, in a fixed order. Nothing else
// looks at all of them but the dump.
#include "control/db_trace.h"
#include "tavdb_modules.h"
#include "tavdb_platform.h"

namespace tavdb {
namespace {

using Description = tavDBMDescription;

/// A module's start. The site is that of its failure, and of every earlier module's failure too.
struct StartStep {
    int32_t (*start)(const Description *description);
    int32_t site;
    bool needsDescription;
};

constexpr StartStep kStart[] = {
    {[](const Description *d) { return lock_init(d->lockPath); }, 836, true},
    {[](const Description *d) { return media_init(d->mediaPath, 0); }, 846, true},
    {[](const Description *d) { return hook_init(d->hookPath); }, 856, true},
    {[](const Description *d) { return session_init(d->sessionPath); }, 866, true},
    {[](const Description *) { return constraint_init(); }, 876, false},
    {[](const Description *) { return value_init(); }, 886, false},
    {[](const Description *) { return comp_init(); }, 892, false},
};

using StopStep = int32_t (*)(uint32_t dbId);

constexpr StopStep kStop[] = {
    [](uint32_t) { return comp_term(); },       [](uint32_t) { return value_term(); },
    [](uint32_t) { return constraint_term(); }, [](uint32_t) { return session_term(); },
    [](uint32_t) { return media_term(); },      [](uint32_t) { return hook_term(); },
    [](uint32_t) { return lock_term(); },       dbs_me_db_control_term,
};
constexpr size_t kStopSteps = sizeof kStop / sizeof *kStop;

/// Starts the modules behind the control table; the first failure ends it.
int32_t startModules(const Description *description, bool skipLocks) {
    int32_t failed = 0;
    for (const StartStep &step : kStart) {
        const bool skip = (skipLocks && &step == kStart) || (step.needsDescription && description == nullptr);
        if (failed == 0 && !skip)
            failed = step.start(description);
        if (failed != 0)
            traceError({"tavDBMInit", step.site}, failed);
    }
    return failed;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

int32_t tavDBMInit(const tavDBMDescription *description, int32_t *error) {
    const TracedScope scope(__func__);
    int32_t code = 0;
    const int32_t dbId = dbs_me_db_control_init(description, &code);
    const bool attached = dbId != -1;
    if (!attached)
        traceError({__func__, 826}, 0);
    // deliberate: without a control table the locks are left out and the rest starts all the same
    const int32_t failed = startModules(description, !attached);
    if (attached && failed == 0)
        return dbId;
    if (error != nullptr)
        *error = attached ? failed : code;
    return -1;
}

int32_t tavDBMTerm(uint32_t dbId) {
    const TracedScope scope(__func__);
    int32_t results[kStopSteps];
    for (size_t i = 0; i < kStopSteps; i++)
        results[i] = kStop[i](dbId);
    for (size_t i = 0; i < kStopSteps; i++) {
        if (results[i] == 0)
            continue;
        traceError({__func__, 930}, i, results[i]);
        return results[i];
    }
    return 0;
}
