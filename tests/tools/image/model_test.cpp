// SPDX-License-Identifier: Apache-2.0
// The model: which value a missing tier takes, paths, and finding components.
#include "image/model.h"

#include <gtest/gtest.h>

#include "tools/image/reading.h"

namespace tavdb::image {
namespace {

Leaf resolved(const Tiers &tiers, const Constraint &constraint = {}) {
    Leaf leaf;
    leaf.type = Type::u32;
    leaf.constraint = constraint;
    resolveTiers(leaf, tiers);
    return leaf;
}

std::string numbersOfTiers(const Leaf &leaf) {
    return std::to_string(std::get<uint64_t>(leaf.current)) + " " +
           std::to_string(std::get<uint64_t>(leaf.defaultValue)) + " " +
           std::to_string(std::get<uint64_t>(leaf.factory));
}

TEST(Model, MissingTierTakesTheOneBelowIt) {
    const Value one = uint64_t{1};
    const Value two = uint64_t{2};
    const Value three = uint64_t{3};
    EXPECT_EQ(numbersOfTiers(resolved({one, two, three})), "1 2 3");
    EXPECT_EQ(numbersOfTiers(resolved({{}, two, three})), "2 2 3");
    EXPECT_EQ(numbersOfTiers(resolved({one, {}, three})), "1 3 3");
    EXPECT_EQ(numbersOfTiers(resolved({{}, {}, three})), "3 3 3");
}

TEST(Model, MissingLowestTierTakesTheNearestAbove) {
    const Value one = uint64_t{1};
    const Value two = uint64_t{2};
    EXPECT_EQ(numbersOfTiers(resolved({one, two, {}})), "1 2 2");
    EXPECT_EQ(numbersOfTiers(resolved({{}, two, {}})), "2 2 2");
    EXPECT_EQ(numbersOfTiers(resolved({one, {}, {}})), "1 1 1");
}

TEST(Model, LeafWithoutAnyTierIsZeroWhereTheConstraintAdmitsIt) {
    EXPECT_EQ(numbersOfTiers(resolved({})), "0 0 0");
    EXPECT_EQ(numbersOfTiers(resolved({}, Range{uint64_t{0}, uint64_t{9}, uint64_t{0}})), "0 0 0");
    EXPECT_EQ(numbersOfTiers(resolved({}, Enumeration{{"a", uint64_t{4}}, {"b", uint64_t{0}}})), "0 0 0");
}

TEST(Model, LeafWithoutAnyTierIsTheMinimumOrTheFirstElementElse) {
    EXPECT_EQ(numbersOfTiers(resolved({}, Range{uint64_t{5}, uint64_t{9}, uint64_t{0}})), "5 5 5");
    EXPECT_EQ(numbersOfTiers(resolved({}, Enumeration{{"a", uint64_t{4}}, {"b", uint64_t{2}}})), "4 4 4");
    EXPECT_EQ(initialValue(Type::s8, Range{int64_t{-9}, int64_t{-3}, int64_t{0}}), Value(int64_t{-9}));
    EXPECT_EQ(initialValue(Type::s8, Range{int64_t{-9}, int64_t{9}, int64_t{2}}), Value(int64_t{-9}))
        << "0 is off step";
    EXPECT_EQ(initialValue(Type::text, {}), Value(std::string{}));
}

TEST(Model, ComponentsAreFoundByPath) {
    const auto description = readGood("a:\n  b:\n    c: {type: u8}\n  d: {type: u8}\ne: {}\n");
    EXPECT_EQ(leafAt(description, "/a/b/c").name, "c");
    EXPECT_EQ(nodeAt(description, "/a/b").children.size(), 1U);
    EXPECT_EQ(nodeAt(description, "/e").children.size(), 0U);
    for (const auto *missing : {"", "/", "a", "/a/", "/a/x", "/a/d/x", "//a", "/a/b/c/d"})
        EXPECT_EQ(findComponent(description.model, missing), nullptr) << missing;
}

struct Walker {
    std::string &walked;

    void operator()(const std::string &path, const Node &) const {
        walked += path + "/ ";
    }
    void operator()(const std::string &path, const Leaf &) const {
        walked += path + " ";
    }
};

TEST(Model, WalkVisitsParentsFirstInTheOrderOfTheSource) {
    const auto description = readGood("z: {type: u8}\na:\n  y: {type: u8}\n  b: {}\nc: {type: u8}\n");
    std::string walked;
    forEachBelow(description.model.root, "/", Walker{walked});
    EXPECT_EQ(walked, "/z /a/ /a/y /a/b/ /c ");
    const auto counts = countComponents(description.model);
    EXPECT_EQ(counts.nodes, 2U);
    EXPECT_EQ(counts.leaves, 3U);
}

}  // namespace
}  // namespace tavdb::image
