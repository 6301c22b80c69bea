// SPDX-License-Identifier: Apache-2.0
// Published data models, read whole. They are not part of this repository: the
// tests look for them in a folder that the build is told, and skip without it.
#include <gtest/gtest.h>

#include <filesystem>

#include "image/constraint_check.h"
#include "image/schema_json.h"
#include "tools/image/reading.h"

namespace tavdb::image {
namespace {

struct RealModel {
    const char *file;
    size_t parameters;
    size_t full;
    size_t lossy;
    size_t nodes;
    std::vector<std::pair<Loss, size_t>> losses;
};

void PrintTo(const RealModel &model, std::ostream *out) {
    *out << model.file;
}

class RealModelTest : public testing::TestWithParam<RealModel> {
protected:
    void SetUp() override {
        const std::string folder = TAVDB_DATA_DIR;
        if (folder.empty())
            GTEST_SKIP() << "no folder with published data models is configured";
        path = folder + "/tr/" + GetParam().file;
        if (!std::filesystem::exists(path))
            GTEST_SKIP() << path << " is not there";
    }

    std::string path;
};

/// Every value of every leaf must be one that the leaf's own constraint admits.
struct ValueChecker {
    size_t &refused;

    void operator()(const std::string &, const Node &) const {}
    void operator()(const std::string &path, const Leaf &leaf) const {
        for (const auto &value : {leaf.current, leaf.defaultValue, leaf.factory})
            if (const auto why = refusal(leaf.type, leaf.constraint, value); !why.empty()) {
                ADD_FAILURE() << path << ": " << why;
                refused++;
            }
    }
};

TEST_P(RealModelTest, IsReadWithoutAnErrorAndItsCountsAddUp) {
    const auto &expected = GetParam();
    const auto description = readDescription(path);
    for (const auto &error : description.errors)
        ADD_FAILURE() << formatDiagnostic(path, error);
    const auto &report = description.report;
    std::cout << formatSummary(report);
    EXPECT_EQ(report.parameters(), expected.parameters);
    EXPECT_EQ(report.expressedFully(), expected.full);
    EXPECT_EQ(report.expressedWithLosses(), expected.lossy);
    EXPECT_EQ(report.notExpressed(), 0U);
    EXPECT_EQ(report.expressedFully() + report.expressedWithLosses() + report.notExpressed(), report.parameters());
    const auto counts = countComponents(description.model);
    EXPECT_EQ(counts.leaves, expected.parameters) << "one instance of every object";
    EXPECT_EQ(counts.nodes, expected.nodes);
}

TEST_P(RealModelTest, LosesWhatIsKnownToBeLost) {
    const auto description = readDescription(path);
    std::map<Loss, size_t> expected(GetParam().losses.begin(), GetParam().losses.end());
    for (size_t i = 0; i < kLossKinds; i++) {
        const auto kind = static_cast<Loss>(i);
        EXPECT_EQ(description.report.count(kind), expected[kind]) << describe(kind).key;
    }
}

TEST_P(RealModelTest, GivesValuesThatItsConstraintsAdmit) {
    const auto description = readDescription(path);
    size_t refused = 0;
    forEachBelow(description.model.root, "/", ValueChecker{refused});
    EXPECT_EQ(refused, 0U);
}

TEST_P(RealModelTest, GivesTheSameSchemaEachTimeAndReadsItBack) {
    const auto text = formatSchema(makeSchema(readDescription(path).model));
    EXPECT_EQ(text, formatSchema(makeSchema(readDescription(path).model)));
    const auto back = parseSchema(text);
    ASSERT_TRUE(back.errors.empty()) << back.errors[0].sentence;
    EXPECT_EQ(formatSchema(back.schema), text);
    EXPECT_EQ(text.find("{{"), std::string::npos) << "templates are gone from descriptions";
}

const RealModel kModels[] = {
    {"tr-140-1-3-1-cwmp-full.xml",
     126,
     99,
     27,
     28,
     {{Loss::units, 16},
      {Loss::lengthAssumed, 5},
      {Loss::listItems, 3},
      {Loss::reference, 6},
      {Loss::enumerationReference, 2}}},
    {"tr-181-2-17-0-cwmp-full.xml",
     6483,
     4154,
     2329,
     1190,
     {{Loss::units, 854},
      {Loss::pattern, 195},
      {Loss::minLength, 117},
      {Loss::lengthGaps, 9},
      {Loss::lengthCut, 29},
      {Loss::lengthAssumed, 565},
      {Loss::rangeGaps, 7},
      {Loss::listItems, 213},
      {Loss::listCount, 48},
      {Loss::listBrackets, 6},
      {Loss::reference, 311},
      {Loss::enumerationReference, 49},
      {Loss::enumerationMarks, 191},
      {Loss::lexicalForm, 332},
      {Loss::defaultKind, 7},
      {Loss::command, 25}}},
    {"tr-196-2-1-2-cwmp-full.xml",
     1734,
     1257,
     477,
     300,
     {{Loss::units, 262},
      {Loss::pattern, 1},
      {Loss::minLength, 2},
      {Loss::lengthAssumed, 75},
      {Loss::rangeGaps, 11},
      {Loss::listItems, 70},
      {Loss::listCount, 100},
      {Loss::reference, 1},
      {Loss::enumerationReference, 1},
      {Loss::enumerationMarks, 1},
      {Loss::lexicalForm, 23},
      {Loss::defaultRefused, 3}}},
};

std::string nameOf(const testing::TestParamInfo<RealModel> &info) {
    const std::string file = info.param.file;
    return "Tr" + file.substr(3, 3);
}

INSTANTIATE_TEST_SUITE_P(Published, RealModelTest, testing::ValuesIn(kModels), nameOf);

}  // namespace
}  // namespace tavdb::image
