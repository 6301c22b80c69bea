// SPDX-License-Identifier: Apache-2.0
// The way down a tree, for walks over a whole subtree: the places from the start to
// the component that is visited. Kept in a list and not in calls, so that no tree
// that a medium can hold is too deep; and bounded, so that links which run in a
// circle, or lead to the same components again and again, end a walk.
#pragma once

#include <cstdint>

#include "control/db_trace.h"
#include "storage/db_cycle.h"
#include "tavdb_modules.h"

namespace tavdb {

/// One level of a descent.
struct Place {
    uint32_t key;             ///< the child that is visited
    uint32_t above = 0;       ///< the node whose child it is; this word and the next two are the walk's own
    uint32_t record = 0;      ///< that node's key as its record has it
    uint32_t left = 0;        ///< how many of its children are left
    CycleMark siblings = {};  ///< of the chain on this level
};

class Descent {
public:
    /// @param start where the walk begins
    /// @param circle site of the trace line for a component below itself
    /// @param endless site of that for a walk without an end; the next one is that of missing memory
    Descent(tavDBMSession *session, uint32_t start, Site circle, Site endless)
        : session_(session), start_(start), circle_(circle), endless_(endless) {}
    ~Descent();
    Descent(const Descent &) = delete;
    Descent &operator=(const Descent &) = delete;

    /// How many levels the visited component is below the start.
    uint32_t depth() const {
        return depth_;
    }
    /// The walk has to end: it has come by more components than there can be, or it failed.
    bool isOver() const {
        return over_;
    }
    /// 0, or MEMORY when there is none for the levels of a deep tree.
    int32_t failure() const {
        return failure_;
    }

    /// To be asked for every component before it is visited. @return false when it stands above itself
    bool admits(uint32_t key);
    /// To be told of every component that could be read: those there can be are guessed from its place.
    void met(uint32_t key) {
        largestKey_ = key > largestKey_ ? key : largestKey_;
    }
    /// Goes down to the children of the component that is visited. @return failure(), which is recorded
    int32_t enter(const Place &place);
    [[gnu::noinline]] void leave();
    Place &place() {
        return *top_;
    }
    /// Goes on to the next child on this level, or up and on where there is none.
    /// @param site of the trace line for a chain in a circle
    /// @return the child, or 0 when the walk is back at its start
    uint32_t nextChild(Site site);

private:
    static constexpr uint32_t kInside = 16;     ///< levels that need no memory
    static constexpr uint32_t kPerChunk = 146;  ///< levels of a chunk, which then has about 4 KiB
    static constexpr uint32_t kTimesOver = 4;   ///< how often a walk may come by all the components there can be
    static constexpr uint32_t kFewest = 64;     ///< components that there can be in any case

    struct Chunk {
        Chunk *below;
        Place places[kPerChunk];
    };

    bool standsAbove(uint32_t key) const;
    bool grow();

    tavDBMSession *session_;
    uint32_t start_;
    Site circle_;
    Site endless_;
    uint32_t depth_ = 0;
    uint32_t largestKey_ = 0;
    uint64_t visits_ = 0;
    uint32_t markDepth_ = 0;  ///< of the one place deeper down that is remembered
    uint32_t markKey_ = 0;
    uint32_t nextMark_ = kInside;
    bool over_ = false;
    int32_t failure_ = 0;
    Place *top_ = nullptr;
    Chunk *chunk_ = nullptr;
    Place inside_[kInside];
};

}  // namespace tavdb
