// SPDX-License-Identifier: Apache-2.0
// The tree as it should be, kept in memory: component records with the links
// that creating, moving and deleting give them, odd ones included, and values
// with their data. It follows the stated steps record by record and knows
// nothing of media, slots or sessions.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "fakes/byte_text.h"
#include "tavdb_modules.h"

namespace tavdb_test {

/// A leaf's values by their place in its record.
enum class Tier : uint8_t { currentValue, defaultValue, factoryValue };

class TreeModel {
public:
    struct Record {
        int32_t kind;
        uint32_t name;
        uint32_t parent;
        uint32_t next;
        uint32_t first;  ///< of a node
        std::array<uint32_t, 3> values;
    };

    explicit TreeModel(uint32_t root);

    /// @name Operations, as stated
    /// @{
    void createNode(uint32_t key, uint32_t name, uint32_t parent, uint32_t previous, uint32_t child);
    void createLeaf(uint32_t key, uint32_t name, uint32_t parent, uint32_t previous,
                    const std::array<uint32_t, 3> &values);
    void moveLeaf(uint32_t key, uint32_t parent, uint32_t previous);
    void moveSubTree(uint32_t key, uint32_t parent, uint32_t previous);
    void moveNode(uint32_t key, uint32_t parent, uint32_t previous, uint32_t child);
    void deleteOne(uint32_t key);
    void deleteWithSub(uint32_t key);
    /// Copies at every leaf below. @param error what the session holds, changed as the copies do
    /// @return 0 or the first failure
    int32_t copy(uint32_t key, Tier to, Tier from, uint32_t &error);
    /// @}

    /// @name Questions
    /// @{
    std::vector<uint32_t> keys(int32_t kind) const;
    std::vector<uint32_t> children(uint32_t node) const;
    bool isBelow(uint32_t key, uint32_t node) const;
    /// What would stand behind a place once a node has been taken out alone.
    uint32_t followerWithout(uint32_t node, uint32_t parent, uint32_t previous) const;
    /// The record's bytes on a medium.
    Bytes bytesOfRecord(uint32_t key) const;
    /// @}

    std::map<uint32_t, Record> records;
    std::map<uint32_t, Bytes> values;

private:
    void link(uint32_t key, uint32_t parent, uint32_t previous);
    void adopt(uint32_t node, uint32_t child);
    void replaceInChain(uint32_t key, uint32_t firstChildTest, uint32_t instead);
    void takeOutAlone(uint32_t key);
    int32_t copyValue(uint32_t to, uint32_t from, uint32_t &error);
};

}  // namespace tavdb_test
