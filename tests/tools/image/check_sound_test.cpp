// SPDX-License-Identifier: Apache-2.0
// What is sound gives no finding: every example description, and a database after
// thousands of operations of the library. What the library leaves behind by its stated
// behaviour is an oddity and no damage, produced here by the library itself.
#include <random>

#include "tools/image/check_support.h"

namespace tavdb::image {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> check(const std::string &folder) {
    const auto images = RawImages::load(folder, nativeOrder());
    EXPECT_TRUE(images);
    const auto examination = examine(*images.value);
    EXPECT_FALSE(examination.isDamaged());
    expectSound(examination);
    return linesOf(examination);
}

TEST(CheckSound, ExampleDescriptions) {
    const tavdb_test::TestPlace place;
    for (const auto *file : {"examples/gateway/gateway.yaml", "tests/tools/byte_order/every_type.yaml"}) {
        buildText(tavdb_test::bytesOf(std::string(TAVDB_SOURCE_DIR) + "/" + file), place / "db", {.replace = true});
        EXPECT_THAT(check(place / "db"), IsEmpty()) << file;
    }
}

TEST(CheckSound, ExamplesOfTheDocument) {
    const tavdb_test::TestPlace place;
    const auto text = tavdb_test::bytesOf(std::string(TAVDB_SOURCE_DIR) + "/docs/DESCRIPTIONS.md");
    const std::string fence = "\n```yaml\n";
    size_t count = 0;
    for (size_t at = text.find(fence); at != std::string::npos; at = text.find(fence, at), count++) {
        at += fence.size();
        buildText(text.substr(at, text.find("\n```\n", at) + 1 - at), place / "db", {.replace = true});
        EXPECT_THAT(check(place / "db"), IsEmpty()) << count;
    }
    EXPECT_EQ(count, 3U);
}

TEST(CheckSound, DataModel) {
    const std::string file = std::string(TAVDB_DATA_DIR) + "/tr/tr-181-2-17-0-cwmp-full.xml";
    if (!std::filesystem::exists(file))
        GTEST_SKIP() << "no folder of published data models (TAVDB_DATA_DIR)";
    const tavdb_test::TestPlace place;
    const auto description = readDescription(file, {});
    ASSERT_TRUE(description.ok());
    ASSERT_TRUE(buildDatabase(description.model, place / "db", {}));
    EXPECT_THAT(check(place / "db"), IsEmpty());
}

/// An application that gives back what it took: components, names, values, constraints.
class Application {
public:
    Application(Attached &given, uint32_t seed) : database(given), random(seed) {
        nodes.push_back({tavDBMGetRoot(session()), 0, 0});
    }

    void step() {
        switch (below(7)) {
            case 0:
                return createNode();
            case 1:
            case 2:
                return createLeaf();
            case 3:
                return moveLeaf();
            case 4:
                return moveNode();
            case 5:
                return removeLeaf();
            default:
                return write();
        }
    }

private:
    struct Entry {
        uint32_t key;
        uint32_t parent;
        uint32_t name;
    };

