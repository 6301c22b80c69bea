// SPDX-License-Identifier: Apache-2.0
// The tables that processes share, looked at from outside: whether their lists are
// whole, and what processes that are gone left in them. Nothing is written here, and
// nothing of it outlives the last process: a table that is wrong can be made anew.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image/directory.h"
#include "image/fault.h"
#include "image/finding.h"

namespace tavdb::image {

/// A table that takes the place of the one that is there, in the same file.
struct NewTable {
    std::string name;  ///< in the directory
    std::string content;
};

struct TableCheck {
    std::vector<Finding> findings;
    std::vector<int32_t> living;  ///< processes that have a session
    std::vector<NewTable> anew;   ///< when no process has a session
    uint32_t databaseId = 0;      ///< in the control table; 0: it is not there
    uint32_t deadReferences = 0;  ///< that sessions of dead processes hold there
};

Result<TableCheck> checkTables(const DatabaseDirectory &directory);

}  // namespace tavdb::image
