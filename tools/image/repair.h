// SPDX-License-Identifier: Apache-2.0
// A database directory, checked and repaired. What is right is decided in memory
// (check.h); here it is read, and written so that a cut at any point loses nothing:
//
//   1. DIR/damaged-N.part is filled with copies of all files, flushed, and named
//      DIR/damaged-N: a whole database directory, as damaged as it was.
//   2. What has changed is written beside the files, as NAME.repaired, and flushed.
//   3. DIR/repair.journal appears, with the names of the changed files. From here on
//      the repaired database is the one that counts.
//   4. Each NAME.repaired takes the place of NAME, and the journal goes.
//   5. The tables of processes are made anew where they are: they hold nothing that
//      outlives the last process.
//
// A run that was cut before step 3 has changed nothing; what it left is removed by the
// next one. After step 3 the next run goes on with step 4, and meanwhile nothing
// else of this program opens the directory.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "image/check.h"
#include "image/check_tables.h"
#include "image/directory.h"

namespace tavdb::image {

struct DatabaseCheck {
    DatabaseDirectory directory;
    Examination examination;
    RawImages::Contents contents;  ///< as they are stored
    TableCheck tables;
    bool isUnfinished = false;      ///< a repair was cut short behind its step 3
    std::vector<std::string> left;  ///< by repairs that were cut short, and of no use

    /// Those of the images, the tables and a repair that was cut short.
    std::vector<Finding> findings() const;
    bool isDamaged() const;
};

/// Reads a directory and changes nothing. Faults are what keeps it from being looked at.
Result<DatabaseCheck> checkDatabase(const std::string &path);

/// Called before each step of a repair that writes something.
using RepairStep = std::function<void(std::string_view)>;

struct Repaired {
    DatabaseCheck check;   ///< what was found
    std::string original;  ///< name of the folder with the damaged files; empty when none was changed
};

/// Refuses a database that a process has a session in, or that a server owns.
Result<Repaired> repairDatabase(const std::string &path, const RepairStep &step = {});

}  // namespace tavdb::image
