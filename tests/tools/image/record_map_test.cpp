// SPDX-License-Identifier: Apache-2.0
// The map of a database's records: all of them, with what refers to them, and what
// it says of damage. Every kind of damage is one word that is changed.
#include "image/record_map.h"

#include <gmock/gmock.h>

#include <random>

#include "image/convert.h"
#include "tools/image/check_support.h"

namespace tavdb::image {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Keys: root 16, /a 44, /b 84, /c 124, /c/d 152; three values for each leaf from 16
/// on; constraints: range of /a 16, elements 32, enumeration 38 of /c/d.
class RecordMapTest : public testing::Test {
protected:
    void SetUp() override {
        buildText(kSmall, place / "db");
        images = RawImages::load(place / "db", nativeOrder()).value;
        ASSERT_TRUE(images);
    }
    void setWord(int32_t medium, uint32_t offset, uint32_t word) {
        std::memcpy(images->bytes(medium, {offset, sizeof word}).data(), &word, sizeof word);
    }
    std::vector<std::string> faults() const {
        std::vector<std::string> lines;
        for (const auto &fault : mapRecords(*images).faults)
            lines.push_back(faultOf(fault).sentence);
        return lines;
    }
    /// What one changed word makes the map say first.
    std::string damaged(int32_t medium, uint32_t offset, uint32_t word) {
        const auto whole = *images->read<uint32_t>(medium, offset);
        EXPECT_NE(word, whole);
        setWord(medium, offset, word);
        const auto lines = faults();
        setWord(medium, offset, whole);
        return lines.empty() ? "nothing" : lines[0];
    }

