// SPDX-License-Identifier: Apache-2.0
// The ways in which an operation of the platform can fail, as one list. Each says
// which operations it concerns and what they then answer; the fault matrix lets
// every operation of a call fail in every way that concerns it.
#pragma once

#include <span>

#include "fakes/fault_plan.h"

namespace tavdb_test {

struct FaultKind {
    const char *name;
    std::optional<Fault> (*choose)(Operation operation);
};

std::span<const FaultKind> faultKinds();

/// Whether this build also looks at faults of the kind that last: where every run costs many times as much, only at
/// those of the first one.
bool lastsHere(const FaultKind &kind);

}  // namespace tavdb_test
