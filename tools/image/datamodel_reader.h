// SPDX-License-Identifier: Apache-2.0
// Data models of the Broadband Forum (XML): every parameter of the models in a
// document, each expressed, expressed with losses, or named as left out. Only a
// document that is no data model at all is an error.
#pragma once

#include "image/description.h"
#include "image/source_text.h"

namespace tavdb::image {

/// Fills model and report; complaints go to `diagnostics`.
void readDataModel(const SourceText &source, const ReadOptions &options, Description &description,
                   Diagnostics &diagnostics);

}  // namespace tavdb::image
