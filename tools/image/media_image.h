// SPDX-License-Identifier: Apache-2.0
// Empty images for a new database: how large each must be for what a model
// holds, and the header and the free block that the library expects to find.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "image/directory.h"
#include "image/fault.h"
#include "image/model.h"

namespace tavdb::image {

/// No medium is larger: the library's offsets from a medium's end are signed.
inline constexpr uint64_t kMediumBytesMax = 0x7FFFFFFF;
/// Free space of a medium that holds records, at least.
inline constexpr uint64_t kSlackBytesMin = 4096;

/// Bytes by medium id, the header included; entry 0 is not used.
using MediumBytes = std::array<uint64_t, kMediumEnd>;

/// What the records, data and texts of a model need, without slack.
MediumBytes contentBytes(const Model &model);

/// The sizes of the new images: with slack where records are held, only the header
/// where data are appended. A fault when a medium would become too large.
Result<MediumBytes> imageBytes(const MediumBytes &content, uint32_t slackPercent);

/// Makes the six images in a folder, with their space allocated.
Status writeEmptyImages(const std::string &folder, const MediumBytes &sizes);

enum class MediaKind { memory, file, message };

/// The media configuration of a database directory.
std::string formatMediaFile(MediaKind kind);

}  // namespace tavdb::image
