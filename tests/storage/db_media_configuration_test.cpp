// SPDX-License-Identifier: Apache-2.0
// The lines of the media configuration file: what is a token, what is left out,
// which lines count, what a rejected one gives. Plug-ins have their own tests.
#include <cstring>
#include <random>

#include "storage/media_slots.h"
#include "storage/storage_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr size_t kPieceLength = 4095;

class MediaConfiguration : public MediaTest {
protected:
    int32_t loadText(const std::string &text) {
        writeConfText(text);
        return load();
    }
    static std::vector<std::string> hints() {
        std::vector<std::string> hints;
        for (int32_t id = 1; id < media_table.count; ++id)
            hints.emplace_back(media_table.entry[id].hint);
        return hints;
    }
    /// The last line of level 0 of each rejected configuration line.
    std::string rejection(uint32_t code) const {
        return errorCodeTextLine("media_init", kRejectedLineSite, code, confPath());
    }
    /// A line whose token at that place is the given one.
    static std::string lineWith(size_t place, const std::string &token) {
        std::vector<std::string> tokens = builtInTokens();
        tokens[place] = token;
        return lineOf(tokens);
    }
};

TEST_F(MediaConfiguration, CommentAndBlankLinesConsumeNoId) {
    EXPECT_EQ(load({"# a comment", "", "   \t ", line("a"), "  # another", line("b") + "   # id 2"}), 0);
    EXPECT_THAT(hints(), ElementsAre("a", "b"));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(MediaConfiguration, ACommentThatBeginsBeforeAnyTokenHidesAValidLine) {
    EXPECT_EQ(load({"#" + line("a"), line("b")}), 0);
    EXPECT_THAT(hints(), ElementsAre("b"));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(MediaConfiguration, ACommentEndsATokenItTouches) {
    EXPECT_EQ(load({line("a") + "#b c # d"}), 0);
    EXPECT_THAT(hints(), ElementsAre("a"));
}

TEST_F(MediaConfiguration, ACommentCutsTokensOff) {
    EXPECT_EQ(load({"libtavdbfile.so tavdbMemOpen # tavdbMemClose and the rest", line("b")}), 0);
    EXPECT_THAT(hints(), ElementsAre("b"));
}

TEST_F(MediaConfiguration, RunsOfBlanksAndTabsSeparateTokens) {
    std::string spread = "\t \t";
    for (const std::string &token : builtInTokens("a"))
        spread += token + " \t\t  ";
    EXPECT_EQ(load({spread}), 0);
    EXPECT_THAT(hints(), ElementsAre("a"));
}

TEST_F(MediaConfiguration, OtherWhiteSpaceBelongsToItsToken) {
    EXPECT_EQ(load({line("a") + "\r", line("b\vc\fd")}), 0);
    EXPECT_THAT(hints(), ElementsAre("a\r", "b\vc\fd"));
}

TEST_F(MediaConfiguration, ATextThatTheCallerIsSplittingIsNotDisturbed) {
    char text[] = "one two";
    ASSERT_STREQ(strtok(text, " "), "one");
    EXPECT_EQ(load({line("a")}), 0);
    EXPECT_STREQ(strtok(nullptr, " "), "two");
}

TEST_F(MediaConfiguration, TokensAfterTheEighthAreIgnored) {
    EXPECT_EQ(load({line("a") + " b c tavdbMemOpen"}), 0);
    EXPECT_THAT(hints(), ElementsAre("a"));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(MediaConfiguration, TheLastLineNeedsNoLineEnd) {
    EXPECT_EQ(loadText(line("a") + '\n' + line("b")), 0);
    EXPECT_THAT(hints(), ElementsAre("a", "b"));
}

TEST_F(MediaConfiguration, AnEmptyFileIsNoFailure) {
    EXPECT_EQ(loadText(""), 0);
    EXPECT_THAT(hints(), IsEmpty());
}

TEST_F(MediaConfiguration, ALineOf4095CharactersIsTakenWhole) {
    const std::string padding(kPieceLength - line("").size() - 1, ' ');
    const std::string whole = line("") + padding + "a\n" + line("b") + '\n';
    ASSERT_EQ(whole.find('\n'), kPieceLength);
    EXPECT_EQ(loadText(whole), 0);
    EXPECT_THAT(hints(), ElementsAre("a", "b"));
}

TEST_F(MediaConfiguration, EachPieceOfALongerLineIsALineOfItsOwn) {
    std::string piece = line("a");
    piece.resize(kPieceLength, ' ');
    EXPECT_EQ(loadText(piece + piece + line("b") + '\n'), 0);
    EXPECT_THAT(hints(), ElementsAre("a", "a", "b"));
}

TEST_F(MediaConfiguration, ALongCommentEndsWithItsPiece) {
    EXPECT_EQ(loadText('#' + std::string(kPieceLength - 1, 'x') + line("a") + '\n'), 0);
    EXPECT_THAT(hints(), ElementsAre("a"));
}

TEST_F(MediaConfiguration, ATokenAcrossTwoPiecesIsCutInTwo) {
    const std::string padding(kPieceLength - line("").size() - 3, ' ');
    EXPECT_EQ(loadText(line("") + padding + "abcdef\n"), 20) << "the rest of the token is taken for a library";
    EXPECT_THAT(hints(), ElementsAre("abc"));
    EXPECT_THAT(fakeTrace().errors(),
                testing::Contains(errorCodeTextLine("dbs_me_db_media_fill_media_entry", kTokenLibrarySite, 13, "def")));
}

TEST_F(MediaConfiguration, LinesAfterThe127thAreNeverRead) {
    std::vector<std::string> lines(127, line("a"));
    lines.insert(lines.end(), 3, lineWith(2, "noSuchFunction"));
    EXPECT_EQ(load(lines), 0);
    EXPECT_EQ(media_getCount(), 128U);
    EXPECT_TRUE(fakeTrace().noErrors());
    EXPECT_NE(getMedia(&session, 127), nullptr);
    EXPECT_EQ(getMedia(&session, 128), nullptr);
}

TEST_F(MediaConfiguration, RejectedLinesDoNotCountForTheLimit) {
    std::vector<std::string> lines(5, lineWith(2, "noSuchFunction"));
    lines.insert(lines.end(), 128, line("a"));
    EXPECT_EQ(load(lines), 0);
    EXPECT_EQ(media_getCount(), 128U);
}

/// How many tokens a line has that is too short.
class MediaShortLine : public MediaConfiguration, public testing::WithParamInterface<size_t> {};

TEST_P(MediaShortLine, DeliberatelyCountsAsNoLineAtAll) {
    std::vector<std::string> tokens = builtInTokens("a");
    tokens.resize(GetParam());
    EXPECT_EQ(load({lineOf(tokens), line("b")}), 0);
    EXPECT_THAT(hints(), ElementsAre("b"));
}

TEST_P(MediaShortLine, TracesTheMissingTokenOnly) {
    std::vector<std::string> tokens = builtInTokens("a");
    tokens.resize(GetParam());
    EXPECT_EQ(load({lineOf(tokens)}), 0);
    const int32_t site = GetParam() == 7 ? int32_t{kNoHintSite} : slotRows()[GetParam() - 1].missingTokenSite;
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("dbs_me_db_media_fill_media_entry", site)));
    EXPECT_EQ(media_getCount(), 1U);
}
INSTANTIATE_TEST_SUITE_P(Tokens, MediaShortLine, testing::Range<size_t>(1, 8));

/// A slot that a line names.
class MediaWrongFunction : public MediaConfiguration, public testing::WithParamInterface<SlotRow> {
protected:
    std::vector<std::string> expectedErrors(const std::string &token) const {
        const SlotRow &row = GetParam();
        const auto code = static_cast<uint32_t>(row.code);
        return {errorTextLine(row.lookUpName(), row.lookUpSite, token),
                errorLine(row.fillName(), row.functionSite, {UINT32_MAX}),
                errorCodeTextLine("dbs_me_db_media_fill_media_entry", row.missingTokenSite + 1, code, token),
                rejection(code)};
    }
};

TEST_P(MediaWrongFunction, RejectsTheLineWithTheSlotsCode) {
    EXPECT_EQ(load({line("a"), lineWith(GetParam().token, "noSuchFunction")}), GetParam().code);
    EXPECT_TRUE(fakeTrace().errorsAre(expectedErrors("noSuchFunction")));
    EXPECT_THAT(hints(), ElementsAre("a"));
    EXPECT_THAT(eventLog().lines(Category::systemErrors), IsEmpty());
}

TEST_P(MediaWrongFunction, IsAlsoOneOfAnotherSlot) {
    const std::string other = GetParam().token == 1 ? "tavdbMemClose" : "tavdbMemOpen";
    EXPECT_EQ(load({lineWith(GetParam().token, other)}), GetParam().code);
    EXPECT_TRUE(fakeTrace().errorsAre(expectedErrors(other)));
}

TEST_P(MediaWrongFunction, StopsTheLineThere) {
    std::vector<std::string> tokens = builtInTokens("a");
    for (size_t place = GetParam().token; place < 7; ++place)
        tokens[place] = "noSuchFunction" + std::to_string(place);
    EXPECT_EQ(load({lineOf(tokens)}), GetParam().code);
    EXPECT_TRUE(fakeTrace().errorsAre(expectedErrors(tokens[GetParam().token])));
}
INSTANTIATE_TEST_SUITE_P(Slots, MediaWrongFunction, testing::ValuesIn(lineSlotRows()), kRowName);

TEST_F(MediaConfiguration, ARejectedLineBeforeAnAcceptedOneIsDeliberatelyNotReported) {
    EXPECT_EQ(load({lineWith(3, "noSuchFunction"), line("a")}), 0);
    EXPECT_THAT(hints(), ElementsAre("a"));
    EXPECT_THAT(fakeTrace().errors(), testing::Contains(rejection(16)));
}

TEST_F(MediaConfiguration, ARejectedLineInTheMiddleStopsNoLaterLine) {
    EXPECT_EQ(load({line("a"), lineWith(3, "noSuchFunction"), line("b"), line("c")}), 0);
    EXPECT_THAT(hints(), ElementsAre("a", "b", "c"));
}

TEST_F(MediaConfiguration, ARejectedLastLineGivesItsCodeAndKeepsTheLinesBefore) {
    EXPECT_EQ(load({line("a"), line("b"), lineWith(5, "noSuchFunction")}), 18);
    EXPECT_THAT(hints(), ElementsAre("a", "b"));
}

TEST_F(MediaConfiguration, TheLastOfSeveralRejectedLinesGivesTheCode) {
    EXPECT_EQ(load({lineWith(1, "noSuchFunction"), lineWith(6, "noSuchFunction")}), 19);
}

TEST_F(MediaConfiguration, LinesThatAreLeftOutKeepTheCodeOfTheRejectedOneBefore) {
    EXPECT_EQ(load({line("a"), lineWith(4, "noSuchFunction"), "", "# comment", "libtavdbfile.so tavdbMemOpen"}), 17);
    EXPECT_THAT(hints(), ElementsAre("a"));
}

TEST_F(MediaConfiguration, TheNextLineIsFilledIntoThePlaceOfARejectedOne) {
    ASSERT_EQ(load({lineWith(6, "noSuchFunction"),
                    "libtavdbfile.so tavdbFileOpenHD tavdbFileClose tavdbFileRead tavdbFileWrite tavdbFileSeek "
                    "tavdbFileSync3 b"}),
              0);
    const tavDBMMediaEntry &entry = *getMedia(&session, 1);
    EXPECT_EQ(entry.open, tavdbFileOpenHD);
    EXPECT_EQ(entry.lseek, tavdbFileSeek);
    EXPECT_EQ(entry.sync, tavdbFileSync3);
    EXPECT_STREQ(entry.hint, "b");
}

TEST_F(MediaConfiguration, AHintThatCannotBeKeptDropsTheLineDeliberatelyWithoutACode) {
    faultPlan().add({.operation = Operation::alloc, .skip = 1});
    EXPECT_EQ(load({line("a"), line("b")}), 0);
    EXPECT_THAT(hints(), ElementsAre("b"));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("dbs_me_db_media_fill_media_entry", kHintNotKeptSite)));
}

