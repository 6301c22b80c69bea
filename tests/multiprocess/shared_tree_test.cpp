// SPDX-License-Identifier: Apache-2.0
// Several processes change one tree at once: each its own branch under the
// branch's lock, and all of them the free lists that they share under the root's.
// Afterwards every branch holds exactly what its process put there. And two that
// take turns: what one writes, the other reads with the session it has.
#include <algorithm>
#include <atomic>
#include <random>
#include <vector>

#include "multiprocess/multiprocess_test_support.h"
#include "rounds.h"
#include "tavdb.hpp"

namespace tavdb_test {
namespace {

using tavdb::Database;
using tavdb::Session;

constexpr uint32_t kBranches = 3;
constexpr uint32_t kOperations = kSlow ? 2000 : 10000;
constexpr uint32_t kOperationsAlone = 1000;
constexpr uint32_t kTurns = kSlow ? 60 : 300;
constexpr size_t kLeavesMost = 200;
constexpr uint32_t kTreeMediumBytes = 65536;

/// What a branch has to hold: the values of its leaves, the first child first.
struct Branch {
    uint32_t leaves;
    uint32_t values[kLeavesMost];
};

/// One process's work on its branch, with a model of it.
class BranchWorker {
public:
    BranchWorker(Session &opened, uint32_t root, uint32_t branch)
        : session(opened), sharedRoot(root), node(branch), random(branch) {}

    /// @return whether every operation did what it should
    bool run(uint32_t operations) {
        for (uint32_t i = 0; i < operations; i++)
            if (!step())
                return false;
        return true;
    }
    Branch result() const {
        Branch branch = {static_cast<uint32_t>(leaves.size()), {}};
        for (size_t i = 0; i < leaves.size(); i++)
            branch.values[i] = leaves[i].value;
        return branch;
    }

private:
    struct Leaf {
        uint32_t key;
        uint32_t valueKey;
        uint32_t value;
    };

    uint32_t anyWord() {
        return static_cast<uint32_t>(random());
    }
    bool step() {
        const auto branchLock = session.lock(node);
        if (!branchLock)
            return false;
        const auto choice = random() % 100;
        if (leaves.empty() || (choice < 12 && leaves.size() < kLeavesMost))
            return create();
        Leaf &leaf = leaves[random() % leaves.size()];
        if (choice < 20)
            return remove(leaf);
        if (choice < 60)
            return write(leaf);
        return session.get<uint32_t>(leaf.key).valueOr(~leaf.value) == leaf.value;
    }
    bool create() {
        const auto rootLock = session.lock(sharedRoot);
        const uint32_t value = anyWord();
        const uint32_t valueKey =
            tavDBMCreateValue(session.record(), TAVDB_TYPE_U32, 0, &value, sizeof value, kDataMedium);
        const uint32_t key = tavDBMCreateLeaf(session.record(), 0, node, 0, valueKey, 0, 0, 0);
        leaves.insert(leaves.begin(), {key, valueKey, value});
        return rootLock && valueKey != 0 && key != 0;
    }
    bool remove(Leaf &leaf) {
        const auto rootLock = session.lock(sharedRoot);
        const bool done = rootLock && tavDBMDeleteComponent(session.record(), leaf.key) == 0 &&
                          tavDBMDeleteValue(session.record(), leaf.valueKey) == 0;
        leaves.erase(leaves.begin() + (&leaf - leaves.data()));
        return done;
    }
    bool write(Leaf &leaf) {
        leaf.value = anyWord();
        return static_cast<bool>(session.set(leaf.key, leaf.value));
    }

    Session &session;
    const uint32_t sharedRoot;
    const uint32_t node;
    std::mt19937 random;
    std::vector<Leaf> leaves;
};

bool holds(Session &session, uint32_t node, const Branch &branch) {
    std::vector<uint32_t> values;
    for (const uint32_t leaf : session.children(node))
        values.push_back(session.get<uint32_t>(leaf).valueOr(0));
    return std::equal(values.begin(), values.end(), branch.values, branch.values + branch.leaves);
}

/// What a writer tells a reader, turn by turn: everything that it has changed since.
struct Turns {
    std::atomic<uint32_t> written;
    std::atomic<uint32_t> seen;
    uint32_t leaf;
    uint32_t value;
    uint32_t name;
    uint32_t children;

