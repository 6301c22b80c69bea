// SPDX-License-Identifier: Apache-2.0
#include "image/datamodel_tree.h"

#include <algorithm>
#include <limits>

#include "image/description.h"
#include "image/text_util.h"

namespace tavdb::image {

namespace {

constexpr std::string_view kInstance = "{i}";

bool isNumber(std::string_view name) {
    return !name.empty() && name.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Instance nodes are called "1" to "n", so nothing beside them may be a number.
bool collidesWithInstances(const Object &parent, std::string_view name) {
    return (isNumber(name) && parent.places.contains(std::string(kInstance))) ||
           (name == kInstance && parent.hasNumberedChild);
}

Object *addObject(Object &parent, const std::string &name) {
    parent.places.emplace(name, parent.children.size());
    parent.hasNumberedChild = parent.hasNumberedChild || isNumber(name);
    auto &child = parent.children.emplace_back();
    child.object = std::make_unique<Object>();
    child.object->name = name;
    return child.object.get();
}

Object *reachChild(Object &parent, const std::string &name, Refusal &refusal) {
    const auto found = parent.places.find(name);
    if (found != parent.places.end()) {
        auto *object = parent.children[found->second].object.get();
        if (object == nullptr)
            refusal = {Omission::nameTaken, "a parameter is called " + quote(name) + " already"};
        return object;
    }
    if (collidesWithInstances(parent, name)) {
        refusal = {Omission::nameTaken, quote(name) + " stands beside numbered instances"};
        return nullptr;
    }
    return addObject(parent, name);
}

size_t saturatingAdd(size_t a, size_t b) {
    return a > std::numeric_limits<size_t>::max() - b ? std::numeric_limits<size_t>::max() : a + b;
}

size_t saturatingMultiply(size_t a, size_t b) {
    return b != 0 && a > std::numeric_limits<size_t>::max() / b ? std::numeric_limits<size_t>::max() : a * b;
}

size_t countBelow(const Object &object, size_t instances) {
    size_t count = 0;
    for (const auto &child : object.children) {
        const auto below = child.object ? saturatingAdd(1, countBelow(*child.object, instances)) : 1;
        const bool multiplied = child.object && child.object->name == kInstance;
        count = saturatingAdd(count, multiplied ? saturatingMultiply(below, instances) : below);
    }
    return count;
}

Node expandObject(const Object &object, const std::string &name, size_t instances) {
    Node node;
    node.name = name;
    node.description = object.description;
    node.position = object.position;
    for (const auto &child : object.children) {
        if (child.leaf)
            node.children.push_back({*child.leaf});
        else if (child.object->name != kInstance)
            node.children.push_back({expandObject(*child.object, child.object->name, instances)});
        else
            for (size_t i = 1; i <= instances; i++)
                node.children.push_back({expandObject(*child.object, std::to_string(i), instances)});
    }
    return node;
}

}  // namespace

Object *ObjectTree::reach(std::string_view path, Refusal &refusal) {
    Object *object = &root;
    size_t depth = 0;
    while (object != nullptr && !path.empty()) {
        const auto end = std::min(path.find('.'), path.size());
        const std::string name(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
        if (const auto fault = nameFault(name); !fault.empty()) {
            refusal = {Omission::badName, fault};
            return nullptr;
        }
        if (++depth > kDepthMax) {
            refusal = {Omission::nested, "there are more than " + std::to_string(kDepthMax) + " levels"};
            return nullptr;
        }
        object = reachChild(*object, name, refusal);
    }
    return object;
}

bool ObjectTree::addLeaf(Object &parent, Leaf leaf, Refusal &refusal) {
    const auto fault = leaf.name == kInstance ? quote(leaf.name) + " is no parameter's name" : nameFault(leaf.name);
    const auto found = parent.places.find(leaf.name);
    if (!fault.empty())
        refusal = {Omission::badName, fault};
    else if (found != parent.places.end() && parent.children[found->second].leaf)
        refusal = {Omission::duplicate, "the first definition is kept"};
    else if (found != parent.places.end() || collidesWithInstances(parent, leaf.name))
        refusal = {Omission::nameTaken, "an object is called " + quote(leaf.name) + " already"};
    else {
        parent.places.emplace(leaf.name, parent.children.size());
        parent.hasNumberedChild = parent.hasNumberedChild || isNumber(leaf.name);
        parent.children.emplace_back().leaf = std::make_unique<Leaf>(std::move(leaf));
        return true;
    }
    return false;
}

size_t ObjectTree::countExpanded(size_t instances) const {
    return countBelow(root, instances);
}

Node ObjectTree::expand(size_t instances) const {
    return expandObject(root, {}, instances);
}

}  // namespace tavdb::image
