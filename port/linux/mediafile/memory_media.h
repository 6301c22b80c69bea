// SPDX-License-Identifier: Apache-2.0
// The memory media of this process as a whole, for start-up, sync and dump. The
// functions that work on one medium are those of tavdb_platform.h.
#pragma once

#include <cstdint>

namespace tavdb {

/// Unmaps every image; descriptors from before are void. No thread may be using a medium.
void dropMemoryMedia();

/// Flushes one image to its device. @return 0, or -1 with *err set
int32_t syncMemoryMedium(int32_t fd, uint32_t *err);

/// Prints one line per mapped image.
void dumpMemoryMedia(int32_t level);

/// Bytes that the table of media takes.
uint32_t memoryMediaSize();

}  // namespace tavdb
