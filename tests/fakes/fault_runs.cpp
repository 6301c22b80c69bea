// SPDX-License-Identifier: Apache-2.0
#include "fakes/fault_runs.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "fakes/misuse.h"

namespace tavdb_test {

namespace {

constexpr uint64_t kMostRuns = 5000;

enum class Outcome : uint8_t { untouched, survivedFault, testFailed };

/// Faults of one kind.
struct Series {
    const FaultRun &run;
    const FaultChoice &choice;
    Persistence persistence;
};

Outcome runHere(const Series &series, uint64_t index) {
    faultPlan().clear();
    faultPlan().failOperation(index, series.choice, series.persistence);
    series.run(index);
    return faultPlan().fired() ? Outcome::survivedFault : Outcome::untouched;
}

[[noreturn]] void endChild(Outcome outcome) {
    fflush(nullptr);
    _exit(static_cast<int>(testing::Test::HasFailure() ? Outcome::testFailed : outcome));
}

Outcome runInChild(const Series &series, uint64_t index) {
    fflush(nullptr);  // else the child writes again what stands in the buffers
    const pid_t child = fork();
    if (child == 0)
        endChild(runHere(series, index));
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return Outcome::testFailed;
    const int code = WEXITSTATUS(status);
    return code <= static_cast<int>(Outcome::survivedFault) ? static_cast<Outcome>(code) : Outcome::testFailed;
}

using Runner = Outcome (*)(const Series &series, uint64_t index);

uint64_t forEach(Runner runner, const Series &series) {
    uint64_t index = 0;
    Outcome outcome = Outcome::survivedFault;
    for (; outcome == Outcome::survivedFault && index < kMostRuns; ++index)
        outcome = runner(series, index);
    faultPlan().clear();
    if (outcome == Outcome::survivedFault)
        reportMisuse("fault plan", "every run meets one more operation, so the runs do not end");
    if (outcome == Outcome::testFailed)
        ADD_FAILURE() << "the run in which operation " << index - 1 << " failed (see above)";
    return index - 1;
}

}  // namespace

uint64_t forEachFailingOperation(const FaultRun &run, std::optional<Fault> transferFault) {
    return forEachFailingOperation(run, standardChoice(transferFault), Persistence::once);
}

uint64_t forEachFailingOperation(const FaultRun &run, const FaultChoice &choice, Persistence persistence) {
    return forEach(runHere, {run, choice, persistence});
}

uint64_t forEachFailingOperationInChild(const FaultRun &run, std::optional<Fault> transferFault) {
    return forEachFailingOperationInChild(run, standardChoice(transferFault), Persistence::once);
}

uint64_t forEachFailingOperationInChild(const FaultRun &run, const FaultChoice &choice, Persistence persistence) {
    return forEach(runInChild, {run, choice, persistence});
}

}  // namespace tavdb_test
