// SPDX-License-Identifier: Apache-2.0
// The common shape of a module's dump, on a module of the test's own.
#include "control/db_dump.h"

#include <gtest/gtest.h>

#include "fakes/fake_trace.h"
#include "fakes/fakes_test.h"

namespace tavdb {
namespace {

using tavdb_test::dumpLine;
using tavdb_test::fakeTrace;

using Texts = std::vector<std::string>;

uint32_t s_first = 0x12;
uint32_t s_second = 0xFFFFFFFF;

void someFunction() {}

uint32_t lowWord(void (*function)()) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(function));
}

const DumpWord kWords[] = {TAVDB_DUMP_WORD(s_first), TAVDB_DUMP_WORD(s_second)};
const DumpFunction kFunctions[] = {TAVDB_DUMP_FUNCTION(someFunction)};

class Dump : public tavdb_test::FakesTest {
protected:
    static DumpModule module() {
        return {.banner = "====(module)\n", .debugSize = 7, .ramSize = 9, .words = kWords, .functions = kFunctions};
    }
    /// All lines of the level are these, and there are none of another level.
    static void expectLines(int32_t level, const Texts &expected) {
        EXPECT_TRUE(fakeTrace().textsAre(level, expected));
        EXPECT_EQ(fakeTrace().lines().size(), expected.size());
    }
};

TEST_F(Dump, Level98ShowsBannerAndStatics) {
    EXPECT_EQ(dumpModule(module(), 98, nullptr, nullptr), 0);
    expectLines(98, {"====(module)\n", dumpLine(0x12, "s_first"), dumpLine(0xFFFFFFFF, "s_second")});
}

TEST_F(Dump, Level99ShowsTheFunctionsToo) {
    dumpModule(module(), 99, nullptr, nullptr);
    expectLines(99, {"====(module)\n", dumpLine(0x12, "s_first"), dumpLine(0xFFFFFFFF, "s_second"),
                     dumpLine(lowWord(&someFunction), "someFunction")});
}

TEST_F(Dump, Level5ShowsTheSizesBehindTheBanner) {
    dumpModule(module(), 5, nullptr, nullptr);
    expectLines(5, {"====(module)\n", dumpLine(7, "debug_size"), dumpLine(9, "ram_size"), dumpLine(0x12, "s_first"),
                    dumpLine(0xFFFFFFFF, "s_second"), dumpLine(lowWord(&someFunction), "someFunction")});
}

class OtherLevel : public Dump, public testing::WithParamInterface<int32_t> {};

TEST_P(OtherLevel, IsADumpWithoutSizesAtThatLevel) {
    dumpModule(module(), GetParam(), nullptr, nullptr);
    expectLines(GetParam(), {"====(module)\n", dumpLine(0x12, "s_first"), dumpLine(0xFFFFFFFF, "s_second"),
                             dumpLine(lowWord(&someFunction), "someFunction")});
}

INSTANTIATE_TEST_SUITE_P(Dump, OtherLevel, testing::Values(0, 1, 4, 6, 97, 100, 0x7FFFFFFF),
                         testing::PrintToStringParamName());

class AnyLevel : public Dump, public testing::WithParamInterface<int32_t> {};

TEST_P(AnyLevel, AddsTheSizesToTheTotals) {
    uint32_t debugSize = 100;
    uint32_t ramSize = 200;
    dumpModule(module(), GetParam(), &debugSize, &ramSize);
    EXPECT_EQ(debugSize, 107U);
    EXPECT_EQ(ramSize, 209U);
}

INSTANTIATE_TEST_SUITE_P(Dump, AnyLevel, testing::Values(0, 5, 98, 99), testing::PrintToStringParamName());

TEST_F(Dump, AModuleMayStaySilentAtLevel98AndOnlyAddItsSizes) {
    DumpModule silent = module();
    silent.atLevel98 = AtLevel98::nothing;
    uint32_t debugSize = 0;
    dumpModule(silent, 98, &debugSize, nullptr);
    expectLines(98, {});
    EXPECT_EQ(debugSize, 7U);
}

TEST_F(Dump, ASilentModuleSpeaksAtTheOtherLevels) {
    DumpModule silent = module();
    silent.atLevel98 = AtLevel98::nothing;
    dumpModule(silent, 99, nullptr, nullptr);
    EXPECT_EQ(fakeTrace().texts(99).size(), 4U);
}

TEST_F(Dump, FurtherStaticsStandBetweenTheWordsAndTheFunctions) {
    DumpModule more = module();
    more.moreStatics = [](int32_t level) { dumpText(level, "s_text", "abc"); };
    dumpModule(more, 99, nullptr, nullptr);
    const Texts lines = fakeTrace().texts(99);
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[3], "[abc]:s_text\n");
}

TEST_F(Dump, AStaticIsShownAsItIsNow) {
    s_first = 0x1000;
    dumpModule(module(), 98, nullptr, nullptr);
    EXPECT_EQ(fakeTrace().texts(98).at(1), "[0x    1000]:s_first\n");
    s_first = 0x12;
}

}  // namespace
}  // namespace tavdb
