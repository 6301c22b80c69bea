// SPDX-License-Identifier: Apache-2.0
// Small helpers for texts that people read and files that people write: quoting
// in messages, UTF-8, and the rule for component names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tavdb::image {

/// Longest component name in bytes: with a node's "/" and a NUL it fits in 256.
inline constexpr size_t kNameBytesMax = 254;

/// 'text' for a message: control characters escaped, long texts cut.
std::string quote(std::string_view text);

/// "\x0a"
std::string hexEscape(char character);

/// Control characters as "\x0a", everything else as it is.
std::string escapeControls(std::string_view text);

/// Offset of the first byte that is not part of valid UTF-8, npos when all are.
size_t firstBadUtf8(std::string_view text);

bool hasControlCharacter(std::string_view text);

/// Empty for a good component name, else what is wrong with it.
std::string nameFault(std::string_view name);

/// The words of a text, which white space divides.
std::vector<std::string> splitWords(std::string_view text);

/// The parts of a text between separators. None after the last one when nothing stands there.
std::vector<std::string> splitAt(std::string_view text, char separator);

/// "1 byte", "2 bytes". @param many what several are called; empty: that with an "s"
std::string counted(uint64_t number, std::string_view one, std::string_view many = {});

std::string join(const std::vector<std::string> &parts, std::string_view separator);

/// Runs of white space become one blank, none at the ends.
std::string foldSpace(std::string_view text);

}  // namespace tavdb::image
