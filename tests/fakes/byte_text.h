// SPDX-License-Identifier: Apache-2.0
// Bytes as text, for expectations that can be read: "00 00 00 10", words in the
// machine's own byte order, and the difference of two images.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

namespace tavdb_test {

using Bytes = std::vector<uint8_t>;

/// "00 0a ff"
std::string hexText(std::span<const uint8_t> bytes);

/// The bytes of the values one after another, as they lie in memory.
template <typename... Values>
Bytes bytesOf(const Values &...values) {
    static_assert((std::is_trivially_copyable_v<Values> && ...));
    Bytes bytes((sizeof(values) + ... + 0));
    size_t at = 0;
    ((memcpy(bytes.data() + at, &values, sizeof(values)), at += sizeof(values)), ...);
    return bytes;
}

/// The hexText() of 32-bit words in the machine's byte order: on a big-endian machine hexWords(16) is "00 00 00 10".
template <typename... Words>
std::string hexWords(Words... words) {
    return hexText(bytesOf(static_cast<uint32_t>(words)...));
}

/// Each run of bytes that differ, as "24: 00 01 -> ff fe"; a size that differs is the last line.
std::vector<std::string> differences(const Bytes &before, const Bytes &after);

}  // namespace tavdb_test
