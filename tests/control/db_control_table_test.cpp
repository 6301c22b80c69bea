// SPDX-License-Identifier: Apache-2.0
// The control table's file: its bytes when new and in use, its name, its list
// primitives, and what happens when the file is damaged.
#include <errno.h>
#include <gmock/gmock.h>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr size_t kHead = 12;
constexpr size_t kEntrySize = 16416;

class ControlTable : public ControlFixture {
protected:
    /// The table open in this process with nothing in it: without a description nothing is taken.
    void openEmpty() {
        const Recording recording;
        EXPECT_EQ(dbs_me_db_control_init(nullptr, nullptr), -1);
    }
    void closeEmpty() {
        const Recording recording;
        EXPECT_EQ(dbs_me_db_control_term(0), 0);
    }
    std::vector<uint32_t> freeList() const {
        const ControlView table(controlPath());
        return chain(table->entry, table->freeHead);
    }
    std::vector<uint32_t> usedList() const {
        const ControlView table(controlPath());
        return chain(table->entry, table->usedHead);
    }
};

TEST_F(ControlTable, ANewFileHasTheseBytes) {
    openEmpty();
    const Bytes bytes = bytesOfFile(controlPath());
    ASSERT_EQ(bytes.size(), 541740U);
    EXPECT_EQ(hexText(std::span(bytes).first(12)), hexWords(1, 31, 0));
    EXPECT_THAT(differences(newControlTable().bytes(), bytes), IsEmpty());
    closeEmpty();
}

TEST_F(ControlTable, DeliberatelyTheLastEntryAndEntryZeroAreNeverUsed) {
    attachMany(31);
    const Bytes bytes = bytesOfFile(controlPath());
    EXPECT_EQ(Bytes(bytes.begin() + kHead, bytes.begin() + kHead + kEntrySize), Bytes(kEntrySize));
    EXPECT_EQ(Bytes(bytes.begin() + kHead + 32 * kEntrySize, bytes.end()), Bytes(kEntrySize));
}

TEST_F(ControlTable, AnEntryInUseHasTheseBytes) {
    description.fifthWord = 0x05060708;
    attach();
    ExpectedImage image = newControlTable();
    const size_t entry = kHead + kEntrySize;
    image.word(0, 2);
    image.word(8, 1);
    image.put(entry + 4, bytesOf(description));
    image.word(entry + 4 + 16384, 1);
    image.word(entry + 4 + 16388, 2);
    image.word(entry + 4 + 16392, 3);
    image.word(entry + 4 + 16396, 4);
    image.word(entry + 4 + 16400, 0x05060708);
    image.word(entry + 16408, 1);
    image.word(entry + 16412, 0);
    EXPECT_THAT(differences(image.bytes(), bytesOfFile(controlPath())), IsEmpty());
}

TEST_F(ControlTable, ADescriptionStartsWithItsFourPathsAtTheirPlaces) {
    attach();
    const Bytes bytes = bytesOfFile(controlPath());
    const auto textAt = [&](size_t offset) {
        return std::string(reinterpret_cast<const char *>(&bytes.at(kHead + kEntrySize + 4 + offset)));
    };
    EXPECT_EQ(textAt(0), file("session.tbl"));
    EXPECT_EQ(textAt(4096), file("lock.tbl"));
    EXPECT_EQ(textAt(8192), file("media.conf"));
    EXPECT_EQ(textAt(12288), file("hooks.conf"));
}

TEST_F(ControlTable, TheBytesBehindAPathsNulAreCopiedToo) {
    description.hookPath[TAVDB_PATH_SIZE - 1] = 'z';
    attach();
    EXPECT_EQ(ControlView(controlPath())->entry[1].description.hookPath[TAVDB_PATH_SIZE - 1], 'z');
}

TEST_F(ControlTable, AFreedEntryKeepsItsDescription) {
    attach();
    detach();
    const ControlView table(controlPath());
    EXPECT_EQ(bytesOf(table->entry[1].description), bytesOf(description));
    EXPECT_EQ(table->entry[1].refCount, 0U);
    EXPECT_EQ(table->entry[1].dbId, 1U);
}

