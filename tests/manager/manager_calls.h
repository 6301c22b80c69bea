// SPDX-License-Identifier: Apache-2.0
// The 52 counted functions of the application interface in the order of their
// counters, each with a call whose arguments all differ. For forwarders also
// the call of the function behind, with the same arguments.
#pragma once

#include <cstdint>
#include <span>

#include "model/tree_fixture.h"

namespace tavdb_test {

/// What the calls work on; the tests fill it with keys of a tree of their own.
struct CallArguments {
    tavDBMSession *session;
    uint32_t node;  ///< with children
    uint32_t leaf;
    uint32_t parent;    ///< where something is created or moved to
    uint32_t previous;  ///< its first child
    uint32_t child;     ///< its second child
    uint32_t value;
    uint32_t word;  ///< a key that is only stored
};

/// A call's result as a number.
using ManagerCall = int64_t (*)(const CallArguments &arguments);

struct CountedFunction : Named {
    const char *counter;
    ManagerCall call;
    ManagerCall behind;  ///< null where more than forwarding is done
};

std::span<const CountedFunction> countedFunctions();

}  // namespace tavdb_test
