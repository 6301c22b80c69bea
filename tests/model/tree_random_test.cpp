// SPDX-License-Identifier: Apache-2.0
// Random creations, moves, deletions and copies on a tree, each compared with a
// model of what is stated: every record to the byte, every datum, the results,
// and that no record stands in a free block. Odd states that are stated are
// compared first and then mended, as an application does, so that runs stay long.
// A failure shows its seed and the operation.
#include <algorithm>
#include <random>
#include <string>

#include "model/tree_fixture.h"
#include "model/tree_model.h"
#include "rounds.h"

namespace tavdb_test {
namespace {

constexpr int kOperations = kEmulated ? 300 : 1000;
constexpr size_t kMostComponents = 60;
constexpr size_t kValuePool = 24;

class RandomTree : public TreeFixture, public testing::WithParamInterface<uint32_t> {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        random.seed(GetParam());
        model = TreeModel(root);
        pool.push_back(0);
        for (size_t i = 0; i < kValuePool; ++i)
            pool.push_back(newValue());
    }

    /// @name Choices
    /// @{
    uint32_t below(size_t end) {
        return static_cast<uint32_t>(random() % end);
    }
    bool chance(uint32_t percent) {
        return below(100) < percent;
    }
    uint32_t oneOf(const std::vector<uint32_t> &list) {
        return list[below(list.size())];
    }
    /// A component of the kind, or 0 when there is none besides the root.
    uint32_t anyBesidesRoot(int32_t kind) {
        std::vector<uint32_t> keys = model.keys(kind);
        std::erase(keys, root);
        return keys.empty() ? 0 : oneOf(keys);
    }
    /// A child to stand behind, other than `besides`, or 0 to become the first.
    uint32_t anyPrevious(uint32_t parent, uint32_t besides = 0) {
        std::vector<uint32_t> children = model.children(parent);
        std::erase(children, besides);
        return children.empty() || chance(30) ? 0 : oneOf(children);
    }
    uint32_t anyParentOutside(uint32_t node) {
        std::vector<uint32_t> nodes = model.keys(TAVDB_KIND_NODE);
        std::erase_if(nodes, [&](uint32_t key) { return model.isBelow(key, node); });
        return oneOf(nodes);
    }
    Bytes anyBytes(size_t length) {
        Bytes content(length);
        for (uint8_t &byte : content)
            byte = static_cast<uint8_t>(below(256));
        return content;
    }
    /// @}

    uint32_t newValue() {
        const Bytes data = anyBytes(below(9));
        const uint32_t key =
            value_create(&session, TAVDB_TYPE_BYTES, 0, data.data(), static_cast<int32_t>(data.size()), kDataMedia);
        if (key != 0)
            model.values[key] = data;
        return key;
    }

    void createNode();
    void createLeaf();
    void moveLeaf();
    void moveSubTree();
    void moveNode();
    void deleteOne();
    void deleteWithSub();
    void copyTiers();
    void writeValue();
    void step();

    /// What an operation did, for the message of a failure.
    void note(const std::string &operation, std::initializer_list<uint32_t> arguments) {
        text = operation;
        done[operation] += 1;
        for (const uint32_t argument : arguments)
            text += ' ' + std::to_string(argument);
    }
    void mendParents(const std::vector<uint32_t> &children, uint32_t parent);
    void compareRecords();
    void compareValues();
    void checkSpace();

