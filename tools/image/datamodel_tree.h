// SPDX-License-Identifier: Apache-2.0
// The objects of a data model as a tree, in whatever order they come, and the
// step from there to nodes: every {i} becomes nodes "1" to "n".
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "image/model.h"
#include "image/report.h"

namespace tavdb::image {

struct ObjectChild;

struct Object {
    std::string name;
    std::string description;
    Position position;
    std::vector<ObjectChild> children;
    std::unordered_map<std::string, size_t> places;  ///< name to index of children
    bool hasNumberedChild = false;
};

/// Exactly one of the two.
struct ObjectChild {
    std::unique_ptr<Object> object;
    std::unique_ptr<Leaf> leaf;
};

struct Refusal {
    Omission why;
    std::string what;
};

class ObjectTree {
public:
    /// The object of a path like "Device.Line.{i}.", made with its parents when
    /// it is new; empty is the root. Null with a reason when there can be none.
    Object *reach(std::string_view path, Refusal &refusal);

    /// False with a reason when the name is no good or taken.
    static bool addLeaf(Object &parent, Leaf leaf, Refusal &refusal);

    /// Nodes and leaves that expand() makes, at most SIZE_MAX.
    size_t countExpanded(size_t instances) const;
    Node expand(size_t instances) const;

private:
    Object root;
};

}  // namespace tavdb::image
