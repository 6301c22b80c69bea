// SPDX-License-Identifier: Apache-2.0
#include "settings.h"

#include <algorithm>
#include <array>
#include <random>

namespace tavdb_benchmark {

namespace {

constexpr uint32_t kSeed = 20260101;
constexpr uint32_t kInGroup = 25;
constexpr uint32_t kGroupsInArea = 20;

struct KindText {
    const char *name;
    const char *yaml;  ///< what follows the name in a description
};
constexpr std::array<KindText, kKinds> kKindTexts = {{
    {"u8", "{type: u8, factory: 7}"},
    {"u32", "{type: u32, range: [0, 1000000], factory: 1500}"},
    {"u64", "{type: u64, factory: 64}"},
    {"f64", "{type: f64, factory: 0.5}"},
    {"text", "{type: text, size: 63, factory: a text that a person typed}"},
}};

const KindText &textOf(uint32_t i) {
    return kKindTexts[i % kKinds];
}

std::string nameOf(uint32_t i) {
    return std::string(textOf(i).name) + '_' + std::to_string(i);
}

}  // namespace

std::string pathOf(uint32_t i) {
    const uint32_t group = i / kInGroup;
    return "/area" + std::to_string(group / kGroupsInArea) + "/group" + std::to_string(group) + '/' + nameOf(i);
}

std::string description(uint32_t settings) {
    std::string text;
    for (uint32_t i = 0; i < settings; i++) {
        const uint32_t group = i / kInGroup;
        if (i % (kInGroup * kGroupsInArea) == 0)
            text += "area" + std::to_string(group / kGroupsInArea) + ":\n";
        if (i % kInGroup == 0)
            text += "  group" + std::to_string(group) + ":\n";
        text += "    " + nameOf(i) + ": " + textOf(i).yaml + '\n';
    }
    return text;
}

std::vector<uint32_t> shuffled(uint32_t settings, Kind kind) {
    std::vector<uint32_t> numbers;
    for (uint32_t i = static_cast<uint32_t>(kind); i < settings; i += kKinds)
        numbers.push_back(i);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(kSeed));
    return numbers;
}

}  // namespace tavdb_benchmark
