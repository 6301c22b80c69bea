// SPDX-License-Identifier: Apache-2.0
// The media file library as a whole: its start and its part of the diagnostic
// dump, in the shape that all modules share.
#include "mediafile/media_path.h"
#include "mediafile/memory_media.h"
#include "mediafile/message_media.h"
#include "tavdb_platform.h"

namespace tavdb {
namespace {

constexpr int32_t kSystemError = 0x1000;  // or-ed with errno
constexpr int32_t kLevelWithSizes = 5;

}  // namespace
}  // namespace tavdb

int32_t dbs_me_db_media_file_init(const char *path, uint32_t) {
    const int error = tavdb::setMediaFolder(path);
    if (error != 0)
        return tavdb::kSystemError | error;
    // The images of an earlier configuration may have been built anew since.
    tavdb::dropMemoryMedia();
    tavdb::dropMessageMedia();
    return 0;
}

int32_t dbs_me_db_media_file_debug_info(int32_t level, uint32_t *, uint32_t *ramSize) {
    const uint32_t size = tavdb::memoryMediaSize() + tavdb::messageMediaSize();
    dbs_me_debug_trace(level, "====(db_media_file)\n");
    if (level == tavdb::kLevelWithSizes) {
        dbs_me_debug_trace(level, "[0x%8x]:debug_size\n", 0U);
        dbs_me_debug_trace(level, "[0x%8x]:ram_size\n", size);
    }
    tavdb::dumpMemoryMedia(level);
    if (ramSize != nullptr)
        *ramSize += size;
    return 0;
}
