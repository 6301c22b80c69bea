// SPDX-License-Identifier: Apache-2.0
// The way in: recognition by content, files that are no descriptions, and that
// nothing is thrown.
#include "image/description.h"

#include <gmock/gmock.h>

#include <fstream>

#include "tools/image/reading.h"

namespace tavdb::image {
namespace {

using testing::ElementsAre;

TEST(Description, IsRecognisedByContentNotByName) {
    const auto xml = readDescriptionText("x.yaml", "<document><model name='M:1.0'/></document>");
    EXPECT_TRUE(xml.ok());
    EXPECT_EQ(xml.model.source.kind, "datamodel");
    EXPECT_EQ(xml.model.source.name, "M:1.0");
    const auto yaml = readDescriptionText("x.xml", "a: {type: u8}");
    EXPECT_TRUE(yaml.ok());
    EXPECT_EQ(yaml.model.source.kind, "yaml");
}

TEST(Description, XmlIsRecognisedBehindBlanksAndAByteOrderMark) {
    EXPECT_EQ(read("\xEF\xBB\xBF <document><model/></document>").model.source.kind, "datamodel");
    EXPECT_EQ(read("\n\t<document><model/></document>").model.source.kind, "datamodel");
}

TEST(Description, SourceIsNamedWithoutItsFolders) {
    EXPECT_EQ(readDescriptionText("/some/where/d.yaml", "a: {}").model.source.file, "d.yaml");
    EXPECT_EQ(readDescriptionText("d.yaml", "a: {}").model.source.file, "d.yaml");
}

TEST(Description, FileThatIsNotThereIsOneErrorWithoutAPosition) {
    const auto path = testing::TempDir() + "no_such_description";
    const auto description = readDescription(path);
    ASSERT_EQ(description.errors.size(), 1U);
    EXPECT_EQ(formatDiagnostic(path, description.errors[0]), path + ": cannot be opened: No such file or directory");
}

TEST(Description, FolderIsNoDescription) {
    const auto description = readDescription(testing::TempDir());
    ASSERT_EQ(description.errors.size(), 1U);
    EXPECT_EQ(description.errors[0].sentence, "cannot be read: Is a directory");
}

TEST(Description, FileIsReadFromItsPath) {
    const auto path = testing::TempDir() + "description_test." + std::to_string(getpid()) + ".yaml";
    std::ofstream(path) << "a: {type: u8, current: 7}\n";
    const auto description = readDescription(path);
    std::remove(path.c_str());
    ASSERT_TRUE(description.ok());
    EXPECT_EQ(leafAt(description, "/a").current, Value(uint64_t{7}));
}

TEST(Description, WhatIsNoTextSaysWhere) {
    EXPECT_THAT(errorLines(read("")), ElementsAre("d.yaml:1:1: the file is empty"));
    EXPECT_THAT(errorLines(read(" \n\n")), ElementsAre("d.yaml:1:1: the file is empty"));
    EXPECT_THAT(errorLines(read("# nothing\n")), ElementsAre("d.yaml:1:1: the file describes nothing"));
    EXPECT_THAT(errorLines(read("---\n")), ElementsAre("d.yaml:1:1: the file describes nothing"));
    EXPECT_THAT(errorLines(read("a: {}\nb\xE9: {}\n")), ElementsAre("d.yaml:2:2: the file is not UTF-8 text here"));
    EXPECT_THAT(errorLines(read(std::string("a: {}\0", 6))),
                ElementsAre("d.yaml:1:6: the file holds a NUL byte, so it is no text"));
    EXPECT_THAT(errorLines(read("\xFF\xFE"
                                "a")),
                ElementsAre("d.yaml:1:1: the file is not UTF-8 text here"));
}

TEST(Description, ErrorsLeaveNeitherModelNorCounts) {
    const auto description = read("a: {type: u8}\nb: {type: u9}\n");
    EXPECT_FALSE(description.ok());
    EXPECT_TRUE(description.model.root.children.empty());
    EXPECT_EQ(description.report.parameters(), 0U);
}

TEST(Description, XmlThatIsNoDataModelIsAnError) {
    EXPECT_THAT(
        errorLines(read("<html/>")),
        ElementsAre("d.yaml:1:1: this XML is no data model: a document with a model is expected, found 'html'"));
    EXPECT_THAT(
        errorLines(read("<document/>")),
        ElementsAre("d.yaml:1:1: this XML is no data model: a document with a model is expected, found 'document'"));
    EXPECT_THAT(errorLines(read("<document>\n <model>\n</document>")),
                ElementsAre("d.yaml:3:3: this is not well-formed XML: Start-end tags mismatch"));
    EXPECT_THAT(errorLines(read("<")),
                ElementsAre("d.yaml:1:1: this is not well-formed XML: Could not determine tag type"));
}

}  // namespace
}  // namespace tavdb::image
