// SPDX-License-Identifier: Apache-2.0
// Walks over trees that nobody makes but a damaged or hostile medium can hold: a
// hundred thousand nodes below each other on the stack of an embedded thread,
// subtrees that are reached over ever more ways, circles that begin deep down. On
// media of the test's own, since a log of all accesses would fill the memory.
#include <pthread.h>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

constexpr size_t kStackBytes = 256U << 10;
constexpr uint32_t kFirstKey = 16;
constexpr uint32_t kNodeBytes = sizeof(tavDBMNode);

Bytes s_components;
uint64_t s_transfers;

int32_t openMedium(const char *, uint32_t, uint32_t *) {
    return 0;
}
int32_t closeMedium(int32_t, uint32_t *) {
    return 0;
}
bool isInside(int32_t length, uint32_t offset) {
    s_transfers += 1;
    return uint64_t{offset} + static_cast<uint32_t>(length) <= s_components.size();
}
int32_t readMedium(int32_t, void *buffer, int32_t length, uint32_t offset, uint32_t *) {
    if (!isInside(length, offset))
        return 0;
    memcpy(buffer, &s_components[offset], static_cast<size_t>(length));
    return length;
}
int32_t writeMedium(int32_t, const void *buffer, int32_t length, uint32_t offset, uint32_t *) {
    if (!isInside(length, offset))
        return 0;
    memcpy(&s_components[offset], buffer, static_cast<size_t>(length));
    return length;
}

/// A walk over the subtree of a node. @return its code
struct WalkOver : Named {
    int32_t (*walk)(tavDBMSession *session, uint32_t key);
    int32_t circle;   ///< site of the line for a node below itself
    int32_t endless;  ///< site of that for a walk without an end
};

constexpr WalkOver kWalks[] = {
    {{"comp_defaultToCurrent"}, comp_defaultToCurrent, 403, 404},
    {{"comp_factoryToDefault"}, comp_factoryToDefault, 413, 414},
    {{"comp_currentToDefault"}, comp_currentToDefault, 423, 424},
    {{"comp_traverseAndPrint"},
     [](tavDBMSession *session, uint32_t key) {
         comp_traverseAndPrint(session, key, INT32_MIN / 2);  // widths below 0 print nothing
         return 0;
     },
     430,
     431},
    {{"comp_deleteWithSub"},
     [](tavDBMSession *session, uint32_t key) { return comp_deleteWithSub(session, key, 0); },
     370,
     373},
};

class Depth : public TreeFixture, public testing::WithParamInterface<WalkOver> {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        media_table.entry[kComponentMedia].open = openMedium;
        media_table.entry[kComponentMedia].close = closeMedium;
        media_table.entry[kComponentMedia].read = readMedium;
        media_table.entry[kComponentMedia].write = writeMedium;
        clearTraces();
    }

    static uint32_t keyOf(uint32_t index) {
        return kFirstKey + index * kNodeBytes;
    }
    static void putNodes(uint32_t count) {
        s_components.assign(keyOf(count) + sizeof(tavDBMLeaf), 0);
        for (uint32_t i = 0; i < count; ++i)
            link(i, 0, 0);
    }
    static void link(uint32_t index, uint32_t next, uint32_t firstChild) {
        const tavDBMNode node = {
            .component =
                {.key = keyOf(index), .name = 0, .reserved = 0, .parent = 0, .next = next, .kind = TAVDB_KIND_NODE},
            .firstChild = firstChild};
        memcpy(&s_components[keyOf(index)], &node, sizeof node);
    }
    /// Each node below the one before it.
    static void putChain(uint32_t count) {
        putNodes(count);
        for (uint32_t i = 0; i + 1 < count; ++i)
            link(i, 0, keyOf(i + 1));
    }

    /// The walk from the first node, on a thread with a small stack.
    int32_t walk() {
        s_transfers = 0;
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, kStackBytes);
        pthread_t thread;
        const auto body = [](void *self) -> void * {
            auto &test = *static_cast<Depth *>(self);
            test.code_ = GetParam().walk(&test.session, kFirstKey);
            return nullptr;
        };
        EXPECT_EQ(pthread_create(&thread, &attributes, body, this), 0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
        return code_;
    }
    static std::string lineFrom(int32_t site) {
        return std::string(GetParam().name) + "():[Error]:[" + std::to_string(site) + "]";
    }

