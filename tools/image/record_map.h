// SPDX-License-Identifier: Apache-2.0
// Everything that lies on the images of a database: the headers, the free blocks
// and every record that can be reached from the root, with who refers to whom, and
// what is wrong with them. Reads raw bytes of either byte order; nothing there is
// trusted, and no damage makes this loop, recurse or read outside of an image.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "image/byte_range.h"
#include "image/raw_image.h"
#include "image/record_layout.h"

namespace tavdb::image {

struct MappedRecord {
    RecordKind kind = RecordKind::header;
    int32_t medium = 0;
    ByteRange range;   ///< never empty; of a free block all of it
    int32_t type = 0;  ///< value type code of values, data, constraints and elements
};

/// A word that refers to another record.
struct LinkField {
    std::string_view name;  ///< for people
    uint32_t offset = 0;    ///< in the record
};

struct RecordLink {
    uint32_t from = 0;  ///< index of the record that the word stands in
    uint32_t to = 0;    ///< index of the record that it refers to
    LinkField field;
};

/// Damage, at the record where it shows.
struct MapFault {
    int32_t medium = 0;
    uint32_t offset = 0;
    std::string sentence;  ///< names the record: "the leaf at 96: its name, 7, ..."
};

struct RecordMap {
    std::vector<MappedRecord> records;  ///< each before those that only it refers to
    std::vector<RecordLink> links;
    std::vector<MapFault> faults;  ///< none: every link leads to a record, and no two records overlap
};

RecordMap mapRecords(const RawImages &images);

/// What no record and no free block takes on a medium.
std::vector<ByteRange> unclaimedRanges(const RawImages &images, const RecordMap &map, int32_t medium);

/// "value.med: the value at 44: ...".
Fault faultOf(const MapFault &found);

}  // namespace tavdb::image
