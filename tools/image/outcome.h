// SPDX-License-Identifier: Apache-2.0
// A value, or why there is none: by default one sentence. The sentence has no
// full stop and names no file: whoever shows it knows where it happened.
#pragma once

#include <optional>
#include <string>
#include <utility>

namespace tavdb::image {

template <typename T, typename Error = std::string>
struct Outcome {
    std::optional<T> value;
    Error error;

    static Outcome good(T result) {
        return {std::move(result), {}};
    }
    static Outcome bad(Error why) {
        return {std::nullopt, std::move(why)};
    }
    explicit operator bool() const {
        return value.has_value();
    }
};

}  // namespace tavdb::image
