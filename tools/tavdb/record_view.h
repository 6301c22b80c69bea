// SPDX-License-Identifier: Apache-2.0
// Records word by word: where each word lies, its bytes and what they mean. Knows
// the fields of every kind of record; which records there are it is told.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image/records.h"

namespace tavdb::command {

struct RecordLine {
    uint32_t offset = 0;
    std::string hex;  ///< of the bytes, "***" for a secret
    std::string meaning;
};

/// Some bytes of a medium that belong together.
struct RecordBlock {
    int32_t medium = 0;
    image::ByteRange range;
    std::string what;   ///< "node", "free block" ...
    std::string owner;  ///< path of the component that it belongs to, if any
    std::vector<RecordLine> lines;
};

/// "component", "value" ..., or "medium 9".
std::string mediumNameOf(int32_t medium);

/// @param isMasked shows where the bytes are and not what they are
image::Result<RecordBlock> viewRecord(image::Database &database, const image::StoredRecord &record, bool isMasked);

image::Result<RecordBlock> viewHeader(image::Database &database, int32_t medium);
image::Result<RecordBlock> viewFreeBlock(image::Database &database, int32_t medium, const image::ByteRange &block);
/// Bytes that no record of the tree and no free block takes.
image::Result<RecordBlock> viewUnused(image::Database &database, int32_t medium, const image::ByteRange &range,
                                      bool isMasked);

}  // namespace tavdb::command
