// SPDX-License-Identifier: Apache-2.0
// Reads a description of a database, in the house format (YAML) or as a data
// model of the Broadband Forum (XML), told apart by content. The one way in:
// what comes out is a model, or every error of the file; nothing is thrown.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image/diagnostics.h"
#include "image/model.h"
#include "image/report.h"

namespace tavdb::image {

struct ReadOptions {
    uint32_t instances = 1;        ///< nodes made for each {i} of a data model
    uint32_t textSizeBytes = 256;  ///< text without its NUL where a data model states no length, 1 to 65535
    uint32_t textSizeBytesMax = kLengthBytesMax - 1;  ///< longer texts of a data model are cut to this
    size_t componentsMax = 1000000;
};

/// Levels of nodes below the root.
inline constexpr size_t kDepthMax = 64;
/// Reusable types that build on each other.
inline constexpr size_t kTypeChainMax = 64;

struct Description {
    Model model;  ///< empty when there are errors
    Report report;
    std::vector<Diagnostic> errors;

    bool ok() const {
        return errors.empty();
    }
};

Description readDescription(const std::string &path, const ReadOptions &options = {});

/// The same for a text that is in memory.
/// @param file what the model names as its source
Description readDescriptionText(const std::string &file, const std::string &text, const ReadOptions &options = {});

}  // namespace tavdb::image
