// SPDX-License-Identifier: Apache-2.0
// What all parts of the house format's reader share: positions, reading one
// scalar, and walking the keys of a map, with their complaints.
#pragma once

#include <yaml-cpp/yaml.h>

#include <functional>
#include <optional>
#include <string>

#include "image/diagnostics.h"

namespace tavdb::image {

Position positionOf(const YAML::Mark &mark);
Position positionOf(const YAML::Node &node);

/// "a map", "a list", "nothing" or "the value 'x'".
std::string whatIs(const YAML::Node &node);

/// Where a value stands, or its key when there is no value: the parser places
/// nothing at whatever comes next.
Position positionOf(const YAML::Node &value, const YAML::Node &key);

/// The text of a scalar. Lists, maps, nothing and tagged values are errors: "NAME must be ...".
/// @param at where an error is told
std::optional<std::string> readScalar(const YAML::Node &node, const std::string &name, Position at,
                                      Diagnostics &diagnostics, const std::string &context = {});

/// Calls action(key text, key node, value) for each entry with a usable key; twice the same key is an error.
void forEachKey(const YAML::Node &map, Diagnostics &diagnostics,
                const std::function<void(const std::string &, const YAML::Node &, const YAML::Node &)> &action);

/// Written in quotes, so that it is a text even when it looks like a number.
bool isQuoted(const YAML::Node &scalar);

}  // namespace tavdb::image