    bool waitForWriter(uint32_t turn) const {
        return eventually([&] { return written >= turn; });
    }
    bool waitForReader(uint32_t turn) const {
        return eventually([&] { return seen >= turn; });
    }
};

std::string nameOfTurn(uint32_t turn) {
    return std::string(turn % 40, 'n') + std::to_string(turn);
}

/// Makes a new leaf with a new name and a new value, and writes the value once more. Every third turn deletes it again.
bool writeTurn(Session &session, Turns &turns, uint32_t node, uint32_t turn) {
    turns.name = tavDBMCreateString(session.record(), nameOfTurn(turn).c_str(), kDataMedium);
    const uint32_t value = tavDBMCreateValue(session.record(), TAVDB_TYPE_U32, 0, nullptr, 4, kDataMedium);
    turns.leaf = tavDBMCreateLeaf(session.record(), turns.name, node, 0, value, 0, 0, 0);
    turns.value = 1000 + turn;
    turns.children += 1;
    if (turns.name == 0 || value == 0 || turns.leaf == 0 || !session.set(turns.leaf, turns.value))
        return false;
    if (turn % 3 != 0)
        return true;
    turns.children -= 1;
    return tavDBMDeleteComponent(session.record(), turns.leaf) == 0;
}

/// Whether a reader sees the tree as the writer left it.
bool readTurn(Session &session, const Turns &turns, uint32_t node, uint32_t turn) {
    char name[64] = {};
    const bool isNamed = tavdb_getString(session.record(), turns.name, name, sizeof name) != nullptr;
    if (!isNamed || name != nameOfTurn(turn) || tavDBMGetChildCount(session.record(), node) != turns.children)
        return false;
    const bool isFirst = tavDBMGetFirstChild(session.record(), node) == turns.leaf;
    if (turn % 3 == 0)
        return !isFirst;
    return isFirst && session.get<uint32_t>(turns.leaf).valueOr(0) == turns.value;
}

class SharedTree : public testing::TestWithParam<MediaKind> {
protected:
    /// Works as one more process: attached and with a session.
    template <typename Work>
    static Child process(const DatabaseFolder &folder, Work work) {
        return Child([&folder, work] {
            const auto database = Database::attach(folder.description());
            if (!database)
                return 2;
            auto session = Session::open(*database);
            return session && work(*session) ? 0 : 1;
        });
    }
    void makeBranches(const DatabaseFolder &folder) {
        Child maker = process(folder, [&](Session &session) {
            common->root = session.root().valueOr(0);
            for (uint32_t &node : common->nodes)
                node = tavDBMCreateNode(session.record(), 0, common->root, 0, 0);
            return common->nodes[kBranches - 1] != 0;
        });
        ASSERT_EQ(maker.join(), 0);
    }
    Child worker(const DatabaseFolder &folder, uint32_t number, uint32_t operations) {
        return process(folder, [=, this](Session &session) {
            BranchWorker worker(session, common->root, common->nodes[number]);
            const bool done = worker.run(operations);
            common->branches[number] = worker.result();
            return done;
        });
    }
    std::string imagesAfterWork(const MediaKind &kind) {
        const DatabaseFolder folder(kTreeMediumBytes, kind);
        makeBranches(folder);
        EXPECT_EQ(worker(folder, 0, kOperationsAlone).join(), 0);
        return folder.images();
    }

    struct Common {
        uint32_t root;
        uint32_t nodes[kBranches];
        Branch branches[kBranches];
    };
    Shared<Common> common;
};
INSTANTIATE_TEST_SUITE_P(Media, SharedTree, testing::ValuesIn(kMediaKinds),
                         [](const auto &kind) { return kind.param.name; });

TEST_P(SharedTree, HoldsWhatEveryProcessPutIntoItsBranch) {
    const DatabaseFolder folder(kTreeMediumBytes, GetParam());
    makeBranches(folder);
    std::vector<Child> workers;
    for (uint32_t number = 0; number < kBranches; number++)
        workers.push_back(worker(folder, number, kOperations));
    for (Child &one : workers)
        EXPECT_EQ(one.join(), 0);
    Child reader = process(folder, [&](Session &session) {
        return std::equal(common->nodes, std::end(common->nodes), common->branches,
                          [&](uint32_t node, const Branch &branch) { return holds(session, node, branch); });
    });
    EXPECT_EQ(reader.join(), 0);
    EXPECT_EQ(folder.faults(), "");
}

TEST_P(SharedTree, WhatOneProcessWritesAnotherReadsWithTheSessionThatItHas) {
    const DatabaseFolder folder(kTreeMediumBytes, GetParam());
    makeBranches(folder);
    const uint32_t node = common->nodes[0];
    const Shared<Turns> turns;
    Child reader = process(folder, [&](Session &session) {
        bool good = tavDBMGetChildCount(session.record(), node) == 0;  // it has read before anything is written
        turns->seen = 1;
        for (uint32_t turn = 1; good && turn <= kTurns; turn++) {
            good = turns->waitForWriter(turn) && readTurn(session, *turns, node, turn);
            turns->seen = turn + 1;
        }
        return good;
    });
    Child writer = process(folder, [&](Session &session) {
        bool good = true;
        for (uint32_t turn = 1; good && turn <= kTurns; turn++) {
            good = turns->waitForReader(turn) && writeTurn(session, *turns, node, turn);
            turns->written = turn;
        }
        return good;
    });
    EXPECT_EQ(writer.join(), 0);
    EXPECT_EQ(reader.join(), 0);
}

TEST_P(SharedTree, HasTheSameBytesOnEveryKindOfMedium) {
    const std::string images = imagesAfterWork(GetParam());
    EXPECT_GT(images.size(), 4 * kTreeMediumBytes) << "data of values are appended";
    EXPECT_TRUE(images == imagesAfterWork(kMediaKinds[0])) << "they differ from those of memory media";
}

}  // namespace
}  // namespace tavdb_test
