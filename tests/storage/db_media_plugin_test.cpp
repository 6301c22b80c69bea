// SPDX-License-Identifier: Apache-2.0
// Media from plug-in libraries, loaded for real from configuration lines: which
// libraries are accepted, how long they stay loaded, and that the accesses of
// the library reach them.
#include <dlfcn.h>

#include "storage/media_slots.h"
#include "storage/storage_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

std::string pluginPath(const std::string &kind) {
    return std::string(MEDIA_PLUGIN_FOLDER) + "/media_plugin_" + kind + ".so";
}

std::string pluginLine(const std::string &kind) {
    return lineOf(pluginTokens(pluginPath(kind)));
}

bool isLoaded(const std::string &kind) {
    void *const library = dlopen(pluginPath(kind).c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (library != nullptr)
        dlclose(library);
    return library != nullptr;
}

class MediaPlugin : public MediaTest {
protected:
    /// What the plug-in of a medium was called for.
    static std::string callsOf(int32_t mediaId) {
        const void *const calls = dlsym(media_table.entry[mediaId].handle, "pluginCalls");
        return calls != nullptr ? static_cast<const char *>(calls) : "no such object";
    }
    std::string rejection(uint32_t code) const {
        return errorCodeTextLine("media_init", kRejectedLineSite, code, confPath());
    }
};

TEST_F(MediaPlugin, ACompleteLibraryFillsEverySlotFromItself) {
    ASSERT_EQ(load({pluginLine("complete")}), 0);
    EXPECT_TRUE(fakeTrace().noErrors());
    const tavDBMMediaEntry &entry = *getMedia(&session, 1);
    ASSERT_NE(entry.handle, nullptr);
    for (const SlotRow &row : slotRows())
        EXPECT_EQ(row.word(entry), dlsym(entry.handle, row.pluginFunction)) << row.name;
    EXPECT_STREQ(entry.hint, "flash0");
}

TEST_F(MediaPlugin, ItsDebugFunctionIsItsOwnAndNotTheBuiltInOne) {
    ASSERT_EQ(load({pluginLine("complete")}), 0);
    EXPECT_NE(getMedia(&session, 1)->debug, dbs_me_db_media_file_debug_info);
}

TEST_F(MediaPlugin, AccessesReachTheLibrary) {
    ASSERT_EQ(load({pluginLine("complete")}), 0);
    EXPECT_EQ(flst_m_setFirstOffset(&session, 1, 64), 0);
    EXPECT_EQ(flst_m_get(&session, 1, 16), 0U);
    EXPECT_EQ(callsOf(1),
              "open flash0 0;write 7 4@12;close 7;"
              "open flash0 0;read 7 4@12;close 7;open flash0 0;read 7 8@64;close 7;");
}

TEST_F(MediaPlugin, SyncHandsTheCallersArgumentOver) {
    ASSERT_EQ(load({pluginLine("complete")}), 0);
    EXPECT_EQ(tavDBMSync(&session, 1, 4711), 0);
    EXPECT_EQ(callsOf(1), "open flash0 0;sync 7 4711;close 7;");
}

TEST_F(MediaPlugin, AnOpenThatFailsInTheLibraryIsRecordedWithItsErrorNumber) {
    ASSERT_EQ(load({lineOf(pluginTokens(pluginPath("complete"), "flash9"))}), 0);
    observe();
    EXPECT_EQ(tavDBMSync(&session, 1, 0), 22);
    EXPECT_TRUE(failedWith(22, ENOENT, {errorLine("dbs_me_db_media_sync", kSyncOpenSite, {0, 1, ENOENT})}));
}

TEST_F(MediaPlugin, OneLibraryServesSeveralLinesAndIsLoadedOncePerLine) {
    std::vector<std::string> other = pluginTokens(pluginPath("complete"));
    std::swap(other[3], other[4]);
    EXPECT_EQ(load({pluginLine("complete"), lineOf(other)}), 0);
    EXPECT_EQ(eventLog().count(Operation::sysDlopen), 2U);
    EXPECT_EQ(reinterpret_cast<const void *>(getMedia(&session, 2)->read),
              dlsym(getMedia(&session, 1)->handle, "pluginWrite"));
    EXPECT_TRUE(isLoaded("complete"));
    EXPECT_EQ(unload(), 0);
    EXPECT_FALSE(isLoaded("complete")) << "each line gives its load back";
}

TEST_F(MediaPlugin, StandsBesideBuiltInMedia) {
    EXPECT_EQ(load({line("data.med"), pluginLine("complete"), line("text.med")}), 0);
    EXPECT_EQ(media_getCount(), 4U);
    EXPECT_EQ(getMedia(&session, 1)->handle, nullptr);
    EXPECT_NE(getMedia(&session, 2)->handle, nullptr);
    EXPECT_EQ(getMedia(&session, 3)->handle, nullptr);
}

TEST_F(MediaPlugin, StaysLoadedUntilTheLastTerm) {
    ASSERT_EQ(load({pluginLine("complete")}), 0);
    ASSERT_EQ(load(), 0);
    EXPECT_EQ(unload(), 0);
    EXPECT_TRUE(isLoaded("complete"));
    observe();
    EXPECT_EQ(unload(), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("sys.dlclose " + pluginPath("complete"), "free 7"));
    EXPECT_FALSE(isLoaded("complete"));
}

TEST_F(MediaPlugin, AFunctionMayHaveAnyName) {
    std::vector<std::string> tokens = pluginTokens(pluginPath("complete"));
    tokens[6] = "pluginClose";
    EXPECT_EQ(load({lineOf(tokens)}), 0);
}

TEST_F(MediaPlugin, ABuiltInNameIsNotFoundInALibrary) {
    std::vector<std::string> tokens = pluginTokens(pluginPath("complete"));
    tokens[1] = "tavdbMemOpen";
    EXPECT_EQ(load({lineOf(tokens)}), 14);
}

TEST_F(MediaPlugin, AnUnresolvedSymbolKeepsTheLibraryFromLoading) {
    EXPECT_EQ(load({pluginLine("unresolved")}), 20);
    const std::vector<std::string> errors = fakeTrace().errors();
    ASSERT_THAT(errors, SizeIs(4));
    EXPECT_THAT(errors[0], StartsWith("dbs_me_db_media_entry_set_handle():[Error]:[110][0x"));
    EXPECT_THAT(errors[1], testing::HasSubstr("pluginFunctionThatNothingDefines"));
    EXPECT_EQ(errors[2],
              errorCodeTextLine("dbs_me_db_media_fill_media_entry", kTokenLibrarySite, 13, pluginPath("unresolved")));
    EXPECT_EQ(errors[3], rejection(20));
    EXPECT_THAT(eventLog().lines(Category::systemErrors), ElementsAre("systemError 62672 400 13"));
    EXPECT_FALSE(isLoaded("unresolved"));
    EXPECT_EQ(media_getCount(), 1U);
}

TEST_F(MediaPlugin, WithoutADebugFunctionTheLineIsRejectedWith14EvenWithAllSixOthers) {
    EXPECT_EQ(load({pluginLine("lacks_debug")}), 14);
    const std::vector<std::string> errors = fakeTrace().errors();
    ASSERT_THAT(errors, SizeIs(4));
    EXPECT_THAT(errors[0], StartsWith("dbs_me_db_media_entry_set_debug_function():[Error]:[281][0x"));
    EXPECT_THAT(errors[1], StartsWith("dbs_me_db_media_entry_set_debug_function():[Error]:[282]["));
    EXPECT_EQ(errors[2], errorCodeTextLine("dbs_me_db_media_fill_media_entry", kTokenDebugSite, 14,
                                           "dbs_me_db_media_file_debug_info"));
    EXPECT_EQ(errors[3], rejection(14));
    EXPECT_EQ(media_table.entry[1].open, nullptr) << "the line ends there";
    EXPECT_THAT(eventLog().lines(Category::systemErrors), IsEmpty());
}

TEST_F(MediaPlugin, WithoutADebugFunctionTheSlotIsSetToNull) {
    media_table.entry[1].debug = dbs_me_db_media_file_debug_info;
    EXPECT_EQ(load({pluginLine("lacks_debug")}), 14);
    EXPECT_EQ(media_table.entry[1].debug, nullptr);
}

TEST_F(MediaPlugin, ARejectedLineDeliberatelyLeavesItsLibraryLoaded) {
    EXPECT_EQ(load({pluginLine("lacks_debug")}), 14);
    EXPECT_TRUE(isLoaded("lacks_debug"));
    EXPECT_EQ(unload(), 0);
    EXPECT_EQ(eventLog().count(Operation::sysDlclose), 0U);
    EXPECT_TRUE(isLoaded("lacks_debug"));
}

TEST_F(MediaPlugin, TheLineAfterARejectedLibraryMayBeBuiltIn) {
    EXPECT_EQ(load({pluginLine("lacks_debug"), line("data.med")}), 0);
    const tavDBMMediaEntry &entry = *getMedia(&session, 1);
    EXPECT_EQ(entry.handle, nullptr);
    EXPECT_EQ(entry.open, tavdbMemOpen);
    EXPECT_EQ(unload(), 0);
    EXPECT_EQ(eventLog().count(Operation::sysDlclose), 0U);
}

class PluginLacks : public MediaPlugin, public testing::WithParamInterface<SlotRow> {
protected:
    std::string kind() const {
        return std::string("lacks_") + GetParam().name;
    }
};

TEST_P(PluginLacks, AFunctionAndTheLineIsRejectedWithTheSlotsCode) {
    const SlotRow &row = GetParam();
    EXPECT_EQ(load({pluginLine(kind())}), row.code);
    const std::vector<std::string> errors = fakeTrace().errors();
    ASSERT_THAT(errors, SizeIs(4));
    const std::string start = row.fillName() + "():[Error]:[";
    EXPECT_THAT(errors[0], StartsWith(start + std::to_string(row.functionSite + 1) + "][0x"));
    EXPECT_THAT(errors[1], StartsWith(start + std::to_string(row.functionSite + 2) + "][" + pluginPath(kind())));
    EXPECT_THAT(errors[1], testing::HasSubstr(row.pluginFunction));
    EXPECT_EQ(errors[2], errorCodeTextLine("dbs_me_db_media_fill_media_entry", row.missingTokenSite + 1,
                                           static_cast<uint32_t>(row.code), row.pluginFunction));
    EXPECT_EQ(errors[3], rejection(static_cast<uint32_t>(row.code)));
    EXPECT_EQ(media_getCount(), 1U);
}

TEST_P(PluginLacks, AFunctionAndStaysLoaded) {
    load({pluginLine(kind())});
    unload();
    EXPECT_TRUE(isLoaded(kind()));
}

TEST_P(PluginLacks, AFunctionAndTheSlotKeepsItsWord) {
    media_table.entry[1] = media_table.entry[0];
    const void *const before = GetParam().word(media_table.entry[1]);
    load({pluginLine(kind())});
    EXPECT_EQ(GetParam().word(media_table.entry[1]), before);
}

INSTANTIATE_TEST_SUITE_P(Slots, PluginLacks, testing::ValuesIn(lineSlotRows()), kRowName);

}  // namespace
}  // namespace tavdb_test
