// SPDX-License-Identifier: Apache-2.0
// One entry out of the schema file: found among many, in whatever shape the file
// is, and never taken from a file that is damaged.
#include "image/schema_file.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tools/image/reading.h"
#include "tools/test_place.h"

namespace tavdb::image {
namespace {

class SchemaFileTest : public testing::Test {
protected:
    SchemaFile open(const std::string &content) {
        place.write("schema.json", content);
        auto file = SchemaFile::open(place / "schema.json");
        EXPECT_TRUE(file) << file.error.sentence;
        return std::move(*file.value);
    }

    tavdb_test::TestPlace place;
};

TEST_F(SchemaFileTest, EveryEntryIsFoundAndNothingElse) {
    Schema schema;
    for (int count : {0, 1, 2, 3, 7, 64, 1000}) {
        while (schema.components.size() < static_cast<size_t>(count))
            schema.components["/n" + std::to_string(schema.components.size() * 7)].units =
                std::to_string(schema.components.size());
        const auto file = open(formatSchema(schema));
        for (const auto &[path, entry] : schema.components)
            EXPECT_EQ(file.find(path).value->units, entry.units) << path << " of " << count;
        for (const auto *path : {"", "/", "/n", "/n00", "/n8", "/zzz"}) {
            const auto found = file.find(path);
            ASSERT_TRUE(found);
            EXPECT_TRUE(found.value->empty()) << path << " of " << count;
        }
    }
}

TEST_F(SchemaFileTest, PathsThatNeedEscapesAreFound) {
    Schema schema;
    for (const auto *path : {"/a\"b", "/a\\b", "/\xC3\xA9", "/a b", "/a:b,", "/{", "/}"})
        schema.components[path].secret = true;
    const auto file = open(formatSchema(schema));
    for (const auto &[path, entry] : schema.components)
        EXPECT_TRUE(file.find(path).value->secret) << path;
}

TEST_F(SchemaFileTest, EntriesAmongLongLinesAreFound) {
    Schema schema;
    for (size_t i = 0; i < 40; i++)
        schema.components["/n" + std::to_string(i)].description = std::string(i * 1000, 'd');
    const auto file = open(formatSchema(schema));
    for (const auto &[path, entry] : schema.components)
        EXPECT_EQ(file.find(path).value->description, entry.description) << path;
    EXPECT_TRUE(file.find("/n3x").value->empty());
}

TEST_F(SchemaFileTest, FileThatSomebodyFormattedIsReadAllTheSame) {
    const auto file = open(
        "{ \"components\": { \"/a\": { \"units\": \"ms\" } },\n  \"format\": 1, \"source\": {\"file\": \"x\"} }\n");
    EXPECT_EQ(file.find("/a").value->units, "ms");
    EXPECT_TRUE(file.find("/b").value->empty());
    EXPECT_EQ(file.readSource().value->file, "x");
}

TEST_F(SchemaFileTest, MissingFileIsASchemaWithoutEntries) {
    const auto file = SchemaFile::open(place / "none");
    ASSERT_TRUE(file);
    EXPECT_FALSE(file.value->isThere());
    EXPECT_TRUE(file.value->find("/a").value->empty());
    EXPECT_TRUE(file.value->readAll().value->components.empty());
}

TEST_F(SchemaFileTest, EmptyFileIsDamaged) {
    const auto file = open("");
    EXPECT_TRUE(file.isThere());
    EXPECT_EQ(file.find("/a").error.kind, FaultKind::damaged);
}

TEST_F(SchemaFileTest, FileLongerThanAnySchemaIsNotOpened) {
    place.write("schema.json", "");
    std::filesystem::resize_file(place / "schema.json", (uintmax_t{256} << 20) + 1);
    const auto file = SchemaFile::open(place / "schema.json");
    EXPECT_EQ(file.error.kind, FaultKind::damaged);
    EXPECT_EQ(file.error.sentence, "is longer than 268435456 bytes");
}

TEST_F(SchemaFileTest, EveryTruncationIsDamaged) {
    const auto whole = formatSchema(makeSchema(readGood("a: {type: u8, units: ms}\nb: {type: u8, units: s}\n").model));
    // The line end at the very end is not needed.
    for (size_t size = 0; size + 1 < whole.size(); size++) {
        const auto file = open(whole.substr(0, size));
        EXPECT_FALSE(file.readAll()) << size;
        EXPECT_FALSE(file.find("/b")) << size;
    }
}

TEST_F(SchemaFileTest, LineThatIsNoEntryIsDamagedAndNamed) {
    const auto file = open(std::string(kSchemaStart) + "{}" + std::string(kSchemaMiddle) + "\"/a\":{\"units\":5}" +
                           std::string(kSchemaEnd));
    EXPECT_EQ(file.find("/a").error.sentence, "schema.json: /a: 'units' is number, not string");
    const auto other =
        open(std::string(kSchemaStart) + "{}" + std::string(kSchemaMiddle) + "nonsense" + std::string(kSchemaEnd));
    EXPECT_EQ(other.find("/a").error.sentence, "schema.json: a line is no entry");
    EXPECT_EQ(other.readAll().error.sentence, "schema.json:5:2: this is not JSON");
}

}  // namespace
}  // namespace tavdb::image
