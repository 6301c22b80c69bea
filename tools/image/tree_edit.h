// SPDX-License-Identifier: Apache-2.0
// Links of the tree, rewritten one record at a time: a component leaves its place
// and comes to stand in another one. The library's own moves are not used: they
// leave a leaf that is a first child linked at both places.
#pragma once

#include <cstdint>

#include "image/database.h"

namespace tavdb::image {

/// A place in a chain of children.
struct Place {
    uint32_t parent = 0;
    uint32_t previous = 0;  ///< 0: it is the first child
    uint32_t next = 0;      ///< what stands behind it, 0 for the last one

    bool operator==(const Place &) const = default;
};

/// Where a component is linked, found by its path: its record need not name the node
/// that it is linked below.
Result<Place> placeOf(Database &database, const Located &component);

/// Takes what stands at a place out of its chain, with one write.
Status unlinkAt(Database &database, const Place &place);

struct Move {
    uint32_t component = 0;
    Place from;
    Place to;  ///< as the chains are without the component
    uint32_t nameKey = 0;
};

/// Moves a component with everything below it. When a write fails, those before it
/// are taken back.
Status moveComponent(Database &database, const Move &move);

}  // namespace tavdb::image
