// SPDX-License-Identifier: Apache-2.0
// The text of a description: checked to be UTF-8 without NUL, and the way from a
// byte offset to a line and a column.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "image/model.h"

namespace tavdb::image {

/// Largest description file.
inline constexpr size_t kSourceBytesMax = size_t{64} * 1024 * 1024;

class SourceText {
public:
    /// Refers to `text`, which must live as long.
    explicit SourceText(std::string_view text);

    std::string_view text() const {
        return bytes;
    }
    /// Offsets behind the end count as the end.
    Position positionAt(size_t offset) const;
    size_t offsetOf(Position position) const;
    /// One line, counted from 1, without its line end; empty when there is none.
    std::string_view line(size_t number) const;
    size_t lineCount() const {
        return lineStarts.size();
    }

private:
    std::string_view bytes;
    std::vector<size_t> lineStarts;
};

/// What makes a file no text at all: a NUL or a byte that is not UTF-8.
struct TextFault {
    size_t offset;
    std::string sentence;
};
std::optional<TextFault> findTextFault(std::string_view text);

}  // namespace tavdb::image
