// SPDX-License-Identifier: Apache-2.0
// A component and everything below it, in the order of the tree. Nothing is read
// but headers and names; what the visitor needs beyond them it reads itself.
#pragma once

#include <functional>
#include <vector>

#include "image/database.h"

namespace tavdb::image {

/// Calls visit for the component and all below it, parents first, until it returns
/// false. A node whose children cannot be read does not hide the others.
/// @return the first fault with its path, if any
Status forEachFrom(Database &database, const Located &start, const std::function<bool(const Located &)> &visit);

/// The children of a node in their order.
Result<std::vector<StoredComponent>> childrenOf(Database &database, const StoredComponent &node);

}  // namespace tavdb::image
