// SPDX-License-Identifier: Apache-2.0
#include "image/value_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "image/constraint_check.h"
#include "image/text_util.h"

namespace tavdb::image {

namespace {

struct Integer {
    bool negative = false;
    bool tooBig = false;
    uint64_t magnitude = 0;
};

bool takeSign(std::string_view &text) {
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    return negative;
}

int takeBase(std::string_view &text) {
    if (!text.starts_with("0x") && !text.starts_with("0X"))
        return 10;
    text.remove_prefix(2);
    return 16;
}

std::optional<Integer> scanInteger(std::string_view text) {
    Integer integer;
    integer.negative = takeSign(text);
    const int base = takeBase(text);
    const char *end = text.data() + text.size();
    const auto [stop, code] = std::from_chars(text.data(), end, integer.magnitude, base);
    if (code == std::errc::invalid_argument || stop != end)
        return std::nullopt;
    integer.tooBig = code == std::errc::result_out_of_range;
    return integer;
}

using Parsed = Outcome<Value>;

/// "an unsigned 8-bit integer"
std::string integerName(const TypeInfo &info) {
    return (info.family == Family::unsignedInteger ? "an unsigned " : "a signed ") +
           std::to_string(info.widthBytes * 8) + "-bit integer";
}

std::string limitsOf(const TypeInfo &info) {
    return " (" + std::to_string(info.minimum) + ".." + std::to_string(info.maximum) + ")";
}

bool fits(const TypeInfo &info, const Integer &integer) {
    if (integer.tooBig)
        return false;
    if (!integer.negative)
        return integer.magnitude <= info.maximum;
    // The magnitude of the lowest number of a signed type is one more than that of the highest.
    const uint64_t lowest = info.minimum == 0 ? 0 : info.maximum + 1;
    return integer.magnitude <= lowest;
}

std::optional<double> scanSpecial(std::string_view text) {
    const bool negative = takeSign(text);
    std::string lower(text.substr(text.starts_with('.') ? 1 : 0));
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    if (lower == "nan")
        return std::numeric_limits<double>::quiet_NaN();
    if (lower == "inf")
        return negative ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();
    return std::nullopt;
}

template <typename Float>
struct FloatScan {
    Float number = 0;
    bool malformed = false;
    bool outOfReach = false;
};

template <typename Float>
FloatScan<Float> scanFloat(std::string_view text) {
    FloatScan<Float> scan;
    const bool negative = takeSign(text);
    const bool begins = !text.empty() && (text.front() == '.' || (text.front() >= '0' && text.front() <= '9'));
    const char *end = text.data() + text.size();
    const auto [stop, code] = std::from_chars(text.data(), end, scan.number);
    scan.malformed = !begins || stop != end || code == std::errc::invalid_argument;
    scan.outOfReach = code == std::errc::result_out_of_range || !std::isfinite(scan.number);
    if (negative)
        scan.number = -scan.number;
    return scan;
}

// The parsers below complain in words that follow "value X ".

Parsed parseInteger(const TypeInfo &info, std::string_view text) {
    const auto integer = scanInteger(text);
    if (!integer)
        return Parsed::bad("is not " + integerName(info));
    if (!fits(info, *integer))
        return Parsed::bad("is not " + integerName(info) + limitsOf(info));
    if (info.family == Family::unsignedInteger)
        return Parsed::good(integer->magnitude);
    return Parsed::good(static_cast<int64_t>(integer->negative ? 0 - integer->magnitude : integer->magnitude));
}

template <typename Float>
Parsed parseFloat(const TypeInfo &info, std::string_view text) {
    if (const auto special = scanSpecial(text))
        return Parsed::good(*special);
    const auto scan = scanFloat<Float>(text);
    if (scan.malformed)
        return Parsed::bad("is not a number");
    if (scan.outOfReach)
        return Parsed::bad("is too big or too small for " + std::string(info.name));
    return Parsed::good(static_cast<double>(scan.number));
}

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<uint8_t>(c) < 0x80; });
}

std::string longerThan(size_t limit, const char *unit) {
    return "is longer than " + counted(limit, unit);
}

Parsed parseText(uint32_t lengthBytes, std::string_view text) {
    if (text.find('\0') != std::string_view::npos)
        return Parsed::bad("holds a NUL");
    const size_t limit = lengthBytes == 0 ? 0 : lengthBytes - 1;
    if (text.size() > limit)
        return Parsed::bad(longerThan(limit, isAscii(text) ? "character" : "byte"));
    return Parsed::good(std::string(text));
}

