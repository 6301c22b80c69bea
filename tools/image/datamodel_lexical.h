// SPDX-License-Identifier: Apache-2.0
// How values of a data model are written: the lexical form and the length of one
// value, and the items of a list. Used to judge defaults only: the database
// checks none of it.
#pragma once

#include <cstdint>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "image/datamodel_syntax.h"

namespace tavdb::image {

/// What the size elements of a type say together, in characters, of binary types in octets.
struct Lengths {
    uint64_t minimum = 0;
    std::optional<uint64_t> maximum;
    bool gaps = false;  ///< there are several sizes, so lengths between them may be excluded
    std::vector<std::pair<uint64_t, std::optional<uint64_t>>> each;
};
Lengths readLengths(const std::vector<pugi::xml_node> &sizes);

/// Bytes of text that hold every value of a type, nothing when it has no longest value.
std::optional<uint64_t> textBytes(Primitive primitive, std::optional<uint64_t> maximum);

/// The length of one value in the terms of Lengths.
uint64_t valueLength(Primitive primitive, std::string_view text);

/// Empty, or why the text is no value of the type.
std::string lexicalFault(Primitive primitive, std::string_view text);
std::string lengthFault(const Lengths &lengths, uint64_t length);

/// The items between commas, blanks around them taken away; none in an empty text.
std::vector<std::string> splitItems(std::string_view text);

}  // namespace tavdb::image
