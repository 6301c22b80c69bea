// SPDX-License-Identifier: Apache-2.0
// From the resolved syntax of one parameter to a leaf, with a list of what the
// leaf cannot hold. Knows nothing about paths and instances.
#pragma once

#include <pugixml.hpp>
#include <vector>

#include "image/datamodel_syntax.h"
#include "image/description.h"

namespace tavdb::image {

struct MadeLeaf {
    Leaf leaf;
    std::vector<LossDetail> losses;
};

/// Without name, description and position.
/// @param syntaxElement the parameter's <syntax>, for its defaults and marks
MadeLeaf makeLeaf(const Syntax &syntax, const pugi::xml_node &syntaxElement, const ReadOptions &options);

}  // namespace tavdb::image
