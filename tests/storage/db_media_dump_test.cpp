// SPDX-License-Identifier: Apache-2.0
// The dumps of the media table and of the media entries: their statics, the
// three rings of failures, the function addresses, sizes and levels.
#include <algorithm>
#include <cerrno>
#include <set>

#include "storage/media_slots.h"
#include "storage/storage_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kToken[] = "s_debug_db_media_fill_media_entry_error_token";
constexpr char kGetRing[] = "s_debug_db_media_get_media_error";
constexpr char kInitRing[] = "s_debug_db_media_init_error";
constexpr char kSyncRing[] = "s_debug_db_media_sync_error";

std::string ringLine(uint32_t sequence, std::initializer_list<uint32_t> words) {
    char text[32];
    snprintf(text, sizeof(text), "[%10u]:", sequence);
    std::string line = text;
    for (const uint32_t word : words) {
        snprintf(text, sizeof(text), "[0x%8x]", word);
        line += text;
    }
    return line + '\n';
}

std::vector<std::string> dumpOf(decltype(dbs_me_db_media_debug_info) *function, int32_t level) {
    fakeTrace().clear();
    EXPECT_EQ(function(level, nullptr, nullptr), 0);
    std::vector<std::string> texts = fakeTrace().texts(level);
    EXPECT_EQ(texts.size(), fakeTrace().lines().size()) << "every line has the level asked for";
    return texts;
}

class MediaDump : public MediaTest {
protected:
    static std::vector<std::string> dump(int32_t level) {
        return dumpOf(dbs_me_db_media_debug_info, level);
    }
    /// The records behind a ring's own line.
    static std::vector<std::string> ring(const std::string &name) {
        std::vector<std::string> records;
        bool inside = false;
        for (const std::string &text : dump(98)) {
            if (text.starts_with("[0x"))
                inside = text.ends_with("]:" + name + '\n');
            else if (inside)
                records.push_back(text);
        }
        return records;
    }
    static std::set<uint32_t> sequencesOf(const std::string &name) {
        std::set<uint32_t> sequences;
        for (const std::string &record : ring(name))
            sequences.insert(static_cast<uint32_t>(std::stoul(record.substr(1))));
        return sequences;
    }
    static std::string tokenLine(const std::string &text) {
        return '[' + text + "]:" + kToken + '\n';
    }
    static std::string keptToken() {
        const std::vector<std::string> texts = dump(98);
        const auto found = std::find_if(texts.begin(), texts.end(), [](const std::string &text) {
            return text.ends_with(std::string(kToken) + '\n');
        });
        return found != texts.end() ? *found : "no line";
    }
};

std::set<uint32_t> rangeOf(uint32_t first, uint32_t last) {
    std::set<uint32_t> numbers;
    for (uint32_t number = first; number <= last; ++number)
        numbers.insert(number);
    return numbers;
}

TEST_F(MediaDump, BeginsWithItsBannerThenCountersTokenAndRings) {
    const std::vector<std::string> texts = dump(98);
    ASSERT_EQ(texts.size(), 11U);
    EXPECT_EQ(texts[0], "====(db_media)\n");
    const std::vector<std::string> counters = {"open", "close", "read", "write", "seek", "sync"};
    for (size_t i = 0; i < counters.size(); ++i)
        EXPECT_EQ(texts[1 + i], dumpLine(0, "s_debug_db_media_def_" + counters[i]));
    EXPECT_EQ(texts[7], tokenLine(""));
    EXPECT_THAT(texts[8], testing::EndsWith(std::string("]:") + kGetRing + '\n'));
    EXPECT_THAT(texts[9], testing::EndsWith(std::string("]:") + kInitRing + '\n'));
    EXPECT_THAT(texts[10], testing::EndsWith(std::string("]:") + kSyncRing + '\n'));
}

TEST_F(MediaDump, EmptyRingsPrintNoRecord) {
    EXPECT_THAT(ring(kGetRing), IsEmpty());
    EXPECT_THAT(ring(kInitRing), IsEmpty());
    EXPECT_THAT(ring(kSyncRing), IsEmpty());
}

