// SPDX-License-Identifier: Apache-2.0
// The keys of one leaf description in the house format, and the reusable
// descriptions of `types:` that a leaf can build on. Knows which keys there are,
// not what they mean.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "image/diagnostics.h"
#include "image/value_type.h"
#include "image/yaml_scalar.h"

namespace tavdb::image {

struct LeafKey {
    const YAML::Node value;  ///< const, because assigning to a node changes the document it belongs to
    Position position;       ///< of the value, or of the key when there is none
    std::string typeName;    ///< the reusable description it came from, empty for the leaf's own
};
using LeafKeys = std::map<std::string, LeafKey, std::less<>>;

bool isLeafKey(const std::string &key);

/// The keys of a map that describes a leaf or a reusable type; unknown ones are errors.
LeafKeys collectLeafKeys(const YAML::Node &map, Diagnostics &diagnostics);

class ReusableTypes {
public:
    explicit ReusableTypes(Diagnostics &list) : diagnostics(list) {}

    /// Reads `types:` and checks that every entry leads to a built-in type.
    void load(const YAML::Node &key, const YAML::Node &map);

    /// Follows `type` to a built-in type and adds the keys found on the way that
    /// `keys` lacks. Nothing when that fails; the error is recorded by then.
    std::optional<Type> resolve(LeafKeys &keys) const;

private:
    void loadEntry(const std::string &name, const YAML::Node &key, const YAML::Node &value);
    const LeafKeys *findNext(const std::string &name, Position at, std::set<std::string> &passed) const;

    Diagnostics &diagnostics;
    std::map<std::string, LeafKeys, std::less<>> entries;
    std::set<std::string> broken;  ///< entries with a fault of their own, told once
};

}  // namespace tavdb::image