    tavDBMSession *session() {
        return database.session();
    }
    uint32_t below(size_t limit) {
        return static_cast<uint32_t>(random() % limit);
    }
    uint32_t newName(bool isNode) {
        const auto text = "n" + std::to_string(serial++) + std::string(below(5), 'x') + (isNode ? "/" : "");
        return str_create(session(), text.c_str(), kTextMedium);
    }
    uint32_t previousBelow(uint32_t parent) {
        const uint32_t count = tavDBMGetChildCount(session(), parent);
        return count == 0 || below(3) == 0 ? 0 : tavDBMGetChildByIndex(session(), parent, below(count));
    }
    void createNode() {
        if (nodes.size() > 12)
            return;
        const auto parent = nodes[below(nodes.size())].key;
        const auto name = newName(true);
        nodes.push_back({tavDBMCreateNode(session(), name, parent, previousBelow(parent), 0), parent, name});
        ASSERT_NE(nodes.back().key, 0U);
    }
    uint32_t newValue(uint32_t constraint) {
        const int32_t number = static_cast<int32_t>(below(10));
        const auto key = value_create(session(), TAVDB_TYPE_S32, 0, &number, sizeof number, kDataMedium);
        EXPECT_NE(key, 0U);
        if (constraint != 0)
            value_setConstraintKey(session(), key, constraint);
        return key;
    }
    void createLeaf() {
        if (leaves.size() > 25)
            return;
        const auto parent = nodes[below(nodes.size())].key;
        tavDBMRangeS32 range = {0, TAVDB_TYPE_S32, 0, 9, 1};
        const bool hasRange = below(2) == 0 && rangeS32_new(session(), &range) != nullptr;
        const uint32_t constraint = hasRange ? range.key : 0;
        const auto name = newName(false);
        const auto key = tavDBMCreateLeaf(session(), name, parent, previousBelow(parent), newValue(constraint),
                                          newValue(constraint), newValue(constraint), 0);
        ASSERT_NE(key, 0U);
        leaves.push_back({key, parent, name});
    }
    /// A first child is another matter, see below.
    void moveLeaf() {
        if (leaves.empty())
            return;
        auto &leaf = leaves[below(leaves.size())];
        const auto parent = nodes[below(nodes.size())].key;
        const auto previous = previousBelow(parent);
        if (tavDBMGetFirstChild(session(), leaf.parent) == leaf.key || previous == leaf.key)
            return;
        EXPECT_EQ(tavDBMMoveLeaf(session(), leaf.key, parent, previous), 0);
        leaf.parent = parent;
    }
    bool isBelow(uint32_t node, uint32_t top) {
        for (; node != 0; node = tavDBMGetParent(session(), node))
            if (node == top)
                return true;
        return false;
    }
    void moveNode() {
        auto &node = nodes[below(nodes.size())];
        const auto parent = nodes[below(nodes.size())].key;
        const auto previous = previousBelow(parent);
        if (node.parent == 0 || isBelow(parent, node.key) || previous == node.key)
            return;
        EXPECT_EQ(tavDBMMoveSubTree(session(), node.key, parent, previous), 0);
        node.parent = parent;
    }
    void removeLeaf() {
        if (leaves.empty())
            return;
        const auto index = below(leaves.size());
        const auto leaf = leaves[index];
        tavDBMLeaf record = {};
        ASSERT_NE(comp_getLeaf(session(), leaf.key, &record), nullptr);
        const auto constraint = value_getConstraintKey(session(), record.currentValue);
        EXPECT_EQ(tavDBMDeleteComponent(session(), leaf.key), 0);
        for (const uint32_t value : {record.currentValue, record.defaultValue, record.factoryValue})
            EXPECT_EQ(value_delete(session(), value), 0);
        EXPECT_EQ(tavDBMDeleteString(session(), leaf.name), 0);
        if (constraint != 0)
            flst_m_release(session(), kConstraintMedium, constraint, sizeof(tavDBMRangeS32));
        leaves.erase(leaves.begin() + static_cast<std::ptrdiff_t>(index));
    }
    void write() {
        if (leaves.empty())
            return;
        EXPECT_EQ(tavDBMSetSint32(session(), leaves[below(leaves.size())].key, static_cast<int32_t>(below(10))), 0);
    }

