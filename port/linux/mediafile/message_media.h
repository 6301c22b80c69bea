// SPDX-License-Identifier: Apache-2.0
// What the rest of the library needs of message media: their sync, which stands
// with the other sync functions, and their part in the library's start and dump.
#pragma once

#include <cstdint>

namespace tavdb {

/// Has the server flush its image to the device. @return 0, or -1 with the error number in *err
int32_t syncMessageMedium(int32_t fd, uint32_t *err);

/// Ends all connections and forgets their hints.
void dropMessageMedia();

/// Bytes of static memory, for the dump.
uint32_t messageMediaSize();

}  // namespace tavdb
