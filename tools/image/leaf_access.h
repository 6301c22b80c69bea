// SPDX-License-Identifier: Apache-2.0
// One leaf of an attached database: its type, constraint and values in the terms
// of the model, read and written through the library with its hooks and checks.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "image/database.h"
#include "image/model.h"
#include "image/schema_json.h"

namespace tavdb::image {

enum class Tier { current, standard, factory };

inline constexpr std::array kTiers = {Tier::current, Tier::standard, Tier::factory};

/// "current", "default", "factory".
std::string_view tierName(Tier tier);

struct StoredLeaf {
    /// Type, length, constraint with labels, hook and what the schema says. A type
    /// that is not known, or a number of a wrong length, is taken as bytes.
    Leaf leaf;
    int32_t typeCode = 0;
    uint32_t key = 0;
    std::array<tavDBMValue, kTiers.size()> values = {};  ///< by tier; key 0 where there is none
    int32_t constraintType = 0;                          ///< 0: none
    /// Why the constraint cannot be told, or cannot be met.
    Status constraintFault;

    const tavDBMValue &valueOf(Tier tier) const {
        return values[static_cast<size_t>(tier)];
    }
};

/// @param entry what the schema says about the leaf
Result<StoredLeaf> readLeaf(Database &database, const StoredComponent &component, const SchemaEntry &entry);

/// One of the three values, through the read hooks.
Result<Value> readTier(Database &database, const StoredLeaf &stored, Tier tier);

/// Writes the current or the default value through the write hooks, in its whole
/// length: bytes behind a shorter text become zeros.
Status writeTier(Database &database, const StoredLeaf &stored, Tier tier, const Value &value);

/// "u32", or "type 77" for a code that is not known.
std::string typeNameOf(const StoredLeaf &stored);

}  // namespace tavdb::image
