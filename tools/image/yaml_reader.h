// SPDX-License-Identifier: Apache-2.0
// The house format's reader: the tree of nodes and leaves. What the format is,
// docs/DESCRIPTIONS.md says.
#pragma once

#include "image/description.h"
#include "image/source_text.h"

namespace tavdb::image {

/// Fills model and report; complaints go to `diagnostics`.
void readYaml(const SourceText &source, const ReadOptions &options, Description &description, Diagnostics &diagnostics);

}  // namespace tavdb::image
