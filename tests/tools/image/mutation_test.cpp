// SPDX-License-Identifier: Apache-2.0
// Thousands of damaged descriptions: none may crash or hang, and each ends in a
// model or in errors that lie within the file. The damage is the same in every run.
#include <gtest/gtest.h>

#include <random>

#include "image/constraint_check.h"
#include "image/schema_json.h"
#include "image/source_text.h"
#include "tools/image/reading.h"

namespace tavdb::image {
namespace {

const std::string kYaml =
    "types:\n"
    "  port: {type: u16, range: [1, 65535], current: 80, description: a port}\n"
    "  name: {type: text, size: 16}\n"
    "$description: whole\n"
    "net: &net\n"
    "  lan:\n"
    "    mtu: {type: u32, range: [300, 4000000], step: 100, current: 1500, units: bytes, hook: 3}\n"
    "    mode: {type: u8, enum: {off: 0, on: 1, auto: 7}, current: auto}\n"
    "    gain: {type: f32, range: [-1.5, 2.5e3], default: 0.1}\n"
    "    \"key\": {type: bytes, size: 4, factory: 00ff, secret: true}\n"
    "copy: *net\n"
    "host: {type: name, current: 'x y'}\n"
    "text:\n  type: text\n  size: 20\n  current: |\n    lines\n";

const std::string kXml =
    "<?xml version='1.0'?><dm:document xmlns:dm='u'><dataType name='T' base='B'><size maxLength='15'/></dataType>"
    "<dataType name='B'><string><size maxLength='45'/></string></dataType><template id='x'>{{param}}</template>"
    "<model name='M:1'><object name='D.L.{i}.' access='readOnly'><description>{{object}} ''it'' {{template|x}}"
    "</description><parameter name='P' access='readWrite'><description>&lt;Empty&gt; {{units}}</description><syntax "
    "hidden='true'><unsignedInt><range minInclusive='1' maxInclusive='9' step='2'/><range minInclusive='20'/><units "
    "value='s'/></unsignedInt><default type='object' value='3'/></syntax></parameter><parameter name='Q'><syntax><list "
    "minItems='1' maxItems='3'><size maxLength='9'/></list><dataType ref='T'><pattern value='x'/></dataType><default "
    "type='factory' value='a,b'/></syntax></parameter><parameter name='R'><syntax><string><enumeration value='a' "
    "access='readOnly'/><enumeration value='b'/></string></syntax></parameter></object></model></dm:document>";

const std::string kPieces[] = {"\n",  " ",    "  ", "\t", ":",   "{",  "}",  "[",    "]",     ",",
                               "&a ", "*net", "\"", "'",  "|",   "- ", "#",  "\\",   "type",  "18446744073709551616",
                               "-",   "<",    ">",  "/>", "{i}", "{{", "}}", "&#0;", "&amp;", ".",
                               "\xC3"};

std::string damage(std::string text, std::mt19937 &random) {
    const auto below = [&](size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(random); };
    for (size_t changes = 1 + below(4); changes > 0 && !text.empty(); changes--) {
        const auto at = below(text.size());
        switch (below(5)) {
            case 0:
                text.erase(at, 1 + below(20));
                break;
            case 1:
                text.insert(at, kPieces[below(std::size(kPieces))]);
                break;
            case 2:
                text[at] = static_cast<char>(below(256));
                break;
            case 3:
                text.insert(at, text.substr(below(text.size()), 1 + below(60)));
                break;
            default:
                text.resize(at);
        }
    }
    return text;
}

struct AdmissionChecker {
    void operator()(const std::string &, const Node &) const {}
    void operator()(const std::string &path, const Leaf &leaf) const {
        EXPECT_EQ(refusal(leaf.type, leaf.constraint, leaf.current), "") << path;
        EXPECT_GE(leaf.lengthBytes, 1U) << path;
        EXPECT_LE(leaf.lengthBytes, kLengthBytesMax) << path;
    }
};

void expectSound(const std::string &text) {
    ReadOptions options;
    options.componentsMax = 5000;
    const auto description = read(text, options);
    const SourceText source(text);
    for (const auto &error : description.errors) {
        EXPECT_FALSE(error.sentence.empty()) << text;
        EXPECT_LE(error.position.line, source.lineCount()) << text;
        EXPECT_NE(error.position.line, 0U) << text << error.sentence;
    }
    if (!description.ok())
        return;
    forEachBelow(description.model.root, "/", AdmissionChecker{});
    const auto schema = formatSchema(makeSchema(description.model));
    EXPECT_EQ(formatSchema(parseSchema(schema).schema), schema) << text;
}

TEST(Mutation, DamagedHouseFormatEndsInAModelOrInErrors) {
    std::mt19937 random(1);
    for (int i = 0; i < 6000; i++)
        expectSound(damage(kYaml, random));
}

TEST(Mutation, DamagedDataModelEndsInAModelOrInErrors) {
    std::mt19937 random(2);
    for (int i = 0; i < 6000; i++)
        expectSound(damage(kXml, random));
}

TEST(Mutation, UndamagedTextsAreGood) {
    readGood(kYaml);
    EXPECT_EQ(readGood(kXml).report.parameters(), 3U);
}

}  // namespace
}  // namespace tavdb::image
