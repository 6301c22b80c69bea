// SPDX-License-Identifier: Apache-2.0
// From a model to a finished database directory. Either the whole directory
// stands in its place afterwards, flushed to its device, or nothing of it is left.
#pragma once

#include <functional>
#include <string>

#include "image/c_header.h"
#include "image/fault.h"
#include "image/media_image.h"
#include "image/model.h"

namespace tavdb::image {

struct BuildOptions {
    MediaKind media = MediaKind::memory;
    uint32_t slackPercent = 25;
    std::string hookFile = {};    ///< copied into the directory; empty: none
    std::string headerFile = {};  ///< C header to write, see c_header.h; empty: none
    ByteOrder order = nativeOrder();
    bool replace = false;  ///< put the new database in the place of an old one
    /// Asked now and then; true ends the work, and nothing is left of it.
    std::function<bool()> interrupted = [] { return false; };
};

struct BuildSummary {
    std::string path;  ///< absolute
    Counts counts;
    uint64_t imageBytes = 0;  ///< of all six images
    ComponentKeys keys;
};

/// Builds in this process, which must not be attached to a database. The control
/// table of the machine is neither needed nor touched: "TAVDB_DBTABLE" names one in
/// the new directory for as long as the work takes.
Result<BuildSummary> buildDatabase(const Model &model, const std::string &path, const BuildOptions &options);

}  // namespace tavdb::image
