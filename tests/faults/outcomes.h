// SPDX-License-Identifier: Apache-2.0
// What faults make of the operations, as a text file with one line each: everything
// that a call answered and left in the session while some operation of the platform
// failed. The file is kept by hand, and looked through when it changes.
#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace tavdb_test {

/// What came of one call.
struct Outcome {
    int64_t result = 0;
    uint32_t code = 0;    ///< in the session
    uint32_t detail = 0;  ///< in the session

    bool operator==(const Outcome &) const = default;
};

/// "= 44(5)": the result, "=" when it is the same as without a fault; then code and detail, as far as there are any.
std::string textOf(const Outcome &outcome, const Outcome &untouched);

/// Fails the test unless these are the outcomes that outcomes.txt tells of that call.
void expectOutcomes(const std::string &name, const std::set<std::string> &outcomes);

}  // namespace tavdb_test
