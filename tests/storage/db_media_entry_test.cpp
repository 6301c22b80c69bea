// SPDX-License-Identifier: Apache-2.0
// Filling and releasing one media entry: the table of built-in functions, the
// library's handle, the hint. Lines and real plug-ins have their own tests.
#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <set>

#include "storage/media_slots.h"
#include "storage/storage_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const void *functionOfProgram(const std::string &name) {
    return dlsym(RTLD_DEFAULT, name.c_str());
}

/// Texts that are no name of any slot.
const std::vector<std::string> kNoNames = {"",
                                           "tavdbMem",
                                           "tavdbMemOpe",
                                           "tavdbMemOpenX",
                                           "tavdbmemopen",
                                           " tavdbMemOpen",
                                           "tavdbMemSync0",
                                           "tavdbMemSync3",
                                           "tavdbMemSync6",
                                           "tavdbMemSync61",
                                           "tavdbFileSync1",
                                           "tavdbFileSync7",
                                           "tavdbMsgOpenHD",
                                           std::string(64, 'a'),
                                           std::string(1000, 'a')};

std::vector<std::string> allNames() {
    std::vector<std::string> names;
    for (const SlotRow &row : slotRows()) {
        const std::vector<std::string> own = builtInNames(row);
        names.insert(names.end(), own.begin(), own.end());
    }
    return names;
}

class MediaEntry : public MediaTest {
protected:
    tavDBMMediaEntry entry_{};
};

TEST_F(MediaEntry, ThereAre78DifferentBuiltInNames) {
    const std::vector<std::string> names = allNames();
    EXPECT_EQ(names.size(), 78U);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), 78U);
}

class BuiltInSlot : public MediaEntry, public testing::WithParamInterface<SlotRow> {
protected:
    const SlotRow &row() const {
        return GetParam();
    }
    /// The entry with another function in every slot than a look-up can give.
    void occupy() {
        entry_ = media_table.entry[0];
        entry_.debug = dbs_me_db_media_debug_info;
    }
};

