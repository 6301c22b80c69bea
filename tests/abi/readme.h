// SPDX-License-Identifier: Apache-2.0
// The README's examples, for tests that compile and run them as they stand.
#pragma once

#include <fstream>
#include <string>

namespace tavdb_test {

/// Where the examples' database lies.
inline const std::string kReadmePlace = "/var/lib/gateway";

/// The README's first fenced block of a language.
/// @param source the folder of the README
inline std::string readmeBlock(const std::string &source, const std::string &language) {
    std::ifstream readme(source + "/README.md");
    std::string text;
    bool inside = false;
    for (std::string line; std::getline(readme, line);) {
        if (inside && line == "```")
            return text;
        if (inside)
            text += line + "\n";
        inside = inside || line == "```" + language;
    }
    return {};
}

/// The same text for a database at another place.
inline std::string withPlace(std::string text, const std::string &place) {
    for (size_t at = text.find(kReadmePlace); at != std::string::npos; at = text.find(kReadmePlace, at + place.size()))
        text.replace(at, kReadmePlace.size(), place);
    return text;
}

}  // namespace tavdb_test
