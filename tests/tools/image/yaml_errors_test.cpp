// SPDX-License-Identifier: Apache-2.0
// Bad descriptions: each kind has a sentence of its own, at an exact place, and
// all errors of a file come in one run.
#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "tools/image/reading.h"

namespace tavdb::image {
namespace {

using testing::ElementsAre;

struct BadDescription {
    const char *name;
    std::string text;
    std::string line;  ///< the one error, without the file
};

void PrintTo(const BadDescription &bad, std::ostream *out) {
    *out << bad.name;
}

const std::string kKnownTypes =
    "it must be an entry of types or one of s8 s16 s32 s64 u8 u16 u32 u64 f32 f64 text bytes";

std::string deep(size_t levels) {
    std::string text;
    for (size_t i = 0; i < levels; i++)
        text += std::string(i, ' ') + "n:\n";
    return text + std::string(levels, ' ') + "{}\n";
}

std::vector<BadDescription> badTrees() {
    return {
        {"TopIsList", "- a\n- b\n", "1:1: the top level must be a map of nodes, found a list"},
        {"TopIsText", "hello\n", "1:1: the top level must be a map of nodes, found the value 'hello'"},
        {"NodeIsText", "a:\n  b: hello\n", "2:6: a node or a leaf must be a map, found the value 'hello'"},
        {"NodeIsList", "a: [1]\n", "1:4: a node or a leaf must be a map, found a list"},
        {"NodeIsNothing", "a:\nb: {}\n", "1:1: a node or a leaf must be a map, found nothing"},
        {"SiblingTwice", "a: {}\nb: {}\na: {}\n", "3:1: 'a' stands here a second time"},
        {"NodeAndLeafOfOneName", "a: {}\na: {type: u8}\n", "2:1: 'a' stands here a second time"},
        {"EmptyName", "\"\": {}\n", "1:1: a name is empty"},
        {"SlashInName", "a:\n  b/c: {}\n", "2:3: the name 'b/c' holds a '/'"},
        {"LongName", std::string(255, 'x') + ": {}\n",
         "1:1: the name '" + std::string(48, 'x') + "...' has 255 bytes, 254 are allowed"},
        {"ControlCharacterInName", "\"a\\tb\": {}\n", "1:1: the name 'a\\x09b' holds a control character"},
        {"ReservedName", "a:\n  $size: {}\n", "2:3: names that begin with '$' are reserved, found '$size'"},
        {"MergeKey", "a: &x {}\nb:\n  <<: *x\n", "3:3: merge keys have no meaning here; use types"},
        {"KeyIsList", "? [a]\n: {}\n", "1:3: a name must be a single value, found a list"},
        {"TooDeep", deep(65), "65:65: this node lies deeper than 64 levels"},
        {"NodeThatHoldsItself", "a: &x\n  b: *x\n", "2:3: this node lies deeper than 64 levels"},
        {"DescriptionOfNodeIsMap", "a:\n  $description: {x: y}\n",
         "2:17: $description must be a single value, found a map"},
        {"LeafWithoutType", "a: {size: 4, current: x}\n", "1:1: this map holds keys of a leaf but has no type"},
    };
}

std::vector<BadDescription> badSyntax() {
    return {
        {"WrongIndentation", "a:\n   b: {}\n  c: {}\n",
         "3:3: this line is indented less than the lines before it, but as none of the lines that they belong to"},
        {"TabIndents", "a:\n\tb: {}\n", "2:1: a tab indents this line; indent with blanks"},
        {"TabBehindBlanks", "a: {\n  \tb: {}}\n", "2:3: a tab indents this line; indent with blanks"},
        {"TwoColons", "a: b: c\n", "1:5: a value cannot stand here; look at the indentation and the ':' before it"},
        {"BracketNotClosed", "a: {type: u8\nb: {}\n", "2:2: this is not YAML: end of map flow not found"},
        {"QuoteNotClosed", "a: {type: text, size: 9, current: \"x}\nb: {}\n",
         "3:1: a quoted text is not ended before the end of the file"},
        {"UnknownReference", "a: *b\n", "1:4: this is not YAML: the referenced anchor is not defined"},
        {"SecondDocument", "a: {}\n---\nb: {}\n", "2:1: a file holds one document, a second one begins here"},
        {"CommaAtTheStart", ",a: {}\n", "1:1: nothing can begin with this"},
        {"CommaBehindTheEnd", "a: {}\n...\n, b\n", "3:1: a file holds one document, a second one begins here"},
        {"BracketsNestedTooDeep", "a: " + std::string(100000, '['), "1:100004: brackets or lists are nested too deep"},
    };
}

std::vector<BadDescription> badTypes() {
    return {
        {"UnknownType", "a: {type: u9}\n", "1:11: there is no type 'u9'; " + kKnownTypes},
        {"UnknownTypeOfType", "types:\n  p: {type: q}\na: {}\n", "2:13: there is no type 'q'; " + kKnownTypes},
        {"TypeIsNothing", "a: {type: }\n", "1:5: type must be a single value, found nothing"},
        {"TypeIsList", "a: {type: [u8]}\n", "1:11: type must be a single value, found a list"},
        {"TypesIsList", "types: [a]\na: {}\n", "1:8: types must be a map of leaf descriptions, found a list"},
        {"TypesIsNothing", "types:\n", "1:1: types must be a map of leaf descriptions, found nothing"},
        {"TypeEntryIsText", "types:\n  p: u8\na: {type: p}\n",
         "2:3: a reusable type must be a map, found the value 'u8'"},
        {"TypeEntryWithoutType", "types:\n  p: {size: 3}\na: {type: p}\n", "2:3: the reusable type 'p' has no type"},
        {"TypeEntryCalledAsBuiltIn", "types:\n  u8: {type: u16}\n",
         "2:3: 'u8' is a built-in type and cannot be described again"},
        {"TypeEntryTwice", "types:\n  p: {type: u8}\n  p: {type: u8}\na: {}\n", "3:3: 'p' stands here a second time"},
        {"TypeEntryWithUnknownKey", "types:\n  p: {type: u8, zize: 3}\n", "2:17: a leaf has no key 'zize'"},
        {"TypesInACircle", "types:\n  p: {type: p}\na: {type: p}\n", "2:13: the reusable type 'p' builds on itself"},
        {"UnknownKey", "a:\n  type: u8\n  currant: 5\n", "3:3: a leaf has no key 'currant'"},
        {"KeyTwice", "a: {type: u8, current: 1, current: 2}\n", "1:27: 'current' stands here a second time"},
        {"TagOnAValue", "a: {type: u8, current: !seven 7}\n", "1:24: tags such as '!seven' have no meaning here"},
        {"InheritedValueNamesTheLeaf", "types:\n  p: {type: u8, current: 7}\na:\n  b: {type: p, range: [1, 5]}\n",
         "2:26: value 7 is outside 1..5 (type 'p', as used by /a/b)"},
    };
}

std::vector<BadDescription> badConstraints() {
    return {
        {"RangeIsNumber", "a: {type: u8, range: 5}\n",
         "1:22: range must be a list of two numbers, found the value '5'"},
        {"RangeOfThree", "a: {type: u8, range: [1, 2, 3]}\n",
         "1:22: range must be a list of two numbers, found a list"},
        {"RangeOfText", "a: {type: u8, range: [1, many]}\n", "1:26: value 'many' is not an unsigned 8-bit integer"},
        {"RangeOnText", "a: {type: text, size: 5, range: [1, 2]}\n",
         "1:33: range belongs to numbers; a leaf of type text has none"},
        {"RangeBoundOutsideType", "a: {type: s8, range: [-200, 5]}\n",
         "1:23: value -200 is not a signed 8-bit integer (-128..127)"},
        {"RangeUpsideDown", "a: {type: s8, range: [5, -5]}\n", "1:23: the minimum 5 is above the maximum -5"},
        {"RangeBoundNan", "a: {type: f64, range: [0, .nan]}\n", "1:27: the maximum must be finite, found .nan"},
        {"RangeBoundInfinite", "a: {type: f32, range: [-.inf, 0]}\n", "1:24: the minimum must be finite, found -.inf"},
        {"StepNegative", "a: {type: s8, range: [0, 9], step: -1}\n", "1:36: step must not be negative, found -1"},
        {"StepNegativeOnUnsigned", "a: {type: u8, range: [0, 9], step: -1}\n",
         "1:36: value -1 is not an unsigned 8-bit integer (0..255)"},
        {"StepWithoutRange", "a: {type: u8, step: 2}\n", "1:21: a step needs a range"},
        {"StepIsList", "a: {type: u8, range: [0, 9], step: [2]}\n", "1:36: step must be a single value, found a list"},
        {"EnumEmpty", "a: {type: u8, enum: []}\n", "1:21: enum lists no value"},
        {"EnumIsText", "a: {type: u8, enum: on}\n",
         "1:21: enum must be a list or a map of label: number, found the value 'on'"},
        {"EnumOnBytes", "a: {type: bytes, size: 2, enum: [1]}\n",
         "1:33: enum belongs to numbers; a leaf of type bytes has none"},
        {"EnumElementOutsideType", "a: {type: u8, enum: [1, 300]}\n",
         "1:25: value 300 is not an unsigned 8-bit integer (0..255)"},
        {"EnumNumberOfLabelOutsideType", "a: {type: s8, enum: {x: 128}}\n",
         "1:25: value 128 is not a signed 8-bit integer (-128..127)"},
        {"EnumNumberTwice", "a: {type: u8, enum: [1, 2, 0x1]}\n", "1:28: the number 1 is listed twice"},
        {"EnumNumberOfLabelTwice", "a: {type: u8, enum: {x: 1, y: 1}}\n", "1:28: the number 1 is listed twice"},
        {"EnumLabelTwice", "a: {type: u8, enum: [x, y, x]}\n", "1:28: the label 'x' is listed twice"},
        {"EnumKeyTwice", "a: {type: u8, enum: {x: 1, x: 2}}\n", "1:28: the label 'x' is listed twice"},
        {"EnumLabelEmpty", "a: {type: u8, enum: [x, \"\"]}\n", "1:25: a label is empty"},
        {"EnumLabelWithControlCharacter", "a: {type: u8, enum: [\"x\\n\"]}\n",
         "1:22: the label 'x\\x0a' holds a control character"},
        {"EnumNumbersAndLabels", "a: {type: u8, enum: [1, x]}\n", "1:21: enum lists numbers or labels, not both"},
        {"EnumElementNan", "a: {type: f64, enum: [1, .nan, 2]}\n", "1:22: enum lists numbers or labels, not both"},
        {"EnumNumberOfLabelInfinite", "a: {type: f64, enum: {x: .inf}}\n",
         "1:26: the number of a label must be finite, found .inf"},
        {"EnumAndRange", "a: {type: u8, range: [1, 2], enum: [1, 2]}\n",
         "1:36: a leaf has an enum or a range, not both"},
    };
}

std::vector<BadDescription> badValues() {
    return {
        {"TextWithoutSize", "a:\n  b: {type: text}\n", "2:3: a leaf of type text needs a size"},
        {"BytesWithoutSize", "a: {type: bytes}\n", "1:1: a leaf of type bytes needs a size"},
        {"SizeZero", "a: {type: text, size: 0}\n", "1:23: size must be a number from 1 to 65535, found '0'"},
        {"SizeNegative", "a: {type: bytes, size: -1}\n", "1:24: size must be a number from 1 to 65536, found '-1'"},
        {"SizeTooBigForText", "a: {type: text, size: 65536}\n",
         "1:23: size must be a number from 1 to 65535, found '65536'"},
        {"SizeTooBigForBytes", "a: {type: bytes, size: 65537}\n",
         "1:24: size must be a number from 1 to 65536, found '65537'"},
        {"SizeIsText", "a: {type: text, size: big}\n", "1:23: size must be a number from 1 to 65535, found 'big'"},
        {"SizeOnNumber", "a: {type: u8, size: 1}\n", "1:21: size belongs to text and bytes; u8 has its own"},
        {"TextTooLong", "a: {type: text, size: 3, current: abcd}\n", "1:35: value 'abcd' is longer than 3 characters"},
        {"TextWithNul", "a: {type: text, size: 3, current: \"a\\0\"}\n", "1:35: value 'a\\x00' holds a NUL"},
        {"BytesOdd", "a: {type: bytes, size: 3, default: abc}\n", "1:36: value 'abc' has an odd number of hex digits"},
        {"BytesNotHex", "a: {type: bytes, size: 3, default: 00xy}\n",
         "1:36: value '00xy' is not made of pairs of hex digits"},
        {"BytesTooLong", "a: {type: bytes, size: 1, default: 0011}\n", "1:36: value '0011' is longer than 1 byte"},
        {"ValueAboveType", "a: {type: u8, current: 300}\n",
         "1:24: value 300 is not an unsigned 8-bit integer (0..255)"},
        {"ValueBelowType", "a: {type: u8, current: -1}\n", "1:24: value -1 is not an unsigned 8-bit integer (0..255)"},
        {"FloatForInteger", "a: {type: u8, current: 1.5}\n", "1:24: value 1.5 is not an unsigned 8-bit integer"},
        {"TextForInteger", "a: {type: u8, current: one}\n", "1:24: value 'one' is not an unsigned 8-bit integer"},
        {"TextForFloat", "a: {type: f64, current: one}\n", "1:25: value 'one' is not a number"},
        {"FloatBeyondSingle", "a: {type: f32, current: 1e39}\n", "1:25: value 1e39 is too big or too small for f32"},
        {"ValueOutsideRange", "a: {type: u8, range: [1, 5], factory: 6}\n", "1:39: value 6 is outside 1..5"},
        {"ValueOffStep", "a: {type: u8, range: [0, 9], step: 3, default: 4}\n",
         "1:48: value 4 is not on the step of 0..9 step 3"},
        {"ValueNotListed", "a: {type: u8, enum: [1, 2], current: 3}\n", "1:38: value 3 is not one of 1, 2"},
        {"LabelNotListed", "a: {type: u8, enum: [off, on], current: auto}\n",
         "1:41: value 'auto' is not one of off, on"},
        {"NanUnderARange", "a: {type: f64, range: [0, 1], current: .nan}\n", "1:40: value '.nan' is outside 0..1"},
        {"ValueIsNothing", "a: {type: u8, current: }\n", "1:15: current must be a single value, found nothing"},
        {"ValueIsMap", "a: {type: u8, current: {x: 1}}\n", "1:24: current must be a single value, found a map"},
        {"HookZero", "a: {type: u8, hook: 0}\n", "1:21: hook must be a number from 1 to 4294967295, found '0'"},
        {"HookNegative", "a: {type: u8, hook: -3}\n", "1:21: hook must be a number from 1 to 4294967295, found '-3'"},
        {"HookTooBig", "a: {type: u8, hook: 4294967296}\n",
         "1:21: hook must be a number from 1 to 4294967295, found '4294967296'"},
        {"SecretIsWord", "a: {type: u8, secret: yes}\n", "1:23: secret must be true or false, found 'yes'"},
        {"UnitsIsList", "a: {type: u8, units: [s]}\n", "1:22: units must be a single value, found a list"},
        {"DescriptionIsMap", "a: {type: u8, description: {x: y}}\n",
         "1:28: description must be a single value, found a map"},
    };
}

class BadDescriptionTest : public testing::TestWithParam<BadDescription> {};

TEST_P(BadDescriptionTest, IsOneErrorAtItsPlace) {
    EXPECT_THAT(errorLines(read(GetParam().text)), ElementsAre("d.yaml:" + GetParam().line));
}

std::string descriptionName(const testing::TestParamInfo<BadDescription> &info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Trees, BadDescriptionTest, testing::ValuesIn(badTrees()), descriptionName);
INSTANTIATE_TEST_SUITE_P(Syntax, BadDescriptionTest, testing::ValuesIn(badSyntax()), descriptionName);
INSTANTIATE_TEST_SUITE_P(Types, BadDescriptionTest, testing::ValuesIn(badTypes()), descriptionName);
INSTANTIATE_TEST_SUITE_P(Constraints, BadDescriptionTest, testing::ValuesIn(badConstraints()), descriptionName);
INSTANTIATE_TEST_SUITE_P(Values, BadDescriptionTest, testing::ValuesIn(badValues()), descriptionName);

TEST(YamlErrors, AllErrorsOfAFileComeInOneRunInItsOrder) {
    EXPECT_THAT(
        errorLines(read("types:\n"
                        "  p: {type: q}\n"
                        "a: {type: u8, current: 300, default: -1, factory: x, hook: 0, secret: maybe, zize: 1}\n"
                        "b/c:\n"
                        "  d: {type: text}\n"
                        "  d: {type: s8, range: [2, 1], step: -1, current: 200}\n"
                        "e: 5\n")),
        ElementsAre("d.yaml:2:13: there is no type 'q'; " + kKnownTypes,
                    "d.yaml:3:24: value 300 is not an unsigned 8-bit integer (0..255)",
                    "d.yaml:3:38: value -1 is not an unsigned 8-bit integer (0..255)",
                    "d.yaml:3:51: value 'x' is not an unsigned 8-bit integer",
                    "d.yaml:3:60: hook must be a number from 1 to 4294967295, found '0'",
                    "d.yaml:3:71: secret must be true or false, found 'maybe'", "d.yaml:3:78: a leaf has no key 'zize'",
                    "d.yaml:4:1: the name 'b/c' holds a '/'", "d.yaml:5:3: a leaf of type text needs a size",
                    "d.yaml:6:3: 'd' stands here a second time",
                    "d.yaml:7:4: a node or a leaf must be a map, found the value '5'"));
}

TEST(YamlErrors, BrokenRangeDoesNotHideWhatElseIsWrong) {
    EXPECT_THAT(errorLines(read("d: {type: s8, range: [2, 1], step: -1, current: 200}\n")),
                ElementsAre("d.yaml:1:23: the minimum 2 is above the maximum 1",
                            "d.yaml:1:36: step must not be negative, found -1",
                            "d.yaml:1:49: value 200 is not a signed 8-bit integer (-128..127)"));
}

TEST(YamlErrors, ErrorOfAReusableTypeIsToldOnceHoweverOftenItIsUsed) {
    EXPECT_THAT(errorLines(read("types:\n  p: {type: u8, range: [1, 5], current: 0}\n"
                                "a: {type: p}\nb: {type: p}\nc: {type: p}\n")),
                ElementsAre("d.yaml:2:41: value 0 is outside 1..5 (type 'p', as used by /a)"));
}

TEST(YamlErrors, ChainOfReusableTypesIsBounded) {
    std::string text = "types:\n";
    for (int i = 0; i < 70; i++)
        text += "  t" + std::to_string(i) + ": {type: t" + std::to_string(i + 1) + "}\n";
    text += "  t70: {type: u8}\na: {type: t0}\n";
    const auto lines = errorLines(read(text));
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "d.yaml:65:15: reusable types build on more than 64 others here");
}

TEST(YamlErrors, ReferencesThatMultiplyEndAtTheLimit) {
    std::string text = "n0: &n0 {l: {type: u8}}\n";
    for (int level = 1; level <= 20; level++) {
        const auto name = "n" + std::to_string(level);
        const auto below = "*n" + std::to_string(level - 1);
        text += name + ": &" + name + " {a: " + below + ", b: " + below + "}\n";
    }
    ReadOptions options;
    options.componentsMax = 10000;
    const auto lines = errorLines(read(text, options));
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0], testing::HasSubstr("there are more than 10000 nodes and leaves, references counted"));
}

