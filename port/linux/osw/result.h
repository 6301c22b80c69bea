// SPDX-License-Identifier: Apache-2.0
// The codes that the semaphore functions return: 0, or an error number marked as
// this port's own so that it never looks like a code of the database library.
#pragma once

#include <errno.h>

#include <cstdint>

namespace tavdb::osw {

inline constexpr int32_t kOwnCode = 0x1000;

/// The result for an error number or 0. A failure leaves its number in errno too: the library records that.
inline int32_t resultOf(int error) {
    if (error == 0)
        return 0;
    errno = error;
    return kOwnCode | error;
}

}  // namespace tavdb::osw
