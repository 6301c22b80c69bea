// SPDX-License-Identifier: Apache-2.0
// The values of leaves, their constraints and the elements of enumerations. A value
// that is lost is to be replaced by another value of its leaf. Where data overlap
// something is looked at elsewhere.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "image/bench.h"
#include "image/check_tree.h"

namespace tavdb::image {

/// The three values of a leaf in the order of its record.
inline constexpr size_t kTierCount = 3;

/// A value that is written anew as a copy of another one.
struct ValueWish {
    uint32_t leaf = 0;
    size_t tier = 0;
    uint32_t source = 0;  ///< key of a sound value
};

class ValueCheck {
public:
    explicit ValueCheck(Bench &place) : bench(place) {}

    void run(const TreeCheck &tree);

    const std::vector<ValueWish> &wishes() const {
        return wanted;
    }
    /// Sound values by key, with the leaf that they were found at.
    const std::map<uint32_t, std::optional<uint32_t>> &values() const {
        return judged;
    }

private:
    using Keys = std::array<uint32_t, kTierCount>;

    void checkLeaf(uint32_t leaf);
    void replaceTier(const FoundAt &leaf, const Keys &keys, size_t tier, size_t finding);
    std::optional<size_t> accept(const FoundAt &leaf, size_t tier, uint32_t key);
    std::optional<std::string> acceptRecord(const FoundAt &leaf, uint32_t key, const std::string &its);
    std::optional<std::string> faultOf(const tavDBMValue &value) const;
    tavDBMValue mended(tavDBMValue value) const;
    void checkConstraint(uint32_t leaf, const Keys &keys, uint32_t key);
    bool mendType(uint32_t leaf, const Keys &keys, uint32_t key);
    std::optional<std::string> acceptConstraint(uint32_t leaf, uint32_t key, int32_t valueType);
    std::optional<std::string> constraintFault(uint32_t leaf, uint32_t key, int32_t valueType);
    std::optional<std::string> claimConstraint(const FoundAt &at, const struct ConstraintType &type);
    std::optional<ByteRange> elementsOf(const FoundAt &at, int32_t valueType, std::string &fault);

    Bench &bench;
    std::map<uint32_t, std::optional<uint32_t>> judged;
    std::map<uint32_t, std::optional<std::string>> constraints;  ///< faults by key
    std::map<uint32_t, uint32_t> elements;                       ///< ranges that enumerations may share
    std::map<uint32_t, bool> constrained;                        ///< values whose constraint was looked at
    std::vector<std::pair<uint32_t, Keys>> leafKeys;             ///< what was accepted of each leaf
    std::vector<ValueWish> wanted;
};

}  // namespace tavdb::image
