// SPDX-License-Identifier: Apache-2.0
// The media table as other modules look into it: what getMedia does for nearly
// every call, in place.
#pragma once

#include "tavdb_modules.h"

namespace tavdb {

/// The entry of a medium that was configured, or null.
inline tavDBMMediaEntry *configuredMedium(int32_t mediaId) {
    return mediaId >= 0 && mediaId < media_table.count ? &media_table.entry[mediaId] : nullptr;
}

/// getMedia
inline tavDBMMediaEntry *mediumOf(tavDBMSession *session, int32_t mediaId) {
    tavDBMMediaEntry *const entry = configuredMedium(mediaId);
    return entry != nullptr ? entry : getMedia(session, mediaId);
}

}  // namespace tavdb
