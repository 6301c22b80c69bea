// SPDX-License-Identifier: Apache-2.0
// Descriptions of databases: YAML, or a data model when the text begins like XML.
#include <cstdlib>
#include <string>

#include "fuzz/fuzz_target.h"
#include "image/description.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    const auto description = tavdb::image::readDescriptionText("fuzz", text, {.componentsMax = 1000});
    if (!description.ok() && !description.model.root.children.empty())
        abort();  // a description with errors has no model
    return 0;
}
