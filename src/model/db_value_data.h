// SPDX-License-Identifier: Apache-2.0
// Reading a value's data for those inside the library who must know whether
// anything was read: value_getGeneric answers 0 also when nothing could be.
#pragma once

#include <cstdint>

#include "tavdb_modules.h"

namespace tavdb {

/// value_getGeneric with the count apart from the length asked for.
/// @param count bytes read, -1 after a failed transfer; stays as it is when there was no transfer
int32_t readData(tavDBMSession *session, uint32_t key, void *buffer, int32_t length, int32_t &count);

}  // namespace tavdb
