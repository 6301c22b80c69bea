// SPDX-License-Identifier: Apache-2.0
// An attached database through the eyes of the tools: paths, unusual names, and
// damaged images, which give faults and never an endless walk.
#include "image/database.h"

#include <gmock/gmock.h>

#include "image/leaf_access.h"
#include "image/survey.h"
#include "tools/image/attached.h"
#include "tools/test_place.h"

namespace tavdb::image {
namespace {

using tavdb_test::patch;
using tavdb_test::TestPlace;
using tavdb_test::word;
using testing::ElementsAre;
using testing::HasSubstr;

// Where the fields of a component stand in its record.
constexpr size_t kKeyField = 0;
constexpr size_t kNameField = 4;
constexpr size_t kNextField = 16;
constexpr size_t kKindField = 20;
constexpr size_t kFirstChildField = 24;

class DatabaseTest : public testing::Test {
protected:
    void build(const std::string &text) {
        keys = buildText(text, place / "db").keys;
    }
    Database &attach() {
        auto attached = Database::attach(**describeDirectory(place / "db").value);
        if (!attached)
            throw std::runtime_error(attached.error.sentence);
        database = std::move(*attached.value);
        return *database;
    }
    void patchComponent(const std::string &path, size_t field, uint32_t value) {
        patch(place / "db/component.med", keys.at(path) + field, word(value));
    }
    std::string pathFound(std::string_view path) {
        const auto found = locate(*database, path);
        return found ? found.value->path : found.error.sentence;
    }
    std::vector<std::string> childrenOf(std::string_view path, Status *ended = nullptr) {
        std::vector<std::string> names;
        Visited visited;
        const auto node = locate(*database, path);
        auto fault = forEachChild(*database, node.value->component, visited, [&](const StoredComponent &child) {
            names.push_back(child.name);
            return true;
        });
        if (ended != nullptr)
            *ended = std::move(fault);
        else
            EXPECT_FALSE(fault) << fault->sentence;
        return names;
    }

