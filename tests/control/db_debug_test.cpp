// SPDX-License-Identifier: Apache-2.0
// The dump of the whole library: which modules, in which order, with which
// totals; and line by line the dumps of control, session and semaphores.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_semaphores.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

/// The dump's lines for functions, with the addresses that they have in the library.
Lines functionLines(const std::vector<const char *> &names) {
    void *const library = dlopen("libtavdb.so.1", RTLD_LAZY | RTLD_NOLOAD);
    Lines lines;
    for (const char *const name : names) {
        const void *const address = dlsym(library, name);
        EXPECT_NE(address, nullptr) << name;
        lines.push_back(dumpLine(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address)), name));
    }
    dlclose(library);
    return lines;
}

class WholeDump : public ControlFixture {
protected:
    /// The banners of the library's modules and the calls of the platform's, in order, at that level.
    static Lines modules(int32_t level) {
        const std::string banner = "trace " + std::to_string(level) + " ====";
        Lines lines;
        for (const std::string &line : eventLog().lines())
            if (line.starts_with(banner))
                lines.push_back(line.substr(banner.size()));
            else if (line.starts_with("dump "))
                lines.push_back(line);
        return lines;
    }
    static Lines allModules(int32_t level) {
        const std::string at = " " + std::to_string(level);
        return {"(db_manager)",
                "(db_value)",
                "(db_session)",
                "(db_lock)",
                "(db_misc)",
                "(db_media)",
                "(db_media_entry)",
                "(db_control)",
                "(db_constraint)",
                "(db_string)",
                "(db_component)",
                "dump dbs_me_db_queue_debug_info" + at,
                "(db_file_list)",
                "dump dbs_me_db_hook_debug_info" + at,
                "dump dbs_me_db_hook_entry_debug_info" + at,
                "dump dbs_me_db_hook_post_debug_info" + at};
    }
};

TEST_F(WholeDump, DeliberatelyLevel98PrintsNothingAndLeavesBothTotals) {
    uint32_t debugSize = 5;
    uint32_t ramSize = 6;
    EXPECT_EQ(dbs_me_db_debug(98, &debugSize, &ramSize), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
    EXPECT_EQ(debugSize, 5U);
    EXPECT_EQ(ramSize, 6U);
}

class EachLevel : public WholeDump, public testing::WithParamInterface<int32_t> {};

INSTANTIATE_TEST_SUITE_P(Levels, EachLevel, testing::Values(5, 99, 0, 7), testing::PrintToStringParamName());

TEST_P(EachLevel, AllModulesAreDumpedInTheirOrder) {
    dbs_me_db_debug(GetParam(), nullptr, nullptr);
    EXPECT_THAT(modules(GetParam()), ElementsAreArray(allModules(GetParam())));
}

TEST_P(EachLevel, EverythingIsTracedAtTheLevelThatWasAskedFor) {
    dbs_me_db_debug(GetParam(), nullptr, nullptr);
    EXPECT_EQ(fakeTrace().texts(GetParam()).size(), fakeTrace().lines().size());
}

TEST_F(WholeDump, TheResultIsThatOfTheLastModule) {
    faultPlan().add(
        {.operation = Operation::platformDump, .subject = "dbs_me_db_hook_debug_info", .fault = returning(3)});
    faultPlan().add(
        {.operation = Operation::platformDump, .subject = "dbs_me_db_hook_post_debug_info", .fault = returning(4)});
    EXPECT_EQ(dbs_me_db_debug(5, nullptr, nullptr), 4);
}

TEST_F(WholeDump, AnEarlierModulesResultIsNotTheWholes) {
    faultPlan().add(
        {.operation = Operation::platformDump, .subject = "dbs_me_db_queue_debug_info", .fault = returning(3)});
    EXPECT_EQ(dbs_me_db_debug(5, nullptr, nullptr), 0);
    EXPECT_EQ(modules(5).size(), 16U);
}

TEST_F(WholeDump, TheTotalsAreThoseOfTheModulesTogether) {
    uint32_t debugSum = 0;
    uint32_t ramSum = 0;
    for (const auto dump :
         {dbs_me_db_manager_debug_info, dbs_me_db_value_debug_info, dbs_me_db_session_debug_info,
          dbs_me_db_lock_debug_info, dbs_me_db_misc_debug_info, dbs_me_db_media_debug_info,
          dbs_me_db_media_entry_debug_info, dbs_me_db_control_debug_info, dbs_me_db_constraint_debug_info,
          dbs_me_db_string_debug_info, dbs_me_db_component_debug_info, dbs_me_db_file_list_debug_info})
        dump(5, &debugSum, &ramSum);
    uint32_t debugSize = 0;
    uint32_t ramSize = 0;
    dbs_me_db_debug(5, &debugSize, &ramSize);
    EXPECT_EQ(debugSize, debugSum);
    EXPECT_EQ(ramSize, ramSum);
    EXPECT_GT(debugSum, 208U);
}

/// A module's sizes, added to the totals at every level.
struct Sizes {
    const char *name;
    int32_t (*dump)(int32_t, uint32_t *, uint32_t *);
    uint32_t debugSize;
    uint32_t ramSize;
};

void PrintTo(const Sizes &sizes, std::ostream *stream) {
    *stream << sizes.name;
}

class ModuleSizes : public ControlFixture, public testing::WithParamInterface<std::tuple<Sizes, int32_t>> {};

INSTANTIATE_TEST_SUITE_P(Modules, ModuleSizes,
                         testing::Combine(testing::Values(Sizes{"Control", dbs_me_db_control_debug_info, 0, 8},
                                                          Sizes{"Session", dbs_me_db_session_debug_info, 0, 20},
                                                          Sizes{"Misc", dbs_me_db_misc_debug_info, 28, 0},
                                                          Sizes{"Manager", dbs_me_db_manager_debug_info, 208, 0}),
                                          testing::Values(5, 98, 99, 3)),
                         [](const auto &row) {
                             return std::get<0>(row.param).name + std::to_string(std::get<1>(row.param));
                         });

TEST_P(ModuleSizes, AreAddedToTheTotals) {
    const auto &[sizes, level] = GetParam();
    uint32_t debugSize = 1000;
    uint32_t ramSize = 2000;
    EXPECT_EQ(sizes.dump(level, &debugSize, &ramSize), 0);
    EXPECT_EQ(debugSize, 1000 + sizes.debugSize);
    EXPECT_EQ(ramSize, 2000 + sizes.ramSize);
}

TEST_P(ModuleSizes, NeedNoTotals) {
    const auto &[sizes, level] = GetParam();
    EXPECT_EQ(sizes.dump(level, nullptr, nullptr), 0);
}

TEST_F(WholeDump, DeliberatelyTheManagerPrintsNothingAtLevel98) {
    dbs_me_db_manager_debug_info(98, nullptr, nullptr);
    EXPECT_THAT(fakeTrace().lines(), IsEmpty());
}

TEST_F(WholeDump, TheManagerPrintsItsSizesAtLevel5) {
    dbs_me_db_manager_debug_info(5, nullptr, nullptr);
    const Lines lines = fakeTrace().texts(5);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 3),
              (Lines{"====(db_manager)\n", "[0x      d0]:debug_size\n", "[0x       0]:ram_size\n"}));
}

