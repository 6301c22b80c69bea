// SPDX-License-Identifier: Apache-2.0
// Writes a model into an attached, empty database: components with their names,
// values and constraints, through the functions that the library has for it.
#pragma once

#include <functional>

#include "image/c_header.h"
#include "image/database.h"
#include "image/model.h"

namespace tavdb::image {

/// @param interrupted asked before each component; true ends the work with a fault
/// @param keys        receives the key of every component by its path
Status buildTree(Database &database, const Model &model, const std::function<bool()> &interrupted, ComponentKeys &keys);

}  // namespace tavdb::image
