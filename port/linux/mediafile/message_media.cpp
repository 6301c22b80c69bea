// SPDX-License-Identifier: Apache-2.0
// Message media: images that a media server owns. Not supported yet: every
// function says so with ENOTSUP and does nothing else. (Their sync function
// stands with the other sync functions.)
#include "mediafile/message_media.h"

#include <errno.h>

#include "mediafile/transfer.h"
#include "tavdb_platform.h"

int32_t tavdb::messageNotSupported(uint32_t *err) {
    return failWith(err, ENOTSUP);
}

int32_t tavdbMsgOpen(const char *, uint32_t, uint32_t *err) {
    return tavdb::messageNotSupported(err);
}

int32_t tavdbMsgClose(int32_t, uint32_t *err) {
    return tavdb::messageNotSupported(err);
}

int32_t tavdbMsgRead(int32_t, void *, int32_t, uint32_t, uint32_t *err) {
    return tavdb::messageNotSupported(err);
}

int32_t tavdbMsgWrite(int32_t, const void *, int32_t, uint32_t, uint32_t *err) {
    return tavdb::messageNotSupported(err);
}

int32_t tavdbMsgSeek(int32_t, int32_t, int32_t, uint32_t *err) {
    return tavdb::messageNotSupported(err);
}