    std::mt19937 random;
    TreeModel model{0};
    std::vector<uint32_t> pool;  ///< value keys, 0 among them
    std::string text;
    std::map<std::string, int> done;
    uint32_t expectedError = 0;
};

INSTANTIATE_TEST_SUITE_P(Seeds, RandomTree, testing::Values(1, 2, 3, 5, 8, 13, 21, 34),
                         [](const auto &seed) { return std::to_string(seed.param); });

void RandomTree::createNode() {
    const uint32_t parent = oneOf(model.keys(TAVDB_KIND_NODE));
    const uint32_t previous = anyPrevious(parent);
    const uint32_t follower = previous != 0 ? model.records.at(previous).next : model.records.at(parent).first;
    const uint32_t child = chance(40) ? follower : 0;
    const uint32_t name = below(1000);
    const uint32_t key = node_create(&session, name, parent, previous, child);
    note(child != 0 ? "createNodeAdopting" : "createNode", {key, parent, previous, child});
    ASSERT_NE(key, 0U);
    ASSERT_FALSE(model.records.contains(key));
    model.createNode(key, name, parent, previous, child);
}

void RandomTree::createLeaf() {
    const uint32_t parent = oneOf(model.keys(TAVDB_KIND_NODE));
    const uint32_t previous = anyPrevious(parent);
    const std::array<uint32_t, 3> values = {oneOf(pool), oneOf(pool), oneOf(pool)};
    const uint32_t name = below(1000);
    const uint32_t key = leaf_create(&session, name, parent, previous, values[0], values[1], values[2], 0);
    note("createLeaf", {key, parent, previous});
    ASSERT_NE(key, 0U);
    ASSERT_FALSE(model.records.contains(key));
    model.createLeaf(key, name, parent, previous, values);
}

void RandomTree::moveLeaf() {
    const uint32_t leafKey = anyBesidesRoot(TAVDB_KIND_LEAF);
    if (leafKey == 0)
        return;
    const TreeModel::Record old = model.records.at(leafKey);
    const bool isFirst = model.records.at(old.parent).first == leafKey;
    const uint32_t parent = oneOf(model.keys(TAVDB_KIND_NODE));
    const uint32_t previous = anyPrevious(parent, leafKey);
    if (isFirst && parent == old.parent && previous == 0)
        return;  // it would follow itself, which has a test of its own
    note(isFirst ? "moveFirstLeaf" : "moveLeaf", {leafKey, parent, previous});
    EXPECT_EQ(leaf_move(&session, leafKey, parent, previous), 0);
    model.moveLeaf(leafKey, parent, previous);
    compareRecords();
    if (!isFirst)
        return;
    EXPECT_EQ(comp_setFirstChild(&session, old.parent, old.next), 0);
    model.records.at(old.parent).first = old.next;
}

void RandomTree::moveSubTree() {
    const uint32_t nodeKey = anyBesidesRoot(TAVDB_KIND_NODE);
    if (nodeKey == 0)
        return;
    const uint32_t parent = anyParentOutside(nodeKey);
    const uint32_t previous = anyPrevious(parent, nodeKey);
    note("moveSubTree", {nodeKey, parent, previous});
    EXPECT_EQ(node_moveWithSub(&session, nodeKey, parent, previous), 0);
    model.moveSubTree(nodeKey, parent, previous);
}

void RandomTree::moveNode() {
    const uint32_t nodeKey = anyBesidesRoot(TAVDB_KIND_NODE);
    if (nodeKey == 0)
        return;
    std::vector<uint32_t> parents = model.keys(TAVDB_KIND_NODE);
    std::erase(parents, nodeKey);
    const uint32_t parent = oneOf(parents);
    const uint32_t previous = anyPrevious(parent, nodeKey);
    const uint32_t child = chance(40) ? model.followerWithout(nodeKey, parent, previous) : 0;
    std::vector<uint32_t> promoted = model.children(nodeKey);
    const uint32_t oldParent = model.records.at(nodeKey).parent;
    note(child != 0 ? "moveNodeAdopting" : "moveNode", {nodeKey, parent, previous, child});
    EXPECT_EQ(node_move(&session, nodeKey, parent, previous, child), 0);
    model.moveNode(nodeKey, parent, previous, child);
    compareRecords();
    std::erase(promoted, child);
    mendParents(promoted, oldParent);
}

void RandomTree::deleteOne() {
    const uint32_t key = anyBesidesRoot(chance(50) ? TAVDB_KIND_NODE : TAVDB_KIND_LEAF);
    if (key == 0)
        return;
    const bool isNode = model.records.at(key).kind == TAVDB_KIND_NODE;
    const std::vector<uint32_t> promoted = isNode ? model.children(key) : std::vector<uint32_t>{};
    const uint32_t parent = model.records.at(key).parent;
    note(promoted.empty() ? "deleteOne" : "deleteNodeAboveChildren", {key});
    EXPECT_EQ(comp_delete(&session, key), 0);
    model.deleteOne(key);
    compareRecords();
    mendParents(promoted, parent);
}

void RandomTree::deleteWithSub() {
    const uint32_t key = anyBesidesRoot(chance(50) ? TAVDB_KIND_NODE : TAVDB_KIND_LEAF);
    if (key == 0)
        return;
    note("deleteWithSub", {key});
    EXPECT_EQ(comp_deleteWithSub(&session, key, 1), 0);
    model.deleteWithSub(key);
}

void RandomTree::copyTiers() {
    struct TierCopy {
        int32_t (*run)(tavDBMSession *, uint32_t);
        Tier to;
        Tier from;
    };
    constexpr TierCopy kTierCopies[] = {{comp_defaultToCurrent, Tier::currentValue, Tier::defaultValue},
                                        {comp_factoryToDefault, Tier::defaultValue, Tier::factoryValue},
                                        {comp_currentToDefault, Tier::defaultValue, Tier::currentValue}};
    const uint32_t which = below(std::size(kTierCopies));
    const uint32_t key = oneOf(model.keys(chance(30) ? TAVDB_KIND_NODE : TAVDB_KIND_LEAF));
    note("copy", {which, key});
    const int32_t expected = model.copy(key, kTierCopies[which].to, kTierCopies[which].from, expectedError);
    EXPECT_EQ(kTierCopies[which].run(&session, key), expected);
}

void RandomTree::writeValue() {
    const uint32_t key = oneOf(pool);
    if (key == 0)
        return;
    const Bytes data = anyBytes(1 + below(10));
    note("writeValue", {key, static_cast<uint32_t>(data.size())});
    EXPECT_EQ(value_setGeneric(&session, key, data.data(), static_cast<int32_t>(data.size())), 0);
    Bytes &stored = model.values.at(key);
    std::copy_n(data.begin(), std::min(data.size(), stored.size()), stored.begin());
}

void RandomTree::step() {
    const bool isFull = model.records.size() >= kMostComponents;
    const uint32_t choice = below(100);
    if (choice < 15 && !isFull)
        createNode();
    else if (choice < 35 && !isFull)
        createLeaf();
    else if (choice < 50)
        moveLeaf();
    else if (choice < 60)
        moveSubTree();
    else if (choice < 70)
        moveNode();
    else if (choice < 80)
        deleteOne();
    else if (choice < 82)
        deleteWithSub();
    else if (choice < 94 && !model.keys(TAVDB_KIND_LEAF).empty())
        copyTiers();
    else
        writeValue();
}

void RandomTree::mendParents(const std::vector<uint32_t> &children, uint32_t parent) {
    for (const uint32_t child : children) {
        EXPECT_EQ(comp_setParent(&session, child, parent), 0);
        model.records.at(child).parent = parent;
    }
}

void RandomTree::compareRecords() {
    for (const auto &[key, record] : model.records) {
        const Bytes expected = model.bytesOfRecord(key);
        EXPECT_EQ(hexAt(kComponents, key, static_cast<uint32_t>(expected.size())), hexText(expected)) << "at " << key;
    }
    EXPECT_EQ(session.errorCode, expectedError);
}

void RandomTree::compareValues() {
    for (const auto &[key, data] : model.values)
        EXPECT_EQ(hexText(dataOf(key)), hexText(data)) << "of value " << key;
}

// Records and free blocks together cover the medium, but for rests of less than 8 bytes.
void RandomTree::checkSpace() {
    std::map<uint32_t, uint32_t> blocks;  // size by offset
    for (const auto &[key, record] : model.records)
        blocks[key] = static_cast<uint32_t>(model.bytesOfRecord(key).size());
    uint32_t last = 0;
    for (uint32_t at = fakeMedia().wordAt(kComponents, 12); at != 0; at = fakeMedia().wordAt(kComponents, at)) {
        ASSERT_GT(at, last) << freeBlocks(kComponents);
        ASSERT_FALSE(blocks.contains(at)) << "record and free block at " << at;
        blocks[at] = fakeMedia().wordAt(kComponents, at + 4);
        last = at;
    }
    uint32_t end = FakeMedia::kHeaderSize;
    for (const auto &[offset, size] : blocks) {
        ASSERT_GE(offset, end) << "two blocks overlap";
        ASSERT_LT(offset - end, 8U) << "space is lost before " << offset;
        end = offset + size;
    }
    EXPECT_EQ(end, kRecordMediumSize);
}

TEST_P(RandomTree, IsWhatTheModelSaysAfterEveryOperation) {
    for (int i = 0; i < kOperations && !HasFailure(); ++i) {
        text.clear();
        session.errorCode = 0;
        expectedError = 0;
        step();
        SCOPED_TRACE("seed " + std::to_string(GetParam()) + ", operation " + std::to_string(i) + ": " + text);
        compareRecords();
        compareValues();
        checkSpace();
        clearTraces();
    }
    for (const char *const operation :
         {"createNode", "createNodeAdopting", "createLeaf", "moveLeaf", "moveFirstLeaf", "moveSubTree", "moveNode",
          "moveNodeAdopting", "deleteOne", "deleteNodeAboveChildren", "deleteWithSub", "copy", "writeValue"})
        EXPECT_GE(done[operation], kOperations / 300) << operation << " hardly came up";
}

}  // namespace
}  // namespace tavdb_test
