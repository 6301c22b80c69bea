// SPDX-License-Identifier: Apache-2.0
// tavdb debug: the library's own dump comes to standard output.
#include "tools/verbs/verbs_fixture.h"

namespace tavdb_test {
namespace {

using testing::HasSubstr;

class Debug : public VerbTest {
protected:
    void SetUp() override {
        build(kDevice);
    }
};

TEST_F(Debug, EveryModuleIsThere) {
    const auto result = tavdb({"debug"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, testing::StartsWith("====(db_manager)\n"));
    for (const auto *module : {"value", "session", "lock", "misc", "media", "media_entry", "control", "constraint",
                               "string", "component", "file_list"})
        EXPECT_THAT(result.out, HasSubstr("====(db_" + std::string(module) + ")\n"));
    EXPECT_THAT(result.out, HasSubstr("[0x       1]:s_db_control_init\n"));
}

TEST_F(Debug, Levels) {
    EXPECT_EQ(tavdb({"debug", "--level", "98"}), says(""));
    EXPECT_THAT(tavdb({"debug", "--level", "5"}).out, HasSubstr("]:ram_size\n"));
    EXPECT_THAT(tavdb({"debug", "--level", "0"}).out, testing::StartsWith("====(db_manager)\n"));
    EXPECT_EQ(tavdb({"debug", "--level", "-1"}).exitCode, 2);
    EXPECT_EQ(tavdb({"debug", "--level", "x"}).exitCode, 2);
}

TEST_F(Debug, JsonHasTheLinesAndTheSizes) {
    const auto dump = json({"debug", "--level", "5"});
    EXPECT_EQ(dump["level"], 5);
    EXPECT_GE(dump["ramSize"], 28);
    EXPECT_GE(dump["debugSize"], 208);
    EXPECT_EQ(dump["lines"][0], "====(db_manager)");
    EXPECT_GT(dump["lines"].size(), 100U);
}

}  // namespace
}  // namespace tavdb_test
