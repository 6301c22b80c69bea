// SPDX-License-Identifier: Apache-2.0
// The bytes of one input, taken from its front; behind its end there are zeros.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace tavdb_fuzz {

using Bytes = std::vector<uint8_t>;

class Input {
public:
    Input(const uint8_t *data, size_t size) : data_(data), left_(size) {}

    bool isEmpty() const {
        return left_ == 0;
    }
    size_t left() const {
        return left_;
    }
    template <typename Word>
    Word word() {
        Word value = 0;
        const size_t size = std::min(sizeof value, left_);
        if (size > 0)
            memcpy(&value, data_, size);
        skip(size);
        return value;
    }
    Bytes bytes(size_t size) {
        size = std::min(size, left_);
        Bytes taken(data_, data_ + size);
        skip(size);
        return taken;
    }
    /// Bytes whose number stands in front of them.
    Bytes section() {
        return bytes(word<uint16_t>());
    }
    std::string text() {
        const Bytes taken = section();
        return {taken.begin(), taken.end()};
    }

private:
    void skip(size_t size) {
        data_ += size;
        left_ -= size;
    }

    const uint8_t *data_;
    size_t left_;
};

}  // namespace tavdb_fuzz
