// SPDX-License-Identifier: Apache-2.0
// What this process holds of the operating system, as the kernel tells it and
// not by counting calls: open descriptors and shared mappings of files. Two
// pictures show what was left behind between them.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace tavdb_test {

class OpenResources {
public:
    static OpenResources now();

    /// "descriptor 7: /tmp/x/lock.tbl" and "mapping: /tmp/x/lock.tbl", for each that the earlier picture lacks.
    std::vector<std::string> newSince(const OpenResources &earlier) const;

private:
    std::map<int, std::string> descriptors_;
    std::map<std::string, std::string> mappings_;  ///< file by address range
};

}  // namespace tavdb_test