TEST_F(MediaConfiguration, ALibraryThatCannotBeLoadedIsCode20AndReportsCode13) {
    EXPECT_EQ(load({lineWith(0, "/no/such/library.so")}), 20);
    const std::vector<std::string> errors = fakeTrace().errors();
    ASSERT_THAT(errors, SizeIs(4));
    EXPECT_THAT(errors[0], testing::StartsWith("dbs_me_db_media_entry_set_handle():[Error]:[110][0x"));
    EXPECT_THAT(errors[1], testing::StartsWith("dbs_me_db_media_entry_set_handle():[Error]:[111][/no/such/library"));
    EXPECT_EQ(errors[2],
              errorCodeTextLine("dbs_me_db_media_fill_media_entry", kTokenLibrarySite, 13, "/no/such/library.so"));
    EXPECT_EQ(errors[3], rejection(20));
    EXPECT_THAT(eventLog().lines(Category::systemErrors), ElementsAre("systemError 62672 400 13"));
    EXPECT_EQ(media_getCount(), 1U);
}

TEST_F(MediaConfiguration, TheReportOfALibraryStandsBetweenItsTwoTraceLines) {
    EXPECT_EQ(load({lineWith(0, "/no/such/library.so")}), 20);
    const std::vector<std::string> lines = eventLog().lines(Category::trace | Category::systemErrors);
    ASSERT_THAT(lines, SizeIs(5));
    EXPECT_EQ(lines[3], "systemError 62672 400 13");
    EXPECT_THAT(lines[2], testing::StartsWith("trace 0 dbs_me_db_media_fill_media_entry"));
    EXPECT_THAT(lines[4], testing::StartsWith("trace 0 media_init"));
}