TEST_F(ControlTable, AFreedEntryJoinsTheTailOfTheFreeList) {
    attach();
    detach();
    std::vector<uint32_t> expected = ascending(2, 31);
    expected.push_back(1);
    EXPECT_EQ(freeList(), expected);
    EXPECT_EQ(ControlView(controlPath())->freeTail, 1U);
    EXPECT_THAT(usedList(), IsEmpty());
}

TEST_F(ControlTable, TheNewestEntryIsTheFirstInUse) {
    attachMany(3);
    EXPECT_THAT(usedList(), ElementsAre(3, 2, 1));
    EXPECT_EQ(freeList(), ascending(4, 31));
}

TEST_F(ControlTable, TheLastFreeEntryTakenClearsHeadAndTail) {
    attachMany(31);
    const ControlView table(controlPath());
    EXPECT_EQ(table->freeHead, 0U);
    EXPECT_EQ(table->freeTail, 0U);
}

TEST_F(ControlTable, AnEntryFreedIntoAnEmptyFreeListIsItsHeadAndTail) {
    attachMany(31);
    EXPECT_EQ(dbs_me_db_control_term_table_entry(17), 0);
    const ControlView table(controlPath());
    EXPECT_EQ(table->freeHead, 17U);
    EXPECT_EQ(table->freeTail, 17U);
    EXPECT_EQ(table->entry[17].next, 0U);
}

TEST_F(ControlTable, TheEnvironmentNamesTheFile) {
    EXPECT_EQ(dbs_me_db_control_get_file_name(), controlPath());
    EXPECT_TRUE(fakeTrace().textsAre(2, {debugTextLine("dbs_me_db_control_get_file_name", 282, controlPath())}));
}

TEST_F(ControlTable, WithoutTheVariableTheFileIsTheOneInTmp) {
    environment().unset("TAVDB_DBTABLE");
    EXPECT_STREQ(dbs_me_db_control_get_file_name(), "/tmp/tavdb_dbTable");
    EXPECT_TRUE(fakeTrace().textsAre(2, {debugTextLine("dbs_me_db_control_get_file_name", 282, "/tmp/tavdb_dbTable")}));
}

TEST_F(ControlTable, AVariableThatIsEmptyIsSet) {
    environment().set("TAVDB_DBTABLE", "");
    EXPECT_STREQ(dbs_me_db_control_get_file_name(), "");
}

/// The list primitives, on the open table. Nothing in the library calls them.
class ControlPrimitives : public ControlTable {
protected:
    void SetUp() override {
        ControlTable::SetUp();
        attachMany(3);
    }
};

TEST_F(ControlPrimitives, IncrementAddsOneReferenceToThatDatabaseOnly) {
    dbs_me_db_control_inclement_ref_count(2);
    const ControlView table(controlPath());
    EXPECT_EQ(table->entry[1].refCount, 1U);
    EXPECT_EQ(table->entry[2].refCount, 2U);
    EXPECT_EQ(table->entry[3].refCount, 1U);
}

TEST_F(ControlPrimitives, IncrementReachesEveryEntryInUseWithThatId) {
    const ControlView table(controlPath());
    table->entry[3].dbId = 2;
    dbs_me_db_control_inclement_ref_count(2);
    EXPECT_EQ(table->entry[2].refCount, 2U);
    EXPECT_EQ(table->entry[3].refCount, 2U);
    table->entry[3].dbId = 3;
}

TEST_F(ControlPrimitives, IncrementOfAFreeIdDoesNothing) {
    const Bytes before = bytesOfFile(controlPath());
    dbs_me_db_control_inclement_ref_count(9);
    EXPECT_THAT(differences(before, bytesOfFile(controlPath())), IsEmpty());
}

TEST_F(ControlPrimitives, GetTakesTheFreeHead) {
    const tavDBMControlEntry *const entry = dbs_me_db_control_get_table_entry();
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->dbId, 4U);
    EXPECT_EQ(freeList(), ascending(5, 31));
}

