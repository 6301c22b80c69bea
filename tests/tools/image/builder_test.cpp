// SPDX-License-Identifier: Apache-2.0
// Databases as they come out of a build, read back through the library's own
// functions: types, tiers, constraints, names, and the files of the directory.
#include "image/builder.h"

#include <gmock/gmock.h>

#include <limits>

#include "tools/image/attached.h"
#include "tools/test_place.h"

namespace tavdb::image {
namespace {

using tavdb_test::bytesOf;
using tavdb_test::filesIn;
using tavdb_test::TestPlace;
using tavdb_test::wordAt;
using testing::ElementsAre;

const char *const kEveryType =
    "s8: {type: s8, range: [-100, 100], step: 5, current: -5, default: 10, factory: 100}\n"
    "s16: {type: s16, range: [-30000, 30000], step: 10, current: -30, default: 10, factory: 100}\n"
    "s32: {type: s32, range: [-2000000000, 5], step: 0, current: -77, default: 4, factory: -2000000000}\n"
    "s64: {type: s64, range: [-9000000000000000000, 90], step: 1, current: -7, default: 4, factory: 90}\n"
    "u8: {type: u8, range: [1, 255], step: 2, current: 3, default: 5, factory: 255}\n"
    "u16: {type: u16, range: [1, 65000], step: 1, current: 3, default: 5, factory: 65000}\n"
    "u32: {type: u32, range: [300, 4000000000], step: 100, current: 300, default: 500, factory: 4000000000}\n"
    "u64: {type: u64, range: [0, 18000000000000000000], step: 9, current: 9, default: 18, factory: 27}\n"
    "f32: {type: f32, range: [-1.5, 1.5], step: 0.5, current: -1.5, default: 0.25, factory: 1}\n"
    "f64: {type: f64, range: [-1e300, 1e300], current: -2.5, default: 1e-300, factory: 1e300}\n"
    "e8: {type: s8, enum: [-3, 0, 3], current: -3, default: 0, factory: 3}\n"
    "e16: {type: u16, enum: [1, 500, 65535], current: 1, default: 500, factory: 65535}\n"
    "e32: {type: s32, enum: {low: -70000, high: 70000}, current: low, default: high, factory: low}\n"
    "e64: {type: f64, enum: [0.5, 2], current: 0.5, default: 2, factory: 2}\n"
    "text: {type: text, size: 7, current: abc, default: \"\", factory: 1234567}\n"
    "bytes: {type: bytes, size: 3, current: 00ff, default: \"\", factory: 010203}\n";

class Builder : public testing::Test {
protected:
    void build(const std::string &text, const BuildOptions &options = {}) {
        buildText(text, place / "db", options);
    }

    template <typename T>
    void checkNumber(Attached &database, const char *path, T current, T standard, T factory,
                     std::initializer_list<T> constraint, int32_t constraintType) {
        SCOPED_TRACE(path);
        const auto leaf = database.at(path);
        EXPECT_EQ(tavDBMGetLength(database.session(), leaf), static_cast<int32_t>(sizeof(T)));
        EXPECT_EQ(database.current(leaf), packed({current}));
        EXPECT_EQ(database.standard(leaf), packed({standard}));
        EXPECT_EQ(database.factory(leaf), packed({factory}));
        EXPECT_EQ(tavDBMGetConstraintType(database.session(), leaf), constraintType);
        EXPECT_EQ(database.constraintData(leaf), packed(constraint));
    }