TEST_F(MediaDump, TheGetMediaRingHoldsSequenceKindAndId) {
    getMedia(&session, 1);
    getMedia(nullptr, 500);
    getMedia(&session, 0);
    getMedia(&session, -1);
    EXPECT_THAT(ring(kGetRing), ElementsAre(ringLine(1, {1, 1}), ringLine(2, {1, 500})));
    EXPECT_THAT(ring(kInitRing), IsEmpty());
    EXPECT_THAT(ring(kSyncRing), IsEmpty());
}

TEST_F(MediaDump, TheInitRingHoldsFailuresOfFileAndLineBuffer) {
    faultPlan().add({.operation = Operation::sysFopen});
    ASSERT_EQ(load(), 12);
    unload();
    faultPlan().add({.operation = Operation::alloc});
    ASSERT_EQ(load(), 86);
    EXPECT_THAT(ring(kInitRing), ElementsAre(ringLine(1, {1, 0}), ringLine(2, {1, 0})));
    EXPECT_THAT(ring(kGetRing), IsEmpty());
}

TEST_F(MediaDump, TheInitRingDoesNotHoldRejectedLinesAndAFailingLibrary) {
    ASSERT_EQ(load({"libtavdbfile.so noSuchFunction"}), 14);
    unload();
    faultPlan().add({.operation = Operation::mediaInit});
    ASSERT_NE(load(), 0);
    EXPECT_THAT(ring(kInitRing), IsEmpty());
}

TEST_F(MediaDump, TheSyncRingHoldsFailedOpensAsKind2AndFailedSyncsAsKind1) {
    ASSERT_EQ(load(), 0);
    faultPlan().add({.operation = Operation::mediaOpen, .fault = returning(-3, ENOENT)});
    EXPECT_EQ(tavDBMSync(&session, kValueMedia, 0), 22);
    observe();
    faultPlan().add({.operation = Operation::mediaSync, .fault = returning(-1, ENOSPC)});
    EXPECT_EQ(tavDBMSync(&session, kStringMedia, 0), 26);
    const auto fd = static_cast<uint32_t>(eventLog().events(Category::media).at(1).fd);
    EXPECT_THAT(ring(kSyncRing), ElementsAre(ringLine(1, {2, 0, kValueMedia, ENOENT, static_cast<uint32_t>(-3)}),
                                             ringLine(2, {1, 0, kStringMedia, ENOSPC, fd})));
}

TEST_F(MediaDump, ASyncOfAnUnknownIdStandsInTheGetMediaRingOnly) {
    EXPECT_EQ(tavDBMSync(&session, 9, 0), 0);
    EXPECT_THAT(ring(kSyncRing), IsEmpty());
    EXPECT_THAT(ring(kGetRing), ElementsAre(ringLine(1, {1, 9})));
}

TEST_F(MediaDump, ARingKeepsTheLast64Records) {
    for (int32_t i = 1; i <= 64; ++i)
        getMedia(nullptr, 1000 + i);
    EXPECT_EQ(sequencesOf(kGetRing), rangeOf(1, 64));
    for (int32_t i = 65; i <= 70; ++i)
        getMedia(nullptr, 1000 + i);
    EXPECT_EQ(sequencesOf(kGetRing), rangeOf(7, 70));
    EXPECT_EQ(ring(kGetRing).size(), 64U);
}

TEST_F(MediaDump, ARecordKeepsItsWordsWhileTheRingGoesOn) {
    for (int32_t i = 1; i <= 130; ++i)
        getMedia(nullptr, 1000 + i);
    const std::vector<std::string> records = ring(kGetRing);
    for (uint32_t sequence = 67; sequence <= 130; ++sequence)
        EXPECT_THAT(records, testing::Contains(ringLine(sequence, {1, 1000 + sequence})));
}

TEST_F(MediaDump, TheSequenceRunsTo999AndStartsAgainAtOne) {
    for (int32_t i = 0; i < 999; ++i)
        getMedia(nullptr, 1000);
    EXPECT_EQ(sequencesOf(kGetRing), rangeOf(936, 999));
    for (int32_t i = 0; i < 5; ++i)
        getMedia(nullptr, 1000);
    std::set<uint32_t> expected = rangeOf(941, 999);
    expected.merge(rangeOf(1, 5));
    EXPECT_EQ(sequencesOf(kGetRing), expected);
}

