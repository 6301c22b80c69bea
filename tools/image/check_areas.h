// SPDX-License-Identifier: Apache-2.0
// The bytes of values and names: nobody's may overlap anything, and a value is
// compared with its constraint. Runs when all records are claimed.
#pragma once

#include "image/bench.h"
#include "image/check_values.h"

namespace tavdb::image {

/// Claims the areas of the bench. One that overlaps something gets a copy of its bytes for its own.
void claimAreas(Bench &bench);

/// Values that their constraints do not admit: oddities, which stay.
void checkAdmission(Bench &bench, const ValueCheck &values);

}  // namespace tavdb::image
