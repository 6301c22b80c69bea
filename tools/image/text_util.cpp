// SPDX-License-Identifier: Apache-2.0
#include "image/text_util.h"

#include <algorithm>
#include <cstdint>

namespace tavdb::image {

namespace {

constexpr size_t kQuotedBytesMax = 48;

struct Sequence {
    size_t length;
    uint32_t smallest;  ///< a smaller code point is an overlong form
};

Sequence sequenceOf(uint8_t lead) {
    if (lead < 0x80)
        return {1, 0};
    if ((lead & 0xE0U) == 0xC0U)
        return {2, 0x80};
    if ((lead & 0xF0U) == 0xE0U)
        return {3, 0x800};
    if ((lead & 0xF8U) == 0xF0U)
        return {4, 0x10000};
    return {0, 0};
}

/// Bytes of the character at the start of `text`, 0 when it is not valid.
size_t characterLength(std::string_view text) {
    const auto lead = static_cast<uint8_t>(text.front());
    const auto [length, smallest] = sequenceOf(lead);
    if (length <= 1 || text.size() < length)
        return length <= 1 ? length : 0;
    uint32_t point = lead & (0x7FU >> length);
    for (size_t i = 1; i < length; i++) {
        const auto next = static_cast<uint8_t>(text[i]);
        if ((next & 0xC0U) != 0x80U)
            return 0;
        point = point << 6U | (next & 0x3FU);
    }
    const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
    return point < smallest || point > 0x10FFFF || surrogate ? 0 : length;
}

bool isControl(char character) {
    return static_cast<uint8_t>(character) < 0x20 || character == 0x7F;
}

bool isSpace(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

}  // namespace

std::string hexEscape(char character) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto byte = static_cast<uint8_t>(character);
    return {'\\', 'x', digits[byte >> 4U], digits[byte & 0xFU]};
}

std::string quote(std::string_view text) {
    auto shown = text.substr(0, kQuotedBytesMax);
    if (shown.size() < text.size())
        while (!shown.empty() && firstBadUtf8(shown) != std::string_view::npos)
            shown.remove_suffix(1);
    return "'" + escapeControls(shown) + (shown.size() < text.size() ? "...'" : "'");
}

std::string escapeControls(std::string_view text) {
    std::string escaped;
    for (const char character : text)
        escaped += isControl(character) ? hexEscape(character) : std::string(1, character);
    return escaped;
}

size_t firstBadUtf8(std::string_view text) {
    for (size_t at = 0; at < text.size();) {
        const auto length = characterLength(text.substr(at));
        if (length == 0)
            return at;
        at += length;
    }
    return std::string_view::npos;
}

bool hasControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(), isControl);
}

std::string nameFault(std::string_view name) {
    if (name.empty())
        return "a name is empty";
    if (name.find('/') != std::string_view::npos)
        return "the name " + quote(name) + " holds a '/'";
    if (name.size() > kNameBytesMax)
        return "the name " + quote(name) + " has " + std::to_string(name.size()) + " bytes, 254 are allowed";
    if (hasControlCharacter(name))
        return "the name " + quote(name) + " holds a control character";
    if (firstBadUtf8(name) != std::string_view::npos)
        return "a name is not UTF-8 text";
    return {};
}

std::vector<std::string> splitWords(std::string_view text) {
    std::vector<std::string> words;
    while (!text.empty()) {
        const auto end = std::find_if(text.begin(), text.end(), isSpace);
        if (end != text.begin())
            words.emplace_back(text.begin(), end);
        text.remove_prefix(std::min(text.size(), static_cast<size_t>(end - text.begin()) + 1));
    }
    return words;
}

std::vector<std::string> splitAt(std::string_view text, char separator) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const auto end = std::min(text.find(separator), text.size());
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(text.size(), end + 1));
    }
    return parts;
}

std::string counted(uint64_t number, std::string_view one, std::string_view many) {
    const auto several = many.empty() ? std::string(one) + "s" : std::string(many);
    return std::to_string(number) + " " + (number == 1 ? std::string(one) : several);
}

std::string join(const std::vector<std::string> &parts, std::string_view separator) {
    std::string text;
    for (size_t i = 0; i < parts.size(); i++)
        text.append(i == 0 ? std::string_view() : separator).append(parts[i]);
    return text;
}

std::string foldSpace(std::string_view text) {
    return join(splitWords(text), " ");
}

}  // namespace tavdb::image
