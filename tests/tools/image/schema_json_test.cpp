// SPDX-License-Identifier: Apache-2.0
// schema.json: what goes in, stable bytes, reading back, and files that are none.
#include "image/schema_json.h"

#include <gmock/gmock.h>

#include "tools/image/reading.h"

namespace tavdb::image {
namespace {

const char *kDescription =
    "$description: whole\n"
    "net:\n"
    "  $description: the network\n"
    "  mode: {type: u8, enum: {on: 1, off: 0}, description: \"a \\\"mode\\\"\"}\n"
    "  key: {type: text, size: 8, secret: true}\n"
    "  time: {type: u32, units: ms}\n"
    "  plain: {type: u32, range: [1, 5], current: 3, hook: 4}\n";

TEST(SchemaJson, HoldsWhatTheMediaDoNotAndNothingElse) {
    EXPECT_EQ(formatSchema(makeSchema(readGood(kDescription).model)),
              "{\n\"format\":1,\n"
              "\"source\":{\"file\":\"d.yaml\",\"kind\":\"yaml\",\"name\":\"\"},\n"
              "\"components\":{\n"
              "\"/\":{\"description\":\"whole\"},\n"
              "\"/net\":{\"description\":\"the network\"},\n"
              "\"/net/key\":{\"secret\":true},\n"
              "\"/net/mode\":{\"description\":\"a \\\"mode\\\"\",\"labels\":{\"off\":0,\"on\":1}},\n"
              "\"/net/time\":{\"units\":\"ms\"}\n"
              "}\n}\n");
}

TEST(SchemaJson, EqualInputGivesEqualBytes) {
    const auto once = formatSchema(makeSchema(readGood(kDescription).model));
    EXPECT_EQ(once, formatSchema(makeSchema(readGood(kDescription).model)));
    const auto elsewhere = readDescriptionText("/another/folder/d.yaml", kDescription);
    EXPECT_EQ(once, formatSchema(makeSchema(elsewhere.model)));
}

TEST(SchemaJson, ComesBackAsItWas) {
    const auto schema = makeSchema(readGood(kDescription).model);
    const auto text = formatSchema(schema);
    const auto back = parseSchema(text);
    ASSERT_TRUE(back.errors.empty()) << back.errors[0].sentence;
    EXPECT_EQ(formatSchema(back.schema), text);
    EXPECT_TRUE(back.schema.components.at("/net/key").secret);
    EXPECT_EQ(back.schema.components.at("/net/time").units, "ms");
    EXPECT_EQ(back.schema.source.file, "d.yaml");
}

TEST(SchemaJson, NumbersOfLabelsAreExact) {
    const auto description = readGood(
        "a: {type: u64, enum: {max: 18446744073709551615, one: 1}}\n"
        "b: {type: s64, enum: {min: -9223372036854775808, two: 2}}\n"
        "c: {type: f32, enum: {tenth: 0.1, three: 3}}\n");
    const auto back = parseSchema(formatSchema(makeSchema(description.model)));
    ASSERT_TRUE(back.errors.empty());
    for (const auto *path : {"/a", "/b", "/c"}) {
        const auto &leaf = leafAt(description, path);
        auto elements = std::get<Enumeration>(leaf.constraint);
        for (auto &element : elements)
            element.label.reset();
        applyLabels(leaf.type, back.schema.components.at(path), elements);
        const auto &original = std::get<Enumeration>(leaf.constraint);
        for (size_t i = 0; i < original.size(); i++)
            EXPECT_EQ(elements[i].label, original[i].label) << path;
    }
}

TEST(SchemaJson, LabelWithoutItsNumberInTheDatabaseIsNotApplied) {
    const auto back =
        parseSchema(R"({"format":1,"source":{},"components":{"/a":{"labels":{"x":300,"y":-1,"z":2,"f":0.5}}}})");
    ASSERT_TRUE(back.errors.empty());
    Enumeration elements = {{std::nullopt, uint64_t{44}}, {std::nullopt, uint64_t{2}}};
    applyLabels(Type::u8, back.schema.components.at("/a"), elements);
    EXPECT_FALSE(elements[0].label);
    EXPECT_EQ(elements[1].label, "z");
}

struct BadSchema {
    const char *text;
    const char *error;
};

TEST(SchemaJson, WhatIsNoSchemaSaysWhy) {
    const BadSchema cases[] = {
        {"", "f:1:1: this is not JSON"},
        {"{\n \"format\": 1,\n x", "f:3:2: this is not JSON"},
        {"[]", "f: the schema is array, not object"},
        {"{}", "f: the schema has no 'format'"},
        {R"({"format":"1"})", "f: the schema: 'format' is string, not number"},
        {R"({"format":2})", "f: the schema has a format that is not known here: 2"},
        {R"({"format":1})", "f: the schema has no 'source'"},
        {R"({"format":1,"source":{"file":7},"components":{}})", "f: source: 'file' is number, not string"},
        {R"({"format":1,"source":{}})", "f: the schema has no 'components'"},
        {R"({"format":1,"source":{},"components":[]})", "f: the schema: 'components' is array, not object"},
        {R"({"format":1,"source":{},"components":{"/a":5}})", "f: /a is number, not object"},
        {R"({"format":1,"source":{},"components":{"/a":{"description":5}}})",
         "f: /a: 'description' is number, not string"},
        {R"({"format":1,"source":{},"components":{"/a":{"secret":"yes"}}})", "f: /a: 'secret' is string, not boolean"},
        {R"({"format":1,"source":{},"components":{"/a":{"labels":[1]}}})", "f: /a: 'labels' is array, not object"},
        {R"({"format":1,"source":{},"components":{"/a":{"labels":{"x":"1"}}}})",
         "f: /a: the number of a label is string"},
    };
    for (const auto &[text, error] : cases) {
        const auto read = parseSchema(text);
        ASSERT_EQ(read.errors.size(), 1U) << text;
        EXPECT_EQ(formatDiagnostic("f", read.errors[0]), error);
        EXPECT_TRUE(read.schema.components.empty());
    }
}

TEST(SchemaJson, DeepJsonIsNoDanger) {
    EXPECT_EQ(parseSchema(std::string(1000000, '[')).errors.size(), 1U);
    EXPECT_EQ(parseSchema(std::string(100000, '[') + std::string(100000, ']')).errors.size(), 1U);
}

}  // namespace
}  // namespace tavdb::image
