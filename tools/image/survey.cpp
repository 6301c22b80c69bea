// SPDX-License-Identifier: Apache-2.0
#include "image/survey.h"

#include <algorithm>

#include "image/free_list.h"

namespace tavdb::image {

namespace {

class Counter {
public:
    explicit Counter(Database &place) : database(place) {}

    Result<Census> run() {
        auto root = readRoot(database);
        if (!root)
            return Result<Census>::bad(root.error);
        visited.insert(root.value->key);
        countName(*root.value);
        // Not by recursion: a damaged tree may be as deep as it has components.
        std::vector<StoredComponent> nodes{std::move(*root.value)};
        while (!nodes.empty() && !fault) {
            const auto node = std::move(nodes.back());
            nodes.pop_back();
            auto ended = forEachChild(database, node, visited, [&](const StoredComponent &child) {
                count(child);
                if (child.isNode)
                    nodes.push_back(child);
                return !fault;
            });
            if (ended)
                fault = std::move(ended);
        }
        census.values = values.size();
        census.constraints = constraints.size();
        return fault ? Result<Census>::bad(std::move(*fault)) : Result<Census>::good(census);
    }

private:
    void count(const StoredComponent &component) {
        countName(component);
        (component.isNode ? census.nodes : census.leaves)++;
        tavDBMLeaf leaf = {};
        if (component.isNode)
            return;
        if (comp_getLeaf(database.cleared(), component.key, &leaf) == nullptr)
            fault = database.knownFault();
        for (const uint32_t key : {leaf.currentValue, leaf.defaultValue, leaf.factoryValue})
            countValue(key);
    }

    void countName(const StoredComponent &component) {
        census.strings += component.nameKey != 0 ? 1 : 0;
    }

    void countValue(uint32_t key) {
        tavDBMValue value = {};
        if (key == 0 || !values.insert(key).second)
            return;
        if (value_get(database.cleared(), key, &value) == nullptr)
            fault = database.knownFault();
        if (value.constraintKey != 0)
            constraints.insert(value.constraintKey);
    }

    Database &database;
    Census census;
    Visited visited;
    std::unordered_set<uint32_t> values;
    std::unordered_set<uint32_t> constraints;
    Status fault;
};

}  // namespace

Result<Census> takeCensus(Database &database) {
    return Counter(database).run();
}

Result<FreeSpace> measureFreeSpace(Database &database, int32_t medium) {
    FreeSpace space;
    const auto fault = forEachFreeBlock(database, medium, [&](const ByteRange &block) -> Status {
        space.bytes += block.sizeBytes;
        space.largestBlock = std::max(space.largestBlock, block.sizeBytes);
        space.blocks++;
        return std::nullopt;
    });
    return fault ? Result<FreeSpace>::bad(*fault) : Result<FreeSpace>::good(space);
}

}  // namespace tavdb::image
