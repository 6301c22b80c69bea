// SPDX-License-Identifier: Apache-2.0
// A described database in memory: a tree of nodes and leaves with their values,
// constraints and texts, whatever file they came from. No keys and no media:
// those belong to whoever builds a database from it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "image/value_type.h"

namespace tavdb::image {

/// Place in a source text, counted from 1, columns in bytes. Line 0 is "the file as a whole".
struct Position {
    uint32_t line = 0;
    uint32_t column = 0;

    auto operator<=>(const Position &) const = default;
};

/// All three are of the leaf's type. A step of 0 allows every value between the bounds.
struct Range {
    Value minimum;
    Value maximum;
    Value step;
};

struct Element {
    std::optional<std::string> label;  ///< an empty label is a label
    Value number;
};

using Enumeration = std::vector<Element>;
/// As many as a u16 has numbers.
inline constexpr size_t kElementsMax = 65536;

using Constraint = std::variant<std::monostate, Range, Enumeration>;

struct Leaf {
    std::string name;
    Type type = Type::u8;
    uint32_t lengthBytes = 0;  ///< bytes of value data; of a text with its NUL
    Value current;
    Value defaultValue;
    Value factory;
    Constraint constraint;
    uint32_t hookId = 0;  ///< 0: no hook
    bool secret = false;
    std::string description;
    std::string units;
    Position position;
};

struct Component;

struct Node {
    std::string name;  ///< without the "/" that its stored form ends in; the root's is empty
    std::string description;
    Position position;
    std::vector<Component> children;  ///< in the order of the source
};

struct Component {
    std::variant<Node, Leaf> is;

    const Node *node() const {
        return std::get_if<Node>(&is);
    }
    const Leaf *leaf() const {
        return std::get_if<Leaf>(&is);
    }
};

/// Where a description came from.
struct Source {
    std::string file;  ///< without folders, so that equal input gives equal output anywhere
    std::string kind;  ///< "yaml" or "datamodel"
    std::string name;  ///< what the source calls itself, may be empty
};

struct Model {
    Source source;
    Node root;
};

/// What a description gives for the three values of a leaf.
struct Tiers {
    std::optional<Value> current;
    std::optional<Value> defaultValue;
    std::optional<Value> factory;
};

/// Fills the three values of a leaf whose type and constraint are set. A missing
/// one takes the one below it (factory, then default, then current), a missing
/// lowest one the nearest above; without any, all take the initial value.
void resolveTiers(Leaf &leaf, const Tiers &tiers);

/// Zero or empty where the constraint admits it, else the minimum or the first element.
Value initialValue(Type type, const Constraint &constraint);

/// "/" for the root, "/lan/mtu" for others: no "/" at the end.
std::string childPath(std::string_view parentPath, std::string_view name);

/// Calls visit(path, const Node &) or visit(path, const Leaf &) for everything
/// below `node`, parents first and in order.
template <typename Visit>
void forEachBelow(const Node &node, const std::string &path, Visit &&visit) {
    for (const auto &child : node.children) {
        if (const auto *leaf = child.leaf()) {
            visit(childPath(path, leaf->name), *leaf);
            continue;
        }
        const auto below = childPath(path, child.node()->name);
        visit(below, *child.node());
        forEachBelow(*child.node(), below, visit);
    }
}

struct Counts {
    size_t nodes = 0;  ///< without the root
    size_t leaves = 0;
};
Counts countComponents(const Model &model);

/// The component of that path, null when there is none. The root has no component.
const Component *findComponent(const Model &model, std::string_view path);

}  // namespace tavdb::image
