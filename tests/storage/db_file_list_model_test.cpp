// SPDX-License-Identifier: Apache-2.0
// Long random sequences of taking and giving back, beside a simple model of the
// free ranges: after every step the list must be what the model says, sound, and
// no byte may belong to two owners.
#include <algorithm>
#include <map>
#include <random>

#include "rounds.h"
#include "storage/file_list_place.h"

namespace tavdb_test {
namespace {

constexpr uint32_t kMediumSize = 32768;
constexpr uint32_t kHead = sizeof(tavDBMFreeBlock);
constexpr int kSteps = kEmulated ? 100 : kSlow ? 400 : 4000;

/// Free ranges by offset, and what becomes of them.
class FreeRanges {
public:
    explicit FreeRanges(Family family) : family_(family), free_{{16, kMediumSize - 16}} {}

    /// @return the offset of the first range that is large enough, or 0
    uint32_t take(uint32_t size) {
        const auto found =
            std::find_if(free_.begin(), free_.end(), [&](const auto &range) { return range.second >= size; });
        if (found == free_.end())
            return 0;
        const auto [offset, length] = *found;
        free_.erase(found);
        if (length - size >= kHead)
            free_[offset + size] = length - size;
        return offset;
    }

    /// A range comes back only in front of a free one, in a file only in front of the first.
    void giveBack(FreeRange range) {
        const auto next = free_.lower_bound(range.offset);
        if (next == free_.end() || next->first < range.end() || (family_ == Family::file && next != free_.begin()))
            return;
        if (next != free_.begin() && endOf(std::prev(next)) > range.offset)
            return;
        insert(range, next);
    }

    std::vector<FreeRange> list() const {
        std::vector<FreeRange> ranges;
        for (const auto &[offset, length] : free_)
            ranges.push_back({offset, length});
        return ranges;
    }

private:
    using Ranges = std::map<uint32_t, uint32_t>;

    static uint32_t endOf(Ranges::const_iterator range) {
        return range->first + range->second;
    }
    void insert(FreeRange range, Ranges::iterator next) {
        if (next->first == range.end()) {
            range.size += next->second;
            next = free_.erase(next);
        }
        if (next != free_.begin() && endOf(std::prev(next)) == range.offset)
            std::prev(next)->second += range.size;
        else
            free_[range.offset] = range.size;
    }

    Family family_;
    Ranges free_;
};

struct ModelCase {
    Family family;
    uint32_t seed;
};

void PrintTo(const ModelCase &one, std::ostream *stream) {
    *stream << nameOf(one.family) << " seed " << one.seed;
}

class FileListModel : public ListTest, public testing::WithParamInterface<ModelCase> {
protected:
    void SetUp() override {
        ListTest::SetUp();
        usePlace(GetParam().family);
        startAnew();
    }
    void startAnew() {
        putList({{16, kMediumSize - 16}}, kMediumSize);
        model_ = FreeRanges(GetParam().family);
        owned_.clear();
    }

    uint32_t upTo(uint32_t limit) {
        return std::uniform_int_distribution<uint32_t>(0, limit)(random_);
    }
    /// Mostly the sizes of records, now and then an odd or a large one; a range needs room for a block's head.
    uint32_t someSize() {
        constexpr uint32_t kRecordSizes[] = {8, 12, 16, 20, 28, 32, 40};
        const uint32_t kind = upTo(19);
        if (kind < 14)
            return kRecordSizes[upTo(6)];
        return kind < 19 ? kHead + upTo(99) : kHead + upTo(3000);
    }