    Attached &database;
    std::mt19937 random;
    uint32_t serial = 0;
    std::vector<Entry> nodes;
    std::vector<Entry> leaves;
};

TEST(CheckSound, ThousandsOfOperationsOfTheLibrary) {
    const tavdb_test::TestPlace place;
    buildText("a: {type: u8}\n", place / "db");
    Attached database(place / "db");
    Application application(database, tavdb_test::randomSeed());
    for (int i = 0; i < 4000 && !testing::Test::HasFailure(); i++) {
        application.step();
        if (i % 200 != 0)
            continue;
        EXPECT_THAT(check(place / "db"), IsEmpty()) << "after " << i << " operations";
    }
    EXPECT_THAT(check(place / "db"), IsEmpty());
}

class CheckOddities : public testing::Test {
protected:
    tavdb_test::TestPlace place;
    const std::string db = place / "db";
};

TEST_F(CheckOddities, FirstLeafThatTheLibraryMoved) {
    buildText("a: {type: u8}\nb: {type: u8}\nn: {x: {type: u8}}\n", db);
    {
        Attached database(db);
        ASSERT_EQ(tavDBMMoveLeaf(database.session(), database.at("/a"), database.at("/n/"), 0), 0);
        EXPECT_EQ(tavDBMSearchByName(database.session(), "/b"), 0U) << "what it looks like to everybody";
    }
    EXPECT_EQ(check(db).size(), 1U);
}

TEST_F(CheckOddities, NodeThatWasDeletedAboveItsChildren) {
    buildText("n: {x: {type: u8}, y: {type: u8}}\nz: {type: u8}\n", db);
    {
        Attached database(db);
        const auto name = tavDBMGetStringKey(database.session(), database.at("/n/"));
        ASSERT_EQ(tavDBMDeleteComponent(database.session(), database.at("/n/")), 0);
        ASSERT_EQ(tavDBMDeleteString(database.session(), name), 0);
    }
    EXPECT_THAT(check(db), ElementsAre(testing::HasSubstr("(oddity): it names that node"),
                                       testing::HasSubstr("(oddity): it names that node")));
}

TEST_F(CheckOddities, NodeThatWasMovedWithoutItsChildren) {
    buildText("n: {x: {type: u8}}\nm: {z: {type: u8}}\n", db);
    {
        Attached database(db);
        ASSERT_EQ(tavDBMMoveNode(database.session(), database.at("/n/"), database.at("/m/"), 0, 0), 0);
    }
    EXPECT_THAT(check(db), ElementsAre(testing::HasSubstr("(oddity): it names that node")));
}

TEST_F(CheckOddities, SubTreeThatWasDeletedLeavesNamesAndValues) {
    buildText("n: {x: {type: u8}}\nz: {type: u8}\n", db);
    {
        Attached database(db);
        ASSERT_EQ(tavDBMDeleteComponentWithSub(database.session(), database.at("/n/")), 0);
    }
    EXPECT_THAT(check(db), ElementsAre(testing::StartsWith("value.med: the header: 84 bytes"),
                                       testing::StartsWith("string.med: the header: 32 bytes")));
}

TEST_F(CheckOddities, ComponentThatWasDeletedWhenNothingBehindItWasFree) {
    buildText("x: {type: u8}\ny: {type: u8}\n", db);
    {
        Attached database(db);
        auto *session = database.session();
        const auto images = *RawImages::load(db, nativeOrder()).value;
        const auto first = wordOf(images, kComponentMedium, 12);
        // The last free block is taken whole.
        ASSERT_EQ(flst_m_get(session, kComponentMedium, wordOf(images, kComponentMedium, first + 4)), first);
        ASSERT_EQ(tavDBMDeleteComponent(session, database.at("/y")), 0);
    }
    const auto examination = examine(*RawImages::load(db, nativeOrder()).value);
    EXPECT_FALSE(examination.isDamaged());
    EXPECT_THAT(linesOf(examination), testing::Contains(testing::EndsWith(
                                          "of /lost+found/y: no link leads to it (oddity): it comes to stand below "
                                          "/lost+found")));
    expectSound(examination);
}

TEST_F(CheckOddities, NameAndValueThatWereDeletedWhileInUse) {
    buildText("x: {type: u8, current: 5}\ny: {type: u8}\n", db);
    {
        Attached database(db);
        tavDBMLeaf leaf = {};
        ASSERT_NE(comp_getLeaf(database.session(), database.at("/x"), &leaf), nullptr);
        ASSERT_EQ(tavDBMDeleteString(database.session(), leaf.component.name), 0);
        ASSERT_EQ(value_delete(database.session(), leaf.currentValue), 0);
    }
    EXPECT_THAT(check(db), ElementsAre(testing::HasSubstr("was deleted (oddity): it gets a new name"),
                                       testing::HasSubstr("was deleted (oddity): a copy of its default value")));
}

}  // namespace
}  // namespace tavdb::image
