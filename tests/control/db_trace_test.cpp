// SPDX-License-Identifier: Apache-2.0
// The forms of the trace lines, letter by letter, with their levels. The fake
// trace refuses any other form by itself.
#include "control/db_trace.h"

#include <gtest/gtest.h>

#include "fakes/fake_trace.h"
#include "fakes/fakes_test.h"

namespace tavdb {
namespace {

using tavdb_test::fakeTrace;
using tavdb_test::TraceLine;

class Trace : public tavdb_test::FakesTest {
protected:
    /// The only line, at that level, with that format and text.
    static void expectLine(int32_t level, const std::string &format, const std::string &text) {
        const std::vector<TraceLine> lines = fakeTrace().lines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].level, level);
        EXPECT_EQ(lines[0].format, format);
        EXPECT_EQ(lines[0].text, text);
    }
};

TEST_F(Trace, EntryIsALineOfLevelTwo) {
    traceEnter("f");
    expectLine(2, "%s():[Enter]\n", "f():[Enter]\n");
}

TEST_F(Trace, ReturnIsALineOfLevelTwo) {
    traceReturn("f");
    expectLine(2, "%s():[Return]\n", "f():[Return]\n");
}

TEST_F(Trace, AScopeTracesItsEntryAndItsEnd) {
    { const TracedScope scope("f"); }
    EXPECT_TRUE(fakeTrace().textsAre(2, {"f():[Enter]\n", "f():[Return]\n"}));
}

TEST_F(Trace, ARemarkCarriesATextAtLevelTwo) {
    traceDebugText({"f", 12}, "/a/b");
    expectLine(2, "%s():[Debug]:[%d][%s]\n", "f():[Debug]:[12][/a/b]\n");
}

TEST_F(Trace, AnErrorMayCarryAText) {
    traceErrorText({"f", 12}, "/a/b");
    expectLine(0, "%s():[Error]:[%d][%s]\n", "f():[Error]:[12][/a/b]\n");
}

TEST_F(Trace, AnErrorMayCarryACodeAndAText) {
    traceErrorCodeText({"f", 12}, -1, "/a/b");
    expectLine(0, "%s():[Error]:[%d][0x%8x][%s]\n", "f():[Error]:[12][0xffffffff][/a/b]\n");
}

TEST_F(Trace, ATextThatIsNullIsShownAsEmpty) {
    traceErrorText({"f", 12}, nullptr);
    expectLine(0, "%s():[Error]:[%d][%s]\n", "f():[Error]:[12][]\n");
}

/// Traces an error with that many words, all different.
void traceWords(size_t count) {
    const uint32_t words[] = {0x1, 0x22, 0x333, 0x7777777};
    traceErrorFields({"f", 12}, {words, count});
}

constexpr const char *kWordTexts[] = {"[0x       1]", "[0x      22]", "[0x     333]", "[0x 7777777]"};

class ErrorWords : public Trace, public testing::WithParamInterface<size_t> {};

TEST_P(ErrorWords, AreHexadecimalAndEightWide) {
    traceWords(GetParam());
    std::string format = "%s():[Error]:[%d]";
    std::string text = "f():[Error]:[12]";
    for (size_t i = 0; i < GetParam(); i++) {
        format += "[0x%8x]";
        text += kWordTexts[i];
    }
    expectLine(0, format + "\n", text + "\n");
}

INSTANTIATE_TEST_SUITE_P(Trace, ErrorWords, testing::Range<size_t>(0, 5));

TEST_F(Trace, NegativeWordsAreShownInFull) {
    traceError({"f", 3}, -1, 5);
    expectLine(0, "%s():[Error]:[%d][0x%8x][0x%8x]\n", "f():[Error]:[3][0xffffffff][0x       5]\n");
}

TEST_F(Trace, FailTracesRecordsAndReturnsTheCode) {
    tavDBMSession session = {1, 2, 3, 4, 5};
    EXPECT_EQ(fail(&session, 80, 17, {"f", 9}, 6), 80);
    EXPECT_EQ(session.errorCode, 80U);
    EXPECT_EQ(session.errorDetail, 17U);
    expectLine(0, "%s():[Error]:[%d][0x%8x]\n", "f():[Error]:[9][0x       6]\n");
}

TEST_F(Trace, FailWithoutASessionStillTracesAndReturnsTheCode) {
    EXPECT_EQ(fail(nullptr, 80, 17, {"f", 9}), 80);
    expectLine(0, "%s():[Error]:[%d]\n", "f():[Error]:[9]\n");
}

TEST_F(Trace, TheLastErrorIsTheSessionsCode) {
    const tavDBMSession session = {1, 2, 46, 4, 5};
    EXPECT_EQ(lastError(&session), 46);
}

TEST_F(Trace, WithoutASessionTheLastErrorIsADatabaseNotOpen) {
    EXPECT_EQ(lastError(nullptr), 83);
}

}  // namespace
}  // namespace tavdb
