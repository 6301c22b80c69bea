// SPDX-License-Identifier: Apache-2.0
// The report: counts that add up, one line for each loss, and the table.
#include "image/report.h"

#include <gmock/gmock.h>

#include <set>

namespace tavdb::image {
namespace {

using testing::ElementsAre;

Report sample() {
    Report report;
    report.addExpressed("A", {});
    report.addExpressed("B", {{Loss::units, "s"}, {Loss::pattern, "x"}, {Loss::pattern, "y"}});
    report.addOmitted("C", Omission::duplicate, "again");
    report.addNote("profile", 2);
    report.addNote("profile");
    return report;
}

TEST(Report, CountsAddUpAndAParameterCountsOnceForEachKind) {
    const auto report = sample();
    EXPECT_EQ(report.parameters(), 3U);
    EXPECT_EQ(report.expressedFully(), 1U);
    EXPECT_EQ(report.expressedWithLosses(), 1U);
    EXPECT_EQ(report.notExpressed(), 1U);
    EXPECT_EQ(report.count(Loss::pattern), 1U);
    EXPECT_EQ(report.count(Loss::units), 1U);
    EXPECT_EQ(report.count(Loss::command), 0U);
    EXPECT_EQ(report.count(Omission::duplicate), 1U);
    EXPECT_EQ(report.notes().at("profile"), 3U);
}

TEST(Report, EveryLossHasALine) {
    EXPECT_THAT(sample().lines(), ElementsAre("B: units: s", "B: pattern: x", "B: pattern: y", "C: duplicate: again"));
}

TEST(Report, SummaryShowsWhatOccurred) {
    EXPECT_EQ(formatSummary(sample()),
              "parameters                       3\n"
              "  expressed fully                1\n"
              "  expressed with losses          1\n"
              "    units                        1  units are kept beside the database, not in it\n"
              "    pattern                      1  a pattern is not checked\n"
              "  not expressed                  1\n"
              "    duplicate                    1  it is defined twice, the first one is kept\n"
              "outside of what a configuration tree holds\n"
              "  profile                        3\n");
}

TEST(Report, KeysAreUnique) {
    std::set<std::string_view> keys;
    for (size_t i = 0; i < kLossKinds; i++)
        keys.insert(describe(static_cast<Loss>(i)).key);
    for (size_t i = 0; i < kOmissionKinds; i++)
        keys.insert(describe(static_cast<Omission>(i)).key);
    EXPECT_EQ(keys.size(), kLossKinds + kOmissionKinds);
}

}  // namespace
}  // namespace tavdb::image
