// SPDX-License-Identifier: Apache-2.0
// The constraint of a stored value, read through the library into the terms of
// the model. Labels are not here: the media do not hold them.
#pragma once

#include <cstdint>

#include "image/database.h"
#include "image/model.h"

namespace tavdb::image {

struct StoredConstraint {
    Constraint constraint;  ///< none when there is no constraint, or a fault
    int32_t type = 0;       ///< the library's type code, 0 when there is none
    Status fault;           ///< why the constraint cannot be read, or never be met
};

/// @param key 0: no constraint
/// @param type of the values that the constraint is for
StoredConstraint readConstraint(Database &database, uint32_t key, Type type);

}  // namespace tavdb::image
