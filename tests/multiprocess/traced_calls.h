// SPDX-License-Identifier: Apache-2.0
// The system calls that a piece of code makes, as the kernel sees them: a child
// process runs it and is stopped at each of them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tavdb_test {

/**
 * Runs both parts in a child process. Each returns whether it succeeded.
 * @return the system calls of `measured`, as "openat" or "number 17"; nothing where processes cannot be traced
 *         or a part failed, with the reason in `why`
 */
std::optional<std::vector<std::string>> systemCallsOf(const std::function<bool()> &prepare,
                                                      const std::function<bool()> &measured, std::string &why);

}  // namespace tavdb_test