/// Texts of tokens, delimiters, comments, line ends and NULs in any order.
class MediaRandomText : public MediaConfiguration, public testing::WithParamInterface<uint32_t> {
protected:
    static std::string randomText(std::mt19937 &random) {
        std::vector<std::string> parts = builtInTokens("a");
        for (const char *const part : {" ", "\t", "\n", "\n", "#", "noSuchFunction", "\r", "\x80"})
            parts.emplace_back(part);
        parts.emplace_back(1, '\0');
        parts.emplace_back(5000, ' ');
        parts.push_back(line("b") + '\n');
        std::string text;
        for (auto i = random() % 60; i > 0; --i)
            text += parts[random() % parts.size()] + (random() % 2 == 0 ? " " : "");
        return text;
    }
};

TEST_P(MediaRandomText, IsTakenOrRejectedAndNothingIsLeftBehind) {
    std::mt19937 random(GetParam());
    for (int i = 0; i < 100; ++i) {
        SCOPED_TRACE("text " + std::to_string(i) + " of seed " + std::to_string(GetParam()));
        writeConfText(randomText(random));
        const int32_t result = load();
        EXPECT_TRUE(result == 0 || (result >= 14 && result <= 20)) << result;
        for (int32_t id = 1; id < media_table.count; ++id)
            EXPECT_EQ(media_table.entry[id].handle, nullptr);
        EXPECT_EQ(fakeMemory().liveBlocks(), media_getCount() - 1);
        unload();
        ASSERT_EQ(fakeMemory().liveText(), "");
    }
}
INSTANTIATE_TEST_SUITE_P(Seeds, MediaRandomText, testing::Range(1U, 6U));

