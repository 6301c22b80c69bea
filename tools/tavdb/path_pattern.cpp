// SPDX-License-Identifier: Apache-2.0
#include "path_pattern.h"

#include <fnmatch.h>

namespace tavdb::command {

namespace {

/// The names between the slashes; empty ones are left out.
std::vector<std::string> namesOf(std::string_view path) {
    std::vector<std::string> names;
    while (!path.empty()) {
        const auto name = path.substr(0, path.find('/'));
        if (!name.empty())
            names.emplace_back(name);
        path.remove_prefix(std::min(name.size() + 1, path.size()));
    }
    return names;
}

bool matchesName(const std::string &part, const std::string &name) {
    return fnmatch(part.c_str(), name.c_str(), 0) == 0;
}

}  // namespace

PathPattern::PathPattern(std::string_view text)
    : parts(namesOf(text)),
      forLastName(text.find('/') == std::string_view::npos),
      forNodes(text.size() > 1 && text.ends_with('/')) {}

bool PathPattern::matches(std::string_view path, bool isNode) const {
    if (forNodes && !isNode)
        return false;
    const auto names = namesOf(path);
    if (!forLastName)
        return matchesAll(names);
    return !names.empty() && !parts.empty() && matchesName(parts.front(), names.back());
}

/// reached[n]: the parts so far match the first n names. Time is parts by names,
/// whatever the pattern.
bool PathPattern::matchesAll(const std::vector<std::string> &names) const {
    std::vector<bool> reached(names.size() + 1, false);
    reached[0] = true;
    for (const auto &part : parts) {
        std::vector<bool> next(names.size() + 1, false);
        const bool isAnyLevels = part == "**";
        for (size_t n = 0; n <= names.size(); n++) {
            if (isAnyLevels)
                next[n] = reached[n] || (n > 0 && next[n - 1]);
            else
                next[n] = n > 0 && reached[n - 1] && matchesName(part, names[n - 1]);
        }
        reached = std::move(next);
    }
    return reached.back();
}

}  // namespace tavdb::command
