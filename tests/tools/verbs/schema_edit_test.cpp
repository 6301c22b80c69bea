// SPDX-License-Identifier: Apache-2.0
#include "image/schema_edit.h"

#include <gtest/gtest.h>

#include "tools/test_place.h"

namespace tavdb::image {
namespace {

Schema schemaOf(std::initializer_list<std::string> secrets) {
    Schema schema;
    for (const auto &path : secrets)
        schema.components[path].secret = true;
    return schema;
}

std::vector<std::string> pathsOf(const Schema &schema) {
    std::vector<std::string> paths;
    for (const auto &[path, entry] : schema.components)
        paths.push_back(path);
    return paths;
}

TEST(SchemaEdit, EntriesBelowAPathGoWithIt) {
    auto schema = schemaOf({"/a", "/a/b", "/a2", "/c"});
    EXPECT_TRUE(removeEntries(schema, "/a"));
    EXPECT_EQ(pathsOf(schema), (std::vector<std::string>{"/a2", "/c"}));
    EXPECT_FALSE(removeEntries(schema, "/a"));
}

TEST(SchemaEdit, CopyReplacesWhatWasThere) {
    auto schema = schemaOf({"/a", "/a/b", "/n/a/old"});
    EXPECT_TRUE(copyEntries(schema, "/a", "/n/a"));
    EXPECT_EQ(pathsOf(schema), (std::vector<std::string>{"/a", "/a/b", "/n/a", "/n/a/b"}));
    EXPECT_FALSE(copyEntries(schema, "/x", "/y"));
}

TEST(SchemaEdit, FileThatWasNotCommittedLeavesNothing) {
    const tavdb_test::TestPlace place;
    place.write("schema.json", "old");
    {
        SchemaReplacement replacement(place / "schema.json");
        EXPECT_FALSE(replacement.prepare(schemaOf({"/a"})));
        EXPECT_EQ(place.names().size(), 2U);
    }
    EXPECT_EQ(place.names().size(), 1U);
    EXPECT_EQ(tavdb_test::bytesOf(place / "schema.json"), "old");
}

TEST(SchemaEdit, LinkKeepsLeadingToTheFile) {
    const tavdb_test::TestPlace place;
    place.write("real.json", "old");
    std::filesystem::create_symlink("real.json", place / "schema.json");
    EXPECT_FALSE(replaceSchema(place / "schema.json", schemaOf({"/a"})));
    EXPECT_TRUE(std::filesystem::is_symlink(place / "schema.json"));
    EXPECT_EQ(tavdb_test::bytesOf(place / "real.json"), formatSchema(schemaOf({"/a"})));
}

}  // namespace
}  // namespace tavdb::image