private:
    int32_t code_ = -1;
};

INSTANTIATE_TEST_SUITE_P(All, Depth, testing::ValuesIn(kWalks), kRowName);

TEST_P(Depth, AHundredThousandNodesBelowEachOtherFitOnASmallStack) {
    constexpr uint32_t kNodes = 100000;
    putChain(kNodes);
    EXPECT_EQ(walk(), 0);
    EXPECT_GE(s_transfers, 2U * kNodes) << "every node is visited";
    EXPECT_TRUE(fakeTrace().noErrors());
    EXPECT_EQ(session.errorCode, 0U);
}

/// Two nodes on each level, both with the two of the next level as their children.
class TwoWays : public Depth {
protected:
    static constexpr uint32_t kLevels = 60;

    static void putLevels(uint32_t moreNodes) {
        putNodes(2 * kLevels + 1 + moreNodes);
        for (uint32_t level = 0; level < kLevels; ++level) {
            const uint32_t below = level + 1 < kLevels ? keyOf(2 * level + 3) : 0;
            link(2 * level + 1, keyOf(2 * level + 2), below);
            link(2 * level + 2, 0, below);
        }
        link(0, 0, keyOf(1));
    }
};

INSTANTIATE_TEST_SUITE_P(All, TwoWays, testing::ValuesIn(kWalks), kRowName);

TEST_P(TwoWays, OnEveryLevelEndTheWalk) {
    putLevels(0);
    EXPECT_EQ(walk(), 0);
    EXPECT_LT(s_transfers, 20000U);
    ASSERT_EQ(fakeTrace().errors().size(), 1U);
    EXPECT_THAT(fakeTrace().errors()[0], testing::StartsWith(lineFrom(GetParam().endless)));
}

TEST_P(TwoWays, EndTheWalkAlsoWhenALinkLeadsFarBehindTheMedium) {
    constexpr uint32_t kFarBehind = 0xFFFFFF00;
    constexpr uint32_t kFirst = 2 * kLevels + 1;
    putLevels(2);
    link(0, 0, keyOf(kFirst));
    link(kFirst, keyOf(1), kFarBehind);
    link(2, keyOf(kFirst + 1), keyOf(3));
    link(kFirst + 1, 0, kFarBehind);
    const int32_t code = walk();
    EXPECT_TRUE(code == 0 || code == 55) << code;
    EXPECT_LT(s_transfers, 20000U);
}

TEST_P(Depth, ANodeDeepDownThatStandsAboveItselfEndsItsBranch) {
    constexpr uint32_t kNodes = 500;
    for (const uint32_t top : {0U, 10U, 15U, 16U, 17U, 100U, 499U}) {
        putChain(kNodes);
        link(kNodes - 1, 0, keyOf(top));
        clearTraces();
        EXPECT_EQ(walk(), 0);
        EXPECT_LT(s_transfers, 40U * kNodes);
        ASSERT_EQ(fakeTrace().errors().size(), 1U) << top;
        EXPECT_THAT(fakeTrace().errors()[0], testing::StartsWith(lineFrom(GetParam().circle)));
    }
}

TEST_P(Depth, WithoutMemoryForADeepTreeTheWalkFailsAndChangesNothing) {
    putChain(1000);
    const Bytes before = s_components;
    faultPlan().add({.operation = Operation::alloc, .skip = 2});
    const int32_t code = walk();
    EXPECT_TRUE(recorded(86, ENOMEM));
    EXPECT_TRUE(code == 86 || GetParam().walk == kWalks[3].walk) << code;
    EXPECT_EQ(fakeTrace().errors().size(), 1U);
    EXPECT_EQ(s_components, before);
}

TEST_P(Depth, ATreeOfUsualDepthTakesNoMemory) {
    putChain(16);
    EXPECT_EQ(walk(), 0);
    EXPECT_EQ(eventLog().count(Operation::alloc), 0U);
}

}  // namespace
}  // namespace tavdb_test
