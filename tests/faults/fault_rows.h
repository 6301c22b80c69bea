// SPDX-License-Identifier: Apache-2.0
// The rows of the fault matrix: every exported operation of the library that asks
// the platform for anything, with one call of it. A name may go on behind a "/"
// where an operation has more than one row.
#pragma once

#include <set>
#include <span>
#include <string>

#include "faults/fault_world.h"

namespace tavdb_test {

/// The name of a row without what stands behind a "/".
inline std::string functionOf(const std::string &name) {
    return name.substr(0, name.find('/'));
}

/// The name of a row as the name of a test.
inline constexpr auto kTestOfRow = [](const auto &info) {
    std::string name = info.param.name;
    for (char &c : name)
        c = c == '/' || c == ' ' ? '_' : c;
    return name;
};

enum class Repeats : uint8_t { yes, no };

struct FaultRow : Named {
    int64_t (*call)(World &world);
    /// @name Without faults; what the call needs, and what it left behind. Null for nothing.
    /// @{
    void (*before)(World &world) = nullptr;
    void (*after)(World &world) = nullptr;
    /// @}
    Repeats underLastingFaults = Repeats::yes;  ///< no: the call is stated to try again for ever

    std::string function() const {
        return functionOf(name);
    }
};

std::span<const FaultRow> componentRows();
std::span<const FaultRow> constraintRows();
std::span<const FaultRow> controlRows();
std::span<const FaultRow> managerRows();
std::span<const FaultRow> storageRows();
std::span<const FaultRow> valueRows();

/// The functions that attach_faults_test.cpp is about.
std::set<std::string> attachFunctions();

/// @name Before and after a call that prints
/// @{
void catchOutput(World &world);
void dropOutput(World &world);
/// @}

/// What a call that gives a pointer, or nothing, counts as.
inline int64_t given(const void *pointer) {
    return pointer != nullptr ? 1 : 0;
}

}  // namespace tavdb_test
