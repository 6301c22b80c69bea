// SPDX-License-Identifier: Apache-2.0
// A database for a machine of the other byte order. The images are converted as
// bytes in memory: every number that the record map finds is reversed, everything
// else stays. The library has no part in it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "image/fault.h"
#include "image/model.h"
#include "image/record_map.h"

namespace tavdb::image {

/// Stores the numbers of all records in the other order.
void reverseRecords(RawImages &images, const RecordMap &map);

/// Converts the images of a folder where they stand, which is sound and nobody
/// else's: what was built a moment ago.
Status convertImages(const std::string &folder, ByteOrder order);

/// A database directory in memory, as it goes into a copy.
class DatabaseCopy {
public:
    /// Refuses what is damaged or in use, and what a copy could not hold.
    static Result<DatabaseCopy> read(const std::string &path);

    /// @return what could not be converted, a sentence each
    std::vector<std::string> convert(ByteOrder order);

    /// Puts the copy in its place, in one piece. @return its absolute path
    Result<std::string> write(const std::string &path, bool replace, const std::function<bool()> &interrupted) const;

    ByteOrder order() const {
        return images.order();
    }
    Counts counts() const;
    uint64_t imageBytes() const;
    /// Files that are no part of a database and that the copy is without.
    const std::vector<std::string> &leftOut() const {
        return strangers;
    }

private:
    struct CopiedFile {
        std::string name;
        std::string content;  ///< empty for an image: that is in `images`
        int32_t medium = 0;   ///< 0: no image
        mode_t rights = 0;
    };

    explicit DatabaseCopy(RawImages loaded) : images(std::move(loaded)), map(mapRecords(images)) {}
    Status readFiles(const std::string &folder);
    Status writeFiles(const std::string &folder, const std::function<bool()> &interrupted) const;

    RawImages images;
    RecordMap map;
    std::vector<CopiedFile> files;
    mode_t folderRights = 0;
    std::vector<std::string> strangers;
};

}  // namespace tavdb::image
