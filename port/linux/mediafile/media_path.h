// SPDX-License-Identifier: Apache-2.0
// From a hint of the media configuration to the path of an image: a relative
// hint belongs to the folder of the configuration file, so that a database
// directory can be moved as a whole.
#pragma once

#include <climits>
#include <cstdint>

namespace tavdb {

/// The path of one image, built on the stack of the call that needs it.
class MediaPath {
public:
    /// @return 0, or an error number: a hint that is null, empty or too long
    int resolve(const char *hint);
    const char *text() const {
        return text_;
    }

private:
    char buffer_[PATH_MAX];
    const char *text_ = nullptr;
};

/**
 * Remembers the folder of a configuration file, as an absolute path where the
 * working folder is known.
 * @param path null: hints stay relative to the working folder
 * @return 0 or an error number; the folder is then the one it was
 */
int setMediaFolder(const char *path);

}  // namespace tavdb