    tavdb_test::TestPlace place;
    std::optional<RawImages> images;
};

size_t countOf(const RecordMap &map, RecordKind kind) {
    return static_cast<size_t>(std::count_if(map.records.begin(), map.records.end(),
                                             [&](const MappedRecord &record) { return record.kind == kind; }));
}

TEST_F(RecordMapTest, EveryRecordIsFoundAndNothingIsLeft) {
    const auto map = mapRecords(*images);
    EXPECT_THAT(map.faults, IsEmpty());
    EXPECT_EQ(countOf(map, RecordKind::header), 6U);
    EXPECT_EQ(countOf(map, RecordKind::freeBlock), 4U);
    EXPECT_EQ(countOf(map, RecordKind::node), 2U);
    EXPECT_EQ(countOf(map, RecordKind::leaf), 3U);
    EXPECT_EQ(countOf(map, RecordKind::string), 5U);
    EXPECT_EQ(countOf(map, RecordKind::text), 5U);
    EXPECT_EQ(countOf(map, RecordKind::value), 9U);
    EXPECT_EQ(countOf(map, RecordKind::data), 9U);
    EXPECT_EQ(countOf(map, RecordKind::range), 1U);
    EXPECT_EQ(countOf(map, RecordKind::enumeration), 1U);
    EXPECT_EQ(countOf(map, RecordKind::elements), 1U);
    for (const auto &medium : kMediumNames)
        EXPECT_THAT(unclaimedRanges(*images, map, medium.id), IsEmpty()) << medium.kind;
}

TEST_F(RecordMapTest, LinksSayWhichWordRefersToARecord) {
    const auto map = mapRecords(*images);
    size_t toTheRange = 0;
    for (const auto &link : map.links) {
        const auto &from = map.records[link.from];
        const auto &to = map.records[link.to];
        const auto word = images->read<uint32_t>(from.medium, from.range.offset + link.field.offset);
        EXPECT_EQ(word, to.range.offset) << link.field.name;
        toTheRange += to.kind == RecordKind::range ? 1 : 0;
    }
    EXPECT_EQ(toTheRange, 3U) << "the three values of one leaf share its constraint";
    EXPECT_EQ(map.links.size(), map.records.size() - 6 + 2 + 2) << "all but the headers, and two shared constraints";
}

TEST_F(RecordMapTest, OrderOfTheImagesMakesNoDifference) {
    const auto map = mapRecords(*images);
    reverseRecords(*images, map);
    const auto reversed = mapRecords(*images);
    EXPECT_THAT(reversed.faults, IsEmpty());
    ASSERT_EQ(reversed.records.size(), map.records.size());
    for (size_t i = 0; i < map.records.size(); i++)
        EXPECT_EQ(reversed.records[i].range, map.records[i].range);
}

TEST_F(RecordMapTest, DamageOfComponents) {
    const auto component = [&](uint32_t offset, uint32_t word) { return damaged(kComponentMedium, offset, word); };
    EXPECT_EQ(component(8, 0), "component.med: the header: it names no root");
    EXPECT_EQ(component(8, 20), "component.med: the header: its root, at 20, is no record: it does not name itself");
    EXPECT_EQ(component(8, 0xFFFFFFF0),
              "component.med: the header: its root, at 4294967280, lies outside of its medium");
    EXPECT_EQ(component(44, 0),
              "component.med: the node at 16: its first child, at 44, is no record: it does not name itself");
    EXPECT_EQ(component(44 + 12, 84), "component.med: the node at 16: its first child, at 44, names 84 as its parent");
    EXPECT_EQ(component(44 + 20, 2),
              "component.med: the node at 16: its first child, at 44, is of kind 2, which is none");
    EXPECT_EQ(component(44 + 16, 44),
              "component.med: the leaf at 44: its next sibling, at 44, stands elsewhere in the tree as well");
    EXPECT_EQ(component(124 + 16, 44),
              "component.med: the node at 124: its next sibling, at 44, stands elsewhere in the tree as well");
    EXPECT_EQ(component(124 + 24, 16), "component.med: the node at 124: its first child, at 16, names 0 as its parent");
    EXPECT_EQ(component(44 + 4, 8),
              "component.med: the leaf at 44: its name, at 8, is no record: it does not name itself");
    EXPECT_EQ(component(44 + 24, 7),
              "component.med: the leaf at 44: its current value, at 7, is no record: it does not name itself");
    EXPECT_EQ(component(44 + 28, 0x7FFFFFF0),
              "component.med: the leaf at 44: its default value, at 2147483632, lies outside of its medium");
    EXPECT_EQ(component(44 + 32, 17),
              "component.med: the leaf at 44: its factory value, at 17, is no record: it does not name itself");
}

TEST_F(RecordMapTest, DamageOfValuesAndNames) {
    const auto value = [&](uint32_t offset, uint32_t word) { return damaged(kValueMedium, offset, word); };
    EXPECT_EQ(value(16 + 8, 9), "value.med: the value at 16: it names medium 9, which is none");
    EXPECT_EQ(value(16 + 8, 0), "value.med: the value at 16: it names medium 0, which is none");
    EXPECT_EQ(value(16 + 12, 5000), "value.med: the value at 16: its data, at 5000, lies outside of its medium");
    EXPECT_EQ(value(16 + 16, 0xFFFFFFFF), "value.med: the value at 16: it says that it has -1 bytes");
    EXPECT_EQ(value(16 + 16, 0x7FFFFFFF), "value.med: the value at 16: its data, at 16, lies outside of its medium");
    EXPECT_EQ(value(16 + 24, 20),
              "value.med: the value at 16: its constraint, at 20, is no record: it does not name itself");
    EXPECT_EQ(value(16 + 12, 17), "data.med: the data at 17 and the data at 20 overlap");
    EXPECT_EQ(value(16 + 12, 4), "data.med: the header and the data at 4 overlap");
    EXPECT_EQ(damaged(kStringMedium, 16 + 4, 7), "string.med: the name at 16: it names medium 7, which is none");
    EXPECT_EQ(damaged(kStringMedium, 16 + 8, 900),
              "string.med: the name at 16: its text, at 900, lies outside of its medium");
    EXPECT_EQ(damaged(kStringMedium, 16 + 12, 0x80000000),
              "string.med: the name at 16: it says that it has -2147483648 bytes");
}

TEST_F(RecordMapTest, DamageOfConstraints) {
    const auto map = mapRecords(*images);
    const auto found = std::find_if(map.records.begin(), map.records.end(),
                                    [](const MappedRecord &record) { return record.kind == RecordKind::enumeration; });
    const auto key = found->range.offset;
    const auto at = std::to_string(key);
    const auto constraint = [&](uint32_t offset, uint32_t word) { return damaged(kConstraintMedium, offset, word); };
    EXPECT_EQ(constraint(16 + 4, 1), "value.med: the value at 16: its constraint, at 16, is of type 1, which is none");
    EXPECT_EQ(constraint(16 + 4, 11), "constraint.med: the range at 16 and the elements at 36 overlap");
    EXPECT_EQ(constraint(key + 8, 70000), "constraint.med: the enumeration at " + at +
                                              ": its array of elements, at 70000, lies outside of its medium");
    EXPECT_EQ(constraint(key + 12, 0xFFFFFFFE),
              "constraint.med: the enumeration at " + at + ": its elements have -2 bytes");
    EXPECT_EQ(constraint(key + 16, 0x7FFFFFFF), "constraint.med: the enumeration at " + at +
                                                    ": its array of elements, at 36, lies outside of its medium");
    EXPECT_EQ(constraint(key + 16, 0xFFFFFFFF), "nothing") << "a negative count: nobody reads the elements";
}

TEST_F(RecordMapTest, DamageOfFreeLists) {
    const auto value = [&](uint32_t offset, uint32_t word) { return damaged(kValueMedium, offset, word); };
    const auto first = *images->read<uint32_t>(kValueMedium, 12);
    const auto at = std::to_string(first);
    EXPECT_EQ(value(12, 8), "value.med: the header: its first free block, at 8, does not lie behind it");
    EXPECT_EQ(value(12, 0x00FFFFFF),
              "value.med: the header: its first free block, at 16777215, lies outside of its medium");
    EXPECT_EQ(value(first, first),
              "value.med: the free block at " + at + ": its next free block, at " + at + ", does not lie behind it");
    EXPECT_EQ(value(first + 4, 7),
              "value.med: the header: its first free block, at " + at + ", says that it has 7 bytes");
    EXPECT_EQ(value(first + 4, 0xFFFFFFFF),
              "value.med: the header: its first free block, at " + at + ", lies outside of its medium");
    EXPECT_EQ(value(12, 16 + 8 * 28 + 8),
              "value.med: the free block at 248: its next free block, at 5, does not lie behind it");
}

TEST_F(RecordMapTest, ImageWithoutAHeaderIsDamaged) {
    RawImages::Contents contents;
    contents[kComponentMedium] = "TAVD";
    images = RawImages(nativeOrder(), contents);
    EXPECT_THAT(faults(), testing::SizeIs(6));
    EXPECT_EQ(faults()[0], "component.med: the image is shorter than its header");
}

TEST_F(RecordMapTest, RecordsMayBeShared) {
    const auto name = *images->read<uint32_t>(kComponentMedium, 44 + 4);
    setWord(kComponentMedium, 84 + 4, name);
    setWord(kComponentMedium, 84 + 24, 16);
    const auto map = mapRecords(*images);
    EXPECT_THAT(map.faults, IsEmpty());
    EXPECT_EQ(countOf(map, RecordKind::string), 4U);
    EXPECT_EQ(countOf(map, RecordKind::value), 8U);
}

TEST_F(RecordMapTest, WhatNothingRefersToIsUnclaimed) {
    const auto first = *images->read<uint32_t>(kComponentMedium, 12);
    // The last leaf leaves the tree, and half of the free block its list.
    setWord(kComponentMedium, 124 + 24, 0);
    setWord(kComponentMedium, first + 4, 16);
    const auto map = mapRecords(*images);
    EXPECT_THAT(map.faults, IsEmpty());
    const auto end = static_cast<uint32_t>(images->content(kComponentMedium).size());
    EXPECT_THAT(unclaimedRanges(*images, map, kComponentMedium),
                ElementsAre(ByteRange{152, 40}, ByteRange{first + 16, end - first - 16}));
    EXPECT_THAT(unclaimedRanges(*images, map, kValueMedium), ElementsAre(ByteRange{16 + 6 * 28, 3 * 28}));
}

TEST_F(RecordMapTest, ValueDataMayLieOnAnyMedium) {
    // As if it had been appended to the medium of the names' texts.
    const auto text = static_cast<uint32_t>(images->content(kTextMedium).size());
    auto contents = RawImages::Contents();
    for (const auto &medium : kMediumNames)
        contents[static_cast<size_t>(medium.id)] = images->content(medium.id);
    contents[kTextMedium] += "1234";
    images = RawImages(nativeOrder(), contents);
    setWord(kValueMedium, 16 + 8, kTextMedium);
    setWord(kValueMedium, 16 + 12, text);
    const auto map = mapRecords(*images);
    EXPECT_THAT(map.faults, IsEmpty());
    EXPECT_THAT(unclaimedRanges(*images, map, kTextMedium), IsEmpty());
    reverseRecords(*images, map);
    EXPECT_TRUE(images->content(kTextMedium).ends_with("4321"));
}

TEST_F(RecordMapTest, TreeAsDeepAsItHasComponentsIsWalked) {
    constexpr uint32_t kLevels = 100000;
    std::vector<tavDBMNode> nodes;
    for (uint32_t i = 0; i < kLevels; i++) {
        const uint32_t key = 16 + i * 28;
        nodes.push_back({{key, 0, 0, i == 0 ? 0 : key - 28, 0, TAVDB_KIND_NODE}, i + 1 < kLevels ? key + 28 : 0});
    }
    RawImages::Contents contents;
    for (const auto &medium : kMediumNames)
        contents[static_cast<size_t>(medium.id)].resize(16);
    contents[kComponentMedium].append(reinterpret_cast<const char *>(nodes.data()), nodes.size() * sizeof nodes[0]);
    images = RawImages(nativeOrder(), contents);
    setWord(kComponentMedium, 8, 16);
    const auto map = mapRecords(*images);
    EXPECT_THAT(map.faults, IsEmpty());
    EXPECT_EQ(countOf(map, RecordKind::node), kLevels);
}

TEST_F(RecordMapTest, NoDamageMakesItReadOutsideOrRunForEver) {
    const auto whole = *images;
    std::mt19937 random(tavdb_test::randomSeed());
    const auto below = [&](size_t limit) { return static_cast<uint32_t>(random() % limit); };
    size_t sound = 0;
    for (int round = 0; round < 4000; round++) {
        images = whole;
        for (uint32_t changes = 1 + below(4); changes > 0; changes--) {
            const auto medium = static_cast<int32_t>(1 + below(6));
            const auto used = std::min<size_t>(images->content(medium).size(), 300);
            const uint32_t words[] = {0,          1,          16,         44,
                                      0x7FFFFFFF, 0xFFFFFFFF, below(300), static_cast<uint32_t>(random())};
            setWord(medium, below(used / 4) * 4, words[below(std::size(words))]);
        }
        const auto map = mapRecords(*images);
        ASSERT_LE(map.records.size(), 100U);
        if (!map.faults.empty())
            continue;
        sound++;
        auto twice = *images;
        reverseRecords(twice, map);
        reverseRecords(twice, mapRecords(twice));
        for (const auto &medium : kMediumNames)
            ASSERT_EQ(twice.content(medium.id), images->content(medium.id));
    }
    EXPECT_GT(sound, 0U);
    EXPECT_LT(sound, 4000U);
}

}  // namespace
}  // namespace tavdb::image
