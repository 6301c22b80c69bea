// SPDX-License-Identifier: Apache-2.0
// A small database that is sound, of either byte order, for inputs to begin with.
#pragma once

#include <string>

#include "image/byte_order.h"
#include "image/raw_image.h"

namespace tavdb_fuzz {

/// What is in it; other texts of seeds are made of it too.
extern const char *const kSoundDescription;

/// Builds it as a database directory that is not there yet. Not while this process is attached to a database.
tavdb::image::RawImages buildSound(const std::string &folder, tavdb::image::ByteOrder order);

}  // namespace tavdb_fuzz
