// SPDX-License-Identifier: Apache-2.0
// One call of a library function that returns a status. Some of them leave a
// failure in the session and return 0; here both are seen.
#pragma once

#include <cstdint>

#include "image/database.h"

namespace tavdb::image {

template <typename Function, typename... Arguments>
Status callLibrary(Database &database, Function function, Arguments... arguments) {
    const int32_t code = function(database.cleared(), arguments...);
    if (code != 0)
        return faultOfCode(static_cast<uint32_t>(code), database.session()->errorDetail);
    return database.lastFault();
}

}  // namespace tavdb::image
