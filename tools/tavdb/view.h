// SPDX-License-Identifier: Apache-2.0
// How leaves and their values look: as text for people and scripts, and as JSON
// with the same keys in every command.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "image/leaf_access.h"

namespace tavdb::command {

using Json = nlohmann::ordered_json;

inline constexpr std::string_view kMasked = "***";

/// "type         u32, 4 bytes\n"
std::string labelled(std::string_view label, std::string_view text);

/// A value as set reads it: a label where there is one, unless `raw`.
std::string valueText(const image::Leaf &leaf, const image::Value &value, bool raw = false);

/// A value in a listing: text in quotes, everything else bare.
std::string valueInListing(const image::Leaf &leaf, const image::Value &value);

/// "300..4000000 step 100"; what is wrong with it in brackets; "-" without one.
std::string constraintText(const image::StoredLeaf &stored);

/// Numbers as numbers; nan and inf as text; bytes as hex digits.
Json valueToJson(image::Type type, const image::Value &value);

Json constraintToJson(const image::StoredLeaf &stored);

/// "value" and "label", both null when the value is not to be seen; "hex" for a
/// text that JSON cannot hold.
void addValue(Json &object, const image::StoredLeaf &stored, const image::Value *value);

/// The document as it is printed.
std::string dumpJson(const Json &json);

}  // namespace tavdb::command
