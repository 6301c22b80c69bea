// SPDX-License-Identifier: Apache-2.0
// The power fails in the middle of every operation of the library that writes more
// than once: after each write, and after half of each. Every image that can be left is
// checked, repaired, checked again and used. All ordered trees of a few components
// are tried, and all short sequences of allocations and releases.
//
// TAVDB_POWERCUT_COMPONENTS and TAVDB_POWERCUT_SEQUENCE ask for larger trees and longer
// sequences than a usual run tries; both are 3 there, and 2 where every step is slow.
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>

#include "image/check_names.h"
#include "powercut/cut_media.h"
#include "rounds.h"
#include "tools/image/check_support.h"

namespace tavdb_test {
namespace {

namespace image = tavdb::image;

constexpr size_t kUsual = kSlow ? 2 : 3;

size_t settingOf(const char *variable, size_t usual) {
    const char *const text = getenv(variable);
    return text != nullptr ? strtoul(text, nullptr, 10) : usual;
}

/// What a leaf or a node is, as far as it must survive.
struct Seen {
    bool isNode = false;
    std::string name;
    std::string data;  ///< of the three values of a leaf

    bool operator==(const Seen &) const = default;
};
using SeenTree = std::map<uint32_t, Seen>;

/// What a component or a value may have lost that the call did not touch.
struct Losses {
    size_t components = 0;
    size_t names = 0;
    size_t data = 0;

    bool none() const {
        return components + names + data == 0;
    }
};

class PowerCut : public testing::Test {
protected:
    void SetUp() override {
        image::buildText("a: {type: u8}\n", place / "db");
        database = std::make_unique<image::Attached>(place / "db");
        useCutMedia();
        cutMedia().restart(emptyContents());
    }
    void TearDown() override {
        database.reset();
        if (images == 0)
            return;
        std::cout << images << " images, " << damaged << " of them damaged, all repaired; " << withLosses
                  << " lost records of the interrupted call, and " << gathered
                  << " have components below /lost+found\n";
    }

    tavDBMSession *session() {
        return database->session();
    }
    /// The whole tree as the library shows it.
    SeenTree lookAround() {
        SeenTree seen;
        std::vector<uint32_t> keys = {tavDBMGetRoot(session())};
        for (size_t i = 0; i < keys.size(); i++)
            for (uint32_t child = tavDBMGetFirstChild(session(), keys[i]); child != 0;
                 child = tavDBMGetNextChild(session(), child)) {
                if (!seen.emplace(child, lookAt(child, keys[i])).second) {
                    ADD_FAILURE() << "component " << child << " stands in the tree twice";
                    return seen;
                }
                keys.push_back(child);
            }
        return seen;
    }
    Seen lookAt(uint32_t key, uint32_t parent) {
        tavDBMLeaf leaf = {};
        EXPECT_NE(comp_getComponent(session(), key, &leaf.component), nullptr);
        EXPECT_EQ(leaf.component.key, key);
        EXPECT_EQ(leaf.component.parent, parent);
        Seen seen = {leaf.component.kind == TAVDB_KIND_NODE, {}, {}};
        std::array<char, 300> name = {};
        EXPECT_TRUE(leaf.component.name == 0 ||
                    tavdb_getString(session(), leaf.component.name, name.data(), name.size() - 1) != nullptr);
        seen.name = name.data();
        if (seen.isNode || comp_getLeaf(session(), key, &leaf) == nullptr)
            return seen;
        for (const uint32_t value : {leaf.currentValue, leaf.defaultValue, leaf.factoryValue})
            seen.data += value != 0 ? dataOf(value) : "-";
        return seen;
    }
    std::string dataOf(uint32_t value) {
        session()->errorCode = 0;
        int32_t length = std::clamp(value_getLength(session(), value), 0, 64);
        std::string data(static_cast<size_t>(length), '?');
        EXPECT_EQ(value_getGeneric(session(), value, data.data(), &length), 0);
        EXPECT_EQ(session()->errorCode, 0U) << "value " << value;
        return data;
    }

    /// Runs an operation and then every cut of it. What is there before and afterwards
    /// must be there after a cut.
    void cutEverywhere(const Contents &start, const std::function<void()> &operation) {
        const auto before = treeOf(start);
        cutMedia().restart(start);
        operation();
        const auto writes = cutMedia().writes;
        if (writes.empty())
            return;
        const auto end = cutMedia().contents;
        const auto whole = image::examine({image::nativeOrder(), end});
        EXPECT_FALSE(whole.isDamaged()) << "by a call that was not cut: "
                                        << testing::PrintToString(image::linesOf(whole));
        const auto after = treeOf(end);
        auto cut = start;
        for (const auto &write : writes) {
            for (const size_t part : {size_t{0}, write.bytes.size() / 2}) {
                auto torn = cut;
                if (part != 0)
                    CutMedia::apply(torn, write, part);
                tryImage(torn, before, after);
            }
            CutMedia::apply(cut, write, write.bytes.size());
            if (HasFailure())
                return;
        }
        tryImage(cut, before, after);
        cutMedia().restart(end);
    }

