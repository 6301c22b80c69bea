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

Outcome runHere(const FaultRun &run, uint64_t index, const std::optional<Fault> &transferFault) {
    faultPlan().clear();
    faultPlan().failOperation(index, transferFault);
    run(index);
    return faultPlan().fired() ? Outcome::survivedFault : Outcome::untouched;
}

[[noreturn]] void endChild(Outcome outcome) {
    fflush(nullptr);
    _exit(static_cast<int>(testing::Test::HasFailure() ? Outcome::testFailed : outcome));
}

Outcome runInChild(const FaultRun &run, uint64_t index, const std::optional<Fault> &transferFault) {
    fflush(nullptr);  // else the child writes again what stands in the buffers
    const pid_t child = fork();
    if (child == 0)
        endChild(runHere(run, index, transferFault));
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return Outcome::testFailed;
    const int code = WEXITSTATUS(status);
    return code <= static_cast<int>(Outcome::survivedFault) ? static_cast<Outcome>(code) : Outcome::testFailed;
}

using Runner = Outcome (*)(const FaultRun &, uint64_t, const std::optional<Fault> &);

uint64_t forEach(Runner runner, const FaultRun &run, const std::optional<Fault> &transferFault) {
    uint64_t index = 0;
    Outcome outcome = Outcome::survivedFault;
    for (; outcome == Outcome::survivedFault && index < kMostRuns; ++index)
        outcome = runner(run, index, transferFault);
    faultPlan().clear();
    if (outcome == Outcome::survivedFault)
        reportMisuse("fault plan", "every run meets one more operation, so the runs do not end");
    if (outcome == Outcome::testFailed)
        ADD_FAILURE() << "the run in which operation " << index - 1 << " failed (see above)";
    return index - 1;
}

}  // namespace

uint64_t forEachFailingOperation(const FaultRun &run, std::optional<Fault> transferFault) {
    return forEach(runHere, run, transferFault);
}

uint64_t forEachFailingOperationInChild(const FaultRun &run, std::optional<Fault> transferFault) {
    return forEach(runInChild, run, transferFault);
}

}  // namespace tavdb_test
