// SPDX-License-Identifier: Apache-2.0
// Files as a whole, read in one piece: many tests look at tables and images of
// many kilobytes again and again.
#pragma once

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace tavdb_test {

/// All bytes of a file, as text or as a vector of bytes; none when it cannot be read.
template <typename Content = std::string>
Content contentOf(const std::filesystem::path &path) {
    std::ostringstream all;
    all << std::ifstream(path, std::ios::binary).rdbuf();
    const auto text = all.view();
    Content content(text.size(), {});
    if (!text.empty())
        std::memcpy(content.data(), text.data(), text.size());
    return content;
}

}  // namespace tavdb_test
