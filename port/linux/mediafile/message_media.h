// SPDX-License-Identifier: Apache-2.0
// What message media answer for as long as they are not supported.
#pragma once

#include <cstdint>

namespace tavdb {

/// Reports ENOTSUP. @return -1
int32_t messageNotSupported(uint32_t *err);

}  // namespace tavdb
