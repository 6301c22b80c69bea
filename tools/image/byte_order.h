// SPDX-License-Identifier: Apache-2.0
// The two orders in which the bytes of a number can be stored, and the step from
// one to the other. Which bytes are a number is not known here.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tavdb::image {

enum class ByteOrder : uint8_t { little, big };

constexpr ByteOrder nativeOrder() {
    static_assert(std::endian::native == std::endian::little || std::endian::native == std::endian::big);
    return std::endian::native == std::endian::little ? ByteOrder::little : ByteOrder::big;
}

constexpr ByteOrder opposite(ByteOrder order) {
    return order == ByteOrder::little ? ByteOrder::big : ByteOrder::little;
}

/// "little-endian" or "big-endian".
constexpr const char *nameOf(ByteOrder order) {
    return order == ByteOrder::little ? "little-endian" : "big-endian";
}

/// Reverses the bytes of every number in a row of numbers of the same width. What
/// is left at the end and has not that width stays as it is.
void reverseNumbers(std::span<char> bytes, size_t widthBytes);

}  // namespace tavdb::image