/// dbs_me_db_media_fill_media_entry on an entry of the test's own.
class MediaFill : public MediaConfiguration {
protected:
    int32_t fill(std::string text) {
        const Recording recording;
        return dbs_me_db_media_fill_media_entry(&entry_, text.data());
    }
    tavDBMMediaEntry entry_{};
};

TEST_F(MediaFill, AnEmptyLineIsMinusOneWithoutATrace) {
    EXPECT_EQ(fill(""), -1);
    EXPECT_EQ(fill(" \t\n"), -1);
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(MediaFill, ALineOfLessThanEightTokensIsMinusOne) {
    std::vector<std::string> tokens = builtInTokens();
    while (!tokens.empty()) {
        tokens.pop_back();
        EXPECT_EQ(fill(lineOf(tokens)), -1) << tokens.size() << " tokens";
    }
    EXPECT_EQ(entry_.hint, nullptr);
}

TEST_F(MediaFill, AHintThatCannotBeKeptIsMinusOneAndLeavesNoHint) {
    entry_.hint = "before";
    faultPlan().add({.operation = Operation::alloc});
    EXPECT_EQ(fill(line()), -1);
    EXPECT_EQ(entry_.hint, nullptr);
}

TEST_F(MediaFill, ARejectedLineLeavesTheWordsThatWereSet) {
    EXPECT_EQ(fill(lineWith(3, "noSuchFunction")), 16);
    EXPECT_EQ(entry_.open, tavdbMemOpen);
    EXPECT_EQ(entry_.close, tavdbMemClose);
    EXPECT_EQ(entry_.debug, dbs_me_db_media_file_debug_info);
    EXPECT_EQ(entry_.read, nullptr);
    EXPECT_EQ(entry_.write, nullptr);
    EXPECT_EQ(entry_.hint, nullptr);
}

TEST_F(MediaFill, NeverSetsTheOpenArgument) {
    entry_.openArg = 77;
    EXPECT_EQ(fill(line()), 0);
    EXPECT_EQ(entry_.openArg, 77U);
    EXPECT_EQ(dbs_me_db_media_entry_close(&entry_), 0);
}

}  // namespace
}  // namespace tavdb_test