    /// As the library shows it after a repair: stated oddities are tidied then.
    SeenTree treeOf(const Contents &contents) {
        cutMedia().restart(contentsOf(image::examine({image::nativeOrder(), contents}).images));
        return lookAround();
    }
    static Contents contentsOf(const image::RawImages &given) {
        Contents contents;
        for (const auto &medium : image::kMediumNames)
            contents[static_cast<size_t>(medium.id)] = given.content(medium.id);
        return contents;
    }

    void tryImage(const Contents &contents, const SeenTree &before, const SeenTree &after) {
        const auto examination = image::examine({image::nativeOrder(), contents});
        SCOPED_TRACE(testing::PrintToString(image::linesOf(examination)));
        image::expectSound(examination);
        images++;
        damaged += examination.isDamaged() ? 1U : 0U;
        withLosses += examination.hasLosses() ? 1U : 0U;
        cutMedia().restart(contentsOf(examination.images));
        const auto seen = lookAround();
        const bool hasFolder = std::any_of(seen.begin(), seen.end(), [](const auto &entry) {
            return entry.second.name == std::string(image::kLostAndFound) + "/";
        });
        gathered += hasFolder ? 1U : 0U;
        const auto losses = lossesOf(seen, before, after);
        EXPECT_TRUE(losses.none()) << losses.components << " components, " << losses.names << " names, " << losses.data
                                   << " values lost that were there before and afterwards";
        use();
    }
    static Losses lossesOf(const SeenTree &seen, const SeenTree &before, const SeenTree &after) {
        Losses losses;
        for (const auto &[key, was] : before) {
            const auto later = after.find(key);
            if (later == after.end() || later->second.isNode != was.isNode)
                continue;
            const auto now = seen.find(key);
            if (now == seen.end() || now->second.isNode != was.isNode) {
                losses.components++;
                continue;
            }
            const bool isNameKept = now->second.name.starts_with(was.name) || was.name != later->second.name;
            const bool isDataKept = now->second.data == was.data || was.data != later->second.data;
            losses.names += isNameKept ? 0U : 1U;
            losses.data += isDataKept ? 0U : 1U;
        }
        return losses;
    }
    /// A repaired database is one to work with.
    void use() {
        const auto count = lookAround().size();
        newLeaf(tavDBMGetRoot(session()), 0);
        EXPECT_EQ(lookAround().size(), count + 1);
        const auto examination = image::examine({image::nativeOrder(), cutMedia().contents});
        EXPECT_THAT(image::linesOf(examination), testing::Each(testing::HasSubstr("it stays as it is")));
    }

    uint32_t newName(const std::string &text) {
        return str_create(session(), text.c_str(), image::kTextMedium);
    }
    uint32_t newNumber(int32_t number, uint32_t constraint) {
        const auto key = value_create(session(), TAVDB_TYPE_S32, 0, &number, sizeof number, image::kDataMedium);
        value_setConstraintKey(session(), key, constraint);
        return key;
    }
    uint32_t newRange() {
        tavDBMRangeS32 range = {0, TAVDB_TYPE_S32, 0, 1000000, 0};
        rangeS32_new(session(), &range);
        return range.key;
    }
    uint32_t newLeaf(uint32_t parent, uint32_t previous) {
        const auto range = newRange();
        const auto name = newName("leaf" + std::to_string(serial));
        const auto number = static_cast<int32_t>(1000 * ++serial);
        return leaf_create(session(), name, parent, previous, newNumber(number, range), newNumber(number + 1, range),
                           newNumber(number + 2, range), 0);
    }

    TestPlace place;
    std::unique_ptr<image::Attached> database;
    uint32_t serial = 0;
    size_t images = 0;
    size_t damaged = 0;
    size_t withLosses = 0;
    size_t gathered = 0;
};

/// A component of a tree to be built: behind the others below its parent.
struct Planned {
    size_t parent;  ///< index of the component, from 1; 0 is the root
    bool isNode;
};
using Plan = std::vector<Planned>;

/// All ordered trees of so many components, in the order of their records.
void forEachPlan(size_t count, Plan &plan, const std::function<void(const Plan &)> &action) {
    if (plan.size() == count)
        return action(plan);
    // Behind the last one, or behind any of those that it stands below.
    size_t parent = plan.size();
    for (;;) {
        if (parent == 0 || plan[parent - 1].isNode)
            for (const bool isNode : {false, true}) {
                plan.push_back({parent, isNode});
                forEachPlan(count, plan, action);
                plan.pop_back();
            }
        if (parent == 0)
            return;
        parent = plan[parent - 1].parent;
    }
}

class PowerCutTrees : public PowerCut {
public:
    struct Place {
        uint32_t parent;
        uint32_t previous;
        uint32_t follower;
    };
    struct Tree {
        Contents contents;
        std::vector<uint32_t> nodes;  ///< with the root
        std::vector<uint32_t> leaves;
        std::vector<Place> places;  ///< where a component can come to stand
    };

