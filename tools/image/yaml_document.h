// SPDX-License-Identifier: Apache-2.0
// From the text of a house format file to the one YAML document in it, with the
// parser's weak spots guarded: tabs, quotes that nobody ended, a second document.
#pragma once

#include <yaml-cpp/yaml.h>

#include <optional>

#include "image/diagnostics.h"
#include "image/source_text.h"

namespace tavdb::image {

/// Nothing when the text is no single YAML document; the error is recorded by then.
std::optional<YAML::Node> parseDocument(const SourceText &source, Diagnostics &diagnostics);

}  // namespace tavdb::image