std::optional<uint8_t> hexByte(std::string_view pair) {
    uint8_t byte = 0;
    const auto [stop, code] = std::from_chars(pair.data(), pair.data() + 2, byte, 16);
    return code == std::errc{} && stop == pair.data() + 2 ? std::optional(byte) : std::nullopt;
}

Parsed parseBytes(uint32_t lengthBytes, std::string_view text) {
    if (text.size() % 2 != 0)
        return Parsed::bad("has an odd number of hex digits");
    if (text.size() / 2 > lengthBytes)
        return Parsed::bad(longerThan(lengthBytes, "byte"));
    std::string bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        const auto byte = hexByte(text.substr(i, 2));
        if (!byte)
            return Parsed::bad("is not made of pairs of hex digits");
        bytes += static_cast<char>(*byte);
    }
    return Parsed::good(std::move(bytes));
}

Parsed parseUnnamed(Type type, uint32_t lengthBytes, std::string_view text) {
    const auto &info = typeInfo(type);
    switch (info.family) {
        case Family::floating:
            return type == Type::f32 ? parseFloat<float>(info, text) : parseFloat<double>(info, text);
        case Family::text:
            return parseText(lengthBytes, text);
        case Family::bytes:
            return parseBytes(lengthBytes, text);
        default:
            return parseInteger(info, text);
    }
}

/// What cannot be mistaken for words is shown without quotes.
std::string shown(Type type, std::string_view text) {
    const bool isNumber = typeInfo(type).isNumber() && text.size() <= 48 && !scanFloat<double>(text).malformed;
    return isNumber ? std::string(text) : quote(text);
}

template <typename Float>
std::string formatFloat(Float number) {
    if (std::isnan(number))
        return "nan";
    std::array<char, 64> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
    return {buffer.data(), result.ptr};
}

std::string formatBytes(const std::string &bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<uint8_t>(character);
        text += {digits[byte >> 4U], digits[byte & 0xFU]};
    }
    return text;
}

const Element *findLabel(const Leaf &leaf, std::string_view label) {
    const auto *elements = std::get_if<Enumeration>(&leaf.constraint);
    if (elements == nullptr)
        return nullptr;
    const auto found = std::find_if(elements->begin(), elements->end(),
                                    [&](const Element &element) { return element.label == label; });
    return found == elements->end() ? nullptr : &*found;
}

}  // namespace

Outcome<Value> parseValue(Type type, uint32_t lengthBytes, std::string_view text) {
    auto parsed = parseUnnamed(type, lengthBytes, text);
    if (!parsed)
        parsed.error = "value " + shown(type, text) + " " + parsed.error;
    return parsed;
}

Outcome<Value> parseForLeaf(const Leaf &leaf, std::string_view text) {
    if (const auto *element = findLabel(leaf, text))
        return Parsed::good(element->number);
    auto parsed = parseUnnamed(leaf.type, leaf.lengthBytes, text);
    auto complaint = parsed ? complaintAbout(leaf.type, leaf.constraint, *parsed.value) : parsed.error;
    if (!parsed && std::holds_alternative<Enumeration>(leaf.constraint))
        complaint = "is not one of " + formatChoices(leaf.type, leaf.constraint);
    if (complaint.empty())
        return parsed;
    return Parsed::bad((leaf.secret ? "the value" : "value " + shown(leaf.type, text)) + " " + complaint);
}

std::string formatValue(Type type, const Value &value) {
    if (const auto *number = std::get_if<int64_t>(&value))
        return std::to_string(*number);
    if (const auto *number = std::get_if<uint64_t>(&value))
        return std::to_string(*number);
    if (const auto *number = std::get_if<double>(&value))
        return type == Type::f32 ? formatFloat(static_cast<float>(*number)) : formatFloat(*number);
    const auto &content = std::get<std::string>(value);
    return type == Type::bytes ? formatBytes(content) : content;
}

std::string formatForLeaf(const Leaf &leaf, const Value &value) {
    if (const auto *elements = std::get_if<Enumeration>(&leaf.constraint))
        for (const auto &element : *elements)
            if (element.label && element.number == value)
                return *element.label;
    return formatValue(leaf.type, value);
}

bool isFinite(const Value &value) {
    const auto *number = std::get_if<double>(&value);
    return number == nullptr || std::isfinite(*number);
}

}  // namespace tavdb::image