    TestPlace place;
    ComponentKeys keys;
    std::unique_ptr<Database> database;
};

TEST_F(DatabaseTest, PathsAreFoundWithAndWithoutSlashes) {
    build("net:\n  lan:\n    mtu: {type: u8}\n");
    attach();
    for (const auto *path : {"/", "//"})
        EXPECT_EQ(pathFound(path), "/") << path;
    for (const auto *path : {"/net/lan", "/net/lan/", "net/lan", "net/lan/"})
        EXPECT_EQ(pathFound(path), "/net/lan") << path;
    for (const auto *path : {"/net/lan/mtu", "net/lan/mtu", "net/lan/mtu/"})
        EXPECT_EQ(pathFound(path), "/net/lan/mtu") << path;
}

TEST_F(DatabaseTest, PathThatLeadsNowhereSaysWhereItEnds) {
    build("net:\n  lan:\n    mtu: {type: u8}\n");
    attach();
    EXPECT_EQ(pathFound("/net/wan/mtu"), "there is no 'wan' in /net");
    EXPECT_EQ(pathFound("/network"), "there is no 'network' in /");
    EXPECT_EQ(pathFound("/ne"), "there is no 'ne' in /");
    EXPECT_EQ(pathFound("/net/lan/mtu/x"), "/net/lan/mtu is a leaf, there is nothing below it");
    EXPECT_EQ(pathFound("/net//lan"), "there is no '' in /net");
    EXPECT_EQ(pathFound(""), "the path is empty");
    EXPECT_EQ(locate(*database, "/net/wan").error.kind, FaultKind::notFound);
}

TEST_F(DatabaseTest, NamesThatBeginAlikeAreKeptApart) {
    build("a: {type: u8}\nab: {type: u8}\nabc:\n  d: {type: u8}\n");
    attach();
    EXPECT_EQ(locate(*database, "/ab").value->component.key, keys.at("/ab"));
    EXPECT_EQ(locate(*database, "/abc/d").value->component.key, keys.at("/abc/d"));
}

TEST_F(DatabaseTest, OddNamesAreStillReached) {
    build("net:\n  mtu: {type: u8}\nleaf: {type: u8}\n");
    {
        Attached other(place / "db");
        auto *const session = other.session();
        const auto rename = [&](const char *path, const char *name) {
            const auto key = keys.at(path);
            EXPECT_EQ(tavDBMSetStringKey(session, key, tavDBMCreateString(session, name, kTextMedium)), 0);
        };
        // A node without its slash, a leaf with one, a name that nobody can type.
        rename("/net", "net");
        rename("/net/mtu", "mtu/");
        rename("/leaf", "a\nb");
    }
    attach();
    EXPECT_EQ(pathFound("/net/mtu"), "/net/mtu");
    const auto byKey = "/@" + std::to_string(keys.at("/leaf"));
    EXPECT_EQ(pathFound(byKey), byKey);
    EXPECT_THAT(childrenOf("/"), ElementsAre("net", byKey.substr(1)));
}

TEST_F(DatabaseTest, NameWithASlashInsideIsFoundAsAWhole) {
    build("net:\n  mtu: {type: u8}\nx: {type: u8}\n");
    {
        Attached other(place / "db");
        const auto name = tavDBMCreateString(other.session(), "net/mtu", kTextMedium);
        EXPECT_EQ(tavDBMSetStringKey(other.session(), keys.at("/x"), name), 0);
    }
    attach();
    // The first in the order of the tree goes first; the other one has its key.
    EXPECT_EQ(locate(*database, "/net/mtu").value->component.key, keys.at("/net/mtu"));
    EXPECT_EQ(locate(*database, "/@" + std::to_string(keys.at("/x"))).value->component.key, keys.at("/x"));
}

TEST_F(DatabaseTest, MissingNameBecomesTheKey) {
    build("a: {type: u8}\nb: {type: u8}\n");
    patchComponent("/a", kNameField, 0);
    patchComponent("/b", kNameField, 0x7FFFFFF0);
    attach();
    EXPECT_THAT(childrenOf("/"), ElementsAre("@" + std::to_string(keys.at("/a")), "@" + std::to_string(keys.at("/b"))));
}

TEST_F(DatabaseTest, RingOfSiblingsEndsTheWalk) {
    build("a: {type: u8}\nb: {type: u8}\nc: {type: u8}\n");
    patchComponent("/c", kNextField, keys.at("/a"));
    attach();
    Status ended;
    EXPECT_THAT(childrenOf("/", &ended), ElementsAre("a", "b", "c"));
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->sentence, "the component at " + std::to_string(keys.at("/a")) + " is linked a second time");
    EXPECT_EQ(ended->kind, FaultKind::damaged);
    EXPECT_EQ(pathFound("/c"), "/c") << "what stands before the damage is found";
    EXPECT_THAT(pathFound("/d"), HasSubstr("is linked a second time"));
}

TEST_F(DatabaseTest, NodeBelowItselfEndsTheWalk) {
    build("a:\n  b:\n    c: {type: u8}\n");
    patchComponent("/a/b", kFirstChildField, keys.at("/a"));
    attach();
    EXPECT_THAT(pathFound("/a/b/a/b/a/b/x"), HasSubstr("is linked a second time"));
    EXPECT_FALSE(takeCensus(*database));
}

TEST_F(DatabaseTest, RecordsThatAreNoneAreFaults) {
    build("a: {type: u8}\nb: {type: u8}\nc: {type: u8}\n");
    patchComponent("/b", kKeyField, 12345);
    attach();
    Status ended;
    EXPECT_THAT(childrenOf("/", &ended), ElementsAre("a"));
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->sentence,
              "the component at " + std::to_string(keys.at("/b")) + " is damaged: it says that it is at 12345");
}

TEST_F(DatabaseTest, UnknownKindIsAFault) {
    build("a: {type: u8}\n");
    patchComponent("/a", kKindField, 9);
    attach();
    EXPECT_THAT(pathFound("/a"), HasSubstr("is damaged: it is neither node nor leaf"));
}

TEST_F(DatabaseTest, LinkBeyondTheMediumIsAFault) {
    build("a: {type: u8}\n");
    patchComponent("/a", kNextField, 0x7FFFFFF0);
    attach();
    Status ended;
    EXPECT_THAT(childrenOf("/", &ended), ElementsAre("a"));
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->kind, FaultKind::damaged);
}

