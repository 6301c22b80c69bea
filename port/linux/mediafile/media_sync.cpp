// SPDX-License-Identifier: Apache-2.0
// The sync functions. A media configuration may name any of the sixty numbers;
// all of one kind do the same, so the body is chosen by the name's beginning.
#include "mediafile/memory_media.h"
#include "mediafile/message_media.h"
#include "mediafile/transfer.h"
#include "tavdb_platform.h"

namespace tavdb {
namespace {

enum class MediaKind : uint8_t { memory, file, message };

constexpr bool startsWith(const char *text, const char *head) {
    while (*head != '\0' && *text == *head) {
        text++;
        head++;
    }
    return *head == '\0';
}

constexpr MediaKind kindOf(const char *name) {
    if (startsWith(name, "tavdbMem"))
        return MediaKind::memory;
    return startsWith(name, "tavdbFile") ? MediaKind::file : MediaKind::message;
}

template <MediaKind kind>
int32_t sync(int32_t fd, uint32_t *err) {
    if constexpr (kind == MediaKind::memory)
        return syncMemoryMedium(fd, err);
    else if constexpr (kind == MediaKind::file)
        return retried([=] { return fsync(fd); }) == 0 ? 0 : failWith(err, errno);
    else
        return syncMessageMedium(fd, err);
}

}  // namespace
}  // namespace tavdb

#define TAVDB_DEFINE_SYNC(name)                            \
    int32_t name(int32_t fd, uint32_t *err, uint32_t) {    \
        return tavdb::sync<tavdb::kindOf(#name)>(fd, err); \
    }
TAVDB_MEDIA_SYNC_LIST(TAVDB_DEFINE_SYNC)
#undef TAVDB_DEFINE_SYNC