    Tree build(const Plan &plan) {
        cutMedia().restart(emptyContents());
        serial = 0;
        const uint32_t root = tavDBMGetRoot(session());
        Tree tree = {{}, {root}, {}, {}};
        std::vector<uint32_t> keys = {root};
        std::vector<uint32_t> lastChild = {0};
        for (const auto &each : plan) {
            const auto previous = lastChild[each.parent];
            const auto key = each.isNode ? node_create(session(), newName("n" + std::to_string(keys.size()) + "/"),
                                                       keys[each.parent], previous, 0)
                                         : newLeaf(keys[each.parent], previous);
            EXPECT_NE(key, 0U);
            lastChild[each.parent] = key;
            lastChild.push_back(0);
            keys.push_back(key);
            (each.isNode ? tree.nodes : tree.leaves).push_back(key);
        }
        for (const uint32_t node : tree.nodes)
            addPlaces(tree, node);
        tree.contents = cutMedia().contents;
        return tree;
    }
    void addPlaces(Tree &tree, uint32_t node) {
        uint32_t follower = tavDBMGetFirstChild(session(), node);
        for (uint32_t previous = 0;; previous = follower, follower = tavDBMGetNextChild(session(), follower)) {
            tree.places.push_back({node, previous, follower});
            if (follower == 0)
                return;
        }
    }

    using Operations = std::vector<std::pair<std::string, std::function<void()>>>;
    Operations creations(const Tree &tree) {
        Operations list;
        for (const auto &each : tree.places) {
            list.emplace_back("create a leaf", [=, this] { newLeaf(each.parent, each.previous); });
            for (const uint32_t child : {uint32_t{0}, each.follower})
                list.emplace_back("create a node", [=, this] {
                    node_create(session(), newName("new/"), each.parent, each.previous, child);
                });
        }
        return list;
    }
    /// A component that is moved behind itself would follow itself, and one that is moved below
    /// itself is in no tree afterwards: both are stated, and mended by no cut.
    bool canStandAt(uint32_t key, const Place &at) {
        for (uint32_t above = at.parent; above != 0; above = tavDBMGetParent(session(), above))
            if (above == key)
                return false;
        return at.previous != key;
    }
    Operations moves(const Tree &tree) {
        Operations list;
        for (const auto &at : tree.places) {
            for (const uint32_t leaf : tree.leaves)
                if (canStandAt(leaf, at))
                    list.emplace_back("move a leaf", [=, this] { leaf_move(session(), leaf, at.parent, at.previous); });
            for (const uint32_t node : tree.nodes) {
                if (node == tree.nodes[0] || !canStandAt(node, at))
                    continue;
                list.emplace_back("move a sub-tree",
                                  [=, this] { node_moveWithSub(session(), node, at.parent, at.previous); });
                list.emplace_back("move a node alone",
                                  [=, this] { node_move(session(), node, at.parent, at.previous, 0); });
            }
        }
        return list;
    }
    Operations removals(const Tree &tree) {
        Operations list;
        auto all = tree.leaves;
        all.insert(all.end(), tree.nodes.begin() + 1, tree.nodes.end());
        for (const uint32_t key : all) {
            list.emplace_back("delete", [=, this] { comp_delete(session(), key); });
            list.emplace_back("delete with all below", [=, this] { comp_deleteWithSub(session(), key, 1); });
            list.emplace_back("delete a name",
                              [=, this] { tavDBMDeleteString(session(), tavDBMGetStringKey(session(), key)); });
        }
        return list;
    }
    Operations valueOperations(const Tree &tree) {
        Operations list;
        list.emplace_back("create a value", [this] { newNumber(7, 0); });
        list.emplace_back("create a string", [this] { newName("text"); });
        list.emplace_back("create a range", [this] { newRange(); });
        list.emplace_back("create an enumeration", [this] {
            const auto array = constraint_newEnumArray(session(), 4, 3);
            tavDBMEnumeration record = {0, TAVDB_TYPE_S32 << TAVDB_ENUMERATION_SHIFT, array, 4, 3};
            enum_new(session(), &record);
        });
        for (const uint32_t leaf : tree.leaves) {
            list.emplace_back("set a value", [=, this] { tavDBMSetSint32(session(), leaf, 5); });
            list.emplace_back("delete a value",
                              [=, this] { value_delete(session(), leaf_getCurrentValueKey(session(), leaf)); });
            list.emplace_back("set a range", [=, this] {
                const int32_t numbers[] = {0, 2000000, 0};
                tavDBMSetConstraintData(session(), leaf, numbers, sizeof numbers);
            });
            list.emplace_back("give another range", [=, this] {
                value_setConstraintKey(session(), leaf_getCurrentValueKey(session(), leaf), newRange());
            });
            list.emplace_back("give another value",
                              [=, this] { tavDBMSetCurrentValueKey(session(), leaf, newNumber(9, newRange())); });
            for (const uint32_t source : tree.leaves)
                if (source != leaf)
                    list.emplace_back("copy a value", [=, this] { tavDBMCopy(session(), source, leaf); });
        }
        return list;
    }
    /// What is done with any component, the root among them.
    Operations componentOperations(const Tree &tree) {
        Operations list;
        auto all = tree.leaves;
        all.insert(all.end(), tree.nodes.begin(), tree.nodes.end());
        for (const uint32_t key : all) {
            list.emplace_back("default to current", [=, this] { comp_defaultToCurrent(session(), key); });
            list.emplace_back("factory to default", [=, this] { comp_factoryToDefault(session(), key); });
            list.emplace_back("current to default", [=, this] { comp_currentToDefault(session(), key); });
            list.emplace_back("give another name",
                              [=, this] { tavDBMSetStringKey(session(), key, newName("another")); });
        }
        return list;
    }