TEST_F(ControlPrimitives, GetGivesNullWhenNothingIsFree) {
    for (int i = 0; i < 28; i++)
        EXPECT_NE(dbs_me_db_control_get_table_entry(), nullptr);
    EXPECT_EQ(ControlView(controlPath())->freeTail, 0U);
    EXPECT_EQ(dbs_me_db_control_get_table_entry(), nullptr);
}

TEST_F(ControlPrimitives, FreeAppendsToTheTail) {
    dbs_me_db_control_get_table_entry();
    dbs_me_db_control_free_table_entry(4);
    EXPECT_EQ(freeList().back(), 4U);
    EXPECT_EQ(ControlView(controlPath())->freeTail, 4U);
}

TEST_F(ControlPrimitives, AddPutsAnEntryFirstInUse) {
    dbs_me_db_control_get_table_entry();
    dbs_me_db_control_add_table_entry(4);
    EXPECT_THAT(usedList(), ElementsAre(4, 3, 2, 1));
}

TEST_F(ControlPrimitives, RemoveTakesTheFirstOut) {
    const tavDBMControlEntry *const entry = dbs_me_db_control_remove_table_entry(3, 0);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->dbId, 3U);
    EXPECT_THAT(usedList(), ElementsAre(2, 1));
}

TEST_F(ControlPrimitives, RemoveTakesAnEntryOutBehindItsPredecessor) {
    EXPECT_NE(dbs_me_db_control_remove_table_entry(2, 3), nullptr);
    EXPECT_THAT(usedList(), ElementsAre(3, 1));
}

TEST_F(ControlPrimitives, SetChainsTheFirstEntriesOfATableOfTheCallers) {
    const auto table = std::make_unique<tavDBMControlTable>();
    table->usedHead = 7;
    table->entry[2].refCount = 5;
    dbs_me_db_control_set_table_entry(table.get(), 4);
    EXPECT_EQ(hexText(bytesOf(table->freeHead, table->freeTail, table->usedHead)), hexWords(1, 3, 0));
    EXPECT_EQ(chain(table->entry, table->freeHead), ascending(1, 3));
    EXPECT_EQ(table->entry[2].dbId, 2U);
    EXPECT_EQ(table->entry[2].refCount, 0U);
    EXPECT_EQ(table->entry[4].dbId, 0U);
}

TEST_F(ControlPrimitives, SetWithACountBeyondTheTableChainsWhatThereIs) {
    for (const uint32_t count : {32U, 33U, 34U, 0xFFFFFFFFU}) {
        const auto table = std::make_unique<tavDBMControlTable>();
        dbs_me_db_control_set_table_entry(table.get(), count);
        EXPECT_EQ(chain(table->entry, table->freeHead), ascending(1, 31)) << count;
        EXPECT_EQ(table->freeTail, 31U) << count;
        EXPECT_EQ(bytesOf(table->entry[32]), Bytes(kEntrySize)) << count;
    }
}

TEST_F(ControlPrimitives, SetWithoutAnEntryToChainTouchesNone) {
    for (const uint32_t count : {0U, 1U}) {
        const auto table = std::make_unique<tavDBMControlTable>();
        dbs_me_db_control_set_table_entry(table.get(), count);
        EXPECT_EQ(bytesOf(*table), Bytes(sizeof *table)) << count;
    }
}

TEST_F(ControlPrimitives, IndicesOutsideTheTableDoNothing) {
    const Bytes before = bytesOfFile(controlPath());
    for (const uint32_t index : {0U, 32U, 33U, 0xFFFFFFFFU}) {
        dbs_me_db_control_free_table_entry(index);
        dbs_me_db_control_add_table_entry(index);
        EXPECT_EQ(dbs_me_db_control_remove_table_entry(index, 0), nullptr);
    }
    EXPECT_THAT(differences(before, bytesOfFile(controlPath())), IsEmpty());
}

