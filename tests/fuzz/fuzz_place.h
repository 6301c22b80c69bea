// SPDX-License-Identifier: Apache-2.0
// A folder for the files of a fuzz target, removed at the end of the program.
#pragma once

#include <string>

namespace tavdb_fuzz {

/// The path of a file in the folder, which is made with the first one.
std::string fileInPlace(const std::string &name);
void writeFile(const std::string &path, const std::string &content);

}  // namespace tavdb_fuzz
