// SPDX-License-Identifier: Apache-2.0
// The folder that a test works in, so that the event log can name its files
// without it: "control.tbl" in place of a path that differs from run to run.
#pragma once

#include <string>

namespace tavdb_test {

/// Names the folder; empty: none.
void setHomeFolder(const std::string &folder);

/// The path relative to the home folder, or as it is when it lies elsewhere; "(null)" for none.
std::string nameInHome(const char *path);

}  // namespace tavdb_test
