// SPDX-License-Identifier: Apache-2.0
// Which records a component consists of and what else it holds on its media: the
// places only, with what is needed to tell one kind from another. What the bytes
// mean stands with those who show them.
#pragma once

#include <cstdint>
#include <vector>

#include "image/byte_range.h"
#include "image/database.h"
#include "image/record_layout.h"

namespace tavdb::image {

struct StoredRecord {
    RecordKind kind = RecordKind::node;
    int32_t medium = 0;
    ByteRange range;
    /// Value type code of values, data and constraints; that of an enumeration's elements.
    int32_t type = 0;
    /// It names itself and lies on its medium: it may be released.
    bool isSound = false;
};

/// The component's record, its name, its values and their constraints, each before
/// what it refers to and each once.
Result<std::vector<StoredRecord>> recordsOf(Database &database, const StoredComponent &component);

}  // namespace tavdb::image