    TestPlace place;
};

TEST_F(Builder, SignedIntegersHaveTheirThreeValuesAndTheirRange) {
    build(kEveryType);
    Attached database(place / "db");
    checkNumber<int8_t>(database, "/s8", -5, 10, 100, {-100, 100, 5}, TAVDB_TYPE_S8);
    checkNumber<int16_t>(database, "/s16", -30, 10, 100, {-30000, 30000, 10}, TAVDB_TYPE_S16);
    checkNumber<int32_t>(database, "/s32", -77, 4, -2000000000, {-2000000000, 5, 0}, TAVDB_TYPE_S32);
    checkNumber<int64_t>(database, "/s64", -7, 4, 90, {-9000000000000000000, 90, 1}, TAVDB_TYPE_S64);
}

TEST_F(Builder, UnsignedIntegersAndFloatsHaveTheirThreeValuesAndTheirRange) {
    build(kEveryType);
    Attached database(place / "db");
    checkNumber<uint8_t>(database, "/u8", 3, 5, 255, {1, 255, 2}, TAVDB_TYPE_U8);
    checkNumber<uint16_t>(database, "/u16", 3, 5, 65000, {1, 65000, 1}, TAVDB_TYPE_U16);
    checkNumber<uint32_t>(database, "/u32", 300, 500, 4000000000, {300, 4000000000, 100}, TAVDB_TYPE_U32);
    checkNumber<uint64_t>(database, "/u64", 9, 18, 27, {0, 18000000000000000000U, 9}, TAVDB_TYPE_U64);
    checkNumber<float>(database, "/f32", -1.5F, 0.25F, 1.0F, {-1.5F, 1.5F, 0.5F}, TAVDB_TYPE_F32);
    checkNumber<double>(database, "/f64", -2.5, 1e-300, 1e300, {-1e300, 1e300, 0.0}, TAVDB_TYPE_F64);
}

TEST_F(Builder, EnumerationsHaveTheirElementsInOrder) {
    build(kEveryType);
    Attached database(place / "db");
    const auto enumerationOf = [](int32_t type) { return type << TAVDB_ENUMERATION_SHIFT; };
    checkNumber<int8_t>(database, "/e8", -3, 0, 3, {-3, 0, 3}, enumerationOf(TAVDB_TYPE_S8));
    checkNumber<uint16_t>(database, "/e16", 1, 500, 65535, {1, 500, 65535}, enumerationOf(TAVDB_TYPE_U16));
    checkNumber<int32_t>(database, "/e32", -70000, 70000, -70000, {-70000, 70000}, enumerationOf(TAVDB_TYPE_S32));
    checkNumber<double>(database, "/e64", 0.5, 2, 2, {0.5, 2}, enumerationOf(TAVDB_TYPE_F64));
}

TEST_F(Builder, TypedReadsGiveTheValues) {
    build(kEveryType);
    Attached database(place / "db");
    int8_t small = 0;
    EXPECT_EQ(tavDBMGetSint8(database.session(), database.at("/s8"), &small), 0);
    EXPECT_EQ(small, -5);
    uint64_t large = 0;
    EXPECT_EQ(tavDBMGetUint64(database.session(), database.at("/u64"), &large), 0);
    EXPECT_EQ(large, 9U);
    double real = 0;
    EXPECT_EQ(tavDBMGetFloat64(database.session(), database.at("/f64"), &real), 0);
    EXPECT_EQ(real, -2.5);
}

TEST_F(Builder, TextsAndBytesAreFilledUpWithZeros) {
    build(kEveryType);
    Attached database(place / "db");
    const auto text = database.at("/text");
    EXPECT_EQ(tavDBMGetType(database.session(), text), TAVDB_TYPE_TEXT);
    EXPECT_EQ(database.current(text), std::string("abc\0\0\0\0\0", 8));
    EXPECT_EQ(database.standard(text), std::string(8, '\0'));
    EXPECT_EQ(database.factory(text), std::string("1234567\0", 8));
    char read[8] = "";
    EXPECT_EQ(tavDBMGetString(database.session(), text, read, sizeof read), 0);
    EXPECT_STREQ(read, "abc");
    const auto bytes = database.at("/bytes");
    EXPECT_EQ(tavDBMGetType(database.session(), bytes), TAVDB_TYPE_BYTES);
    EXPECT_EQ(database.current(bytes), std::string("\0\xFF\0", 3));
    EXPECT_EQ(database.factory(bytes), "\1\2\3");
}

TEST_F(Builder, LibraryChecksWritesAgainstWhatWasDescribed) {
    build(kEveryType);
    Attached database(place / "db");
    auto *const session = database.session();
    EXPECT_EQ(tavDBMSetUint32(session, database.at("/u32"), 200), TAVDB_ERR_BELOW_MINIMUM);
    EXPECT_EQ(tavDBMSetUint32(session, database.at("/u32"), 350), TAVDB_ERR_OFF_STEP);
    EXPECT_EQ(tavDBMSetUint32(session, database.at("/u32"), 400), 0);
    EXPECT_EQ(tavDBMSetSint8(session, database.at("/s8"), 105), TAVDB_ERR_ABOVE_MAXIMUM);
    EXPECT_EQ(tavDBMSetSint32(session, database.at("/e32"), 0), TAVDB_ERR_NOT_ENUMERATED);
    EXPECT_EQ(tavDBMSetSint32(session, database.at("/e32"), 70000), 0);
}

TEST_F(Builder, StoredNamesEndInASlashForNodesOnly) {
    build("net:\n  lan: {}\n  mtu: {type: u8}\n");
    Attached database(place / "db");
    EXPECT_EQ(database.nameOf(tavDBMGetRoot(database.session())), "/");
    EXPECT_EQ(database.nameOf(database.at("/net/")), "net/");
    EXPECT_EQ(database.nameOf(database.at("/net/lan/")), "lan/");
    EXPECT_EQ(database.nameOf(database.at("/net/mtu")), "mtu");
}

TEST_F(Builder, SearchBelowANodeFindsByRelativeName) {
    build("net:\n  lan:\n    mtu: {type: u8, current: 7}\n  lan2:\n    mtu: {type: u8, current: 8}\n");
    Attached database(place / "db");
    tavDBMSetCurrentComponent(database.session(), database.at("/net/"));
    EXPECT_EQ(database.at("lan/mtu"), database.at("/net/lan/mtu"));
    EXPECT_EQ(database.at("lan2/mtu"), database.at("/net/lan2/mtu"));
    EXPECT_EQ(database.current(database.at("lan2/mtu")), "\x08");
}

TEST_F(Builder, ChildrenKeepTheOrderOfTheDescription) {
    build("c: {type: u8}\na: {}\nb: {type: u8}\n");
    Attached database(place / "db");
    std::vector<std::string> names;
    auto *const session = database.session();
    for (uint32_t key = tavDBMGetFirstChild(session, tavDBMGetRoot(session)); key != 0;
         key = tavDBMGetNextChild(session, key)) {
        EXPECT_EQ(tavDBMGetParent(session, key), tavDBMGetRoot(session));
        names.push_back(database.nameOf(key));
    }
    EXPECT_THAT(names, ElementsAre("c", "a/", "b"));
    EXPECT_EQ(tavDBMGetChildCount(session, tavDBMGetRoot(session)), 3U);
}

TEST_F(Builder, EmptyDescriptionOfANodeIsARootAlone) {
    build("types: {}\n");
    Attached database(place / "db");
    EXPECT_EQ(tavDBMGetChildCount(database.session(), tavDBMGetRoot(database.session())), 0U);
}

TEST_F(Builder, ConstraintIsSharedByTheValuesOfALeafAndByNoOtherLeaf) {
    build("a: {type: u8, range: [1, 5], current: 1}\nb: {type: u8, range: [1, 5], current: 1}\nc: {type: u8}\n");
    Attached database(place / "db");
    auto *const session = database.session();
    std::vector<uint32_t> constraints;
    for (const auto *path : {"/a", "/b", "/c"}) {
        const auto leaf = database.at(path);
        const uint32_t key = tavDBMGetConstraintKey(session, tavDBMGetCurrentValueKey(session, leaf));
        EXPECT_EQ(tavDBMGetConstraintKey(session, tavDBMGetDefaultValueKey(session, leaf)), key);
        EXPECT_EQ(tavDBMGetConstraintKey(session, tavDBMGetFactoryValueKey(session, leaf)), key);
        constraints.push_back(key);
    }
    EXPECT_NE(constraints[0], constraints[1]);
    EXPECT_EQ(constraints[2], 0U);
    const auto narrow = packed<uint8_t>({2, 3, 0});
    EXPECT_EQ(tavDBMSetConstraintData(session, database.at("/a"), narrow.data(), 3), 0);
    EXPECT_EQ(tavDBMSetUint8(session, database.at("/a"), 5), TAVDB_ERR_ABOVE_MAXIMUM);
    EXPECT_EQ(tavDBMSetUint8(session, database.at("/b"), 5), 0);
}

TEST_F(Builder, HookIdsStandInTheirLeaves) {
    build("a: {type: u8, hook: 4294967295}\nb: {type: u8}\n");
    Attached database(place / "db");
    tavDBMLeaf leaf = {};
    ASSERT_NE(comp_getLeaf(database.session(), database.at("/a"), &leaf), nullptr);
    EXPECT_EQ(leaf.hookId, 4294967295U);
    ASSERT_NE(comp_getLeaf(database.session(), database.at("/b"), &leaf), nullptr);
    EXPECT_EQ(leaf.hookId, 0U);
}

TEST_F(Builder, KeysOfTheSummaryAreThoseOfTheDatabase) {
    const auto summary = buildText("net:\n  mtu: {type: u8}\n", place / "db");
    Attached database(place / "db");
    EXPECT_EQ(summary.keys.at("/"), tavDBMGetRoot(database.session()));
    EXPECT_EQ(summary.keys.at("/net"), database.at("/net/"));
    EXPECT_EQ(summary.keys.at("/net/mtu"), database.at("/net/mtu"));
    EXPECT_EQ(summary.counts.nodes, 1U);
    EXPECT_EQ(summary.counts.leaves, 1U);
    EXPECT_EQ(summary.path, place / "db");
}

TEST_F(Builder, DirectoryHoldsItsFilesAndNothingElse) {
    build(kEveryType);
    std::vector<std::string> names;
    for (const auto &[name, content] : filesIn(place / "db"))
        names.push_back(name);
    EXPECT_THAT(names, ElementsAre("component.med", "constraint.med", "data.med", "lock.tbl", "media.conf",
                                   "schema.json", "session.tbl", "string.med", "text.med", "value.med"));
    EXPECT_THAT(place.names(), ElementsAre("db"));
}

TEST_F(Builder, ImagesBeginWithTheirHeader) {
    build(kEveryType);
    for (const auto &medium : kMediumNames) {
        const auto path = (place / "db") + "/" + std::string(medium.file);
        EXPECT_EQ(wordAt(path, 0), 0x54415644U) << medium.file;
        EXPECT_EQ(wordAt(path, 4), 0x00010000U + static_cast<uint32_t>(medium.id)) << medium.file;
        EXPECT_EQ(wordAt(path, 8) != 0, medium.id == kComponentMedium) << medium.file;
        EXPECT_EQ(wordAt(path, 12) != 0, medium.holdsRecords) << medium.file;
    }
}

/// The free bytes of a medium whose free list is one block.
uint32_t freeBytes(const std::string &image) {
    const uint32_t block = wordAt(image, 12);
    EXPECT_EQ(wordAt(image, block), 0U) << "the only block";
    return wordAt(image, block + 4);
}

TEST_F(Builder, SlackIsAtLeastFourKilobytesOfFreeRecords) {
    build(kEveryType, {.slackPercent = 0});
    for (const auto *image : {"component.med", "value.med", "constraint.med", "string.med"})
        EXPECT_GE(freeBytes((place / "db") + "/" + image), 4096U) << image;
}

TEST_F(Builder, SlackIsAPercentageOfTheContent) {
    std::string text;
    for (int i = 0; i < 1000; i++)
        text += "leaf" + std::to_string(i) + ": {type: u8}\n";
    build(text, {.slackPercent = 50});
    // 1000 leaves of 40 bytes, the root of 28 and the header.
    EXPECT_GE(freeBytes((place / "db") + "/component.med"), 20022U);
    EXPECT_LT(freeBytes((place / "db") + "/component.med"), 20040U);
}

TEST_F(Builder, TablesAreThoseThatTheLibraryMakes) {
    build(kEveryType);
    ASSERT_EQ(session_init((place / "fresh_session").c_str()), 0);
    ASSERT_EQ(session_term(), 0);
    ASSERT_EQ(lock_init((place / "fresh_lock").c_str()), 0);
    ASSERT_EQ(lock_term(), 0);
    EXPECT_EQ(bytesOf(place / "db/session.tbl"), bytesOf(place / "fresh_session"));
    EXPECT_EQ(bytesOf(place / "db/lock.tbl"), bytesOf(place / "fresh_lock"));
}

TEST_F(Builder, EqualInputGivesEqualBytes) {
    buildText(kEveryType, place / "one");
    buildText(kEveryType, place / "two");
    EXPECT_EQ(filesIn(place / "one"), filesIn(place / "two"));
}

TEST_F(Builder, BothKindsOfMediaGiveTheSameImages) {
    buildText(kEveryType, place / "memory", {.media = MediaKind::memory});
    buildText(kEveryType, place / "file", {.media = MediaKind::file});
    auto memory = filesIn(place / "memory");
    auto file = filesIn(place / "file");
    EXPECT_NE(memory.at("media.conf"), file.at("media.conf"));
    memory.erase("media.conf");
    file.erase("media.conf");
    EXPECT_EQ(memory, file);
    Attached database(place / "file");
    EXPECT_EQ(database.current(database.at("/s8")), "\xFB");
    EXPECT_EQ(tavDBMSetSint8(database.session(), database.at("/s8"), -10), 0);
    EXPECT_EQ(database.current(database.at("/s8")), "\xF6");
}

TEST_F(Builder, DirectoryThatWasMovedStillWorks) {
    build(kEveryType);
    std::filesystem::rename(place / "db", place / "moved");
    Attached database(place / "moved");
    EXPECT_EQ(database.current(database.at("/s8")), "\xFB");
}

TEST_F(Builder, ControlTableOfTheMachineIsNotTouched) {
    const std::string before = getenv("TAVDB_DBTABLE");
    build(kEveryType);
    EXPECT_EQ(getenv("TAVDB_DBTABLE"), before);
    EXPECT_FALSE(std::filesystem::exists(before));
}

TEST_F(Builder, HookFileIsCopiedWhenThereIsOne) {
    place.write("my_hooks", "# nothing\n");
    build("a: {type: u8}\n", {.hookFile = place / "my_hooks"});
    EXPECT_EQ(bytesOf(place / "db/hooks.conf"), "# nothing\n");
}

TEST_F(Builder, HeaderIsWrittenBesideTheDatabase) {
    build("a: {type: u8, enum: [off, on]}\n", {.headerFile = place / "keys.h"});
    EXPECT_NE(bytesOf(place / "keys.h").find("#define"), std::string::npos);
    EXPECT_THAT(place.names(), ElementsAre("db", "keys.h"));
}

TEST_F(Builder, RoomForMoreRecordsIsThere) {
    build("a: {type: u8}\n");
    Attached database(place / "db");
    auto *const session = database.session();
    const uint32_t name = tavDBMCreateString(session, "more", kTextMedium);
    const uint8_t seven = 7;
    const uint32_t value = tavDBMCreateValue(session, TAVDB_TYPE_U8, 0, &seven, 1, kDataMedium);
    ASSERT_NE(tavDBMCreateLeaf(session, name, tavDBMGetRoot(session), 0, value, value, value, 0), 0U);
    EXPECT_EQ(database.current(database.at("/more")), "\x07");
}

}  // namespace
}  // namespace tavdb::image
