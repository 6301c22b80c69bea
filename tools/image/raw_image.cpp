// SPDX-License-Identifier: Apache-2.0
#include "image/raw_image.h"

#include "image/files.h"
#include "image/media_image.h"

namespace tavdb::image {

Result<RawImages> RawImages::load(const std::string &folder, ByteOrder stored) {
    Contents contents;
    for (const auto &medium : kMediumNames) {
        auto content = readRegularFile(joinPath(folder, medium.file), kMediumBytesMax);
        if (!content)
            return Result<RawImages>::bad(faultIn(std::string(medium.file), std::move(content.error)));
        contents[static_cast<size_t>(medium.id)] = std::move(*content.value);
    }
    return Result<RawImages>::good({stored, std::move(contents)});
}

}  // namespace tavdb::image
