// SPDX-License-Identifier: Apache-2.0
// Damage of chance: bytes, words and whole pieces of the images are changed. The
// check ends, what it puts right is sound, and doing it again changes nothing.
#include <random>

#include "rounds.h"
#include "tools/image/check_support.h"

namespace tavdb::image {
namespace {

using tavdb_test::kSlow;
constexpr uint32_t kRounds = kSlow ? 800 : 12000;
constexpr uint32_t kLargeRounds = kSlow ? 20 : 200;
constexpr uint32_t kBitStep = kSlow ? 13 : 1;

const char *const kDevice =
    "network:\n"
    "  lan:\n"
    "    mtu: {type: u32, range: [300, 4000000], step: 100, factory: 1500, default: 1400}\n"
    "    mode: {type: u8, enum: [0, 1, 7], factory: 7}\n"
    "    name: {type: text, size: 31, current: lan0}\n"
    "    key: {type: bytes, size: 4, current: 00ff7e01}\n"
    "  wan: {up: {type: u8, enum: [0, 1]}, speed: {type: u64, range: [1, 9]}}\n"
    "level: {type: s8, range: [-5, 5], current: -3}\n"
    "ratio: {type: f32, current: 0.1}\n"
    "log: {a: {b: {c: {d: {type: s16}}}}}\n";

class CheckProperty : public testing::Test {
protected:
    uint32_t below(size_t limit) {
        return static_cast<uint32_t>(random() % limit);
    }
    /// Mostly where records lie: behind them is free space.
    uint32_t anyOffset(const RawImages &images, int32_t medium) {
        const auto size = images.content(medium).size();
        return below(below(5) == 0 ? size : std::min<size_t>(size, 500));
    }
    void damage(RawImages &images) {
        const auto medium = static_cast<int32_t>(1 + below(6));
        const auto size = images.content(medium).size();
        const uint32_t offset = anyOffset(images, medium);
        if (below(3) == 0) {
            const auto bytes = images.bytes(medium, {offset, 1});
            bytes[0] = static_cast<char>(bytes[0] ^ (1 << below(8)));
        } else if (below(8) == 0) {
            const auto length = std::min<size_t>(below(60), size - offset);
            const auto bytes = images.bytes(medium, {offset, static_cast<uint32_t>(length)});
            const char filler = below(2) == 0 ? '\0' : static_cast<char>(below(256));
            std::fill(bytes.begin(), bytes.end(), filler);
        } else if (offset + 8 <= size) {
            const uint32_t other = offset / 4 * 4;
            const uint32_t words[] = {0,
                                      1,
                                      16,
                                      44,
                                      0x7FFFFFFF,
                                      0xFFFFFFFF,
                                      below(700),
                                      below(700),
                                      below(175) * 4,
                                      wordOf(images, medium, other / 2),
                                      static_cast<uint32_t>(random())};
            setWord(images, medium, other, words[below(std::size(words))]);
        }
    }
    /// Cuts an image, or all of it, off.
    static RawImages shortened(const RawImages &images, int32_t medium, size_t sizeBytes) {
        RawImages::Contents contents;
        for (const auto &each : kMediumNames)
            contents[static_cast<size_t>(each.id)] = images.content(each.id);
        contents[static_cast<size_t>(medium)].resize(sizeBytes);
        return {images.order(), std::move(contents)};
    }

    void damageAndPutRight(const RawImages &whole, uint32_t rounds) {
        ASSERT_THAT(linesOf(examine(whole)), testing::IsEmpty());
        uint32_t damaged = 0;
        for (uint32_t round = 0; round < rounds && !HasFailure(); round++) {
            auto images = whole;
            for (uint32_t changes = 1 + below(round % 4 == 0 ? 40U : 4U); changes > 0; changes--)
                damage(images);
            if (below(20) == 0) {
                const auto medium = static_cast<int32_t>(1 + below(6));
                images = shortened(images, medium, below(images.content(medium).size() + 1));
            }
            const auto examination = examine(images);
            damaged += examination.isDamaged() ? 1U : 0U;
            SCOPED_TRACE("round " + std::to_string(round) + "\n" + testing::PrintToString(linesOf(examination)));
            expectSound(examination);
        }
        EXPECT_GT(damaged, rounds / 3);
    }

    tavdb_test::TestPlace place;
    std::mt19937 random{tavdb_test::randomSeed()};
};

TEST_F(CheckProperty, WhatIsPutRightIsSoundAndStaysSo) {
    damageAndPutRight(imagesOf(place, kDevice), kRounds);
}

TEST_F(CheckProperty, LargerDatabasesToo) {
    const auto file = std::string(TAVDB_SOURCE_DIR) + "/examples/gateway/gateway.yaml";
    damageAndPutRight(imagesOf(place, tavdb_test::bytesOf(file)), kLargeRounds);
}

TEST_F(CheckProperty, OneFlippedBitLosesNoComponent) {
    const auto whole = imagesOf(place, kDevice);
    const auto counts = examine(whole).counts;
    for (const auto &medium : kMediumNames) {
        // Not the free space behind the records.
        const auto used = std::min<size_t>(whole.content(medium.id).size(), 900);
        for (uint32_t bit = 0; bit < used * 8; bit += kBitStep) {
            auto images = whole;
            const auto byte = images.bytes(medium.id, {bit / 8, 1});
            byte[0] = static_cast<char>(byte[0] ^ (1 << bit % 8));
            const auto examination = examine(images);
            // One more: /lost+found.
            const auto found = examination.counts.nodes + examination.counts.leaves;
            ASSERT_GE(found, counts.nodes + counts.leaves)
                << medium.kind << " bit " << bit << testing::PrintToString(linesOf(examination));
            ASSERT_LE(std::count_if(examination.findings.begin(), examination.findings.end(),
                                    [](const Finding &finding) { return !finding.lost.empty(); }),
                      3)
                << medium.kind << " bit " << bit << testing::PrintToString(linesOf(examination));
        }
    }
}

}  // namespace
}  // namespace tavdb::image