Lines controlStatics(uint32_t attachCount) {
    return {"====(db_control)\n", "[0x   8442c]:s_db_control_table_size\n", dumpLine(attachCount, "s_db_control_init")};
}

Lines controlFunctions() {
    return functionLines({"dbs_me_db_control_debug_info", "dbs_me_db_control_inclement_ref_count",
                          "dbs_me_db_control_set_table_entry", "dbs_me_db_control_get_table_entry",
                          "dbs_me_db_control_free_table_entry", "dbs_me_db_control_add_table_entry",
                          "dbs_me_db_control_remove_table_entry", "dbs_me_db_control_get_file_name",
                          "dbs_me_db_control_init_table", "dbs_me_db_control_search_table_entry",
                          "dbs_me_db_control_term_table_entry", "dbs_me_db_control_init_table_entry",
                          "dbs_me_db_control_init", "dbs_me_db_control_term", "db_getDb", "tavDBMInit", "tavDBMTerm"});
}

Lines withSizes(Lines lines, uint32_t debugSize, uint32_t ramSize) {
    lines.insert(lines.begin() + 1, {dumpLine(debugSize, "debug_size"), dumpLine(ramSize, "ram_size")});
    return lines;
}

TEST_F(WholeDump, ControlAtLevel98ShowsItsTwoStatics) {
    dbs_me_db_control_debug_info(98, nullptr, nullptr);
    EXPECT_TRUE(fakeTrace().textsAre(98, controlStatics(0)));
}

TEST_F(WholeDump, ControlCountsTheAttachesOfThisProcess) {
    attach();
    attach();
    dbs_me_db_control_debug_info(98, nullptr, nullptr);
    EXPECT_TRUE(fakeTrace().textsAre(98, controlStatics(2)));
}

TEST_F(WholeDump, ControlAtLevel99ShowsItsFunctionsInTheirOrder) {
    dbs_me_db_control_debug_info(99, nullptr, nullptr);
    EXPECT_TRUE(fakeTrace().textsAre(99, joined(controlStatics(0), controlFunctions())));
}