TEST_P(BuiltInSlot, FindsEachOfItsNames) {
    for (const std::string &name : builtInNames(row())) {
        occupy();
        ASSERT_EQ(row().lookUp(name.c_str(), &entry_), 0) << name;
        ASSERT_EQ(row().word(entry_), functionOfProgram(name)) << name;
    }
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_P(BuiltInSlot, FillsFromTheTableWhenThereIsNoLibrary) {
    for (const std::string &name : builtInNames(row())) {
        entry_ = {};
        ASSERT_EQ(row().fill(name.c_str(), &entry_), 0) << name;
        ASSERT_EQ(row().word(entry_), functionOfProgram(name)) << name;
    }
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_P(BuiltInSlot, FillsNoOtherSlot) {
    ASSERT_EQ(row().fill(row().memoryFunction, &entry_), 0);
    for (const SlotRow &other : slotRows())
        EXPECT_EQ(other.word(entry_) != nullptr, other.word == row().word) << other.name;
    EXPECT_EQ(entry_.handle, nullptr);
    EXPECT_EQ(entry_.hint, nullptr);
    EXPECT_EQ(entry_.openArg, 0U);
}

TEST_P(BuiltInSlot, FindsNoNameOfAnotherSlot) {
    const std::vector<std::string> own = builtInNames(row());
    size_t refused = 0;
    for (const std::string &name : allNames()) {
        if (std::find(own.begin(), own.end(), name) != own.end())
            continue;
        occupy();
        fakeTrace().clear();
        ASSERT_EQ(row().lookUp(name.c_str(), &entry_), -1) << name;
        ASSERT_TRUE(fakeTrace().onlyError(errorTextLine(row().lookUpName(), row().lookUpSite, name)));
        ++refused;
    }
    EXPECT_EQ(refused, 78 - own.size());
}

TEST_P(BuiltInSlot, FindsNoOtherText) {
    for (const std::string &name : kNoNames) {
        fakeTrace().clear();
        ASSERT_EQ(row().lookUp(name.c_str(), &entry_), -1) << name;
        ASSERT_TRUE(fakeTrace().onlyError(errorTextLine(row().lookUpName(), row().lookUpSite, name)));
    }
}

TEST_P(BuiltInSlot, KeepsItsWordWhenTheNameIsNotFound) {
    occupy();
    const void *const before = row().word(entry_);
    row().lookUp("noSuchFunction", &entry_);
    row().fill("noSuchFunction", &entry_);
    EXPECT_EQ(row().word(entry_), before);
}

TEST_P(BuiltInSlot, TracesTheLookUpsResultAndGivesTheSlotsCode) {
    EXPECT_EQ(row().fill("noSuchFunction", &entry_), row().missingBuiltIn);
    EXPECT_TRUE(fakeTrace().errorsAre({errorTextLine(row().lookUpName(), row().lookUpSite, "noSuchFunction"),
                                       errorLine(row().fillName(), row().functionSite, {UINT32_MAX})}));
}

INSTANTIATE_TEST_SUITE_P(Slots, BuiltInSlot, testing::ValuesIn(slotRows()), kRowName);

TEST_F(MediaEntry, AMissingBuiltInDebugFunctionIsDeliberatelyNoFailure) {
    EXPECT_EQ(dbs_me_db_media_entry_set_debug_function("tavdbMemOpen", &entry_), 0);
    EXPECT_EQ(entry_.debug, nullptr);
    EXPECT_TRUE(
        fakeTrace().errorsAre({errorTextLine("dbs_me_db_media_entry_set_debug", kEntryDebugLookupSite, "tavdbMemOpen"),
                               errorLine("dbs_me_db_media_entry_set_debug_function", kEntryDebugSite, {UINT32_MAX})}));
}

TEST_F(MediaEntry, ABuiltInOpenFunctionGivenAsTheCloseFunctionIsCode15) {
    EXPECT_EQ(dbs_me_db_media_entry_set_close_function("tavdbMemOpen", &entry_), 15);
    EXPECT_EQ(entry_.close, nullptr);
}

TEST_F(MediaEntry, StartingHandsPathAndArgumentOn) {
    EXPECT_EQ(dbs_me_db_media_entry_init("/some/media.conf", 3), 0);
    const Event started = eventLog().events(Category::media).at(0);
    EXPECT_EQ(textOf(started), "mediaInit /some/media.conf");
    EXPECT_EQ(started.argument, 3);
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(MediaEntry, AFailedStartIsTracedWithTwoWordsAndReturned) {
    faultPlan().add({.operation = Operation::mediaInit, .fault = returning(120)});
    EXPECT_EQ(dbs_me_db_media_entry_init("/some/media.conf", 3), 120);
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("dbs_me_db_media_entry_init", kEntryInitSite, {120, 3})));
    EXPECT_THAT(eventLog().lines(Category::systemErrors), IsEmpty());
}

class MediaHandle : public MediaEntry {
protected:
    int32_t setHandle(const std::string &token) {
        const Recording recording;
        return dbs_me_db_media_entry_set_handle(token.c_str(), &entry_);
    }
    /// The buffer with the loader's last text, as the dump shows it.
    static std::string keptMessage() {
        fakeTrace().clear();
        dbs_me_db_media_entry_debug_info(98, nullptr, nullptr);
        const std::vector<std::string> texts = fakeTrace().texts(98);
        return texts.size() > 1 ? texts[1] : "no line";
    }
    static std::string keptMessageLine(const std::string &text) {
        return '[' + text + "]:s_debug_db_media_entry_set_error_message\n";
    }
};

TEST_F(MediaHandle, TheBuiltInLibraryNeverReachesTheLoaderWhateverFilesExist) {
    std::filesystem::copy_file(std::string(MEDIA_PLUGIN_FOLDER) + "/media_plugin_complete.so", file("libtavdbfile.so"));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder());
    entry_.handle = this;
    EXPECT_EQ(setHandle("libtavdbfile.so"), 0);
    std::filesystem::current_path(before);
    EXPECT_EQ(entry_.handle, nullptr);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

TEST_F(MediaHandle, OnlyTheExactNameIsTheBuiltInLibrary) {
    for (const char *const token : {"./libtavdbfile.so", "libtavdbfile.so.9", "LIBTAVDBFILE.SO", "libtavdbfile"}) {
        eventLog().clear();
        faultPlan().add({.operation = Operation::sysDlopen});
        EXPECT_EQ(setHandle(token), 13) << token;
        EXPECT_EQ(eventLog().count(Operation::sysDlopen), 1U) << token;
    }
}

TEST_F(MediaHandle, ALibraryIsLoadedWithAllItsSymbolsBoundAtOnce) {
    ASSERT_EQ(setHandle(std::string(MEDIA_PLUGIN_FOLDER) + "/media_plugin_complete.so"), 0);
    EXPECT_EQ(eventLog().events(Category::libc).at(0).argument, RTLD_NOW);
    EXPECT_NE(entry_.handle, nullptr);
    const Recording recording;
    EXPECT_EQ(dbs_me_db_media_entry_close(&entry_), 0);
}

TEST_F(MediaHandle, AFailureStoresNoHandleAndTracesErrnoAndTheLoadersText) {
    entry_.handle = this;
    EXPECT_EQ(setHandle("/no/such/library.so"), 13);
    EXPECT_EQ(entry_.handle, nullptr);
    const std::vector<std::string> errors = fakeTrace().errors();
    ASSERT_EQ(errors.size(), 2U);
    EXPECT_THAT(errors[0],
                testing::MatchesRegex(R"(dbs_me_db_media_entry_set_handle\(\):\[Error\]:\[110\]\[0x.{8}\].)"));
    const std::string start = "dbs_me_db_media_entry_set_handle():[Error]:[111]";
    ASSERT_THAT(errors[1], testing::StartsWith(start + "[/no/such/library.so: "));
    const std::string text = errors[1].substr(start.size() + 1, errors[1].size() - start.size() - 3);
    EXPECT_EQ(keptMessage(), keptMessageLine(text));
}

TEST_F(MediaHandle, ALoaderWithoutATextLeavesAnEmptyOne) {
    setHandle("/no/such/library.so");
    fakeTrace().clear();
    faultPlan().add({.operation = Operation::sysDlopen, .fault = returning(0, EMFILE)});
    EXPECT_EQ(setHandle("anything"), 13);
    EXPECT_TRUE(fakeTrace().errorsAre({errorLine("dbs_me_db_media_entry_set_handle", kEntryHandleSite, {EMFILE}),
                                       errorTextLine("dbs_me_db_media_entry_set_handle", kEntryHandleSite + 1, "")}));
    EXPECT_EQ(keptMessage(), keptMessageLine("")) << "the text before is cleared";
}

TEST_F(MediaHandle, ALongTextOfTheLoaderIsCutAt511Characters) {
    const std::string longName = '/' + std::string(600, 'x');
    EXPECT_EQ(setHandle(longName), 13);
    EXPECT_EQ(fakeTrace().errors().at(1),
              errorTextLine("dbs_me_db_media_entry_set_handle", kEntryHandleSite + 1, longName.substr(0, 511)));
    EXPECT_EQ(keptMessage(), keptMessageLine(longName.substr(0, 511)));
}

TEST_F(MediaHandle, AShorterTextLeavesNothingOfALongerOne) {
    setHandle('/' + std::string(600, 'x'));
    setHandle("/no/such/library.so");
    EXPECT_THAT(keptMessage(), testing::Not(testing::HasSubstr("xxx")));
    EXPECT_THAT(keptMessage(), testing::StartsWith("[/no/such/library.so: "));
}

class MediaHint : public MediaEntry {};

TEST_F(MediaHint, IsCopiedWithItsEndIntoMemoryOfItsOwn) {
    char token[] = "flash0";
    EXPECT_EQ(dbs_me_db_media_entry_set_hint(token, &entry_), 0);
    token[0] = 'X';
    EXPECT_STREQ(entry_.hint, "flash0");
    EXPECT_NE(entry_.hint, token);
    EXPECT_EQ(dbs_me_db_media_entry_close(&entry_), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("alloc 7", "free 7"));
}

TEST_F(MediaHint, MayBeEmpty) {
    EXPECT_EQ(dbs_me_db_media_entry_set_hint("", &entry_), 0);
    EXPECT_STREQ(entry_.hint, "");
    EXPECT_EQ(dbs_me_db_media_entry_close(&entry_), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("alloc 1", "free 1"));
}

TEST_F(MediaHint, WithoutMemoryIsMinusOneAndStoresNull) {
    entry_.hint = "before";
    faultPlan().add({.operation = Operation::alloc});
    EXPECT_EQ(dbs_me_db_media_entry_set_hint("flash0", &entry_), -1);
    EXPECT_EQ(entry_.hint, nullptr);
}

TEST_F(MediaEntry, ClosingOneWithoutHandleAndHintDoesNothing) {
    const Recording recording;
    EXPECT_EQ(dbs_me_db_media_entry_close(&entry_), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

TEST_F(MediaEntry, ClosingUnloadsThenFreesAndDeliberatelyKeepsTheWords) {
    const Recording recording;
    const std::string library = std::string(MEDIA_PLUGIN_FOLDER) + "/media_plugin_complete.so";
    ASSERT_EQ(dbs_me_db_media_entry_set_handle(library.c_str(), &entry_), 0);
    ASSERT_EQ(dbs_me_db_media_entry_set_hint("flash0", &entry_), 0);
    const tavDBMMediaEntry before = entry_;
    eventLog().clear();
    EXPECT_EQ(dbs_me_db_media_entry_close(&entry_), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("sys.dlclose " + library, "free 7"));
    EXPECT_EQ(entry_.handle, before.handle);
    EXPECT_EQ(entry_.hint, before.hint);
}

TEST_F(MediaEntry, AFailingUnloadStillFreesTheHintAndGivesZero) {
    const Recording recording;
    const std::string library = std::string(MEDIA_PLUGIN_FOLDER) + "/media_plugin_complete.so";
    ASSERT_EQ(dbs_me_db_media_entry_set_handle(library.c_str(), &entry_), 0);
    ASSERT_EQ(dbs_me_db_media_entry_set_hint("flash0", &entry_), 0);
    faultPlan().add({.operation = Operation::sysDlclose});
    EXPECT_EQ(dbs_me_db_media_entry_close(&entry_), 0);
    EXPECT_EQ(fakeMemory().liveBlocks(), 0U);
}

}  // namespace
}  // namespace tavdb_test
