// SPDX-License-Identifier: Apache-2.0
// Walks over links that a medium holds end even when the links run in a circle:
// the walk remembers one place, moves it on ever more rarely, and so meets it
// again. It costs no access to the medium.
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

}  // namespace tavdb
