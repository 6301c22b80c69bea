// SPDX-License-Identifier: Apache-2.0
// The examples of the user's document are read as they stand there.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "image/schema_json.h"
#include "image/value_text.h"
#include "tools/image/reading.h"

namespace tavdb::image {
namespace {

std::string document() {
    std::ifstream file(std::string(TAVDB_DOCS_DIR) + "/DESCRIPTIONS.md");
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

/// The texts between ```LANGUAGE and ```.
std::vector<std::string> examples(const std::string &language) {
    const auto text = document();
    const auto fence = "\n```" + language + "\n";
    std::vector<std::string> found;
    for (size_t at = text.find(fence); at != std::string::npos; at = text.find(fence, at)) {
        at += fence.size();
        found.push_back(text.substr(at, text.find("\n```\n", at) + 1 - at));
    }
    return found;
}

TEST(Documentation, EveryYamlExampleIsGood) {
    const auto yaml = examples("yaml");
    ASSERT_EQ(yaml.size(), 3U);
    for (const auto &text : yaml)
        EXPECT_GT(countComponents(readGood(text).model).leaves, 0U);
}

TEST(Documentation, ExamplesMeanWhatTheTextSays) {
    const auto yaml = examples("yaml");
    ASSERT_EQ(yaml.size(), 3U);
    const auto gateway = readGood(yaml[0]);
    EXPECT_EQ(leafAt(gateway, "/network/lan/mtu").current, Value(uint64_t{1500}));
    EXPECT_EQ(leafAt(gateway, "/network/lan/mode").current, Value(uint64_t{7}));
    EXPECT_EQ(leafAt(gateway, "/ssh").description, "A TCP port");
    EXPECT_EQ(leafAt(readGood(yaml[1]), "/format").current, Value(uint64_t{1}));
    const auto reused = readGood(yaml[2]);
    EXPECT_EQ(leafAt(reused, "/volume").units, "percent");
    EXPECT_TRUE(std::holds_alternative<Enumeration>(leafAt(reused, "/light").constraint));
    EXPECT_EQ(leafAt(reused, "/title").lengthBytes, 41U);
}

TEST(Documentation, SchemaExampleIsWhatIsWritten) {
    const auto json = examples("json");
    ASSERT_EQ(json.size(), 1U);
    const auto schema = parseSchema(json[0]);
    ASSERT_TRUE(schema.errors.empty()) << schema.errors[0].sentence;
    EXPECT_EQ(formatSchema(schema.schema), json[0]);
}

TEST(Documentation, EveryLossAndOmissionIsExplained) {
    const auto text = document();
    for (size_t i = 0; i < kLossKinds; i++)
        EXPECT_NE(text.find("`" + std::string(describe(static_cast<Loss>(i)).key) + "`"), std::string::npos)
            << describe(static_cast<Loss>(i)).key;
    for (size_t i = 0; i < kOmissionKinds; i++)
        EXPECT_NE(text.find("`" + std::string(describe(static_cast<Omission>(i)).key) + "`"), std::string::npos)
            << describe(static_cast<Omission>(i)).key;
}

}  // namespace
}  // namespace tavdb::image
