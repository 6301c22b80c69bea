// SPDX-License-Identifier: Apache-2.0
// What a message medium and its server say to each other over a Unix socket of the
// kind SOCK_SEQPACKET: one request, one reply. Both run on one machine, so numbers
// are as it has them. A server belongs to one image; it speaks first, with a
// greeting, and ends the connection of a client that it refuses or does not understand.
#pragma once

#include <cstdint>

namespace tavdb {

/// What a server's greeting has as its result; a refusal is -1 and an error number.
inline constexpr int32_t kMediaProtocol = 0x4D530001;
/// Bytes that one message carries besides its head.
inline constexpr int32_t kMessageDataMax = 65536;

enum class MediaOperation : uint32_t { open = 1, read, write, seek, sync };

/// Followed by the bytes of a write.
struct MediaRequest {
    MediaOperation operation;
    int32_t length;  ///< of a transfer, at most kMessageDataMax; of a seek: SEEK_SET or SEEK_END
    int64_t offset;
};
static_assert(sizeof(MediaRequest) == 16);

/// Followed by as many bytes as a read has as its result.
struct MediaReply {
    int32_t result;  ///< what the medium's function returns; -1 with an error number
    uint32_t error;
};
static_assert(sizeof(MediaReply) == 8);

}  // namespace tavdb
