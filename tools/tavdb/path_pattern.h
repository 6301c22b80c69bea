// SPDX-License-Identifier: Apache-2.0
// Patterns for paths: shell patterns for single names, and "**" for any number of
// levels. A pattern without "/" is for the last name alone.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tavdb::command {

class PathPattern {
public:
    explicit PathPattern(std::string_view text);

    bool matches(std::string_view path, bool isNode) const;

private:
    bool matchesAll(const std::vector<std::string> &names) const;

    std::vector<std::string> parts;
    bool forLastName = false;
    bool forNodes = false;  ///< it ends in "/"
};

}  // namespace tavdb::command
