// SPDX-License-Identifier: Apache-2.0
#include "image/model.h"

#include <algorithm>

#include "image/constraint_check.h"

namespace tavdb::image {

namespace {

struct Counter {
    Counts &counts;

    void operator()(const std::string &, const Node &) const {
        counts.nodes++;
    }
    void operator()(const std::string &, const Leaf &) const {
        counts.leaves++;
    }
};

const std::string &nameOf(const Component &component) {
    return component.leaf() ? component.leaf()->name : component.node()->name;
}

const Component *findChild(const Node &node, std::string_view name) {
    const auto found = std::find_if(node.children.begin(), node.children.end(),
                                    [&](const Component &child) { return nameOf(child) == name; });
    return found == node.children.end() ? nullptr : &*found;
}

}  // namespace

Value initialValue(Type type, const Constraint &constraint) {
    auto zero = zeroValue(type);
    if (judge(type, constraint, zero) == Verdict::admitted)
        return zero;
    if (const auto *range = std::get_if<Range>(&constraint))
        return range->minimum;
    const auto &elements = std::get<Enumeration>(constraint);
    return elements.empty() ? zero : elements.front().number;
}

void resolveTiers(Leaf &leaf, const Tiers &tiers) {
    const auto lowest = tiers.factory ? tiers.factory : tiers.defaultValue ? tiers.defaultValue : tiers.current;
    leaf.factory = lowest ? *lowest : initialValue(leaf.type, leaf.constraint);
    leaf.defaultValue = tiers.defaultValue.value_or(leaf.factory);
    leaf.current = tiers.current.value_or(leaf.defaultValue);
}

std::string childPath(std::string_view parentPath, std::string_view name) {
    std::string path(parentPath);
    if (!path.ends_with('/'))
        path += '/';
    return path.append(name);
}

Counts countComponents(const Model &model) {
    Counts counts;
    forEachBelow(model.root, "/", Counter{counts});
    return counts;
}

const Component *findComponent(const Model &model, std::string_view path) {
    const Node *node = &model.root;
    const Component *found = nullptr;
    while (!path.empty()) {
        if (path.front() != '/' || node == nullptr)
            return nullptr;
        path.remove_prefix(1);
        const auto end = std::min(path.find('/'), path.size());
        found = findChild(*node, path.substr(0, end));
        if (found == nullptr)
            return nullptr;
        node = found->node();
        path.remove_prefix(end);
    }
    return found;
}

}  // namespace tavdb::image