TEST(YamlErrors, LimitItselfIsAllowed) {
    ReadOptions options;
    options.componentsMax = 3;
    EXPECT_TRUE(read("a:\n  b: {}\nc: {type: u8}\n", options).ok());
    EXPECT_THAT(errorLines(read("a:\n  b: {}\nc: {type: u8}\nd: {}\n", options)),
                ElementsAre("d.yaml:4:1: there are more than 3 nodes and leaves, references counted"));
}

TEST(YamlErrors, MoreLabelsThanNumbersAreRefused) {
    std::string text = "a: {type: s8, enum: [";
    for (int i = 0; i <= 128; i++)
        text += "x" + std::to_string(i) + ", ";
    const auto lines = errorLines(read(text + "]}\n"));
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(
        lines[0],
        testing::HasSubstr("there are more labels than numbers: value 128 is not a signed 8-bit integer (-128..127)"));
}

TEST(YamlErrors, EveryKindOfBadDescriptionHasItsOwnSentence) {
    std::set<std::string> sentences;
    size_t count = 0;
    for (const auto &table : {badTrees(), badSyntax(), badTypes(), badConstraints(), badValues()})
        for (const auto &bad : table) {
            const auto description = read(bad.text);
            ASSERT_FALSE(description.ok()) << bad.name;
            sentences.insert(description.errors.front().sentence);
            count++;
        }
    EXPECT_GE(count, 90U);
    EXPECT_GE(sentences.size(), 85U);
}

}  // namespace
}  // namespace tavdb::image
