// SPDX-License-Identifier: Apache-2.0
// The folder in which a database is built, beside the place where it will stand,
// and the step that puts it there in one piece. What was not put in its place is
// removed again.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "image/fault.h"

namespace tavdb::image {

/// Where a new database is to stand.
struct BuildTarget {
    std::string path;  ///< absolute
    bool replaces = false;
    std::optional<mode_t> rights = {};  ///< of the directory; the usual ones unless stated
};

/// Refuses a place that is taken, unless `replace` is set and a database directory
/// with nothing else in it stands there.
Result<BuildTarget> findTarget(const std::string &path, bool replace);

class BuildFolder {
public:
    /// A fresh folder on the target's file system.
    static Result<BuildFolder> make(const BuildTarget &target);

    BuildFolder(BuildFolder &&other) noexcept;
    BuildFolder &operator=(BuildFolder &&) = delete;
    ~BuildFolder();

    const std::string &path() const {
        return folder;
    }
    /// Flushes the folder and what is in it, puts it in its place and removes what stood there.
    Status publish(const BuildTarget &target);
    bool isInPlace() const {
        return folder.empty();
    }

private:
    explicit BuildFolder(std::string made) : folder(std::move(made)) {}

    std::string folder;  ///< empty when there is nothing left to remove
};

/// The names in a folder, sorted.
Result<std::vector<std::string>> listFolder(const std::string &path);

}  // namespace tavdb::image
