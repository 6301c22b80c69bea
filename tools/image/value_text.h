// SPDX-License-Identifier: Apache-2.0
// Values as people write them: text to value with a precise complaint, value to
// the shortest text that reads back the same. Labels of enumerations stand for
// their numbers, and a label goes before a number that is spelled the same.
#pragma once

#include <string>
#include <string_view>

#include "image/model.h"
#include "image/outcome.h"

namespace tavdb::image {

/// Integers in decimal or 0x, floating numbers in decimal (also nan, inf), text
/// as it is, bytes as pairs of hex digits.
/// @param lengthBytes of text and bytes: the value's data; others ignore it
Outcome<Value> parseValue(Type type, uint32_t lengthBytes, std::string_view text);

/// As parseValue, with the leaf's labels, and refused when its constraint does not
/// admit it. The complaint about a secret does not show the value.
Outcome<Value> parseForLeaf(const Leaf &leaf, std::string_view text);

std::string formatValue(Type type, const Value &value);

/// The label where the leaf's enumeration has one for the value, else formatValue.
std::string formatForLeaf(const Leaf &leaf, const Value &value);

bool isFinite(const Value &value);

}  // namespace tavdb::image
