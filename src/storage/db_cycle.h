// SPDX-License-Identifier: Apache-2.0
// Walks over links that a medium holds end even when the links run in a circle:
// the walk remembers one place, moves it on ever more rarely, and so meets it
// again. That costs no access to the medium.
#pragma once

#include <cstdint>

#include "control/db_trace.h"

namespace tavdb {

/// The place that a walk remembers.
class CycleMark {
public:
    /// Whether the walk has not come to any place yet.
    bool isFresh() const {
        return steps_ == 0;
    }
    /// To be asked once for each place the walk comes to. @return true when it goes in a circle
    /// @param site of the one trace line that a circle writes
    bool meetsAgain(uint32_t key, Site site) {
        if (steps_ != 0 && key == mark_) {
            traceError(site, key, steps_);
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
    uint32_t mark_ = 0;
    uint32_t steps_ = 0;
    uint32_t nextMark_ = 1;
};

/// The mark of a walk with the site of its circle.
class CycleGuard {
public:
    explicit CycleGuard(Site site) : site_(site) {}

    bool meetsAgain(uint32_t key) {
        return mark_.meetsAgain(key, site_);
    }

private:
    Site site_;
    CycleMark mark_;
};

}  // namespace tavdb
