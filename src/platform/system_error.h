// SPDX-License-Identifier: Apache-2.0
// The system errors that the media module reports to the platform.
#pragma once

#include "tavdb_platform.h"

namespace tavdb {

inline constexpr int32_t kMediaModule = 62672;

/// Second argument of a report; what the third one is stands beside it.
enum class MediaError : int32_t {
    library = 400,       ///< the code that loading the library gave
    mediaLibrary = 401,  ///< the media file library's result
    lineBuffer = 402,    ///< errno
    sync = 403           ///< the medium's error word
};

inline void notifyMediaError(MediaError error, int32_t detail) {
    dbs_me_syserr_notify_system_error(kMediaModule, static_cast<int32_t>(error), detail);
}

}  // namespace tavdb
