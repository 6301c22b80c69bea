// SPDX-License-Identifier: Apache-2.0
#include "view.h"

#include <algorithm>

#include "assignment.h"
#include "image/constraint_check.h"
#include "image/text_util.h"
#include "image/value_text.h"

namespace tavdb::command {

namespace {

Json elementToJson(image::Type type, const image::Element &element) {
    return {{"value", valueToJson(type, element.number)}, {"label", element.label ? Json(*element.label) : Json()}};
}

/// The label of a value; null where its leaf has none for it.
Json labelToJson(const image::Leaf &leaf, const image::Value &value) {
    if (const auto *elements = std::get_if<image::Enumeration>(&leaf.constraint))
        for (const auto &element : *elements)
            if (element.label && element.number == value)
                return *element.label;
    return nullptr;
}

}  // namespace

std::string labelled(std::string_view label, std::string_view text) {
    constexpr size_t kWidth = 13;
    return std::string(label) + std::string(kWidth - std::min(label.size(), kWidth - 1), ' ') + std::string(text) +
           "\n";
}

std::string valueText(const image::Leaf &leaf, const image::Value &value, bool raw) {
    return raw ? image::formatValue(leaf.type, value) : image::formatForLeaf(leaf, value);
}

std::string valueInListing(const image::Leaf &leaf, const image::Value &value) {
    const auto text = valueText(leaf, value);
    return leaf.type == image::Type::text ? quoteValue(text) : text;
}

std::string constraintText(const image::StoredLeaf &stored) {
    if (stored.constraintFault)
        return "(" + stored.constraintFault->sentence + ")";
    const auto text = image::formatConstraint(stored.leaf.type, stored.leaf.constraint);
    return text.empty() ? "-" : text;
}

Json valueToJson(image::Type type, const image::Value &value) {
    if (const auto *number = std::get_if<int64_t>(&value))
        return *number;
    if (const auto *number = std::get_if<uint64_t>(&value))
        return *number;
    const bool isNumber = std::holds_alternative<double>(value) && image::isFinite(value);
    // Through the shortest text, so that a single-precision number looks the same everywhere.
    const auto text = image::formatValue(type, value);
    return isNumber ? Json::parse(text) : Json(text);
}

Json constraintToJson(const image::StoredLeaf &stored) {
    const auto &leaf = stored.leaf;
    if (const auto *range = std::get_if<image::Range>(&leaf.constraint))
        return {{"minimum", valueToJson(leaf.type, range->minimum)},
                {"maximum", valueToJson(leaf.type, range->maximum)},
                {"step", valueToJson(leaf.type, range->step)}};
    const auto *elements = std::get_if<image::Enumeration>(&leaf.constraint);
    if (elements == nullptr)
        return nullptr;
    auto list = Json::array();
    for (const auto &element : *elements)
        list.push_back(elementToJson(leaf.type, element));
    return {{"values", std::move(list)}};
}

void addValue(Json &object, const image::StoredLeaf &stored, const image::Value *value) {
    object["value"] = nullptr;
    object["label"] = nullptr;
    if (value == nullptr)
        return;
    object["value"] = valueToJson(stored.leaf.type, *value);
    object["label"] = labelToJson(stored.leaf, *value);
    const auto *text = std::get_if<std::string>(value);
    if (text != nullptr && stored.leaf.type == image::Type::text && image::firstBadUtf8(*text) != std::string::npos)
        object["hex"] = image::formatValue(image::Type::bytes, *value);
}

std::string dumpJson(const Json &json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace tavdb::command
