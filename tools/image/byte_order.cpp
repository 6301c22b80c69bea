// SPDX-License-Identifier: Apache-2.0
#include "image/byte_order.h"

#include <algorithm>

namespace tavdb::image {

void reverseNumbers(std::span<char> bytes, size_t widthBytes) {
    for (; bytes.size() >= widthBytes && widthBytes > 1; bytes = bytes.subspan(widthBytes))
        std::reverse(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(widthBytes));
}

}  // namespace tavdb::image