TEST_F(DatabaseTest, NestingThatIsTooDeepToFollowIsAFault) {
    std::string text = "a: {}\n";
    for (int i = 0; i < 200; i++)
        text += "l" + std::to_string(i) + ": {type: u8}\n";
    keys = buildText(text, place / "db", {.slackPercent = 1000}).keys;
    std::string path = "/a";
    std::string deepest;
    {
        Attached other(place / "db");
        const auto name = tavDBMCreateString(other.session(), "n/", kTextMedium);
        uint32_t parent = keys.at("/a");
        for (uint32_t level = 2; level <= kLevelsMax + 5; level++, path += "/n") {
            parent = tavDBMCreateNode(other.session(), name, parent, 0, 0);
            ASSERT_NE(parent, 0U) << level;
            if (level == kLevelsMax)
                deepest = path + "/n";
        }
    }
    attach();
    EXPECT_EQ(pathFound(deepest), deepest);
    EXPECT_EQ(pathFound(path), "is nested deeper than 500 levels");
    EXPECT_EQ(takeCensus(*database).value->nodes, kLevelsMax + 5U);
}

TEST_F(DatabaseTest, OnlyOneIsAttachedAtATime) {
    build("a: {type: u8}\n");
    attach();
    const auto second = Database::attach(**describeDirectory(place / "db").value);
    ASSERT_FALSE(second);
    EXPECT_EQ(second.error.sentence, "this process is attached to a database already");
    database.reset();
    attach();
    EXPECT_EQ(pathFound("/a"), "/a");
}

TEST_F(DatabaseTest, AttachThatFailsSaysWhyAndIsTheLast) {
    build("a: {type: u8}\n");
    place.write("db/media.conf", "libtavdbfile.so nonsense c r w l s h\n");
    const auto description = describeDirectory(place / "db");
    const auto failed = Database::attach(**description.value);
    ASSERT_FALSE(failed);
    EXPECT_NE(failed.error.code, 0U);
    EXPECT_FALSE(failed.error.sentence.empty());
    const auto again = Database::attach(**description.value);
    ASSERT_FALSE(again);
    EXPECT_EQ(again.error.sentence, "an earlier attach of this process failed half-way");
}

TEST_F(DatabaseTest, PathOfAComponentIsFoundByItsParents) {
    build("a:\n  b:\n    c: {type: u8}\n");
    attach();
    EXPECT_EQ(pathOf(*database, *readComponent(*database, keys.at("/a/b/c")).value).value, "/a/b/c");
    EXPECT_EQ(pathOf(*database, *readRoot(*database).value).value, "/");
}

TEST_F(DatabaseTest, CensusCountsEachRecordOnce) {
    build("a:\n  b: {type: u8, range: [0, 5]}\n  c: {type: u8, enum: [0]}\nd: {type: text, size: 3}\n");
    attach();
    const auto census = takeCensus(*database);
    ASSERT_TRUE(census);
    EXPECT_EQ(census.value->nodes, 1U);
    EXPECT_EQ(census.value->leaves, 3U);
    EXPECT_EQ(census.value->values, 9U);
    EXPECT_EQ(census.value->constraints, 2U);
    EXPECT_EQ(census.value->strings, 5U);
}

TEST_F(DatabaseTest, FreeListThatRunsInACircleIsAFault) {
    build("a: {type: u8}\n");
    const auto image = place / "db/value.med";
    const uint32_t block = tavdb_test::wordAt(image, 12);
    patch(image, block, word(block));
    attach();
    const auto space = measureFreeSpace(*database, kValueMedium);
    ASSERT_FALSE(space);
    EXPECT_EQ(space.error.sentence, "its free list runs in a circle");
    EXPECT_TRUE(measureFreeSpace(*database, kStringMedium));
}

class LeafAccess : public DatabaseTest {
protected:
    /// Overwrites a field of the current value's record of /a.
    void patchValue(size_t field, uint32_t value) {
        const uint32_t key = tavdb_test::wordAt(place / "db/component.med", keys.at("/a") + 24);
        patch(place / "db/value.med", key + field, word(value));
    }
    Result<StoredLeaf> read() {
        return readLeaf(*database, locate(*database, "/a").value->component, {});
    }
};

