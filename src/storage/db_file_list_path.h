// SPDX-License-Identifier: Apache-2.0
// The internal functions of the file list on a path, for the file list's dump.
#pragma once

#include "tavdb_modules.h"

namespace tavdb {

uint32_t flst_getFirstOffset(tavDBMSession *session, const char *path);
tavDBMFreeBlock *flst_getElement(tavDBMSession *session, const char *path, uint32_t offset, tavDBMFreeBlock *element);
int32_t flst_setNext(tavDBMSession *session, const char *path, uint32_t offset, uint32_t next);
int32_t flst_fillFlagmented(tavDBMSession *session, const char *path, uint32_t offset, uint32_t length);

}  // namespace tavdb
