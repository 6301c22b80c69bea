// SPDX-License-Identifier: Apache-2.0
// Data models: what each syntax becomes, what is counted as lost, and that the
// counts add up.
#include "image/datamodel_reader.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "image/constraint_check.h"
#include "image/value_text.h"
#include "tools/image/reading.h"

namespace tavdb::image {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string document(const std::string &models, const std::string &types = {}) {
    return "<?xml version='1.0'?><dm:document xmlns:dm='urn:x'>" + types + "<model name='M:1.0'>" + models +
           "</model></dm:document>";
}

std::string parameter(const std::string &name, const std::string &syntax) {
    return "<parameter name='" + name + "' access='readWrite'><description>d</description><syntax>" + syntax +
           "</syntax></parameter>";
}

std::string object(const std::string &name, const std::string &content) {
    return "<object name='" + name + "' access='readOnly'>" + content + "</object>";
}

/// One parameter "P" of object "D.", and the lines of the report about it.
struct One {
    Leaf leaf;
    std::vector<std::string> lines;
};

One readOne(const std::string &syntax, const std::string &types = {}, const ReadOptions &options = {}) {
    const auto description = readGood(document(object("D.", parameter("P", syntax)), types), options);
    EXPECT_EQ(description.report.parameters(), 1U);
    EXPECT_EQ(description.report.notExpressed(), 0U);
    EXPECT_EQ(description.report.expressedFully(), description.report.lines().empty() ? 1U : 0U);
    return {leafAt(description, "/D/P"), description.report.lines()};
}

std::string shapeOf(const Leaf &leaf) {
    auto shape = std::string(typeInfo(leaf.type).name) + " " + std::to_string(leaf.lengthBytes);
    const auto constraint = formatConstraint(leaf.type, leaf.constraint);
    return constraint.empty() ? shape : shape + ": " + constraint;
}

std::string tiersOf(const Leaf &leaf) {
    return formatForLeaf(leaf, leaf.current) + " " + formatForLeaf(leaf, leaf.defaultValue) + " " +
           formatForLeaf(leaf, leaf.factory);
}

TEST(DataModelReader, NumbersTakeTheirTypes) {
    const std::pair<const char *, const char *> shapes[] = {
        {"<boolean/>", "u8 1: 0 (false), 1 (true)"},
        {"<int/>", "s32 4"},
        {"<unsignedInt/>", "u32 4"},
        {"<long/>", "s64 8"},
        {"<unsignedLong/>", "u64 8"},
        {"<decimal/>", "f64 8"},
        {"<int><range minInclusive='-5' maxInclusive='5'/></int>", "s32 4: -5..5"},
        {"<unsignedInt><range minInclusive='0' maxInclusive='240' step='16'/></unsignedInt>", "u32 4: 0..240 step 16"},
        {"<unsignedInt><range maxInclusive='3'/><range minInclusive='9' maxInclusive='9'/></unsignedInt>",
         "u32 4: 0, 1, 2, 3, 9"},
    };
    for (const auto &[syntax, shape] : shapes) {
        const auto one = readOne(syntax);
        EXPECT_EQ(shapeOf(one.leaf), shape);
        EXPECT_THAT(one.lines, IsEmpty()) << syntax;
    }
}

TEST(DataModelReader, EnumerationsAreNumberedInTheOrderOfTheDocument) {
    const auto one = readOne(
        "<string><enumeration value='Up'/><enumeration value=''/><enumeration value='7'/>"
        "<enumeration value='Up'/></string>");
    EXPECT_EQ(shapeOf(one.leaf), "u8 1: 0 (Up), 1 (), 2 (7)");
    EXPECT_THAT(one.lines, IsEmpty());
}

TEST(DataModelReader, LargeEnumerationTakesTwoBytes) {
    const auto values = [](int count) {
        std::string text;
        for (int i = 0; i < count; i++)
            text += "<enumeration value='v" + std::to_string(i) + "'/>";
        return "<string>" + text + "</string>";
    };
    EXPECT_EQ(readOne(values(256)).leaf.type, Type::u8);
    EXPECT_EQ(readOne(values(257)).leaf.type, Type::u16);
}

TEST(DataModelReader, TextsTakeTheirLength) {
    EXPECT_EQ(shapeOf(readOne("<string><size maxLength='64'/></string>").leaf), "text 65");
    EXPECT_EQ(shapeOf(readOne("<hexBinary><size maxLength='6'/></hexBinary>").leaf), "text 13") << "two digits a byte";
    EXPECT_EQ(shapeOf(readOne("<base64><size maxLength='4'/></base64>").leaf), "text 9")
        << "four letters for three bytes";
    EXPECT_EQ(shapeOf(readOne("<dateTime/>").leaf), "text 36");
    EXPECT_EQ(shapeOf(readOne("<string><size maxLength='5'/><size minLength='0' maxLength='9'/></string>").leaf),
              "text 10");
    EXPECT_EQ(shapeOf(readOne("<list><size maxLength='30'/></list><string><size maxLength='5'/></string>").leaf),
              "text 31");
}

TEST(DataModelReader, LengthThatIsNotStatedIsTheOptions) {
    EXPECT_EQ(shapeOf(readOne("<string/>").leaf), "text 257");
    ReadOptions options;
    options.textSizeBytes = 40;
    const auto one = readOne("<string/>", {}, options);
    EXPECT_EQ(shapeOf(one.leaf), "text 41");
    EXPECT_THAT(one.lines, ElementsAre("D.P: length-assumed: 40 bytes"));
    EXPECT_THAT(readOne("<list/><string/>", {}, options).lines, ElementsAre("D.P: length-assumed: 40 bytes"));
    EXPECT_THAT(readOne("<string><size/></string>", {}, options).lines, ElementsAre("D.P: length-assumed: 40 bytes"));
}

TEST(DataModelReader, LengthAboveTheLimitIsCutAndTold) {
    const auto one = readOne("<hexBinary><size maxLength='65535'/></hexBinary>");
    EXPECT_EQ(shapeOf(one.leaf), "text 65536");
    EXPECT_THAT(one.lines, ElementsAre("D.P: length-cut: 65535 needs 131070 bytes, 65535 are kept",
                                       "D.P: lexical-form: hexBinary is kept as text"));
    ReadOptions options;
    options.textSizeBytesMax = 100;
    EXPECT_EQ(shapeOf(readOne("<string><size maxLength='1024'/></string>", {}, options).leaf), "text 101");
    EXPECT_EQ(shapeOf(readOne("<string><size maxLength='99999999999999999999'/></string>").leaf), "text 65536");
    EXPECT_EQ(shapeOf(readOne("<string><size maxLength='0'/></string>").leaf), "text 2")
        << "a text has room for one byte";
}

struct LossCase {
    const char *syntax;
    std::vector<std::string> lines;
};

const LossCase kLossCases[] = {
    {"<int><units value='dBm'/></int>", {"units: dBm"}},
    {"<string><size minLength='3' maxLength='5'/></string>", {"min-length: at least 3"}},
    {"<string><size maxLength='5'/><size minLength='13' maxLength='13'/></string>",
     {"length-gaps: of 2 lengths the longest is kept"}},
    {"<string><size maxLength='5'/><pattern value='[a-z]+'/><pattern value=''/></string>",
     {"pattern: '[a-z]+'", "pattern: ''"}},
    {"<dateTime/>", {"lexical-form: dateTime is kept as text"}},
    {"<unsignedInt><range minInclusive='0' maxInclusive='50'/><range minInclusive='255' maxInclusive='255'/>"
     "</unsignedInt>",
     {"range-gaps: 2 ranges became 0..255"}},
    {"<list minItems='1' maxItems='4'><size maxLength='9'/></list><string/>", {"list-count: items 1..4"}},
    {"<list nestedBrackets='required'><size maxLength='9'/></list><string/>", {"list-brackets: brackets required"}},
    {"<list><size minLength='2' maxLength='9'/></list><string/>", {"min-length: at least 2"}},
    {"<list><size maxLength='9'/></list><unsignedInt><range maxInclusive='3'/></unsignedInt>",
     {"list-items: items are restricted: unsignedInt, ranges"}},
    {"<list><size maxLength='9'/></list><string><enumeration value='a'/></string>",
     {"list-items: items are restricted: listed values"}},
    {"<list><size maxLength='9'/></list><string><size maxLength='2'/><pattern value='x'/></string>",
     {"list-items: items are restricted: lengths, patterns"}},
    {"<string><size maxLength='5'/><pathRef targetType='row' targetParent='.X.'/></string>",
     {"reference: must name row .X."}},
    {"<string><size maxLength='5'/><enumerationRef targetParam='Q'/></string>",
     {"enumeration-reference: values are listed by Q"}},
    {"<string><enumeration value='a' access='readOnly' optional='true'/><enumeration value='b'/></string>",
     {"enumeration-marks: 'a' access readOnly optional true"}},
    {"<string><enumeration value='a' status='deleted' code='3'/></string>",
     {"enumeration-marks: 'a' status deleted code 3"}},
    {"<string><enumeration value='a'/><pattern value='a'/></string>", {"pattern: 'a'"}},
    {"<boolean><range minInclusive='1'/></boolean>", {"facet-ignored: range on boolean"}},
    {"<int><size maxLength='3'/><enumeration value='1'/></int>",
     {"facet-ignored: size on int", "facet-ignored: enumeration on int"}},
    {"<string><size maxLength='3'/><range minInclusive='1'/><novelty/></string>",
     {"facet-ignored: range on string", "facet-ignored: novelty"}},
    {"<int/><default type='implementation' value='5'/>", {"default-kind: implementation default '5'"}},
};

TEST(DataModelReader, EveryLossIsNamed) {
    for (const auto &[syntax, lines] : kLossCases) {
        std::vector<std::string> expected;
        for (const auto &line : lines)
            expected.push_back("D.P: " + line);
        EXPECT_EQ(readOne(syntax).lines, expected) << syntax;
    }
}

TEST(DataModelReader, FactoryDefaultIsTheFactoryTierAndObjectDefaultTheDefaultTier) {
    EXPECT_EQ(tiersOf(readOne("<int/><default type='factory' value='5'/>").leaf), "5 5 5");
    EXPECT_EQ(tiersOf(readOne("<int/><default type='object' value='-7'/>").leaf), "-7 -7 -7");
    EXPECT_EQ(tiersOf(readOne("<int/><default type='object' value='2'/><default type='factory' value='1'/>").leaf),
              "2 2 1");
    EXPECT_EQ(tiersOf(readOne("<boolean/><default type='object' value='true'/>").leaf), "true true true");
    EXPECT_EQ(tiersOf(readOne("<boolean/><default type='object' value='1'/>").leaf), "true true true");
    EXPECT_EQ(tiersOf(readOne("<string><enumeration value='a'/><enumeration value='b'/></string>"
                              "<default type='object' value='b'/>")
                          .leaf),
              "b b b");
}

TEST(DataModelReader, ParameterWithoutDefaultTakesWhatItsConstraintAdmits) {
    EXPECT_EQ(tiersOf(readOne("<unsignedInt><range minInclusive='4'/></unsignedInt>").leaf), "4 4 4");
    EXPECT_EQ(tiersOf(readOne("<string><enumeration value='a'/></string>").leaf), "a a a");
    EXPECT_EQ(tiersOf(readOne("<boolean/>").leaf), "false false false");
}

TEST(DataModelReader, DefaultThatItsSyntaxDoesNotAdmitIsLeftOutAndTold) {
    const LossCase cases[] = {
        {"<int><range minInclusive='3'/></int><default type='object' value='1'/>",
         {"'1': value 1 is outside 3..2147483647"}},
        {"<unsignedInt/><default type='factory' value='-1'/>",
         {"'-1': value -1 is not an unsigned 32-bit integer (0..4294967295)"}},
        {"<unsignedInt/><default type='factory' value=''/>", {"'': it is not written as unsignedInt"}},
        {"<int/><default type='factory' value='0x10'/>", {"'0x10': it is not written as int"}},
        {"<decimal/><default type='factory' value='1e3'/>", {"'1e3': it is not written as decimal"}},
        {"<boolean/><default type='object' value='yes'/>", {"'yes': it is not written as boolean"}},
        {"<string><enumeration value='a'/></string><default type='object' value='b'/>",
         {"'b': value 'b' is not one of a"}},
        {"<string><size maxLength='3'/></string><default type='object' value='abcd'/>",
         {"'abcd': its length 4 is not allowed"}},
        {"<list><size maxLength='3'/></list><string/><default type='object' value='abcd'/>",
         {"'abcd': value 'abcd' is longer than 3 characters"}},
    };
    for (const auto &[syntax, lines] : cases) {
        const auto one = readOne(syntax);
        EXPECT_THAT(one.lines, ElementsAre("D.P: default-refused: " + lines[0])) << syntax;
        EXPECT_EQ(one.leaf.factory, initialValue(one.leaf.type, one.leaf.constraint)) << syntax;
    }
}

/// Only whether the default was taken: other losses of the syntax do not matter here.
bool takesDefault(const std::string &syntax, const std::string &value) {
    const auto lines = readOne(syntax + "<default type='object' value='" + value + "'/>").lines;
    return std::none_of(lines.begin(), lines.end(),
                        [](const std::string &line) { return line.find("default-refused") != std::string::npos; });
}

TEST(DataModelReader, DefaultsOfTextTypesAreJudgedByTheirForm) {
    const std::string date = "<dateTime/>";
    for (const auto *good :
         {"0001-01-01T00:00:00Z", "2024-02-29T23:59:59.123456Z", "2024-02-29T23:59:59+01:00", "2024-02-29T23:59:59"})
        EXPECT_TRUE(takesDefault(date, good)) << good;
    for (const auto *bad :
         {"", "2024-02-29", "2024-02-29T23:59:59.Z", "2024-02-29 23:59:59Z", "2024-02-29T23:59:59+0100"})
        EXPECT_FALSE(takesDefault(date, bad)) << bad;
    const std::string hex =
        "<hexBinary><size minLength='0' maxLength='0'/><size minLength='2' maxLength='3'/></hexBinary>";
    EXPECT_TRUE(takesDefault(hex, ""));
    EXPECT_TRUE(takesDefault(hex, "88aE"));
    EXPECT_FALSE(takesDefault(hex, "88")) << "between two lengths";
    EXPECT_FALSE(takesDefault(hex, "888"));
    EXPECT_FALSE(takesDefault(hex, "88GG"));
    const std::string base64 = "<base64><size maxLength='4'/></base64>";
    EXPECT_TRUE(takesDefault(base64, "AAAAAA=="));
    EXPECT_FALSE(takesDefault(base64, "AAAAAAA=")) << "five bytes";
    EXPECT_FALSE(takesDefault(base64, "AAA"));
    EXPECT_FALSE(takesDefault(base64, "A=AA"));
    EXPECT_TRUE(takesDefault("<decimal/>", "-1.25"));
    EXPECT_FALSE(takesDefault("<decimal/>", "."));
    EXPECT_TRUE(takesDefault("<string><size maxLength='2'/></string>", "\xC3\xA9")) << "lengths count characters";
}

TEST(DataModelReader, DefaultsOfListsAreJudgedItemByItem) {
    const std::string numbers =
        "<list minItems='0' maxItems='3'/><int><range minInclusive='-1' maxInclusive='9'/></int>";
    EXPECT_TRUE(takesDefault(numbers, ""));
    EXPECT_TRUE(takesDefault(numbers, "-1, 9 ,3"));
    EXPECT_FALSE(takesDefault(numbers, "10"));
    EXPECT_FALSE(takesDefault(numbers, "1,2,3,4"));
    EXPECT_FALSE(takesDefault(numbers, "1,,2"));
    EXPECT_FALSE(takesDefault(numbers, "x"));
    EXPECT_FALSE(takesDefault("<list minItems='1'/><string/>", ""));
    const std::string listed = "<list/><string><enumeration value='a'/><enumeration value='b'/></string>";
    EXPECT_TRUE(takesDefault(listed, "b,a"));
    EXPECT_FALSE(takesDefault(listed, "b,c"));
    EXPECT_FALSE(takesDefault("<list/><string><size maxLength='2'/></string>", "ab,abc"));
    EXPECT_TRUE(takesDefault("<list nestedBrackets='required'/><int/>", "[1,2],[3]")) << "not taken apart";
}

TEST(DataModelReader, AssumedLengthGrowsForItsDefault) {
    ReadOptions options;
    options.textSizeBytes = 4;
    const auto one = readOne("<string/><default type='object' value='0123456789'/>", {}, options);
    EXPECT_EQ(shapeOf(one.leaf), "text 11");
    EXPECT_EQ(tiersOf(one.leaf), "0123456789 0123456789 0123456789");
}

TEST(DataModelReader, HiddenAndSecuredAreSecret) {
    const auto secret = [](const std::string &parameterMark, const std::string &syntaxMark) {
        const auto description = readGood(document("<parameter name='P' " + parameterMark + "><syntax " + syntaxMark +
                                                   "><int/></syntax></parameter>"));
        return leafAt(description, "/P").secret;
    };
    EXPECT_TRUE(secret("", "hidden='true'"));
    EXPECT_TRUE(secret("", "secured='true'"));
    EXPECT_TRUE(secret("hidden='1'", ""));
    EXPECT_TRUE(secret("secured='true'", ""));
    EXPECT_FALSE(secret("", "hidden='false'"));
    EXPECT_FALSE(secret("", ""));
}

TEST(DataModelReader, CommandIsALoss) {
    const auto description =
        readGood(document("<parameter name='P'><syntax command='true'><boolean/></syntax></parameter>"));
    EXPECT_THAT(description.report.lines(), ElementsAre("P: command: writing it is meant to trigger an action"));
}

const std::string kTypes =
    "<dataType name='Address'><string><size maxLength='45'/></string></dataType>"
    "<dataType name='V4' base='Address'><size maxLength='15'/><pattern value='x'/></dataType>"
    "<dataType name='Order'><unsignedInt><range minInclusive='1'/></unsignedInt></dataType>"
    "<dataType name='State'><string><enumeration value='a'/><enumeration value='b'/></string></dataType>"
    "<dataType name='Pairs'><list minItems='2' maxItems='2'/><int/></dataType>"
    "<dataType name='Loop' base='Pool'/><dataType name='Pool' base='Loop'/>"
    "<dataType name='Lost' base='Nowhere'/><dataType name='Hollow'><description>x</description></dataType>";

TEST(DataModelReader, DataTypesAreFollowedToTheirBase) {
    EXPECT_EQ(shapeOf(readOne("<dataType ref='Address'/>", kTypes).leaf), "text 46");
    const auto v4 = readOne("<dataType ref='V4'/>", kTypes);
    EXPECT_EQ(shapeOf(v4.leaf), "text 16") << "the derived length replaces that of the base";
    EXPECT_THAT(v4.lines, ElementsAre("D.P: pattern: 'x'"));
    EXPECT_EQ(shapeOf(readOne("<dataType ref='Order'/>", kTypes).leaf), "u32 4: 1..4294967295");
    EXPECT_EQ(shapeOf(readOne("<dataType base='Order'><units value='s'/></dataType>", kTypes).leaf),
              "u32 4: 1..4294967295");
}

TEST(DataModelReader, RestrictionsAtTheUseReplaceThoseOfTheDataType) {
    EXPECT_EQ(
        shapeOf(
            readOne("<dataType ref='State'><enumeration value='b'/><enumeration value='c'/></dataType>", kTypes).leaf),
        "u8 1: 0 (b), 1 (c)");
    EXPECT_EQ(
        shapeOf(readOne("<dataType ref='Order'><range minInclusive='2' maxInclusive='8' step='2'/></dataType>", kTypes)
                    .leaf),
        "u32 4: 2..8 step 2");
}

TEST(DataModelReader, ListsOfDataTypesAndDataTypesThatAreListsAreText) {
    const auto list = readOne("<list><size maxLength='20'/></list><dataType ref='V4'/>", kTypes);
    EXPECT_EQ(shapeOf(list.leaf), "text 21");
    EXPECT_THAT(list.lines, ElementsAre("D.P: list-items: items are restricted: lengths, patterns"));
    const auto pairs = readOne("<dataType ref='Pairs'/>", kTypes);
    EXPECT_EQ(shapeOf(pairs.leaf), "text 257");
    EXPECT_THAT(pairs.lines, ElementsAre("D.P: length-assumed: 256 bytes", "D.P: list-count: items 2..2",
                                         "D.P: list-items: items are restricted: int"));
    EXPECT_THAT(readOne("<list><size maxLength='9'/></list><dataType ref='Pairs'/>", kTypes).lines,
                ElementsAre("D.P: list-items: items are restricted: lists, int"));
}

TEST(DataModelReader, ParameterWhoseTypeIsNotKnownIsCountedAndNamed) {
    const auto description = readGood(document(
        object("D.", parameter("A", "<dataType ref='Missing'/>") + parameter("B", "<dataType ref='Loop'/>") +
                         parameter("C", "<dataType ref='Lost'/>") + parameter("D", "<dataType ref='Hollow'/>") +
                         parameter("E", "<novelty/>") + parameter("F", "<int/>")),
        kTypes));
    EXPECT_THAT(description.report.lines(),
                ElementsAre("D.A: unknown-type: there is no data type 'Missing'",
                            "D.B: unknown-type: data types build on each other without an end, at 'Pool'",
                            "D.C: unknown-type: there is no data type 'Nowhere'",
                            "D.D: unknown-type: the data type 'Hollow' names no type that is known",
                            "D.E: unknown-type: the syntax names no type that is known"));
    EXPECT_EQ(description.report.parameters(), 6U);
    EXPECT_EQ(description.report.notExpressed(), 5U);
    EXPECT_EQ(description.report.count(Omission::unknownType), 5U);
    EXPECT_EQ(countComponents(description.model).leaves, 1U);
}

TEST(DataModelReader, ObjectsComeInAnyOrderAndMakeTheirParents) {
    const auto description = readGood(document(object("A.B.C.", parameter("P", "<int/>")) +
                                               object("A.", parameter("Q", "<int/>")) + parameter("R", "<int/>")));
    EXPECT_EQ(leafAt(description, "/A/B/C/P").name, "P");
    EXPECT_EQ(leafAt(description, "/A/Q").name, "Q");
    EXPECT_EQ(leafAt(description, "/R").name, "R") << "a parameter of the model itself";
    EXPECT_EQ(countComponents(description.model).nodes, 3U);
}

TEST(DataModelReader, InstancesAreNumberedFromOne) {
    const auto text =
        document(object("A.{i}.", parameter("P", "<int/>")) + object("A.{i}.B.{i}.", parameter("Q", "<int/>")));
    EXPECT_EQ(leafAt(readGood(text), "/A/1/B/1/Q").name, "Q");
    ReadOptions options;
    options.instances = 3;
    const auto three = readGood(text, options);
    for (const auto *path : {"/A/1/P", "/A/3/P", "/A/2/B/3/Q", "/A/3/B/1/Q"})
        EXPECT_NE(findComponent(three.model, path), nullptr) << path;
    EXPECT_EQ(findComponent(three.model, "/A/4"), nullptr);
    EXPECT_EQ(countComponents(three.model).leaves, 3U + 9U);
    EXPECT_EQ(three.report.parameters(), 2U) << "parameters are counted, not their instances";
}

TEST(DataModelReader, TooManyInstancesAreAnError) {
    ReadOptions options;
    options.instances = 4000000000;
    std::string path;
    for (int i = 0; i < 10; i++)
        path += "A.{i}.";
    EXPECT_THAT(
        errorLines(read(document(object(path, parameter("P", "<int/>"))), options)),
        ElementsAre("d.yaml:1:1: with 4000000000 instances of every object there are more than 1000000 nodes and "
                    "leaves"));
    options.instances = 10;
    options.componentsMax = 21;
    const auto text = document(object("A.{i}.", parameter("P", "<int/>")));
    EXPECT_TRUE(read(text, options).ok()) << "one node, ten instances, ten leaves";
    options.componentsMax = 20;
    EXPECT_FALSE(read(text, options).ok());
}

TEST(DataModelReader, SecondDefinitionIsReportedAndTheFirstKept) {
    const auto description = readGood(document(object("A.", parameter("P", "<int/>") + parameter("P", "<boolean/>")) +
                                               object("A.", parameter("P", "<long/>") + parameter("Q", "<int/>"))));
    EXPECT_EQ(leafAt(description, "/A/P").type, Type::s32);
    EXPECT_EQ(leafAt(description, "/A/Q").type, Type::s32) << "an object may be continued";
    EXPECT_EQ(description.report.count(Omission::duplicate), 2U);
    EXPECT_EQ(description.report.parameters(), 4U);
    EXPECT_THAT(description.report.lines(), ElementsAre("A.P: duplicate: the first definition is kept",
                                                        "A.P: duplicate: the first definition is kept"));
}

TEST(DataModelReader, NodeAndLeafNeverShareAName) {
    const auto leafFirst =
        readGood(document(object("A.", parameter("B", "<int/>")) + object("A.B.", parameter("P", "<int/>"))));
    EXPECT_THAT(leafFirst.report.lines(), ElementsAre("A.B.P: name-taken: a parameter is called 'B' already"));
    const auto nodeFirst =
        readGood(document(object("A.B.", parameter("P", "<int/>")) + object("A.", parameter("B", "<int/>"))));
    EXPECT_THAT(nodeFirst.report.lines(), ElementsAre("A.B: name-taken: an object is called 'B' already"));
    const auto numbered =
        readGood(document(object("A.{i}.", parameter("P", "<int/>")) + object("A.1.", parameter("P", "<int/>")) +
                          object("B.", parameter("2", "<int/>")) + object("B.{i}.", parameter("P", "<int/>"))));
    EXPECT_THAT(numbered.report.lines(), ElementsAre("A.1.P: name-taken: '1' stands beside numbered instances",
                                                     "B.{i}.P: name-taken: '{i}' stands beside numbered instances"));
}

TEST(DataModelReader, NamesThatAreNoNamesAreReported) {
    const auto description = readGood(
        document(object("A..B.", parameter("P", "<int/>")) + object("A/x.", parameter("P", "<int/>")) +
                 object("A.", parameter("", "<int/>") + parameter("{i}", "<int/>") + parameter("a/b", "<int/>"))));
    EXPECT_EQ(description.report.count(Omission::badName), 5U);
    EXPECT_EQ(description.report.parameters(), 5U);
    EXPECT_EQ(countComponents(description.model).leaves, 0U);
}

TEST(DataModelReader, ParametersOfAnObjectWithoutANameAreReportedAndNotTheRoots) {
    const auto description = readGood(document(object("", parameter("P", "<int/>")) + object("A.", "")));
    EXPECT_EQ(description.report.count(Omission::badName), 1U);
    EXPECT_EQ(countComponents(description.model).leaves, 0U);
}

TEST(DataModelReader, TooDeepObjectsAreReported) {
    std::string path;
    for (int i = 0; i < 65; i++)
        path += "A.";
    const auto description = readGood(document(object(path, parameter("P", "<int/>"))));
    EXPECT_EQ(description.report.count(Omission::nested), 1U);
}

TEST(DataModelReader, WhatIsNoParameterIsANote) {
    const auto description = readGood(document(
        object("A.",
               "<parameter ref='P'/><uniqueKey/><command name='C()'><input><parameter name='X'><syntax><int/></syntax>"
               "</parameter></input></command>") +
        "<profile name='x'><object ref='A.'><parameter ref='P'/></object></profile>"));
    EXPECT_EQ(description.report.parameters(), 0U);
    EXPECT_EQ(description.report.notes().at("parameter without a syntax"), 1U);
    EXPECT_EQ(description.report.notes().at("command"), 1U);
    EXPECT_EQ(description.report.notes().at("uniqueKey"), 1U);
    EXPECT_EQ(description.report.notes().at("profile"), 1U);
    EXPECT_EQ(description.report.notes().at("object access readOnly"), 1U);
}

TEST(DataModelReader, DescriptionsAndUnitsAreKeptAsPlainText) {
    const auto description = readGood(document(
        "<object name='D.L.{i}.'><description>All of\n  {{object}}.</description><parameter name='P'><description>Time "
        "of {{object}} in "
        "{{units}}, {{param}}.</description><syntax><int><units value='0.1 s'/></int></syntax></parameter></object>"));
    EXPECT_EQ(nodeAt(description, "/D/L/1").description, "All of L.");
    EXPECT_EQ(leafAt(description, "/D/L/1/P").description, "Time of L in 0.1 s, P.");
    EXPECT_EQ(leafAt(description, "/D/L/1/P").units, "0.1 s");
}

TEST(DataModelReader, LeavesKnowTheirPlace) {
    const auto description = readGood(
        "<document>\n <model>\n  <object name='A.'>\n   <parameter name='P'><syntax><int/></syntax>"
        "</parameter>\n  </object>\n </model>\n</document>\n");
    EXPECT_EQ(leafAt(description, "/A/P").position, (Position{4, 4}));
    EXPECT_EQ(nodeAt(description, "/A").position, (Position{3, 3}));
}

TEST(DataModelReader, DeepAndWideDocumentsAreNoDanger) {
    std::string deep;
    for (int i = 0; i < 200000; i++)
        deep += "<a>";
    EXPECT_FALSE(read("<document><model>" + deep + "</model></document>").ok());
    std::string wide;
    for (int i = 0; i < 20000; i++)
        wide += parameter("P" + std::to_string(i), "<int/>");
    EXPECT_EQ(readGood(document(object("A.", wide))).report.expressedFully(), 20000U);
}

}  // namespace
}  // namespace tavdb::image
