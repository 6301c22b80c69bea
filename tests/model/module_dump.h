// SPDX-License-Identifier: Apache-2.0
// A module's diagnostic dump in a test: what it printed at a level, what it
// added to the totals, and the lines of function addresses it should print.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tavdb_test {

using DumpFunction = int32_t (*)(int32_t level, uint32_t *debugSize, uint32_t *ramSize);

struct Dump {
    std::vector<std::string> lines;  ///< all at the level asked for
    int32_t result;
    uint32_t debugSize;  ///< added to the total
    uint32_t ramSize;

    /// The word of the line "[0x...]:name"; no such line fails the test.
    uint32_t wordOf(const std::string &name) const;
};

/// Runs a dump with totals that are not 0 before it. A line of another level fails the test.
Dump dumpOf(DumpFunction function, int32_t level);

/// The lines, then one "[0xADDRESS]:name" for each function, as the dynamic loader knows it.
std::vector<std::string> withAddresses(std::vector<std::string> lines, std::span<const char *const> functions);

}  // namespace tavdb_test