TEST_F(ControlTable, ThePrimitivesDoNothingWithoutATable) {
    dbs_me_db_control_inclement_ref_count(1);
    dbs_me_db_control_free_table_entry(1);
    dbs_me_db_control_add_table_entry(1);
    EXPECT_EQ(dbs_me_db_control_get_table_entry(), nullptr);
    EXPECT_EQ(dbs_me_db_control_remove_table_entry(1, 0), nullptr);
    EXPECT_EQ(dbs_me_db_control_search_table_entry(&description), -1);
    EXPECT_EQ(db_getDb(1), nullptr);
}

using ControlDamage = Damage<tavDBMControlTable>;

/// Three databases in use (3, 2, 1 in list order), then the damage.
class DamagedControlTable : public ControlTable, public testing::WithParamInterface<ControlDamage> {
protected:
    void SetUp() override {
        ControlTable::SetUp();
        attachMany(3);
        const ControlView table(controlPath());
        GetParam().apply(*table);
    }
};

INSTANTIATE_TEST_SUITE_P(
    Control, DamagedControlTable,
    testing::Values(ControlDamage{"UsedListIsALoop", [](auto &table) { table.entry[1].next = 3; }},
                    ControlDamage{"UsedEntryFollowsItself", [](auto &table) { table.entry[3].next = 3; }},
                    ControlDamage{"UsedHeadIsBeyondTheTable", [](auto &table) { table.usedHead = 33; }},
                    ControlDamage{"UsedHeadIsTheUnusedEntry", [](auto &table) { table.usedHead = 32; }},
                    ControlDamage{"UsedHeadIsHuge", [](auto &table) { table.usedHead = 0xFFFFFFFF; }},
                    ControlDamage{"UsedLinkIsHuge", [](auto &table) { table.entry[3].next = 0x80000001; }},
                    ControlDamage{"FreeHeadIsHuge", [](auto &table) { table.freeHead = 0xFFFFFFFF; }},
                    ControlDamage{"FreeLinkIsHuge", [](auto &table) { table.entry[4].next = 0xFFFFFFFF; }},
                    ControlDamage{"FreeTailIsHuge", [](auto &table) { table.freeTail = 0xFFFFFFFF; }},
                    ControlDamage{"FreeListIsALoop", [](auto &table) { table.entry[31].next = 4; }},
                    ControlDamage{"FreeListRunsIntoTheUsedOne", [](auto &table) { table.entry[4].next = 3; }},
                    ControlDamage{"EverythingIsSet", [](auto &table) { memset(&table, 0xFF, sizeof table); }},
                    ControlDamage{"EverythingIsCleared", [](auto &table) { memset(&table, 0, sizeof table); }}),
    byName);

TEST_P(DamagedControlTable, EndsNoProcessAndHangsNone) {
    for (uint32_t fifthWord = 1; fifthWord < 40; fifthWord++) {
        const tavDBMDescription other = database(fifthWord);
        int32_t error = 0;
        const int32_t dbId = dbs_me_db_control_init_table_entry(&other, &error);
        EXPECT_TRUE(dbId != -1 || error == 84) << "error " << error;
    }
    for (uint32_t id = 0; id < 40; id++) {
        db_getDb(id);
        dbs_me_db_control_inclement_ref_count(id);
        const int32_t code = dbs_me_db_control_term_table_entry(id);
        EXPECT_TRUE(code == 0 || code == 85) << code;
    }
}

TEST_P(DamagedControlTable, AnIdThatIsNowhereIsNotFound) {
    EXPECT_EQ(db_getDb(31), nullptr);
    EXPECT_EQ(dbs_me_db_control_term_table_entry(31), 85);
}

TEST_F(ControlTable, AnEntryBeyondTheCapacityIsNotAnEntryInUse) {
    attachMany(1);
    const ControlView table(controlPath());
    table->entry[32].dbId = 32;
    table->entry[1].next = 32;
    EXPECT_EQ(db_getDb(32), nullptr);
    table->entry[1].next = 0;
}

}  // namespace
}  // namespace tavdb_test