    void runAll(Operations (PowerCutTrees::*listOf)(const Tree &)) {
        for (size_t count = 0; count <= settingOf("TAVDB_POWERCUT_COMPONENTS", kUsual); count++) {
            Plan plan;
            forEachPlan(count, plan, [&](const Plan &each) {
                const auto tree = build(each);
                size_t number = 0;
                for (const auto &[name, operation] : (this->*listOf)(tree)) {
                    if (HasFailure())
                        return;
                    std::string text;
                    for (const auto &planned : each)
                        text += (planned.isNode ? " node<" : " leaf<") + std::to_string(planned.parent);
                    SCOPED_TRACE(name + ", number " + std::to_string(number++) + " of" + text);
                    cutEverywhere(tree.contents, operation);
                }
            });
        }
    }
};

TEST_F(PowerCutTrees, WhileComponentsAreCreated) {
    runAll(&PowerCutTrees::creations);
    EXPECT_GT(damaged, 20U);
}

TEST_F(PowerCutTrees, WhileComponentsAreMoved) {
    runAll(&PowerCutTrees::moves);
    EXPECT_GT(damaged, 20U);
}

TEST_F(PowerCutTrees, WhileComponentsAreRemoved) {
    runAll(&PowerCutTrees::removals);
    EXPECT_GT(damaged, 20U);
}

TEST_F(PowerCutTrees, WhileValuesAreWritten) {
    runAll(&PowerCutTrees::valueOperations);
    EXPECT_GT(images, 100U);
}

TEST_F(PowerCutTrees, WhileComponentsAreCopiedAndNamed) {
    runAll(&PowerCutTrees::componentOperations);
    EXPECT_GT(images, 100U);
}

class PowerCutFileList : public PowerCut {
protected:
    struct Block {
        uint32_t offset;
        uint32_t sizeBytes;
    };

    /// All sequences of so many allocations and releases.
    void goOn(const Contents &start, std::vector<Block> taken, size_t left) {
        if (left == 0 || HasFailure())
            return;
        for (const uint32_t size : {8U, 28U, 40U, 1150U}) {
            uint32_t offset = 0;
            cutEverywhere(start, [&] { offset = flst_m_get(session(), image::kComponentMedium, size); });
            auto more = taken;
            if (offset != 0)
                more.push_back({offset, size});
            cutMedia().restart(start);
            flst_m_get(session(), image::kComponentMedium, size);
            goOn(Contents(cutMedia().contents), more, left - 1);
        }
        for (size_t i = 0; i < taken.size(); i++) {
            const auto release = [&] {
                flst_m_release(session(), image::kComponentMedium, taken[i].offset, taken[i].sizeBytes);
            };
            cutEverywhere(start, release);
            auto fewer = taken;
            fewer.erase(fewer.begin() + static_cast<ptrdiff_t>(i));
            cutMedia().restart(start);
            release();
            goOn(Contents(cutMedia().contents), fewer, left - 1);
        }
    }
};

TEST_F(PowerCutFileList, WhileRecordsAreAllocatedAndReleased) {
    goOn(emptyContents(), {}, settingOf("TAVDB_POWERCUT_SEQUENCE", kUsual));
    EXPECT_GT(damaged, 20U);
}

}  // namespace
}  // namespace tavdb_test