TEST_F(LeafAccess, LeafIsReadInTheTermsOfItsDescription) {
    build("a: {type: u32, range: [300, 4000], step: 100, current: 400, hook: 9}\n");
    attach();
    const auto stored = read();
    ASSERT_TRUE(stored) << stored.error.sentence;
    EXPECT_EQ(typeNameOf(*stored.value), "u32");
    EXPECT_EQ(stored.value->leaf.lengthBytes, 4U);
    EXPECT_EQ(stored.value->leaf.hookId, 9U);
    EXPECT_EQ(std::get<Range>(stored.value->leaf.constraint).step, Value(uint64_t{100}));
    EXPECT_EQ(readTier(*database, *stored.value, Tier::current).value, Value(uint64_t{400}));
}

TEST_F(LeafAccess, ShorterTextLeavesNothingOfTheLongerOne) {
    build("a: {type: text, size: 9, current: longtext1}\nb: {type: text, size: 9, current: x}\n");
    attach();
    const auto stored = read();
    ASSERT_TRUE(stored);
    EXPECT_FALSE(writeTier(*database, *stored.value, Tier::current, std::string("x")));
    const auto b = locate(*database, "/b").value->component;
    std::string one(10, '?');
    std::string two(10, '!');
    int32_t length = 10;
    EXPECT_EQ(tavDBMGetGeneric(database->session(), stored.value->key, one.data(), &length), 0);
    EXPECT_EQ(tavDBMGetGeneric(database->session(), b.key, two.data(), &length), 0);
    EXPECT_EQ(one, two);
}

TEST_F(LeafAccess, FactoryValueIsNeverWritten) {
    build("a: {type: u8, factory: 7}\n");
    attach();
    const auto stored = read();
    const auto fault = writeTier(*database, *stored.value, Tier::factory, uint64_t{8});
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->kind, FaultKind::refused);
    EXPECT_EQ(readTier(*database, *stored.value, Tier::factory).value, Value(uint64_t{7}));
}

TEST_F(LeafAccess, TypeThatIsNotKnownIsShownAsBytes) {
    build("a: {type: u16, current: 5}\n");
    patchValue(4, 77);
    attach();
    const auto stored = read();
    ASSERT_TRUE(stored);
    EXPECT_EQ(typeNameOf(*stored.value), "type 77");
    EXPECT_EQ(stored.value->leaf.type, Type::bytes);
    EXPECT_EQ(readTier(*database, *stored.value, Tier::current).value, Value(packed<uint16_t>({5})));
}

TEST_F(LeafAccess, DamagedValueRecordsAreFaults) {
    build("a: {type: u16, current: 5}\n");
    patchValue(16, 0xFFFFFFFF);
    attach();
    EXPECT_THAT(read().error.sentence, HasSubstr("its length is -1"));
    patchValue(16, 0x7FFFFFFF);
    EXPECT_THAT(read().error.sentence, HasSubstr("its data lie outside of their medium"));
    patchValue(0, 4);
    EXPECT_THAT(read().error.sentence, HasSubstr("the record says that it is at 4"));
    EXPECT_EQ(read().error.kind, FaultKind::damaged);
}

TEST_F(LeafAccess, DataBeyondTheirMediumAreAFault) {
    build("a: {type: u16, current: 5}\n");
    patchValue(12, 0x7FFFFF00);
    attach();
    const auto stored = read();
    ASSERT_TRUE(stored);
    const auto value = readTier(*database, *stored.value, Tier::current);
    ASSERT_FALSE(value);
    EXPECT_EQ(value.error.kind, FaultKind::damaged);
}

TEST_F(LeafAccess, ConstraintThatCannotBeIsToldAndTheValueStillRead) {
    build("a: {type: u16, range: [0, 9], current: 5}\n");
    patchValue(24, 0x7FFFFF00);
    attach();
    const auto stored = read();
    ASSERT_TRUE(stored);
    ASSERT_TRUE(stored.value->constraintFault);
    EXPECT_EQ(stored.value->constraintFault->kind, FaultKind::damaged);
    EXPECT_EQ(readTier(*database, *stored.value, Tier::current).value, Value(uint64_t{5}));
}

}  // namespace
}  // namespace tavdb::image
