// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "fakes/event_log.h"
#include "fakes/fakes_test.h"
#include "tavdb_platform.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using Trace = FakesTest;
using SystemErrors = FakesTest;

TEST_F(Trace, KeepsLevelTextAndFormat) {
    dbs_me_debug_trace(0, "%s():[Error]:[%d][0x%8x]\n", "comp_getNode", 17, 0x35U);
    dbs_me_debug_trace(2, "%s():[Enter]\n", "tavDBMInit");
    ASSERT_EQ(fakeTrace().lines().size(), 2U);
    EXPECT_EQ(fakeTrace().lines()[0].format, "%s():[Error]:[%d][0x%8x]\n");
    EXPECT_EQ(fakeTrace().lines()[1].level, 2);
    EXPECT_EQ(errorLine("comp_getNode", 17, {0x35}), "comp_getNode():[Error]:[17][0x      35]\n");
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("comp_getNode", 17, {0x35})));
    EXPECT_TRUE(fakeTrace().textsAre(2, {enterLine("tavDBMInit")}));
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("trace 0 comp_getNode():[Error]:[17][0x      35]", "trace 2 tavDBMInit():[Enter]"));
}

TEST_F(Trace, ExpectedLinesHaveTheFormsOfTheLibrary) {
    dbs_me_debug_trace(0, "%s():[Error]:[%d]\n", "f", 1);
    dbs_me_debug_trace(0, "%s():[Error]:[%d][0x%8x][0x%8x]\n", "f", 2, 0xffffffffU, 0U);
    dbs_me_debug_trace(0, "%s():[Error]:[%d][%s]\n", "f", 3, "/x/y");
    dbs_me_debug_trace(0, "%s():[Error]:[%d][0x%8x][%s]\n", "f", 4, 14U, "/x/y");
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("f", 1), errorLine("f", 2, {0xffffffff, 0}),
                                       errorTextLine("f", 3, "/x/y"), errorCodeTextLine("f", 4, 14, "/x/y")}));
    fakeTrace().clear();
    dbs_me_debug_trace(2, "%s():[Debug]:[%d][%s]\n", "f", 5, "/x/y");
    dbs_me_debug_trace(2, "%s():[Return]\n", "f");
    EXPECT_TRUE(fakeTrace().textsAre(2, {debugTextLine("f", 5, "/x/y"), returnLine("f")}));
    EXPECT_TRUE(fakeTrace().noErrors());
    dbs_me_debug_trace(99, "[0x%8x]:name\n", 0x10U);
    EXPECT_TRUE(fakeTrace().textsAre(99, {dumpLine(0x10, "name")}));
}

TEST_F(Trace, ADifferenceIsShown) {
    dbs_me_debug_trace(0, "%s():[Error]:[%d]\n", "f", 1);
    const testing::AssertionResult result = fakeTrace().onlyError(errorLine("f", 2));
    EXPECT_FALSE(result);
    EXPECT_THAT(result.message(), testing::AllOf(testing::HasSubstr("[1]"), testing::HasSubstr("[2]")));
    EXPECT_FALSE(fakeTrace().noErrors());
}

TEST_F(Trace, AnUnknownFormFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(dbs_me_debug_trace(0, "%s():[Error]:[%d][%d]\n", "f", 1, 2), "lines of the form");
    EXPECT_NONFATAL_FAILURE(dbs_me_debug_trace(2, "%s():[Error]:[%d]\n", "f", 1), "lines of the form");
    EXPECT_NONFATAL_FAILURE(dbs_me_debug_trace(0, "%s():[Error]:[%d]", "f", 1), "lines of the form");
    EXPECT_NONFATAL_FAILURE(
        dbs_me_debug_trace(0, "%s():[Error]:[%d][0x%8x][0x%8x][0x%8x][0x%8x][0x%8x][0x%8x][0x%8x][0x%8x]\n", "f", 1, 1U,
                           2U, 3U, 4U, 5U, 6U, 7U, 8U),
        "lines of the form");
}

TEST_F(Trace, LeavesErrnoAlone) {
    errno = EXDEV;
    dbs_me_debug_trace(0, "%s():[Error]:[%d]\n", "f", 1);
    EXPECT_EQ(errno, EXDEV);
}

TEST_F(SystemErrors, AreLogged) {
    EXPECT_EQ(dbs_me_syserr_notify_system_error(62672, 401, 5), 0);
    EXPECT_EQ(dbs_me_syserr_notify_system_error_async(62672, 403, 28, "more"), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("systemError 62672 401 5", "systemError 62672 403 28 async"));
}

}  // namespace
}  // namespace tavdb_test
