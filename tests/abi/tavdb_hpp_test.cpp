// SPDX-License-Identifier: Apache-2.0
// The C++ face of the application interface: that it does what the C functions
// do, gives every failure as an error, and cleans up what it owns.
#include "tavdb.hpp"

#include <type_traits>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using tavdb::Database;
using tavdb::Error;
using tavdb::Lock;
using tavdb::Result;
using tavdb::Session;
using tavdb::Tier;
using testing::ElementsAre;

static_assert(!std::is_copy_constructible_v<Database> && std::is_nothrow_move_constructible_v<Database>);
static_assert(!std::is_copy_constructible_v<Session> && std::is_nothrow_move_constructible_v<Session>);
static_assert(!std::is_copy_constructible_v<Lock> && std::is_nothrow_move_constructible_v<Lock>);

class CxxFace : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        nameIt(root, "/");
        database = *Database::attach(description);
        face = *Session::open(*database);
        eventLog().clear();
        clearTraces();
    }
    void TearDown() override {
        face.reset();
        database.reset();
        TreeFixture::TearDown();
    }
    uint32_t putNumber(const std::string &name, const Bytes &data, int32_t type = TAVDB_TYPE_U32) {
        const uint32_t at = putValue(data, type);
        const uint32_t leafKey = putLeaf(name, root, {at, putValue(data, type), putValue(data, type)});
        nameIt(leafKey, name);
        return leafKey;
    }

    std::optional<Database> database;
    std::optional<Session> face;
};

template <typename T>
class CxxNumber : public CxxFace {};
using Numbers = testing::Types<int8_t, int16_t, int32_t, int64_t, uint8_t, uint16_t, uint32_t, uint64_t, float, double>;
TYPED_TEST_SUITE(CxxNumber, Numbers);

TYPED_TEST(CxxNumber, IsWrittenAndReadAsTheCFunctionsDo) {
    const uint32_t at = this->putNumber("n", Bytes(sizeof(TypeParam), 0));
    const auto value = static_cast<TypeParam>(-7);
    ASSERT_TRUE(this->face->set(at, value));
    TypeParam seen = {};
    int32_t length = sizeof seen;
    ASSERT_EQ(tavDBMGetGeneric(&this->session, at, &seen, &length), 0);
    EXPECT_EQ(seen, value);
    EXPECT_EQ(*this->face->template get<TypeParam>(at), value);
    EXPECT_EQ(*this->face->template get<TypeParam>("/n"), value);
}

TEST_F(CxxFace, ReadsEachTierAndWritesTheDefault) {
    const uint32_t at = putLeaf("t", root, {putValue({1}), putValue({2}), putValue({3})});
    EXPECT_EQ(*face->get<uint8_t>(at), 1);
    EXPECT_EQ(*face->get<uint8_t>(at, Tier::defaults), 2);
    EXPECT_EQ(*face->get<uint8_t>(at, Tier::factory), 3);
    ASSERT_TRUE(face->setDefault(at, uint8_t{9}));
    EXPECT_EQ(*face->get<uint8_t>(at, Tier::defaults), 9);
    EXPECT_EQ(*face->get<uint8_t>(at), 1);
}

TEST_F(CxxFace, ReadsATextUpToItsNul) {
    const uint32_t at = putNumber("t", Bytes(8, 'x'), TAVDB_TYPE_TEXT);
    EXPECT_EQ(*face->get<std::string>(at), "xxxxxxxx") << "without a NUL the whole value";
    ASSERT_TRUE(face->set("/t", std::string("abc")));
    EXPECT_EQ(*face->get<std::string>("/t"), "abc");
    ASSERT_TRUE(face->set(at, std::string()));
    EXPECT_EQ(*face->get<std::string>(at), "");
}

TEST_F(CxxFace, AShorterValueThanTheTypeIsAnError) {
    const uint32_t at = putNumber("n", {1, 2});
    EXPECT_EQ(face->get<uint32_t>(at).error(), Error{TAVDB_ERR_LENGTH});
}

TEST_F(CxxFace, ARefusedValueGivesTheConstraintsCode) {
    const uint32_t constraint = putRange({0, TAVDB_TYPE_S32, 1, 5, 1});
    const uint32_t at = putLeaf("r", root, {.currentValue = putValue(Bytes(4, 0), TAVDB_TYPE_S32, constraint)});
    const Result<void> refused = face->set(at, int32_t{6});
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, TAVDB_ERR_ABOVE_MAXIMUM);
    EXPECT_EQ(refused.error().sentence(), "the value is above the maximum");
    EXPECT_EQ(refused.error().action(), "choose a value inside the range");
}

TEST_F(CxxFace, AFailedTransferIsAnErrorAlthoughTheCFunctionGives0) {
    const uint32_t at = putNumber("n", {1, 2, 3, 4});
    faultPlan().add({.operation = Operation::mediaRead, .subject = kData});
    EXPECT_EQ(face->get<uint32_t>(at).error(), (Error{TAVDB_ERR_MEDIUM_READ, EIO}));
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kData});
    EXPECT_EQ(face->set(at, uint32_t{1}).error(), (Error{TAVDB_ERR_MEDIUM_WRITE, EIO}));
}

