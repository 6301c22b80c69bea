// SPDX-License-Identifier: Apache-2.0
// The settings that everything here works on: made up, but the same in every run.
// A fifth each are u8, u32 under a range, u64, f64 and text of 64 bytes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavdb_benchmark {

enum class Kind : uint8_t { u8, u32, u64, f64, text };
inline constexpr uint32_t kKinds = 5;
/// Bytes of a text with its NUL.
inline constexpr int32_t kTextBytes = 64;
/// Values of the settings of kind u32 are from 0 to this.
inline constexpr uint32_t kU32Max = 1000000;

/// Setting i of any number of settings.
constexpr Kind kindOf(uint32_t i) {
    return static_cast<Kind>(i % kKinds);
}

/// "/area0/group1/u32_26": 25 settings in a group, 20 groups in an area.
std::string pathOf(uint32_t i);

/// The description from which `tavdb build` makes a database of the first `settings` settings.
std::string description(uint32_t settings);

/// The numbers of all settings of a kind, shuffled, the same way in every run.
std::vector<uint32_t> shuffled(uint32_t settings, Kind kind);

/// Goes through a list again and again.
template <typename Item>
class Round {
public:
    explicit Round(std::vector<Item> items) : items_(std::move(items)) {}

    const Item &next() {
        at_ = at_ + 1 < items_.size() ? at_ + 1 : 0;
        return items_[at_];
    }

private:
    std::vector<Item> items_;
    size_t at_ = 0;
};

}  // namespace tavdb_benchmark
