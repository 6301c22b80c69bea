// SPDX-License-Identifier: Apache-2.0
// Runs that prove every error path: the same steps with operation 0 failing,
// then with operation 1, and so on until a run in which none failed. Libc calls
// count only where the steps record them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "fakes/fault_plan.h"

namespace tavdb_test {

/// One run; it starts afresh, and checks results and leftovers itself. @param index the operation that fails
using FaultRun = std::function<void(uint64_t index)>;

/// Runs in this process.
/// @param transferFault how reads and writes fail; none: with -1
/// @return the number of runs with a failure, which is the number of operations
uint64_t forEachFailingOperation(const FaultRun &run, std::optional<Fault> transferFault = {});

/// The same with faults of any kind, once or from each operation on for ever.
uint64_t forEachFailingOperation(const FaultRun &run, const FaultChoice &choice, Persistence persistence);

/// The same with a child process for each run: for attaching, where the library keeps state per process. A
/// run that fails, or ends its process, fails the test. What a run changes is lost but for files.
uint64_t forEachFailingOperationInChild(const FaultRun &run, std::optional<Fault> transferFault = {});
uint64_t forEachFailingOperationInChild(const FaultRun &run, const FaultChoice &choice, Persistence persistence);

}  // namespace tavdb_test
