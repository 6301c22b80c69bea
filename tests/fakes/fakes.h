// SPDX-License-Identifier: Apache-2.0
// All fakes at once: putting them back to their beginning between two tests,
// and looking for what a test left behind in them.
#pragma once

#include <string>
#include <vector>

namespace tavdb_test {

/// Empties log, plan, memory, semaphores, trace, media, hooks and recorder.
void resetFakes();

/// Sentences about what is still in use: live memory, open media descriptors, held mutexes.
std::vector<std::string> leftInFakes();

}  // namespace tavdb_test
