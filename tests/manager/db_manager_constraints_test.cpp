// SPDX-License-Identifier: Apache-2.0
// The constraint of a leaf's current value, reached through the leaf: four
// functions with one way in and different answers when there is no constraint.
// The numbers in trace lines are sites and fixed for good.
#include <errno.h>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Function : Named {
    int32_t site;
    int32_t failure;  ///< what it answers without a constraint
    int32_t (*call)(tavDBMSession *, uint32_t component, void *buffer, int32_t length);
};

constexpr Function kFunctions[] = {
    {"tavDBMGetConstraintData", 100, 0,
     [](tavDBMSession *session, uint32_t component, void *buffer, int32_t length) {
         return tavDBMGetConstraintData(session, component, buffer, length);
     }},
    {"tavDBMSetConstraintData", 110, 0,
     [](tavDBMSession *session, uint32_t component, void *buffer, int32_t length) {
         return tavDBMSetConstraintData(session, component, buffer, length);
     }},
    {"tavDBMGetConstraintLength", 120, -1,
     [](tavDBMSession *session, uint32_t component, void *, int32_t) {
         return tavDBMGetConstraintLength(session, component);
     }},
    {"tavDBMGetConstraintType", 130, 0,
     [](tavDBMSession *session, uint32_t component, void *, int32_t) {
         return tavDBMGetConstraintType(session, component);
     }},
};

class LeafConstraint : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        range = putRange({.key = 0, .type = 0, .minimum = -1, .maximum = 100, .step = 7});
        valueKey = putValue({0, 0, 0, 0}, TAVDB_TYPE_S32, range);
        at = putLeaf("leaf", root, {.currentValue = valueKey});
        before = fakeMedia().snapshotAll();
    }
    testing::AssertionResult nothingChanged() const {
        const auto changes = fakeMedia().changesSince(before);
        return changes.empty() ? testing::AssertionSuccess()
                               : testing::AssertionFailure() << testing::PrintToString(changes);
    }

    uint32_t range = 0;
    uint32_t valueKey = 0;
    uint32_t at = 0;
    int32_t buffer[3] = {11, 22, 33};
    MediaImage before;
};

class LeafConstraintTest : public LeafConstraint, public testing::WithParamInterface<Function> {
protected:
    int32_t call(uint32_t component) {
        return GetParam().call(&session, component, buffer, sizeof buffer);
    }
    std::string errorAt(int32_t step, std::initializer_list<uint32_t> words) const {
        return errorLine(GetParam().name, GetParam().site + step, words);
    }
    /// The failure's own answer, nothing written, the buffer as it was.
    void expectRefusal(uint32_t component) {
        EXPECT_EQ(call(component), GetParam().failure);
        EXPECT_TRUE(nothingChanged());
        EXPECT_THAT(buffer, ElementsAre(11, 22, 33));
    }
};

INSTANTIATE_TEST_SUITE_P(All, LeafConstraintTest, testing::ValuesIn(kFunctions), kRowName);

TEST_P(LeafConstraintTest, OfANodeIsCode1WithItsOwnAnswerDeliberately) {
    expectRefusal(root);
    EXPECT_TRUE(recorded(1, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(0, {root, TAVDB_KIND_NODE})));
}

TEST_P(LeafConstraintTest, OfAnUnreadableLeafKeepsTheLookupsError) {
    expectRefusal(0);
    EXPECT_TRUE(recorded(4, 0));
    expectRefusal(kBeyond);
    EXPECT_TRUE(recorded(55, 0));
}

TEST_P(LeafConstraintTest, OfALeafWithoutACurrentValueIsCode50) {
    setKeys(at, {.currentValue = 0, .defaultValue = valueKey, .factoryValue = valueKey});
    before = fakeMedia().snapshotAll();
    expectRefusal(at);
    EXPECT_TRUE(recorded(50, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(1, {at})));
}

TEST_P(LeafConstraintTest, OfAValueThatCannotBeReadKeepsItsError) {
    setKeys(at, {.currentValue = kBeyond});
    before = fakeMedia().snapshotAll();
    expectRefusal(at);
    EXPECT_TRUE(recorded(46, 0));
}

TEST_P(LeafConstraintTest, OfAValueWithoutAConstraintIsCode73) {
    fakeMedia().setWordAt(kValues, valueKey + offsetof(tavDBMValue, constraintKey), 0);
    before = fakeMedia().snapshotAll();
    expectRefusal(at);
    EXPECT_TRUE(recorded(73, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(2, {at, valueKey})));
}

TEST_P(LeafConstraintTest, OfADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    expectRefusal(at);
    EXPECT_TRUE(recorded(83, 0));
    session.dbId = 1;
}

TEST_P(LeafConstraintTest, WithoutASessionAnswersTheFailure) {
    EXPECT_EQ(GetParam().call(nullptr, at, buffer, sizeof buffer), GetParam().failure);
    EXPECT_EQ(accesses(), 0U);
}

TEST_P(LeafConstraintTest, FindsLeafThenValueThenAsksTheConstraint) {
    putOldError();
    call(at);
    const auto lines = transfers();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[0], "component read 40@" + std::to_string(at));
    EXPECT_EQ(lines[1], "value read 28@" + std::to_string(valueKey));
    EXPECT_EQ(lines[2], "constraint read 8@" + std::to_string(range));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(LeafConstraint, DataAreMinimumMaximumAndStep) {
    EXPECT_EQ(tavDBMGetConstraintData(&session, at, buffer, sizeof buffer), 0);
    EXPECT_THAT(buffer, ElementsAre(-1, 100, 7));
}

TEST_F(LeafConstraint, TheBufferLengthReachesTheConstraint) {
    EXPECT_EQ(tavDBMGetConstraintData(&session, at, buffer, 11), 72);
    EXPECT_TRUE(recorded(72, 0));
    EXPECT_EQ(tavDBMGetConstraintData(&session, at, buffer, -1), 72);
    EXPECT_THAT(buffer, ElementsAre(11, 22, 33));
}

TEST_F(LeafConstraint, DataAreReplacedAndChecked) {
    EXPECT_EQ(tavDBMSetConstraintData(&session, at, buffer, sizeof buffer), 0);
    EXPECT_EQ(hexAt(kConstraints, range, 20), hexWords(range, TAVDB_TYPE_S32, 11, 22, 33));
    EXPECT_EQ(tavDBMSetSint32(&session, at, 10), 66);
    EXPECT_EQ(tavDBMSetConstraintData(&session, at, buffer, 8), 65);
    EXPECT_TRUE(recorded(65, 0));
}

TEST_F(LeafConstraint, LengthAndTypeAreThoseOfTheConstraint) {
    EXPECT_EQ(tavDBMGetConstraintLength(&session, at), 12);
    EXPECT_EQ(tavDBMGetConstraintType(&session, at), TAVDB_TYPE_S32);
}

TEST_F(LeafConstraint, AFailureOfTheConstraintItselfIsItsOwnAnswer) {
    fakeMedia().setWordAt(kConstraints, range + 4, 1);
    EXPECT_EQ(tavDBMGetConstraintLength(&session, at), 0) << "not the -1 of a leaf without a constraint";
    EXPECT_TRUE(recorded(70, 0));
    EXPECT_EQ(tavDBMGetConstraintData(&session, at, buffer, sizeof buffer), 70);
    EXPECT_EQ(tavDBMSetConstraintData(&session, at, buffer, sizeof buffer), 70);
    EXPECT_EQ(tavDBMGetConstraintType(&session, at), 1);
}

}  // namespace
}  // namespace tavdb_test
