// SPDX-License-Identifier: Apache-2.0
// What a walk along a free list makes of bad reads and of damage: partial and
// impossible counts, links outside the medium, and links that run in a circle.
#include <cerrno>

#include "storage/file_list_place.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

class FileListDamage : public BothListsTest {
protected:
    const FamilyTraits &family() const {
        return place().family();
    }
    /// One read fails, after so many others.
    void failRead(uint32_t skip, Fault fault) {
        faultPlan().add({.operation = family().read, .skip = skip, .fault = fault});
    }
};
TAVDB_BOTH_FAMILIES(FileListDamage);

TEST_P(FileListDamage, TheFirstOffsetNeedsAllFourBytes) {
    putList({{100, 40}});
    failRead(0, returning(3));
    EXPECT_EQ(place().get(&session, 16), 0U);
    EXPECT_TRUE(accessFailed("getFirstOffset", kGetFirstOffsetSite + 1, family().readCode, 12, 0, 3));
    EXPECT_TRUE(imageUntouched());
}

TEST_P(FileListDamage, AMediumThatEndsInsideItsHeaderIsAShortRead) {
    putImage(ListImage(16, {}));
    place().store(Bytes(14, 1));
    observe();
    EXPECT_EQ(place().get(&session, 16), 0U);
    EXPECT_TRUE(accessFailed("getFirstOffset", kGetFirstOffsetSite + 1, family().readCode, 12, 0, 2));
}

TEST_P(FileListDamage, AnElementOfThreeBytesIsAFailedRead) {
    putList({{100, 40}});
    failRead(1, returning(3));
    EXPECT_EQ(place().get(&session, 16), 0U);
    EXPECT_TRUE(accessFailed("getElement", kGetElementSite + 1, family().readCode, 100, 0, 3));
    EXPECT_TRUE(imageUntouched());
}

TEST_P(FileListDamage, AReadWithAnErrorNumberHasItAsDetail) {
    putList({{100, 40}});
    failRead(1, returning(-1, ENXIO));
    EXPECT_EQ(place().get(&session, 16), 0U);
    EXPECT_TRUE(accessFailed("getElement", kGetElementSite + 1, family().readCode, 100, ENXIO, -1));
}

TEST_P(FileListDamage, AnImpossibleCountIsAFailedRead) {
    putList({{100, 40}});
    failRead(0, moreBy(1));
    EXPECT_EQ(place().get(&session, 16), 0U);
    EXPECT_EQ(session.errorCode, static_cast<uint32_t>(family().readCode));
    observe();
    failRead(1, moreBy(1));
    EXPECT_EQ(place().get(&session, 16), 0U);
    EXPECT_EQ(session.errorCode, static_cast<uint32_t>(family().readCode));
    EXPECT_TRUE(imageUntouched());
}

TEST_P(FileListDamage, ALinkBehindTheMediumIsAFailedRead) {
    putImage(ListImage(4096, {}).word(kFirstFreeWord, 5000));
    EXPECT_EQ(place().get(&session, 16), 0U);
    EXPECT_TRUE(accessFailed("getElement", kGetElementSite + 1, family().readCode, 5000, 0, 0));
    EXPECT_TRUE(imageUntouched());
    observe();
    EXPECT_EQ(place().release(&session, 100, 16), 0);
    EXPECT_TRUE(accessFailed("getElement", kGetElementSite + 1, family().readCode, 5000, 0, 0));
    EXPECT_TRUE(imageUntouched());
}

TEST_P(FileListDamage, AListThatLeadsToItselfEndsWithOneTraceLine) {
    putImage(ListImage(4096, {{100, 40}}).head(100, 100, 40));
    EXPECT_EQ(place().get(&session, 3000), 0U);
    const std::vector<std::string> errors = fakeTrace().errors();
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_THAT(errors[0], testing::StartsWith(functionName("get") + "():[Error]:[" + std::to_string(kGetCircleSite) +
                                               "][0x      64]"));
    EXPECT_TRUE(sessionUntouched()) << "the same as at the end of the list";
    EXPECT_TRUE(imageUntouched());
}

/// Blocks before the circle, and blocks in it.
struct Circle {
    uint32_t before;
    uint32_t inside;
};

void PrintTo(const Circle &circle, std::ostream *stream) {
    *stream << circle.before << " before " << circle.inside;
}

