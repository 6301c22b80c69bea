// SPDX-License-Identifier: Apache-2.0
// Descriptions that are wrong, through the real command: one line with file, line,
// column and a sentence, the right exit code, and no directory.
#include <gmock/gmock.h>

#include "tools/command/command_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

struct BadFile {
    const char *name;
    std::string text;
    int exitCode;
    std::string line;  ///< behind the file's name
};

void PrintTo(const BadFile &bad, std::ostream *stream) {
    *stream << bad.name;
}

std::string xml(const std::string &inside) {
    return "<d:document xmlns:d='urn:x'>\n<model name='M'>\n" + inside + "\n</model>\n</d:document>\n";
}

const BadFile kBadFiles[] = {
    {"Empty", "", 2, ":1:1: the file is empty"},
    {"Blank", " \n\t\n", 2, ":1:1: the file is empty"},
    {"NulByte", std::string("a: \0", 4), 2, ":1:4: the file holds a NUL byte, so it is no text"},
    {"NotUtf8", "a: {}\nb\xFF: {}\n", 2, ":2:2: the file is not UTF-8 text here"},
    {"SecondDocument", "a: {}\n---\nb: {}\n", 2, ":2:1: a file holds one document, a second one begins here"},
    {"TabIndents", "a:\n\tb: {}\n", 2, ":2:1: a tab indents this line; indent with blanks"},
    {"TwoColons", "a: b: c\n", 2, ":1:5: a value cannot stand here; look at the indentation and the ':' before it"},
    {"UnknownReference", "a: *b\n", 2, ":1:4: this is not YAML: the referenced anchor is not defined"},
    {"NodeIsValue", "a: 5\n", 2, ":1:4: a node or a leaf must be a map, found the value '5'"},
    {"NameTwice", "a: {}\na: {}\n", 2, ":2:1: 'a' stands here a second time"},
    {"NameWithSlash", "a/b: {}\n", 2, ":1:1: the name 'a/b' holds a '/'"},
    {"UnknownKey", "a:\n  type: u8\n  currant: 5\n", 2, ":3:3: a leaf has no key 'currant'"},
    {"KeyTwice", "a: {type: u8, current: 1, current: 2}\n", 2, ":1:27: 'current' stands here a second time"},
    {"TypesIsNothing", "types:\n", 2, ":1:1: types must be a map of leaf descriptions, found nothing"},
    {"TypesInACircle", "types:\n  p: {type: p}\na: {type: p}\n", 2, ":2:13: the reusable type 'p' builds on itself"},
    {"Tag", "a: {type: u8, current: !seven 7}\n", 2, ":1:24: tags such as '!seven' have no meaning here"},
    {"RangeIsNumber", "a: {type: u8, range: 5}\n", 2,
     ":1:22: range must be a list of two numbers, found the value '5'"},
    {"RangeUpsideDown", "a: {type: s8, range: [5, -5]}\n", 2, ":1:23: the minimum 5 is above the maximum -5"},
    {"StepNegative", "a: {type: s8, range: [0, 9], step: -1}\n", 2, ":1:36: step must not be negative, found -1"},
    {"StepWithoutRange", "a: {type: u8, step: 2}\n", 2, ":1:21: a step needs a range"},
    {"EnumEmpty", "a: {type: u8, enum: []}\n", 2, ":1:21: enum lists no value"},
    {"EnumNumberTwice", "a: {type: u8, enum: [1, 2, 0x1]}\n", 2, ":1:28: the number 1 is listed twice"},
    {"EnumLabelTwice", "a: {type: u8, enum: [x, y, x]}\n", 2, ":1:28: the label 'x' is listed twice"},
    {"EnumAndRange", "a: {type: u8, range: [1, 2], enum: [1, 2]}\n", 2,
     ":1:36: a leaf has an enum or a range, not both"},
    {"TextWithoutSize", "a:\n  b: {type: text}\n", 2, ":2:3: a leaf of type text needs a size"},
    {"SizeZero", "a: {type: text, size: 0}\n", 2, ":1:23: size must be a number from 1 to 65535, found '0'"},
    {"SizeOnNumber", "a: {type: u8, size: 1}\n", 2, ":1:21: size belongs to text and bytes; u8 has its own"},
    {"HookZero", "a: {type: u8, hook: 0}\n", 2, ":1:21: hook must be a number from 1 to 4294967295, found '0'"},
    {"SecretIsWord", "a: {type: u8, secret: yes}\n", 2, ":1:23: secret must be true or false, found 'yes'"},
    {"ValueAboveType", "a: {type: u8, current: 300}\n", 4,
     ":1:24: value 300 is not an unsigned 8-bit integer (0..255)"},
    {"ValueIsNoNumber", "a: {type: f64, current: one}\n", 4, ":1:25: value 'one' is not a number"},
    {"ValueOutsideRange", "a: {type: u8, range: [1, 5], factory: 6}\n", 4, ":1:39: value 6 is outside 1..5"},
    {"ValueOffStep", "a: {type: u8, range: [0, 9], step: 3, default: 4}\n", 4,
     ":1:48: value 4 is not on the step of 0..9 step 3"},
    {"ValueNotListed", "a: {type: u8, enum: [1, 2], current: 3}\n", 4, ":1:38: value 3 is not one of 1, 2"},
    {"LabelNotListed", "a: {type: u8, enum: [off, on], current: auto}\n", 4,
     ":1:41: value 'auto' is not one of off, on"},
    {"TextTooLong", "a: {type: text, size: 3, current: abcd}\n", 4, ":1:35: value 'abcd' is longer than 3 characters"},
    {"BytesOdd", "a: {type: bytes, size: 3, default: abc}\n", 4, ":1:36: value 'abc' has an odd number of hex digits"},
};

