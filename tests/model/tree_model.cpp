// SPDX-License-Identifier: Apache-2.0
#include "model/tree_model.h"

#include <algorithm>

namespace tavdb_test {

TreeModel::TreeModel(uint32_t root) {
    records[root] = {.kind = TAVDB_KIND_NODE, .name = 0, .parent = 0, .next = 0, .first = 0, .values = {}};
}

void TreeModel::link(uint32_t key, uint32_t parent, uint32_t previous) {
    uint32_t &place = previous != 0 ? records.at(previous).next : records.at(parent).first;
    records.at(key).next = place;
    place = key;
}

void TreeModel::adopt(uint32_t node, uint32_t child) {
    records.at(child).parent = node;
    records.at(node).next = records.at(child).next;
    records.at(child).next = 0;
}

void TreeModel::replaceInChain(uint32_t key, uint32_t firstChildTest, uint32_t instead) {
    Record &parent = records.at(records.at(key).parent);
    if (parent.first == firstChildTest) {
        parent.first = instead;
        return;
    }
    for (uint32_t at = parent.first; at != 0; at = records.at(at).next) {
        if (records.at(at).next == key) {
            records.at(at).next = instead;
            return;
        }
    }
}

void TreeModel::takeOutAlone(uint32_t key) {
    const Record node = records.at(key);
    const std::vector<uint32_t> below = node.kind == TAVDB_KIND_NODE ? children(key) : std::vector<uint32_t>{};
    if (!below.empty())
        records.at(below.back()).next = node.next;
    replaceInChain(key, key, below.empty() ? node.next : below.front());
}

void TreeModel::createNode(uint32_t key, uint32_t name, uint32_t parent, uint32_t previous, uint32_t child) {
    records[key] = {.kind = TAVDB_KIND_NODE, .name = name, .parent = parent, .next = 0, .first = child, .values = {}};
    link(key, parent, previous);
    if (child != 0)
        adopt(key, child);
}

void TreeModel::createLeaf(uint32_t key, uint32_t name, uint32_t parent, uint32_t previous,
                           const std::array<uint32_t, 3> &valueKeys) {
    records[key] = {
        .kind = TAVDB_KIND_LEAF, .name = name, .parent = parent, .next = 0, .first = 0, .values = valueKeys};
    link(key, parent, previous);
}

void TreeModel::moveLeaf(uint32_t key, uint32_t parent, uint32_t previous) {
    Record leaf = records.at(key);
    replaceInChain(key, leaf.parent, leaf.next);  // a first child is not found, so it stays
    leaf.parent = parent;
    uint32_t &place = previous != 0 ? records.at(previous).next : records.at(parent).first;
    leaf.next = place;
    place = key;
    records[key] = leaf;
}

void TreeModel::moveSubTree(uint32_t key, uint32_t parent, uint32_t previous) {
    replaceInChain(key, key, records.at(key).next);
    records.at(key).parent = parent;
    link(key, parent, previous);
}

void TreeModel::moveNode(uint32_t key, uint32_t parent, uint32_t previous, uint32_t child) {
    takeOutAlone(key);
    records.at(key).parent = parent;
    link(key, parent, previous);
    if (child != 0)
        adopt(key, child);
    records.at(key).first = child;
}

void TreeModel::deleteOne(uint32_t key) {
    takeOutAlone(key);
    records.erase(key);
}

void TreeModel::deleteWithSub(uint32_t key) {
    replaceInChain(key, key, records.at(key).next);
    std::vector<uint32_t> going = {key};
    while (!going.empty()) {
        const uint32_t at = going.back();
        going.pop_back();
        const std::vector<uint32_t> below = children(at);
        going.insert(going.end(), below.begin(), below.end());
        records.erase(at);
    }
}

int32_t TreeModel::copy(uint32_t key, Tier to, Tier from, uint32_t &error) {
    const Record &record = records.at(key);
    if (record.kind == TAVDB_KIND_LEAF)
        return copyValue(record.values[static_cast<size_t>(to)], record.values[static_cast<size_t>(from)], error);
    for (const uint32_t child : children(key)) {
        const int32_t code = copy(child, to, from, error);
        if (code != 0)
            return code;
    }
    return 0;
}

int32_t TreeModel::copyValue(uint32_t to, uint32_t from, uint32_t &error) {
    if (to == 0 || from == 0) {
        error = TAVDB_ERR_NO_VALUE;
        return 0;
    }
    const Bytes source = values.at(from);
    Bytes &destination = values.at(to);
    if (source.size() > destination.size()) {
        error = TAVDB_ERR_COPY_LENGTH;
        return TAVDB_ERR_COPY_LENGTH;
    }
    std::copy(source.begin(), source.end(), destination.begin());
    return 0;
}

std::vector<uint32_t> TreeModel::keys(int32_t kind) const {
    std::vector<uint32_t> found;
    for (const auto &[key, record] : records) {
        if (record.kind == kind)
            found.push_back(key);
    }
    return found;
}

std::vector<uint32_t> TreeModel::children(uint32_t node) const {
    std::vector<uint32_t> chain;
    for (uint32_t at = records.at(node).first; at != 0; at = records.at(at).next)
        chain.push_back(at);
    return chain;
}

bool TreeModel::isBelow(uint32_t key, uint32_t node) const {
    while (key != 0 && key != node)
        key = records.at(key).parent;
    return key == node;
}

uint32_t TreeModel::followerWithout(uint32_t node, uint32_t parent, uint32_t previous) const {
    TreeModel without = *this;
    without.takeOutAlone(node);
    return previous != 0 ? without.records.at(previous).next : without.records.at(parent).first;
}

Bytes TreeModel::bytesOfRecord(uint32_t key) const {
    const Record &record = records.at(key);
    const tavDBMComponent header = {.key = key,
                                    .name = record.name,
                                    .reserved = 0,
                                    .parent = record.parent,
                                    .next = record.next,
                                    .kind = record.kind};
    if (record.kind == TAVDB_KIND_NODE)
        return bytesOf(header, record.first);
    constexpr uint32_t kNoHook = 0;
    return bytesOf(header, record.values, kNoHook);
}

}  // namespace tavdb_test