TEST_F(WholeDump, ControlAtLevel5ShowsItsSizesFirst) {
    dbs_me_db_control_debug_info(5, nullptr, nullptr);
    EXPECT_TRUE(fakeTrace().textsAre(5, joined(withSizes(controlStatics(0), 0, 8), controlFunctions())));
}

const char *const kSemaphoreFormat = "[0x%8x]:s_db_session_table_mutex\n";

TEST_F(WholeDump, SessionAtLevel98ShowsItsThreeStatics) {
    attach();
    fakeTrace().clear();
    dbs_me_db_session_debug_info(98, nullptr, nullptr);
    const std::vector<TraceLine> lines = fakeTrace().lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0].text, "====(db_session)\n");
    EXPECT_EQ(lines[1].text, "[0x    401c]:s_db_session_table_size\n");
    EXPECT_EQ(lines[2].format, kSemaphoreFormat);
    EXPECT_EQ(lines[3].text, "[0x       1]:s_db_session_init\n");
}

#if defined(__x86_64__)
TEST_F(WholeDump, DeliberatelyTheSessionSemaphoresAreHandedOverWhole) {
    attach();
    dbs_me_db_session_debug_info(98, nullptr, nullptr);
    // Where a set travels in registers, the first of them begins with the mutex.
    const uint32_t mutex = fakeSemaphores().handleOf("session.tbl", FakeSemaphores::Kind::mutex);
    EXPECT_EQ(fakeTrace().texts(98).at(2), dumpLine(mutex, "s_db_session_table_mutex"));
}
#endif

TEST_F(WholeDump, SessionAtLevel99ShowsItsFunctions) {
    dbs_me_db_session_debug_info(99, nullptr, nullptr);
    const Lines lines = fakeTrace().texts(99);
    ASSERT_GT(lines.size(), 4U);
    EXPECT_THAT(Lines(lines.begin() + 4, lines.end()),
                testing::UnorderedElementsAreArray(functionLines(
                    {"tavDBMInitSession", "tavDBMTermSession", "session_init", "session_term", "session_setError",
                     "session_show", "dbs_me_db_session_add", "dbs_me_db_session_remove", "dbs_me_db_session_get_entry",
                     "dbs_me_db_session_free_entry", "dbs_me_db_session_init_table", "dbs_me_db_session_debug_info"})));
}

TEST_F(WholeDump, SessionAtLevel5ShowsItsSizesFirst) {
    dbs_me_db_session_debug_info(5, nullptr, nullptr);
    const Lines lines = fakeTrace().texts(5);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[1], "[0x       0]:debug_size\n");
    EXPECT_EQ(lines[2], "[0x      14]:ram_size\n");
}

Lines miscStatics(uint32_t waits, uint32_t posts) {
    return {"====(db_misc)\n",
            dumpLine(waits, "s_debug_db_misc_wait"),
            dumpLine(posts, "s_debug_db_misc_post"),
            "[0x       0]:s_debug_db_misc_wait_count\n",
            "[0x       0]:s_debug_db_misc_post_count\n",
            "[0x       0]:s_debug_db_misc_wait_event\n",
            "[0x       0]:s_debug_db_misc_post_event\n",
            "[0x       0]:s_debug_db_misc_reset_event\n"};
}

TEST_F(WholeDump, MiscAtLevel98ShowsItsSevenCountersInTheirOrder) {
    dbs_me_db_misc_debug_info(98, nullptr, nullptr);
    EXPECT_TRUE(fakeTrace().textsAre(98, miscStatics(0, 0)));
}

TEST_F(WholeDump, MiscCountersMoveByThreeForEachCall) {
    attach();
    detach();
    dbs_me_db_misc_debug_info(98, nullptr, nullptr);
    EXPECT_TRUE(fakeTrace().textsAre(98, miscStatics(6, 6)));
}

TEST_F(WholeDump, MiscAtLevel99ShowsItsFunctionsBehindTheCounters) {
    dbs_me_db_misc_debug_info(99, nullptr, nullptr);
    const Lines lines = fakeTrace().texts(99);
    ASSERT_GT(lines.size(), 8U);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 8), miscStatics(0, 0));
    EXPECT_THAT(
        Lines(lines.begin() + 8, lines.end()),
        testing::UnorderedElementsAreArray(functionLines(
            {"misc_getSems", "misc_waitMtx", "misc_postMtx", "misc_waitCount", "misc_postCount", "misc_waitEvent",
             "misc_postEvent", "misc_resetEvent", "misc_freeSems", "misc_pathCompare", "dbs_me_db_misc_debug_info"})));
}

}  // namespace
}  // namespace tavdb_test