class BadDescriptionCommand : public CommandTest, public testing::WithParamInterface<BadFile> {};

TEST_P(BadDescriptionCommand, IsOneLineAndNothingIsBuilt) {
    const auto &bad = GetParam();
    place.write("d.yaml", bad.text);
    EXPECT_EQ(tavdb({"build", "d.yaml", "-o", "db"}), fails(bad.exitCode, "d.yaml" + bad.line + "\n"));
    EXPECT_THAT(place.names(), ElementsAre("d.yaml"));
}

std::string nameOf(const testing::TestParamInfo<BadFile> &info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Yaml, BadDescriptionCommand, testing::ValuesIn(kBadFiles), nameOf);

const BadFile kBadModels[] = {
    {"NotXml", "<a><b></a>\n", 2, ":1:"},
    {"OtherXml", "<html>\n</html>\n", 2, ":1:"},
    {"NoModel", "<d:document xmlns:d='urn:x'>\n</d:document>\n", 2, ":1:"},
    {"ElementNotEnded", "<d:document xmlns:d='urn:x'>\n<model name='M'>\n", 2, ":[0-9]+:"},
    {"AttributeNotQuoted", xml("<object name=D./>"), 2, ":3:"},
    {"CommentNotEnded", xml("<!-- x"), 2, ":[0-9]+:"},
};

class BadModelCommand : public CommandTest, public testing::WithParamInterface<BadFile> {};

TEST_P(BadModelCommand, IsOneLineWithItsPlaceAndNothingIsBuilt) {
    const auto &bad = GetParam();
    place.write("m.xml", bad.text);
    const auto result = tavdb({"build", "m.xml", "-o", "db"});
    EXPECT_EQ(result.exitCode, bad.exitCode);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, testing::MatchesRegex("m\\.xml" + bad.line + "[0-9]+: [^\n]+\n"));
    EXPECT_THAT(place.names(), ElementsAre("m.xml"));
}

INSTANTIATE_TEST_SUITE_P(Xml, BadModelCommand, testing::ValuesIn(kBadModels), nameOf);

class BadDescriptions : public CommandTest {};

TEST_F(BadDescriptions, AllErrorsComeInOneRunInTheOrderOfTheFile) {
    place.write("d.yaml",
                "a: {type: u8, current: 300, zize: 1}\n"
                "b/c: {type: u8}\n"
                "d: {type: text}\n");
    EXPECT_EQ(tavdb({"build", "d.yaml", "-o", "db"}),
              fails(2,
                    "d.yaml:1:24: value 300 is not an unsigned 8-bit integer (0..255)\n"
                    "d.yaml:1:29: a leaf has no key 'zize'\n"
                    "d.yaml:2:1: the name 'b/c' holds a '/'\n"
                    "d.yaml:3:1: a leaf of type text needs a size\n"));
    EXPECT_THAT(place.names(), ElementsAre("d.yaml"));
}

}  // namespace
}  // namespace tavdb_test
