// SPDX-License-Identifier: Apache-2.0
#include "image/datamodel_lexical.h"

#include <algorithm>
#include <limits>

#include "image/text_util.h"

namespace tavdb::image {

namespace {

/// The longest usual form: fractions of a second and an offset from UTC.
constexpr uint64_t kDateTimeBytes = 35;
constexpr std::string_view kDateTimeForm = "dddd-dd-ddTdd:dd:dd";

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";
constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool consistsOf(std::string_view text, std::string_view characters) {
    return text.find_first_not_of(characters) == std::string_view::npos;
}

bool isDigits(std::string_view text) {
    return !text.empty() && consistsOf(text, kDigits);
}

std::string_view withoutSign(std::string_view text) {
    return text.substr(text.starts_with('-') || text.starts_with('+') ? 1 : 0);
}

bool isInteger(std::string_view text) {
    return isDigits(withoutSign(text));
}

bool isDecimal(std::string_view text) {
    text = withoutSign(text);
    const auto point = std::min(text.find('.'), text.size());
    const auto whole = text.substr(0, point);
    const auto fraction = text.substr(std::min(point + 1, text.size()));
    return consistsOf(whole, kDigits) && consistsOf(fraction, kDigits) && !(whole.empty() && fraction.empty());
}

bool isBoolean(std::string_view text) {
    return text == "true" || text == "false" || text == "1" || text == "0";
}

bool isHexBinary(std::string_view text) {
    return text.size() % 2 == 0 && consistsOf(text, kHexDigits);
}

bool isBase64(std::string_view text) {
    const auto padding = text.ends_with("==") ? 2U : text.ends_with('=') ? 1U : 0U;
    return text.size() % 4 == 0 && consistsOf(text.substr(0, text.size() - padding), kBase64);
}

bool matchesForm(std::string_view text, std::string_view form) {
    return text.size() == form.size() && std::equal(text.begin(), text.end(), form.begin(), [](char c, char f) {
               return f == 'd' ? kDigits.find(c) != std::string_view::npos : c == f;
           });
}

bool isDateTime(std::string_view text) {
    if (!matchesForm(text.substr(0, kDateTimeForm.size()), kDateTimeForm))
        return false;
    text.remove_prefix(kDateTimeForm.size());
    if (text.starts_with('.')) {
        const auto end = std::min(text.find_first_not_of(kDigits, 1), text.size());
        if (end == 1)
            return false;
        text.remove_prefix(end);
    }
    return text.empty() || text == "Z" || matchesForm(text, "+dd:dd") || matchesForm(text, "-dd:dd");
}

bool isWellFormed(Primitive primitive, std::string_view text) {
    switch (primitive) {
        case Primitive::boolean:
            return isBoolean(text);
        case Primitive::decimal:
            return isDecimal(text);
        case Primitive::string:
            return true;
        case Primitive::hexBinary:
            return isHexBinary(text);
        case Primitive::base64:
            return isBase64(text);
        case Primitive::dateTime:
            return isDateTime(text);
        default:
            return isInteger(text);
    }
}

uint64_t countCharacters(std::string_view text) {
    return static_cast<uint64_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<uint8_t>(c) & 0xC0U) != 0x80U; }));
}

std::optional<uint64_t> numberOf(const pugi::xml_attribute &attribute) {
    const std::string_view text = attribute.value();
    return isDigits(text) ? std::optional<uint64_t>(attribute.as_ullong()) : std::nullopt;
}

/// More octets than any text can hold are all alike, and small enough to calculate with.
constexpr uint64_t kOctetsMax = std::numeric_limits<uint32_t>::max();

}  // namespace

Lengths readLengths(const std::vector<pugi::xml_node> &sizes) {
    Lengths lengths;
    for (const auto &size : sizes)
        lengths.each.emplace_back(numberOf(size.attribute("minLength")).value_or(0),
                                  numberOf(size.attribute("maxLength")));
    if (lengths.each.empty())
        return lengths;
    lengths.gaps = lengths.each.size() > 1;
    lengths.minimum = lengths.each.front().first;
    lengths.maximum = lengths.each.front().second;
    for (const auto &[minimum, maximum] : lengths.each) {
        lengths.minimum = std::min(lengths.minimum, minimum);
        lengths.maximum =
            maximum && lengths.maximum ? std::optional(std::max(*maximum, *lengths.maximum)) : std::nullopt;
    }
    return lengths;
}

std::optional<uint64_t> textBytes(Primitive primitive, std::optional<uint64_t> maximum) {
    if (primitive == Primitive::dateTime)
        return kDateTimeBytes;
    if (!maximum)
        return std::nullopt;
    const auto octets = std::min(*maximum, kOctetsMax);
    if (primitive == Primitive::hexBinary)
        return octets * 2;
    return primitive == Primitive::base64 ? (octets + 2) / 3 * 4 : octets;
}

uint64_t valueLength(Primitive primitive, std::string_view text) {
    if (primitive == Primitive::hexBinary)
        return text.size() / 2;
    if (primitive != Primitive::base64)
        return countCharacters(text);
    const auto padding = text.ends_with("==") ? 2U : text.ends_with('=') ? 1U : 0U;
    return text.size() / 4 * 3 - std::min<size_t>(padding, text.size() / 4 * 3);
}

std::string lexicalFault(Primitive primitive, std::string_view text) {
    return isWellFormed(primitive, text) ? std::string{}
                                         : "it is not written as " + std::string(primitiveName(primitive));
}

std::string lengthFault(const Lengths &lengths, uint64_t length) {
    const bool allowed =
        lengths.each.empty() || std::any_of(lengths.each.begin(), lengths.each.end(), [&](const auto &each) {
            return length >= each.first && (!each.second || length <= *each.second);
        });
    return allowed ? std::string{} : "its length " + std::to_string(length) + " is not allowed";
}

std::vector<std::string> splitItems(std::string_view text) {
    std::vector<std::string> items;
    if (foldSpace(text).empty())
        return items;
    for (;;) {
        const auto comma = std::min(text.find(','), text.size());
        items.push_back(foldSpace(text.substr(0, comma)));
        if (comma == text.size())
            return items;
        text.remove_prefix(comma + 1);
    }
}

}  // namespace tavdb::image
