// SPDX-License-Identifier: Apache-2.0
#include "image/source_text.h"

#include <algorithm>

#include "image/text_util.h"

namespace tavdb::image {

SourceText::SourceText(std::string_view text) : bytes(text), lineStarts{0} {
    for (size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1))
        lineStarts.push_back(at + 1);
}

Position SourceText::positionAt(size_t offset) const {
    offset = std::min(offset, bytes.size());
    const auto next = std::upper_bound(lineStarts.begin(), lineStarts.end(), offset);
    const auto line = static_cast<size_t>(next - lineStarts.begin());
    return {static_cast<uint32_t>(line), static_cast<uint32_t>(offset - lineStarts[line - 1] + 1)};
}

size_t SourceText::offsetOf(Position position) const {
    if (position.line == 0 || position.line > lineStarts.size())
        return bytes.size();
    return std::min(lineStarts[position.line - 1] + position.column - 1, bytes.size());
}

std::string_view SourceText::line(size_t number) const {
    if (number == 0 || number > lineStarts.size())
        return {};
    const auto rest = bytes.substr(lineStarts[number - 1]);
    return rest.substr(0, rest.find('\n'));
}

std::optional<TextFault> findTextFault(std::string_view text) {
    const auto bad = firstBadUtf8(text);
    const auto nul = text.find('\0');
    if (bad == std::string_view::npos && nul == std::string_view::npos)
        return std::nullopt;
    if (nul < bad)
        return TextFault{nul, "the file holds a NUL byte, so it is no text"};
    return TextFault{bad, "the file is not UTF-8 text here"};
}

}  // namespace tavdb::image