TEST_F(CxxFace, AnOldErrorDoesNotMakeALaterCallFail) {
    const uint32_t at = putNumber("n", {1, 2, 3, 4});
    ASSERT_FALSE(face->find("/none"));
    EXPECT_TRUE(face->get<uint32_t>(at));
}

TEST_F(CxxFace, FindsAbsoluteAndRelativeNames) {
    build("n(leaf)");
    nameIt(key("n"), "n/");
    nameIt(key("leaf"), "leaf");
    EXPECT_EQ(face->find("/n/leaf").valueOr(0), key("leaf"));
    ASSERT_TRUE(face->enter(key("n")));
    EXPECT_EQ(face->find("leaf").valueOr(0), key("leaf"));
    EXPECT_EQ(face->root().valueOr(0), root);
    EXPECT_EQ(face->find("/n/x").error().code, TAVDB_ERR_NO_MATCH);
    EXPECT_EQ(face->find("x").error().code, TAVDB_ERR_NOT_BELOW);
    EXPECT_EQ(face->enter(0).error().code, TAVDB_ERR_NO_COMPONENT);
}

TEST_F(CxxFace, ChildrenComeInTheirOrder) {
    build("a n(x y z) c");
    std::vector<uint32_t> seen;
    for (const uint32_t child : face->children(root))
        seen.push_back(child);
    EXPECT_THAT(seen, ElementsAre(key("a"), key("n"), key("c")));
    auto none = face->children(key("a"));
    EXPECT_TRUE(none.begin() == none.end());
    EXPECT_FALSE(none.failed());
}

TEST_F(CxxFace, AWalkOverChildrenThatFailsEndsAndSaysWhy) {
    build("a b c");
    auto children = face->children(root);
    faultPlan().add({.operation = Operation::mediaRead, .subject = kComponents, .skip = 2});
    std::vector<uint32_t> seen;
    for (const uint32_t child : children)
        seen.push_back(child);
    EXPECT_THAT(seen, ElementsAre(key("a")));
    ASSERT_TRUE(children.failed());
    EXPECT_EQ(children.failed()->code, TAVDB_ERR_COMPONENT_READ);
}

TEST_F(CxxFace, AWalkOverACircleEnds) {
    build("a b c");
    const uint32_t last = key("c");
    fakeMedia().setWordAt(kComponents, last + offsetof(tavDBMComponent, next), key("a"));
    size_t steps = 0;
    for ([[maybe_unused]] const uint32_t child : face->children(root))
        ASSERT_LT(++steps, 20U);
    EXPECT_GE(steps, 3U);
}

TEST_F(CxxFace, ALockIsHeldUntilTheEndOfItsScope) {
    {
        const Result<Lock> held = face->lock(root);
        ASSERT_TRUE(held);
        EXPECT_EQ(face->tryLock(root).error(), Error{TAVDB_ERR_LOCKED});
        EXPECT_EQ(tavDBMLock(&session, root, TAVDB_LOCK_TRY), TAVDB_ERR_LOCKED);
    }
    EXPECT_TRUE(face->tryLock(root));
    EXPECT_EQ(tavDBMUnlock(&session, root), TAVDB_ERR_NOT_LOCKED);
}

TEST_F(CxxFace, SharedLocksStandSideBySide) {
    const Result<Lock> one = face->lockShared(root);
    const Result<Lock> two = face->tryLockShared(root);
    EXPECT_TRUE(one && two);
    EXPECT_FALSE(face->tryLock(root));
}

TEST_F(CxxFace, AMovedLockIsReleasedOnce) {
    std::optional<Lock> kept = *face->lock(root);
    std::optional<Lock> moved = std::move(*kept);
    kept.reset();
    EXPECT_FALSE(face->tryLock(root));
    moved.reset();
    EXPECT_TRUE(face->tryLock(root));
}

TEST_F(CxxFace, ASessionIsClosedAndADatabaseDetachedOnce) {
    {
        const Session second = *Session::open(*database);
        EXPECT_EQ(eventLog().count(Operation::mutexRequest), 1U);
    }
    EXPECT_EQ(eventLog().count(Operation::mutexRequest), 2U) << "one for closing it";
    Database moved = std::move(*database);
    EXPECT_EQ(database->id(), 0U);
    EXPECT_EQ(moved.id(), session.dbId);
    *database = std::move(moved);
}

TEST_F(CxxFace, ASessionThatCannotBeOpenedIsAnError) {
    faultPlan().add({.operation = Operation::mutexRequest});
    const Result<Session> none = Session::open(*database);
    ASSERT_FALSE(none);
    EXPECT_NE(none.error().code, 0);
}

TEST_F(CxxFace, ADatabaseThatCannotBeAttachedIsAnError) {
    tavDBMDescription other = description;
    for (uint32_t i = 2; i <= 31; i++) {
        other.fifthWord = i;
        ASSERT_GT(attach(other), 0);
    }
    other.fifthWord = 99;
    EXPECT_EQ(Database::attach(other).error(), Error{TAVDB_ERR_DATABASES_FULL});
    EXPECT_EQ(tavDBMTerm(99), TAVDB_OK) << "what the failed attach counted";
}

TEST(CxxError, OfThePlatformHasASentenceToo) {
    EXPECT_EQ((Error{0x1000 | EPERM}).sentence(), "the platform reports a failure");
}

}  // namespace
}  // namespace tavdb_test
