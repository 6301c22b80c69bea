// SPDX-License-Identifier: Apache-2.0
#include "counted_media.h"

#include "tavdb_platform.h"

extern "C" {

MediumCalls countedCalls;

static void countTransfer(int32_t length) {
    countedCalls.systemCalls++;
    countedCalls.bytes += static_cast<uint64_t>(length);
}

int32_t countedOpen(const char *hint, uint32_t argument, uint32_t *err) {
    countedCalls.accesses++;
    countedCalls.systemCalls++;
    return tavdbFileOpenHD(hint, argument, err);
}

int32_t countedClose(int32_t fd, uint32_t *err) {
    countedCalls.systemCalls++;
    return tavdbFileClose(fd, err);
}

int32_t countedRead(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    countTransfer(length);
    return tavdbFileRead(fd, buffer, length, offset, err);
}

int32_t countedWrite(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    countTransfer(length);
    return tavdbFileWrite(fd, buffer, length, offset, err);
}

int32_t countedSeek(int32_t fd, int32_t offset, int32_t whence, uint32_t *err) {
    countedCalls.systemCalls++;
    return tavdbFileSeek(fd, offset, whence, err);
}
}
