// SPDX-License-Identifier: Apache-2.0
// The database library's heap: the C library's. Blocks belong to no table and to
// no process but this one; there are no parts, so the part number of a release is
// ignored.
#include <stdlib.h>

#include "tavdb_platform.h"

void *tavOSWSubAllocMem(uint32_t size) {
    return malloc(size != 0 ? size : 1);
}

int32_t tavOSWOrgFreeMemPart(int32_t, void *buffer) {
    free(buffer);
    return 0;
}