TEST_F(MediaDump, TheInitAndSyncRingsWrapAsWell) {
    for (int32_t i = 0; i < 70; ++i) {
        faultPlan().add({.operation = Operation::sysFopen});
        ASSERT_EQ(load(), 12);
        unload();
        tavDBMSync(&session, -1, 0);
    }
    EXPECT_EQ(sequencesOf(kInitRing), rangeOf(7, 70));
    EXPECT_EQ(sequencesOf(kSyncRing), rangeOf(7, 70));
}

TEST_F(MediaDump, TheTokenOfARejectedFunctionIsKept) {
    EXPECT_EQ(load({"libtavdbfile.so tavdbMemOpen noSuchClose x x x x x"}), 15);
    EXPECT_EQ(keptToken(), tokenLine("noSuchClose"));
}

TEST_F(MediaDump, TheTokenOfARejectedLibraryIsKept) {
    EXPECT_EQ(load({"/no/such/library.so a b c d e f g"}), 20);
    EXPECT_EQ(keptToken(), tokenLine("/no/such/library.so"));
}

TEST_F(MediaDump, TheLibraryIsKeptWhenItLacksTheDebugFunction) {
    const std::string library = std::string(MEDIA_PLUGIN_FOLDER) + "/media_plugin_lacks_debug.so";
    EXPECT_EQ(load({lineOf(pluginTokens(library))}), 14);
    EXPECT_EQ(keptToken(), tokenLine(library));
}

TEST_F(MediaDump, OnlyTheLastFailedTokenIsKept) {
    EXPECT_EQ(load({"libtavdbfile.so aRatherLongNameOfNoFunction x", "libtavdbfile.so short x", line()}), 0);
    EXPECT_EQ(keptToken(), tokenLine("short"));
}

TEST_F(MediaDump, ALongTokenIsCutAt511Characters) {
    const std::string token(600, 'x');
    EXPECT_EQ(load({"libtavdbfile.so " + token}), 14);
    EXPECT_EQ(keptToken(), tokenLine(token.substr(0, 511)));
    EXPECT_THAT(fakeTrace().errors(), IsEmpty());
}

TEST_F(MediaDump, ARingsOwnLineShowsItsAddress) {
    const std::vector<DumpedWord> words = (dump(98), dumpedWords(98));
    std::set<uint32_t> addresses;
    for (const DumpedWord &word : words) {
        if (word.name == kGetRing || word.name == kInitRing || word.name == kSyncRing)
            addresses.insert(word.value);
    }
    EXPECT_EQ(addresses.size(), 3U) << "three places, none of them the same";
    EXPECT_FALSE(addresses.contains(0));
}

/// What the dumps of both modules have in common.
struct DumpRow {
    const char *name;
    decltype(dbs_me_db_media_debug_info) *dump;
    const char *banner;
    std::vector<std::string> functions;
};

void PrintTo(const DumpRow &row, std::ostream *stream) {
    *stream << row.name;
}

std::vector<std::string> entryFunctions() {
    std::vector<std::string> names = {"init", "set_handle", "set_hint", "close", "debug_info"};
    for (const SlotRow &row : slotRows()) {
        names.push_back(std::string("set_") + row.name);
        names.push_back(std::string("set_") + row.name + "_function");
    }
    for (std::string &name : names)
        name = "dbs_me_db_media_entry_" + name;
    return names;
}

const std::vector<std::string> kTableFunctions = {"media_init",
                                                  "media_term",
                                                  "getMedia",
                                                  "media_getCount",
                                                  "tavDBMSync",
                                                  "dbs_me_db_media_sync",
                                                  "dbs_me_db_media_fill_media_entry",
                                                  "dbs_me_db_media_debug_info",
                                                  "dbs_me_db_media_def_open",
                                                  "dbs_me_db_media_def_close",
                                                  "dbs_me_db_media_def_read",
                                                  "dbs_me_db_media_def_write",
                                                  "dbs_me_db_media_def_seek",
                                                  "dbs_me_db_media_def_sync"};

