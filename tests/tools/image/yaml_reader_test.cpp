// SPDX-License-Identifier: Apache-2.0
// Good descriptions in the house format: what each key makes of a leaf.
#include <gmock/gmock.h>

#include <algorithm>

#include "image/value_text.h"
#include "tools/image/reading.h"

namespace tavdb::image {
namespace {

using testing::ElementsAre;

std::vector<std::string> elementsOf(const Leaf &leaf) {
    std::vector<std::string> texts;
    for (const auto &element : std::get<Enumeration>(leaf.constraint))
        texts.push_back(element.label.value_or("-") + "=" + formatValue(leaf.type, element.number));
    return texts;
}

TEST(YamlReader, NestedMapsAreNodesAndMapsWithATypeAreLeaves) {
    const auto description = readGood("network:\n  lan:\n    mtu: {type: u32, current: 1500}\nboot: {type: u8}\n");
    EXPECT_EQ(std::get<uint64_t>(leafAt(description, "/network/lan/mtu").current), 1500U);
    EXPECT_EQ(nodeAt(description, "/network").children.size(), 1U);
    EXPECT_EQ(leafAt(description, "/boot").type, Type::u8) << "a leaf may stand at the top";
    EXPECT_EQ(description.report.parameters(), 2U);
    EXPECT_EQ(description.report.expressedFully(), 2U);
    EXPECT_EQ(description.report.lines().size(), 0U);
}

TEST(YamlReader, EveryTypeHasItsLength) {
    for (const auto &info : allTypes()) {
        const std::string size = info.isNumber() ? "" : ", size: 10";
        const auto description = readGood("a: {type: " + std::string(info.name) + size + "}\n");
        const auto &leaf = leafAt(description, "/a");
        EXPECT_EQ(leaf.type, info.type);
        const auto expected = info.family == Family::text ? 11 : info.family == Family::bytes ? 10 : info.widthBytes;
        EXPECT_EQ(leaf.lengthBytes, expected) << info.name << ": a text's NUL comes on top of its size";
        EXPECT_EQ(leaf.current, zeroValue(info.type));
    }
}

TEST(YamlReader, LargestSizesAreAllowed) {
    const auto description = readGood("t: {type: text, size: 65535}\nb: {type: bytes, size: 65536}\n");
    EXPECT_EQ(leafAt(description, "/t").lengthBytes, 65536U);
    EXPECT_EQ(leafAt(description, "/b").lengthBytes, 65536U);
}

TEST(YamlReader, NumbersAreKeptExactly) {
    const auto description = readGood(
        "a: {type: u64, current: 18446744073709551615}\n"
        "b: {type: s64, range: [-9223372036854775808, 9223372036854775807], current: -9223372036854775807}\n"
        "c: {type: f32, current: 0.1}\n");
    EXPECT_EQ(leafAt(description, "/a").current, Value(UINT64_MAX));
    EXPECT_EQ(leafAt(description, "/b").current, Value(INT64_MIN + 1));
    EXPECT_EQ(std::get<Range>(leafAt(description, "/b").constraint).minimum, Value(INT64_MIN));
    EXPECT_EQ(leafAt(description, "/c").current, Value(static_cast<double>(0.1F)));
}

TEST(YamlReader, RangeWithAndWithoutStep) {
    const auto description = readGood(
        "a: {type: s16, range: [-10, 10], step: 5, current: -5}\n"
        "b: {type: u8, range: [0, 9], step: 0}\n"
        "c: {type: f32, range: [0, 1], step: 0.5, current: 0.3}\n"
        "d: {type: u8, range: [0, 10], step: 3}\n");
    const auto &range = std::get<Range>(leafAt(description, "/a").constraint);
    EXPECT_EQ(range.minimum, Value(int64_t{-10}));
    EXPECT_EQ(range.maximum, Value(int64_t{10}));
    EXPECT_EQ(range.step, Value(int64_t{5}));
    EXPECT_EQ(std::get<Range>(leafAt(description, "/b").constraint).step, Value(uint64_t{0}));
    EXPECT_EQ(std::get<Range>(leafAt(description, "/c").constraint).step, Value(0.5)) << "kept, though never checked";
    EXPECT_EQ(std::get<Range>(leafAt(description, "/d").constraint).maximum, Value(uint64_t{10})) << "off the grid";
}

TEST(YamlReader, EnumerationsComeInThreeForms) {
    const auto description = readGood(
        "numbers: {type: u16, enum: [10, 0x14, 5]}\n"
        "labels: {type: u8, enum: [off, on, auto]}\n"
        "map: {type: s8, enum: {low: -1, high: 1}}\n"
        "quoted: {type: u8, enum: [\"3\", \"8\"]}\n"
        "floats: {type: f64, enum: [0.5, 1]}\n");
    EXPECT_THAT(elementsOf(leafAt(description, "/numbers")), ElementsAre("-=10", "-=20", "-=5"));
    EXPECT_THAT(elementsOf(leafAt(description, "/labels")), ElementsAre("off=0", "on=1", "auto=2"));
    EXPECT_THAT(elementsOf(leafAt(description, "/map")), ElementsAre("low=-1", "high=1"));
    EXPECT_THAT(elementsOf(leafAt(description, "/quoted")), ElementsAre("3=0", "8=1"));
    EXPECT_THAT(elementsOf(leafAt(description, "/floats")), ElementsAre("-=0.5", "-=1"));
}

TEST(YamlReader, LabelsStandForNumbersInTheTiers) {
    const auto description = readGood("a: {type: u8, enum: {off: 4, on: 7}, current: on, default: 4}\n");
    EXPECT_EQ(leafAt(description, "/a").current, Value(uint64_t{7}));
    EXPECT_EQ(leafAt(description, "/a").defaultValue, Value(uint64_t{4}));
    EXPECT_EQ(leafAt(description, "/a").factory, Value(uint64_t{4}));
}

TEST(YamlReader, YesAndTrueAreOrdinaryLabels) {
    const auto description = readGood("a: {type: u8, enum: [no, yes], current: yes}\n");
    EXPECT_EQ(leafAt(description, "/a").current, Value(uint64_t{1}));
}

TEST(YamlReader, LeafWithoutTiersTakesWhatItsConstraintAdmits) {
    const auto description = readGood(
        "zero: {type: s8, range: [-5, 5]}\n"
        "minimum: {type: u8, range: [3, 9]}\n"
        "first: {type: u8, enum: {b: 7, a: 2}}\n"
        "text: {type: text, size: 4}\n");
    EXPECT_EQ(leafAt(description, "/zero").current, Value(int64_t{0}));
    EXPECT_EQ(leafAt(description, "/minimum").factory, Value(uint64_t{3}));
    EXPECT_EQ(leafAt(description, "/first").defaultValue, Value(uint64_t{7}));
    EXPECT_EQ(leafAt(description, "/text").current, Value(std::string{}));
}

TEST(YamlReader, TextMayLookLikeAnything) {
    const auto description = readGood(
        "a: {type: text, size: 20, current: 123}\n"
        "b: {type: text, size: 20, current: \"\"}\n"
        "c: {type: text, size: 20, current: true}\n"
        "d: {type: text, size: 20, current: \"null\"}\n"
        "e:\n  type: text\n  size: 20\n  current: |\n    two\n    lines\n");
    EXPECT_EQ(leafAt(description, "/a").current, Value(std::string("123")));
    EXPECT_EQ(leafAt(description, "/b").current, Value(std::string{}));
    EXPECT_EQ(leafAt(description, "/c").current, Value(std::string("true")));
    EXPECT_EQ(leafAt(description, "/d").current, Value(std::string("null")));
    EXPECT_EQ(leafAt(description, "/e").current, Value(std::string("two\nlines\n")));
}

TEST(YamlReader, BytesAreHex) {
    const auto description =
        readGood("a: {type: bytes, size: 4, current: 00FFab}\nb: {type: bytes, size: 1, current: \"\"}\n");
    EXPECT_EQ(leafAt(description, "/a").current, Value(std::string("\0\xFF\xAB", 3)));
    EXPECT_EQ(leafAt(description, "/b").current, Value(std::string{}));
}

TEST(YamlReader, HookSecretUnitsAndDescriptionAreKept) {
    const auto description = readGood(
        "a:\n  type: u8\n  hook: 4294967295\n  secret: true\n  units: ms\n"
        "  description: >\n    how long\n    it  takes\n"
        "b: {type: u8, secret: false}\n");
    const auto &leaf = leafAt(description, "/a");
    EXPECT_EQ(leaf.hookId, UINT32_MAX);
    EXPECT_TRUE(leaf.secret);
    EXPECT_EQ(leaf.units, "ms");
    EXPECT_EQ(leaf.description, "how long it takes");
    EXPECT_EQ(leafAt(description, "/b").hookId, 0U);
    EXPECT_FALSE(leafAt(description, "/b").secret);
}

TEST(YamlReader, NodesAndTheWholeCanBeDescribed) {
    const auto description = readGood("$description: the whole\na:\n  $description: a node\n  b: {}\n");
    EXPECT_EQ(description.model.root.description, "the whole");
    EXPECT_EQ(nodeAt(description, "/a").description, "a node");
    EXPECT_EQ(nodeAt(description, "/a").children.size(), 1U);
}

TEST(YamlReader, WordsOfTheFormatAreGoodNamesOfChildren) {
    const auto description = readGood("a:\n  type:\n    size: {type: u8}\n  types: {current: {type: u8}}\n");
    EXPECT_EQ(leafAt(description, "/a/type/size").type, Type::u8);
    EXPECT_EQ(leafAt(description, "/a/types/current").type, Type::u8);
}

TEST(YamlReader, ReusableTypeLendsAllItsKeys) {
    const auto description = readGood(
        "types:\n"
        "  port: {type: u16, range: [1, 65535], current: 80, description: a port, hook: 3, secret: true, units: x}\n"
        "web: {type: port}\nssh: {type: port, current: 22, description: shell}\n");
    const auto &web = leafAt(description, "/web");
    EXPECT_EQ(web.type, Type::u16);
    EXPECT_EQ(web.current, Value(uint64_t{80}));
    EXPECT_EQ(web.description, "a port");
    EXPECT_EQ(web.hookId, 3U);
    EXPECT_TRUE(web.secret);
    EXPECT_EQ(leafAt(description, "/ssh").current, Value(uint64_t{22}));
    EXPECT_EQ(leafAt(description, "/ssh").description, "shell");
    EXPECT_TRUE(std::holds_alternative<Range>(leafAt(description, "/ssh").constraint));
}

TEST(YamlReader, ReusableTypesBuildOnEachOtherForEveryLeafAlike) {
    const auto description = readGood(
        "types:\n"
        "  high: {type: low, current: 3}\n"
        "  low: {type: u8, range: [1, 9], description: base}\n"
        "a: {type: high}\nb: {type: high}\nc: {type: low}\n");
    for (const auto *path : {"/a", "/b"}) {
        const auto &leaf = leafAt(description, path);
        EXPECT_EQ(leaf.description, "base") << path;
        EXPECT_EQ(leaf.current, Value(uint64_t{3})) << path;
        EXPECT_TRUE(std::holds_alternative<Range>(leaf.constraint)) << path;
    }
    EXPECT_EQ(leafAt(description, "/c").current, Value(uint64_t{1}));
}

TEST(YamlReader, OwnConstraintReplacesAnInheritedOneOfTheOtherKind) {
    const auto description = readGood(
        "types:\n"
        "  ranged: {type: u8, range: [0, 100], step: 10}\n"
        "  listed: {type: u8, enum: [a, b]}\n"
        "r: {type: ranged, enum: {x: 7}, current: x}\n"
        "l: {type: listed, range: [5, 6]}\n"
        "s: {type: ranged, range: [0, 50]}\n");
    EXPECT_THAT(elementsOf(leafAt(description, "/r")), ElementsAre("x=7"));
    EXPECT_EQ(std::get<Range>(leafAt(description, "/l").constraint).maximum, Value(uint64_t{6}));
    EXPECT_EQ(std::get<Range>(leafAt(description, "/s").constraint).step, Value(uint64_t{10})) << "the step stays";
}

TEST(YamlReader, SizeMayComeFromTheTypeOrTheLeaf) {
    const auto description = readGood(
        "types:\n  name: {type: text}\n  short: {type: name, size: 8}\n"
        "a: {type: name, size: 3}\nb: {type: short}\n");
    EXPECT_EQ(leafAt(description, "/a").lengthBytes, 4U);
    EXPECT_EQ(leafAt(description, "/b").lengthBytes, 9U);
}

TEST(YamlReader, ReferencesOfYamlRepeatWholeSubtrees) {
    const auto description = readGood("a: &x\n  b: {type: u8, current: 3}\nc: *x\n");
    EXPECT_EQ(leafAt(description, "/c/b").current, Value(uint64_t{3}));
}

TEST(YamlReader, OrderOfTheFileIsTheOrderOfTheChildren) {
    const auto description = readGood("z: {type: u8}\nm: {}\na: {type: u8}\n");
    std::vector<std::string> names;
    for (const auto &child : description.model.root.children)
        names.push_back(child.leaf() ? child.leaf()->name : child.node()->name);
    EXPECT_THAT(names, ElementsAre("z", "m", "a"));
}

TEST(YamlReader, LeavesKnowTheirPlace) {
    const auto description = readGood("# comment\na:\n  b: {type: u8}\n");
    EXPECT_EQ(leafAt(description, "/a/b").position, (Position{3, 3}));
    EXPECT_EQ(nodeAt(description, "/a").position, (Position{2, 1}));
}

TEST(YamlReader, LastLineMayLackItsEndAndTheDocumentMayHaveOne) {
    EXPECT_EQ(leafAt(readGood("a: {type: u8, current: 5}"), "/a").current, Value(uint64_t{5}));
    EXPECT_EQ(leafAt(readGood("---\na: {type: u8, current: 5}\n...\n"), "/a").current, Value(uint64_t{5}));
    EXPECT_EQ(leafAt(readGood("a: {type: u8, current: 5}\r\n"), "/a").current, Value(uint64_t{5}));
}

TEST(YamlReader, DeepestTreeIsAllowed) {
    std::string text;
    for (size_t i = 0; i < 64; i++)
        text += std::string(i, ' ') + "n:\n";
    const auto description = readGood(text + std::string(64, ' ') + "l: {type: u8}\n");
    EXPECT_EQ(countComponents(description.model).nodes, 64U);
}

}  // namespace
}  // namespace tavdb::image
