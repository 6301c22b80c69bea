// SPDX-License-Identifier: Apache-2.0
#include "image/yaml_scalar.h"

#include <set>

#include "image/text_util.h"

namespace tavdb::image {

namespace {

/// The tags that the parser gives to values without one.
bool hasOwnTag(const YAML::Node &node) {
    return !node.Tag().empty() && node.Tag() != "?" && node.Tag() != "!";
}

}  // namespace

Position positionOf(const YAML::Node &node) {
    return positionOf(node.Mark());
}

Position positionOf(const YAML::Mark &mark) {
    if (mark.is_null())
        return {};
    return {static_cast<uint32_t>(mark.line + 1), static_cast<uint32_t>(mark.column + 1)};
}

std::string whatIs(const YAML::Node &node) {
    if (node.IsMap())
        return "a map";
    if (node.IsSequence())
        return "a list";
    return node.IsScalar() ? "the value " + quote(node.Scalar()) : "nothing";
}

Position positionOf(const YAML::Node &value, const YAML::Node &key) {
    return value.IsNull() ? positionOf(key) : positionOf(value);
}

std::optional<std::string> readScalar(const YAML::Node &node, const std::string &name, Position at,
                                      Diagnostics &diagnostics, const std::string &context) {
    if (!node.IsScalar()) {
        diagnostics.add(at, name + " must be a single value, found " + whatIs(node), context);
        return std::nullopt;
    }
    if (hasOwnTag(node)) {
        diagnostics.add(at, "tags such as " + quote(node.Tag()) + " have no meaning here", context);
        return std::nullopt;
    }
    return node.Scalar();
}

void forEachKey(const YAML::Node &map, Diagnostics &diagnostics,
                const std::function<void(const std::string &, const YAML::Node &, const YAML::Node &)> &action) {
    std::set<std::string> seen;
    for (const auto &entry : map) {
        const auto &key = entry.first;
        if (!key.IsScalar()) {
            diagnostics.add(positionOf(key), "a name must be a single value, found " + whatIs(key));
            continue;
        }
        if (seen.insert(key.Scalar()).second)
            action(key.Scalar(), key, entry.second);
        else
            diagnostics.add(positionOf(key), quote(key.Scalar()) + " stands here a second time");
    }
}

bool isQuoted(const YAML::Node &scalar) {
    return scalar.Tag() == "!";
}

}  // namespace tavdb::image
