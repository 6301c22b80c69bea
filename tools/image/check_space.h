// SPDX-License-Identifier: Apache-2.0
// The headers of the media and their free lists, compared with what is in use. A
// list that is wrong is made anew, as the library itself would have it.
#pragma once

#include "image/bench.h"

namespace tavdb::image {

/// Claims the headers.
void checkHeaders(Bench &bench);

/// Runs when everything in use is claimed, and before anything new is.
void checkFreeLists(Bench &bench);

/// Makes the lists anew that are wrong, or that something was taken from.
void renewFreeLists(Bench &bench);

}  // namespace tavdb::image