class FileListCircle : public ListTest, public testing::WithParamInterface<std::tuple<Family, Circle>> {
protected:
    void SetUp() override {
        ListTest::SetUp();
        usePlace(std::get<0>(GetParam()));
        const auto [before, inside] = circle();
        std::vector<FreeRange> blocks;
        for (uint32_t i = 0; i < before + inside; ++i)
            blocks.push_back({100 + i * 20, 10});
        ListImage image(4096, blocks);
        image.word(blocks.back().offset, blocks[before].offset);
        putImage(image);
    }
    static Circle circle() {
        return std::get<1>(GetParam());
    }
    /// One trace line of that function, nothing written, and no more than a few rounds of reading.
    void expectEnded(const std::string &function, int32_t site) {
        const std::vector<std::string> errors = fakeTrace().errors();
        ASSERT_EQ(errors.size(), 1U);
        EXPECT_THAT(errors[0],
                    testing::StartsWith(functionName(function) + "():[Error]:[" + std::to_string(site) + "][0x"));
        EXPECT_TRUE(sessionUntouched());
        EXPECT_TRUE(imageUntouched());
        EXPECT_LE(place().transfers().size(), 4 * (circle().before + circle().inside) + 4);
    }
};

TEST_P(FileListCircle, EndsARequestThatFitsNowhere) {
    EXPECT_EQ(place().get(&session, 3000), 0U);
    expectEnded("get", kGetCircleSite);
}

TEST_P(FileListCircle, StillGivesABlockInFrontOfIt) {
    EXPECT_EQ(place().get(&session, 10), 100U);
    EXPECT_TRUE(silent());
}

/// In a file a release looks at the head only.
using FileListCircleRelease = FileListCircle;

TEST_P(FileListCircleRelease, EndsAReleaseThatFitsNowhere) {
    EXPECT_EQ(place().release(&session, 3000, 20), 0);
    expectEnded("release", kReleaseCircleSite);
}

const auto kShapes = testing::Values(Circle{0, 2}, Circle{0, 3}, Circle{1, 1}, Circle{5, 4}, Circle{20, 1},
                                     Circle{3, 64}, Circle{64, 63});

std::string nameOfShape(const testing::TestParamInfo<std::tuple<Family, Circle>> &test) {
    const auto &[family, circle] = test.param;
    return nameOf(family) + std::to_string(circle.before) + "Then" + std::to_string(circle.inside);
}

INSTANTIATE_TEST_SUITE_P(Shapes, FileListCircle,
                         testing::Combine(testing::Values(Family::medium, Family::file), kShapes), nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, FileListCircleRelease, testing::Combine(testing::Values(Family::medium), kShapes),
                         nameOfShape);

/// An element of which only the first bytes can be read.
class FileListPartial : public ListTest, public testing::WithParamInterface<std::tuple<Family, uint32_t>> {
protected:
    static constexpr uint32_t kSize = 0x11111111;
    void SetUp() override {
        ListTest::SetUp();
        usePlace(std::get<0>(GetParam()));
    }
    static uint32_t count() {
        return std::get<1>(GetParam());
    }
    /// The size as it is known: the bytes that came, then zeros.
    static uint32_t knownSize() {
        uint32_t size = 0;
        memcpy(&size, bytesOf(kSize).data(), count() - 4);
        return size;
    }
};

TEST_P(FileListPartial, IsDeliberatelyAcceptedWithZerosForTheRest) {
    ListImage expected = putList({{100, kSize}, {200, 30}});
    faultPlan().add({.operation = place().family().read, .skip = 1, .fault = returning(count())});
    EXPECT_EQ(place().get(&session, 0), 100U);
    EXPECT_TRUE(silent());
    if (count() == 4)
        expected.word(kFirstFreeWord, 200);
    else
        place().writeElement(expected, 100, 200, knownSize());
    EXPECT_TRUE(imageIs(expected)) << "a request of nothing writes the element as it was read";
}

TEST_P(FileListPartial, AtTheMediumsEndIsAccepted) {
    ListImage image = ListImage(200, {{40, 20}, {100, kSize}});
    image.bytes.resize(100 + count());
    putImage(image);
    EXPECT_EQ(place().get(&session, UINT32_MAX), 0U);
    EXPECT_TRUE(silent());
    EXPECT_THAT(place().transfers(), ElementsAre("read 4@12", "read 8@40", "read 8@100"));
}

TEST_P(FileListPartial, OfAReleaseIsAcceptedToo) {
    ListImage expected = putList({{100, kSize}, {200, 30}});
    faultPlan().add({.operation = place().family().read, .skip = 1, .fault = returning(count())});
    EXPECT_EQ(place().release(&session, 90, 10), 0);
    EXPECT_TRUE(silent());
    expected.word(kFirstFreeWord, 90);
    EXPECT_TRUE(imageIs(place().writeElement(expected, 90, 200, 10 + knownSize())));
}

INSTANTIATE_TEST_SUITE_P(Bytes, FileListPartial,
                         testing::Combine(testing::Values(Family::medium, Family::file), testing::Range(4U, 8U)),
                         [](const auto &test) {
                             return nameOf(std::get<0>(test.param)) + std::to_string(std::get<1>(test.param));
                         });

}  // namespace
}  // namespace tavdb_test
