// SPDX-License-Identifier: Apache-2.0
#include "assignment.h"

#include <charconv>
#include <cstdint>
#include <optional>

#include "image/text_util.h"

namespace tavdb::command {

namespace {

constexpr std::string_view kPlain = "\\'nrt";
constexpr std::string_view kMeaning = "\\'\n\r\t";

std::string escape(char character) {
    const auto place = kMeaning.find(character);
    if (place != std::string_view::npos)
        return {'\\', kPlain[place]};
    const bool isControl = static_cast<uint8_t>(character) < 0x20 || character == 0x7F;
    return isControl ? image::hexEscape(character) : std::string(1, character);
}

/// Takes one escape, whose backslash is gone already, from the front.
std::optional<char> takeEscape(std::string_view &text) {
    const auto place = text.empty() ? std::string_view::npos : kPlain.find(text.front());
    if (place != std::string_view::npos) {
        text.remove_prefix(1);
        return kMeaning[place];
    }
    uint8_t byte = 0;
    if (!text.starts_with('x') || text.size() < 3)
        return std::nullopt;
    const auto [stop, code] = std::from_chars(text.data() + 1, text.data() + 3, byte, 16);
    if (code != std::errc{} || stop != text.data() + 3)
        return std::nullopt;
    text.remove_prefix(3);
    return static_cast<char>(byte);
}

/// What stands in front of `end`, with its escapes resolved; `text` is left behind it.
image::Outcome<std::string> unescapeTo(char end, std::string_view &text) {
    std::string plain;
    while (!text.empty() && text.front() != end) {
        const char character = text.front();
        text.remove_prefix(1);
        const auto escaped = character == '\\' ? takeEscape(text) : std::optional(character);
        if (!escaped)
            return image::Outcome<std::string>::bad("a backslash begins no escape that is known");
        plain += *escaped;
    }
    if (text.empty())
        return image::Outcome<std::string>::bad(end == '=' ? "there is no '='" : "a quoted value is not ended");
    text.remove_prefix(1);
    return image::Outcome<std::string>::good(std::move(plain));
}

/// In a path the "=" that ends it is escaped too.
std::string escapePath(std::string_view path) {
    std::string escaped;
    for (const char character : path)
        escaped += character == '=' ? image::hexEscape(character) : escape(character);
    return escaped;
}

}  // namespace

std::string quoteValue(std::string_view value) {
    std::string quoted = "'";
    for (const char character : value)
        quoted += escape(character);
    return quoted + "'";
}

std::string formatAssignment(std::string_view path, std::string_view value) {
    return escapePath(path) + "=" + quoteValue(value);
}

image::Outcome<Assignment> parseAssignment(std::string_view text) {
    using Read = image::Outcome<Assignment>;
    auto path = unescapeTo('=', text);
    if (!path)
        return Read::bad(path.error);
    if (path.value->empty())
        return Read::bad("there is no path before the '='");
    if (!text.starts_with('\''))
        return Read::good({std::move(*path.value), std::string(text)});
    text.remove_prefix(1);
    auto value = unescapeTo('\'', text);
    if (value && !text.empty())
        return Read::bad("something stands behind the quoted value: " + image::quote(text));
    if (!value)
        return Read::bad(value.error);
    return Read::good({std::move(*path.value), std::move(*value.value)});
}

}  // namespace tavdb::command