    void take() {
        const uint32_t size = someSize();
        const uint32_t offset = place().get(&session, size);
        ASSERT_EQ(offset, model_.take(size)) << "for " << size << " bytes";
        if (offset != 0) {
            ++taken_;
            ASSERT_NO_FATAL_FAILURE(own({offset, size}));
        }
    }
    /// Nobody else owns a byte of the range.
    void own(FreeRange range) {
        const auto next = owned_.lower_bound(range.offset);
        ASSERT_TRUE(next == owned_.end() || range.end() <= next->first) << "handed out twice";
        ASSERT_TRUE(next == owned_.begin() || std::prev(next)->first + std::prev(next)->second <= range.offset)
            << "handed out twice";
        ASSERT_GE(range.offset, 16U);
        ASSERT_LE(range.end(), kMediumSize);
        owned_[range.offset] = range.size;
    }
    void giveBackOne() {
        if (owned_.empty())
            return;
        auto chosen = owned_.begin();
        std::advance(chosen, static_cast<std::ptrdiff_t>(upTo(static_cast<uint32_t>(owned_.size()) - 1)));
        giveBack({chosen->first, chosen->second});
        owned_.erase(chosen);
    }
    void giveBack(FreeRange range) {
        ASSERT_EQ(place().release(&session, range.offset, range.size), 0);
        model_.giveBack(range);
    }
    /// What is free already, or reaches into it: nothing may come of it.
    void giveBackWhatIsFree() {
        const std::vector<FreeRange> list = model_.list();
        if (list.empty())
            return;
        const FreeRange block = list[upTo(static_cast<uint32_t>(list.size()) - 1)];
        const uint32_t inside = block.offset + upTo(block.size - 1);
        giveBack({inside, 1 + upTo(60)});
    }
    /// No record of any kind fits any more.
    bool isUsedUp() const {
        const std::vector<FreeRange> list = model_.list();
        return std::none_of(list.begin(), list.end(), [](const FreeRange &block) { return block.size >= 28; });
    }
    void step() {
        if (isUsedUp())
            startAnew();
        const uint32_t kind = upTo(19);
        if (kind < 11)
            take();
        else if (kind < 19)
            giveBackOne();
        else
            giveBackWhatIsFree();
    }
    void checkList() const {
        const std::vector<FreeRange> list = freeListOf(place().image());
        ASSERT_EQ(list, model_.list());
        ASSERT_TRUE(isSound(list));
    }

    size_t taken() const {
        return taken_;
    }

private:
    std::mt19937 random_{GetParam().seed};
    FreeRanges model_{GetParam().family};
    std::map<uint32_t, uint32_t> owned_;
    size_t taken_ = 0;
};

TEST_P(FileListModel, IsFollowedStepByStepAndNothingIsHandedOutTwice) {
    for (int i = 0; i < kSteps; ++i) {
        SCOPED_TRACE("seed " + std::to_string(GetParam().seed) + " step " + std::to_string(i));
        ASSERT_NO_FATAL_FAILURE(step());
        ASSERT_NO_FATAL_FAILURE(checkList());
        eventLog().clear();
    }
    EXPECT_TRUE(silent());
    EXPECT_GT(taken(), kSteps / 3U) << "the sequence did little";
}

std::vector<ModelCase> modelCases() {
    std::vector<ModelCase> cases;
    for (const Family family : {Family::medium, Family::file}) {
        for (const uint32_t seed : {1U, 2U, 3U, 20240229U, 4294967295U})
            cases.push_back({family, seed});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Seeds, FileListModel, testing::ValuesIn(modelCases()),
                         [](const auto &test) { return nameOf(test.param.family) + std::to_string(test.param.seed); });

/// Owners write into what they were given; nobody else may.
TEST_P(FileListModel, NeverWritesIntoWhatIsOwned) {
    std::mt19937 random(GetParam().seed);
    std::vector<FreeRange> owned;
    for (int i = 0; i < 60; ++i) {
        const uint32_t size = 8 + static_cast<uint32_t>(random() % 60);
        const uint32_t offset = place().get(&session, size);
        ASSERT_NE(offset, 0U);
        owned.push_back({offset, size});
        ListImage image(kMediumSize, {});
        image.bytes = place().image();
        image.put(offset, Bytes(size, static_cast<uint8_t>(i)));
        place().store(image.bytes);
    }
    for (size_t i = 0; i < owned.size(); i += 2)
        place().release(&session, owned[i].offset, owned[i].size);
    const Bytes image = place().image();
    for (size_t i = 1; i < owned.size(); i += 2) {
        const auto first = image.begin() + static_cast<std::ptrdiff_t>(owned[i].offset);
        EXPECT_EQ(std::count(first, first + static_cast<std::ptrdiff_t>(owned[i].size), static_cast<uint8_t>(i)),
                  static_cast<std::ptrdiff_t>(owned[i].size))
            << "seed " << GetParam().seed << ", block " << i;
    }
}

}  // namespace
}  // namespace tavdb_test