class ModuleDump : public MediaTest, public testing::WithParamInterface<DumpRow> {
protected:
    static std::vector<std::string> dump(int32_t level) {
        return dumpOf(GetParam().dump, level);
    }
    /// The functions of the module among the dumped words.
    static std::vector<DumpedWord> dumpedFunctions(int32_t level) {
        dump(level);
        std::vector<DumpedWord> words = dumpedWords(level);
        std::erase_if(words, [](const DumpedWord &word) {
            return word.name.starts_with("s_debug_") || word.name == "debug_size" || word.name == "ram_size";
        });
        return words;
    }
};

TEST_P(ModuleDump, BeginsWithItsBannerAtEveryLevel) {
    for (const int32_t level : {0, 2, 5, 98, 99})
        EXPECT_EQ(dump(level).at(0), GetParam().banner) << level;
}

TEST_P(ModuleDump, ShowsTheAddressOfEachFunctionOnce) {
    std::vector<DumpedWord> expected;
    for (const std::string &name : GetParam().functions)
        expected.push_back({addressInLibrary(name), name});
    for (const DumpedWord &word : expected)
        EXPECT_NE(word.value, 0U) << word.name;
    const std::vector<DumpedWord> actual = dumpedFunctions(99);
    EXPECT_TRUE(std::is_permutation(actual.begin(), actual.end(), expected.begin(), expected.end()));
}

TEST_P(ModuleDump, ShowsNoFunctionAtLevel98) {
    EXPECT_THAT(dumpedFunctions(98), IsEmpty());
}

TEST_P(ModuleDump, ShowsStaticsBeforeFunctionsAtTheOtherLevels) {
    const std::vector<std::string> statics = dump(98);
    const std::vector<std::string> all = dump(99);
    ASSERT_EQ(all.size(), statics.size() + GetParam().functions.size());
    EXPECT_TRUE(std::equal(statics.begin(), statics.end(), all.begin()));
    EXPECT_EQ(dump(2), all);
}

TEST_P(ModuleDump, ShowsBothSizesBehindTheBannerAtLevel5Only) {
    uint32_t debugSize = 0;
    uint32_t ramSize = 0;
    EXPECT_EQ(GetParam().dump(98, &debugSize, &ramSize), 0);
    std::vector<std::string> expected = dump(99);
    expected.insert(expected.begin() + 1, {dumpLine(debugSize, "debug_size"), dumpLine(ramSize, "ram_size")});
    EXPECT_EQ(dump(5), expected);
}

TEST_P(ModuleDump, AddsTheSameSizesToTheTotalsAtEveryLevel) {
    uint32_t once[2] = {0, 0};
    GetParam().dump(98, &once[0], &once[1]);
    for (const int32_t level : {0, 5, 98, 99}) {
        uint32_t totals[2] = {1000, 2000};
        EXPECT_EQ(GetParam().dump(level, &totals[0], &totals[1]), 0);
        EXPECT_EQ(totals[0], 1000 + once[0]) << level;
        EXPECT_EQ(totals[1], 2000 + once[1]) << level;
    }
    EXPECT_GT(once[0], 0U) << "both modules keep diagnostics";
}

TEST_P(ModuleDump, ChangesNothing) {
    ASSERT_EQ(load(), 0);
    const std::vector<std::string> first = dump(99);
    EXPECT_EQ(dump(99), first);
    EXPECT_EQ(media_getCount(), 7U);
}

INSTANTIATE_TEST_SUITE_P(
    Modules, ModuleDump,
    testing::Values(DumpRow{"table", dbs_me_db_media_debug_info, "====(db_media)\n", kTableFunctions},
                    DumpRow{"entry", dbs_me_db_media_entry_debug_info, "====(db_media_entry)\n", entryFunctions()}),
    kRowName);

TEST_F(MediaDump, TheEntrysOnlyStaticIsTheLoadersText) {
    EXPECT_THAT(dumpOf(dbs_me_db_media_entry_debug_info, 98),
                ElementsAre("====(db_media_entry)\n", "[]:s_debug_db_media_entry_set_error_message\n"));
}

}  // namespace
}  // namespace tavdb_test
