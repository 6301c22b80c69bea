// SPDX-License-Identifier: Apache-2.0
// Walks over links that a medium holds end even when the links run in a circle:
// the walk remembers one place, moves it on ever more rarely, and so meets it
// again. A descent into a tree branches, so it remembers every place above it.
// Neither costs an access to the medium.
#pragma once

#include <cstdint>

#include "control/db_trace.h"

namespace tavdb {

class CycleGuard {
public:
    /// @param site of the one trace line that a circle writes
    explicit CycleGuard(Site site) : site_(site) {}

    /// To be asked once for each place the walk comes to. @return true when it goes in a circle
    bool meetsAgain(uint32_t key) {
        if (steps_ != 0 && key == mark_) {
            traceError(site_, key, steps_);
            return true;
        }
        steps_ += 1;
        if (steps_ == nextMark_) {
            mark_ = key;
            nextMark_ *= 2;
        }
        return false;
    }

private:
    Site site_;
    uint32_t mark_ = 0;
    uint32_t steps_ = 0;
    uint32_t nextMark_ = 1;
};

/// A place on the way down a recursion, linked to the places above it in the frames that called.
class DescentGuard {
public:
    DescentGuard(uint32_t key, const DescentGuard *above)
        : above_(above), key_(key), depth_(above != nullptr ? above->depth_ + 1 : 0) {}

    /// @param site of the trace line that a circle writes
    /// @return true when the place stands above itself
    bool meetsAgain(Site site) const {
        for (const DescentGuard *place = above_; place != nullptr; place = place->above_) {
            if (place->key_ == key_) {
                traceError(site, key_, depth_);
                return true;
            }
        }
        return false;
    }

private:
    const DescentGuard *above_;
    uint32_t key_;
    uint32_t depth_;
};

}  // namespace tavdb
