// SPDX-License-Identifier: Apache-2.0
// A C header for programs that know their database: one constant per component
// key, one per label. The keys come from whoever built the database.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "image/model.h"
#include "image/outcome.h"

namespace tavdb::image {

using ComponentKeys = std::map<std::string, uint32_t>;  ///< by path, "/" is the root

/// Labels become enumerators where all numbers of their leaf fit an int, else macros.
/// @param prefix what every name begins with, an upper-case C identifier
/// @return the header's text; fails when a component of the model has no key
Outcome<std::string> formatHeader(const Model &model, const ComponentKeys &keys, const std::string &prefix = "TAVDB");

}  // namespace tavdb::image
