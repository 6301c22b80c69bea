// SPDX-License-Identifier: Apache-2.0
// Values as the library stores them: the type's width in the machine's own byte
// order, text with its NUL, and zeros up to the value's length.
#pragma once

#include <string>
#include <string_view>

#include "image/outcome.h"
#include "image/value_type.h"

namespace tavdb::image {

/// Exactly `lengthBytes` bytes, for a number its type's width. The value must fit, as parsed ones do.
std::string encodeValue(Type type, uint32_t lengthBytes, const Value &value);

/// A number's bytes must have its width; a text ends at its first NUL or at the end.
Outcome<Value> decodeValue(Type type, std::string_view bytes);

}  // namespace tavdb::image
