// SPDX-License-Identifier: Apache-2.0
// The six media of a database in memory, with a list of everything that was written
// to them, so that a test can see them as they were at any moment in between. They
// stand in for the media of this process, whatever these were.
#pragma once

#include <string>
#include <vector>

#include "image/raw_image.h"

namespace tavdb_test {

using Contents = tavdb::image::RawImages::Contents;

struct MediumWrite {
    int32_t medium = 0;
    uint32_t offset = 0;
    std::string bytes;
};

struct CutMedia {
    Contents contents;
    std::vector<MediumWrite> writes;

    /// Carries the first bytes of a write out.
    static void apply(Contents &contents, const MediumWrite &write, size_t sizeBytes);
    /// Puts contents in the place of what is there, as if nothing had been written yet.
    void restart(Contents given);
};

/// The media of this process.
CutMedia &cutMedia();

/// From now on the library reads and writes cutMedia().
void useCutMedia();

/// Small images with nothing but a root in them.
Contents emptyContents();

}  // namespace tavdb_test
