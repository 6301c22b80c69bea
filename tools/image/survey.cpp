// SPDX-License-Identifier: Apache-2.0
#include "image/survey.h"

#include <algorithm>
#include <cstring>

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

template <typename Record>
Result<Record> readRecord(Database &database, int32_t medium, uint32_t offset) {
    const auto bytes = readMedium(database, medium, offset, sizeof(Record));
    if (!bytes)
        return Result<Record>::bad(bytes.error);
    if (bytes.value->size() < sizeof(Record))
        return Result<Record>::bad(
            {FaultKind::damaged, "a free block lies outside at " + std::to_string(offset), 0, 0});
    Record record = {};
    std::memcpy(&record, bytes.value->data(), sizeof record);
    return Result<Record>::good(record);
}

}  // namespace

Result<Census> takeCensus(Database &database) {
    return Counter(database).run();
}

Result<FreeSpace> measureFreeSpace(Database &database, int32_t medium) {
    const auto header = readRecord<tavDBMMediumHeader>(database, medium, 0);
    if (!header)
        return Result<FreeSpace>::bad(header.error);
    FreeSpace space;
    Visited visited;
    for (uint32_t offset = header.value->firstFree; offset != 0;) {
        const auto block = readRecord<tavDBMFreeBlock>(database, medium, offset);
        if (!block)
            return Result<FreeSpace>::bad(block.error);
        if (!visited.insert(offset).second)
            return Result<FreeSpace>::bad({FaultKind::damaged, "its free list runs in a circle", 0, 0});
        space.bytes += block.value->size;
        space.largestBlock = std::max(space.largestBlock, block.value->size);
        space.blocks++;
        offset = block.value->next;
    }
    return Result<FreeSpace>::good(space);
}

}  // namespace tavdb::image
