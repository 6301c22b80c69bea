// SPDX-License-Identifier: Apache-2.0
#include "fakes/byte_text.h"

#include <algorithm>

namespace tavdb_test {

std::string hexText(std::span<const uint8_t> bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        if (!text.empty())
            text += ' ';
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xf];
    }
    return text;
}

std::vector<std::string> differences(const Bytes &before, const Bytes &after) {
    if (before == after)
        return {};
    std::vector<std::string> lines;
    const size_t common = std::min(before.size(), after.size());
    for (size_t at = 0; at < common; ++at) {
        const size_t from = at;
        while (at < common && before[at] != after[at])
            ++at;
        if (at > from)
            lines.push_back(std::to_string(from) + ": " + hexText(std::span(before).subspan(from, at - from)) + " -> " +
                            hexText(std::span(after).subspan(from, at - from)));
    }
    if (before.size() != after.size())
        lines.push_back("size: " + std::to_string(before.size()) + " -> " + std::to_string(after.size()));
    return lines;
}

}  // namespace tavdb_test
