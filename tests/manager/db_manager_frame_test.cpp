// SPDX-License-Identifier: Apache-2.0
// The frame of the six generic reads and writes: leaf, hook, value, hook. Which
// value each uses, in which order the steps come, and what each failing step
// returns, records and traces. The numbers in trace lines are sites and fixed
// for good.
#include <errno.h>

#include <climits>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kHook = 6;

struct Access : Named {
    int32_t site;
    bool writes;
    uint32_t tavDBMLeaf::*tier;
    int32_t (*read)(tavDBMSession *, uint32_t, void *, int32_t *);
    int32_t (*write)(tavDBMSession *, uint32_t, const void *, int32_t);
};

constexpr Access kAccesses[] = {
    {"tavDBMGetGeneric", 100, false, &tavDBMLeaf::currentValue, tavDBMGetGeneric, nullptr},
    {"tavDBMGetDefaultGeneric", 110, false, &tavDBMLeaf::defaultValue, tavDBMGetDefaultGeneric, nullptr},
    {"tavDBMGetFactoryGeneric", 120, false, &tavDBMLeaf::factoryValue, tavDBMGetFactoryGeneric, nullptr},
    {"tavDBMGetCreateListGeneric", 130, false, &tavDBMLeaf::currentValue, tavDBMGetCreateListGeneric, nullptr},
    {"tavDBMSetGeneric", 140, true, &tavDBMLeaf::currentValue, nullptr, tavDBMSetGeneric},
    {"tavDBMSetDefaultGeneric", 150, true, &tavDBMLeaf::defaultValue, nullptr, tavDBMSetDefaultGeneric},
};

/// A leaf with three values of four bytes.
class Frame : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        keys.currentValue = putValue({1, 2, 3, 4}, TAVDB_TYPE_S32);
        keys.defaultValue = putValue({5, 6, 7, 8}, TAVDB_TYPE_S32);
        keys.factoryValue = putValue({9, 10, 11, 12}, TAVDB_TYPE_S32);
        at = putLeaf("leaf", root, keys);
        before = fakeMedia().snapshotAll();
    }
    /// From now on the leaf names the ready hook.
    void hookTheLeaf(uint32_t hookId = kHook) {
        keys.hookId = hookId;
        setKeys(at, keys);
        fakeHooks().putReady(kHook);
        before = fakeMedia().snapshotAll();
    }
    /// One phase of the hook answers, the others give 0.
    static void answer(HookPhase phase, int32_t result) {
        fakeHooks().onCall([=](const HookCall &call) { return call.phase == phase ? result : 0; });
    }
    /// One phase of the hook changes the length.
    static void changeLength(HookPhase phase, int32_t to) {
        fakeHooks().onCall([=](const HookCall &call) {
            *call.length = call.phase == phase ? to : *call.length;
            return 0;
        });
    }
    testing::AssertionResult nothingChanged() const {
        const auto changes = fakeMedia().changesSince(before);
        return changes.empty() ? testing::AssertionSuccess()
                               : testing::AssertionFailure() << testing::PrintToString(changes);
    }
    std::string got() const {
        return hexText(std::span(buffer));
    }
    static constexpr const char *kUntouched = "ee ee ee ee ee ee ee ee";

    LeafKeys keys;
    uint32_t at = 0;
    int32_t length = 4;
    uint8_t buffer[8] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    MediaImage before;
};

class FrameTest : public Frame, public testing::WithParamInterface<Access> {
protected:
    static bool writes() {
        return GetParam().writes;
    }
    int32_t access(tavDBMSession *to, uint32_t component) {
        return writes() ? GetParam().write(to, component, buffer, length)
                        : GetParam().read(to, component, buffer, &length);
    }
    int32_t access() {
        return access(&session, at);
    }
    uint32_t valueKey() const {
        return leaf(at).*GetParam().tier;
    }
    std::string errorAt(int32_t step, std::initializer_list<uint32_t> words) const {
        return errorLine(GetParam().name, GetParam().site + step, words);
    }
    std::string hookLine(const char *phase) const {
        return std::string("hook ") + phase + (writes() ? "Write " : "Read ") + std::to_string(valueKey()) + " 4";
    }
    std::string dataTransfer() const {
        return std::string(writes() ? "write 4@" : "read 4@") + std::to_string(value(valueKey()).dataOffset);
    }
    static HookPhase preHook() {
        return writes() ? HookPhase::preWrite : HookPhase::preRead;
    }
    static HookPhase postHook() {
        return writes() ? HookPhase::postWrite : HookPhase::postRead;
    }
    static Operation transfer() {
        return writes() ? Operation::mediaWrite : Operation::mediaRead;
    }
    /// Of the value's data, by whoever had the last word.
    void expectDone() {
        if (writes())
            EXPECT_EQ(hexText(dataOf(valueKey())), "ee ee ee ee");
        else
            EXPECT_EQ(got(), hexText(dataOf(valueKey())) + " ee ee ee ee");
    }
    void expectNotDone() {
        EXPECT_TRUE(nothingChanged());
        EXPECT_EQ(got(), kUntouched);
    }
};

INSTANTIATE_TEST_SUITE_P(All, FrameTest, testing::ValuesIn(kAccesses), kRowName);

TEST_P(FrameTest, FindsTheLeafThenItsOwnValueThenTheData) {
    putOldError();
    EXPECT_EQ(access(), 0);
    EXPECT_THAT(transfers(), ElementsAre("component read 40@" + std::to_string(at),
                                         "value read 28@" + std::to_string(valueKey()), "data " + dataTransfer()));
    expectDone();
    EXPECT_TRUE(oldErrorIsThere());
    EXPECT_TRUE(fakeTrace().noErrors());
    EXPECT_THAT(eventLog().lines(Category::hooks), IsEmpty()) << "hook 0 is never asked for";
}

TEST_P(FrameTest, OfANodeIsCode1AndTheBufferStaysUntouched) {
    EXPECT_EQ(access(&session, root), 1);
    EXPECT_TRUE(recorded(1, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(0, {root, TAVDB_KIND_NODE})));
    EXPECT_EQ(accesses(), 1U);
    expectNotDone();
}

TEST_P(FrameTest, OfAComponentOfNoKindIsCode1) {
    fakeMedia().setWordAt(kComponents, at + offsetof(tavDBMComponent, kind), 7);
    EXPECT_EQ(access(), 1);
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(0, {at, 7})));
}

TEST_P(FrameTest, OfAnUnreadableLeafGivesTheLookupsError) {
    EXPECT_EQ(access(&session, 0), 4);
    EXPECT_TRUE(recorded(4, 0));
    EXPECT_EQ(access(&session, kBeyond), 55);
    EXPECT_TRUE(recorded(55, 0));
    expectNotDone();
}

TEST_P(FrameTest, RunsItsHookBeforeAndBehindTheValue) {
    hookTheLeaf();
    EXPECT_EQ(access(), 0);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("open component.med", "read 40@" + std::to_string(at), "close", "getHook 6",
                            hookLine("pre"), "open value.med", "read 28@" + std::to_string(valueKey()), "close",
                            "open data.med", dataTransfer(), "close", hookLine("post")));
    expectDone();
}

TEST_P(FrameTest, AHookIdThatTheHookLibraryDoesNotKnowRunsNoHooks) {
    hookTheLeaf(999);
    EXPECT_EQ(access(), 0);
    EXPECT_THAT(eventLog().lines(Category::hooks), ElementsAre("getHook 999"));
    EXPECT_TRUE(fakeTrace().noErrors());
    expectDone();
}

TEST_P(FrameTest, AHookWithoutFunctionsChangesNothing) {
    hookTheLeaf(8);
    fakeHooks().put(8, {});
    EXPECT_EQ(access(), 0);
    EXPECT_THAT(eventLog().lines(Category::hooks), ElementsAre("getHook 8"));
    expectDone();
}

TEST_P(FrameTest, APreHookThatRefusesEndsTheAccessWithItsCodeAndResult) {
    hookTheLeaf();
    answer(preHook(), 4711);
    const int32_t code = writes() ? 9 : 7;
    EXPECT_EQ(access(), code);
    EXPECT_TRUE(recorded(static_cast<uint32_t>(code), 4711));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(2, {at, 4711})));
    EXPECT_EQ(eventLog().count(Operation::hookCall), 1U);
    EXPECT_EQ(accesses(), 1U) << "the leaf's";
    expectNotDone();
}

TEST_P(FrameTest, APostHookThatFailsHasItsCodeAndTheValueStays) {
    hookTheLeaf();
    answer(postHook(), -5);
    constexpr auto kAnswer = static_cast<uint32_t>(-5);
    EXPECT_EQ(access(), writes() ? 10 : 8);
    EXPECT_TRUE(writes() ? recorded(10, kAnswer) : recorded(8, kAnswer));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(3, {at, kAnswer})));
    expectDone();
}

TEST_P(FrameTest, AFailureOfTheValueIsReturnedAsItIsWithoutThePostHook) {
    hookTheLeaf();
    faultPlan().add({.operation = Operation::mediaOpen, .subject = kData});
    EXPECT_EQ(access(), 22);
    EXPECT_TRUE(recorded(22, EIO));
    EXPECT_EQ(eventLog().count(Operation::hookCall), 1U);
    expectNotDone();
}

TEST_P(FrameTest, AFailingCloseIsReturnedAsItIsWithoutThePostHook) {
    hookTheLeaf();
    faultPlan().add({.operation = Operation::mediaClose, .subject = kData, .fault = returning(-1, EIO)});
    EXPECT_EQ(access(), -1);
    EXPECT_TRUE(recorded(0, 0));
    EXPECT_EQ(eventLog().count(Operation::hookCall), 1U);
}

TEST_P(FrameTest, AFailedTransferDeliberatelyReturnsZeroAndShowsInTheSessionOnly) {
    hookTheLeaf();
    faultPlan().add({.operation = transfer(), .subject = kData});
    EXPECT_EQ(access(), 0);
    EXPECT_TRUE(recorded(writes() ? 23 : 24, EIO));
    EXPECT_EQ(eventLog().count(Operation::hookCall), 2U) << "the post hook runs after a 0";
    expectNotDone();
}

TEST_P(FrameTest, AValueThatIsNotThereDeliberatelyReturnsZeroWithCode51) {
    setKeys(at, {});
    before = fakeMedia().snapshotAll();
    EXPECT_EQ(access(), 0);
    EXPECT_TRUE(recorded(51, 0));
    expectNotDone();
}

TEST_P(FrameTest, WithoutABufferIsCode89) {
    hookTheLeaf();
    EXPECT_EQ(writes() ? GetParam().write(&session, at, nullptr, 4) : GetParam().read(&session, at, nullptr, &length),
              89);
    EXPECT_TRUE(recorded(89, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(1, {at})));
    EXPECT_EQ(eventLog().count(Operation::hookCall), 0U);
    EXPECT_TRUE(nothingChanged());
}

TEST_P(FrameTest, OfADatabaseThatIsNotOpenIsCode83) {
    session.dbId = kNotOpenDb;
    EXPECT_EQ(access(), 83);
    EXPECT_TRUE(recorded(83, 0));
    EXPECT_EQ(accesses(), 0U);
    session.dbId = 1;
}

TEST_P(FrameTest, WithoutASessionNothingHappens) {
    EXPECT_EQ(access(nullptr, at), 83);
    EXPECT_EQ(accesses(), 0U);
    expectNotDone();
}

TEST_P(FrameTest, WhateverFailsGivesTheCodeThatStandsInTheSession) {
    hookTheLeaf();
    forEachFault([&] {
        length = 4;
        const int32_t code = access();
        EXPECT_TRUE(code == 0 || code == -1 || static_cast<uint32_t>(code) == session.errorCode) << code;
        EXPECT_TRUE(faultPlan().fired() || code == 0);
        EXPECT_EQ(fakeMedia().snapshot(kComponents), before[kComponents]);
        EXPECT_EQ(fakeMedia().snapshot(kValues), before[kValues]);
    });
}

using FrameRead = Frame;

TEST_F(FrameRead, WithoutALengthIsCode89) {
    EXPECT_EQ(tavDBMGetGeneric(&session, at, buffer, nullptr), 89);
    EXPECT_TRUE(recorded(89, 0));
    EXPECT_EQ(got(), kUntouched);
}

TEST_F(FrameRead, TheHooksGetTheCallersOwnLengthAndBuffer) {
    hookTheLeaf();
    length = 3;
    std::vector<std::pair<const void *, const int32_t *>> seen;
    fakeHooks().onCall([&](const HookCall &call) {
        seen.emplace_back(call.data, call.length);
        return 0;
    });
    ASSERT_EQ(tavDBMGetGeneric(&session, at, buffer, &length), 0);
    EXPECT_THAT(seen, ElementsAre(std::pair(buffer, &length), std::pair(buffer, &length)));
}

TEST_F(FrameRead, ALengthThatThePreReadHookSetsIsRead) {
    hookTheLeaf();
    changeLength(HookPhase::preRead, 2);
    EXPECT_EQ(tavDBMGetGeneric(&session, at, buffer, &length), 0);
    EXPECT_EQ(got(), "01 02 ee ee ee ee ee ee");
    EXPECT_EQ(length, 2);
}

TEST_F(FrameRead, ThePostReadHookSeesTheCountAndHasTheLastWord) {
    hookTheLeaf();
    length = 8;
    changeLength(HookPhase::postRead, 77);
    EXPECT_EQ(tavDBMGetGeneric(&session, at, buffer, &length), 0);
    EXPECT_EQ(eventLog().lines(Category::hooks).back(), "hook postRead " + std::to_string(keys.currentValue) + " 4");
    EXPECT_EQ(length, 77);
}

TEST_F(FrameRead, AFailedTransferStoresMinusOneInTheCallersLength) {
    faultPlan().add({.operation = Operation::mediaRead, .subject = kData});
    EXPECT_EQ(tavDBMGetGeneric(&session, at, buffer, &length), 0);
    EXPECT_EQ(length, -1);
}

TEST_F(FrameRead, ARawReadTakesExactlyTheLengthAndLeavesItAlone) {
    length = 6;
    EXPECT_EQ(tavDBMGetCreateListGeneric(&session, at, buffer, &length), 0);
    EXPECT_EQ(got(), "01 02 03 04 05 06 ee ee") << "two bytes of the value that stands behind it";
    EXPECT_EQ(length, 6);
}

TEST_F(FrameRead, ARawReadTakesTheLengthThatItsPreReadHookSets) {
    hookTheLeaf();
    length = 6;
    changeLength(HookPhase::preRead, 1);
    EXPECT_EQ(tavDBMGetCreateListGeneric(&session, at, buffer, &length), 0);
    EXPECT_EQ(got(), "01 ee ee ee ee ee ee ee");
}

class FrameWrite : public Frame {
protected:
    int32_t write(int32_t size) {
        return tavDBMSetGeneric(&session, at, buffer, size);
    }
    std::string current() const {
        return hexText(dataOf(keys.currentValue));
    }
};

TEST_F(FrameWrite, APreWriteHookThatLowersTheLengthStoresTheShorterValue) {
    hookTheLeaf();
    changeLength(HookPhase::preWrite, 1);
    EXPECT_EQ(write(4), 0);
    EXPECT_EQ(current(), "ee 02 03 04");
    EXPECT_EQ(eventLog().lines(Category::hooks).back(), "hook postWrite " + std::to_string(keys.currentValue) + " 1")
        << "post-write sees what pre-write left";
}

TEST_F(FrameWrite, APreWriteHookMayChangeTheBytesInPlace) {
    hookTheLeaf();
    fakeHooks().onCall([](const HookCall &call) {
        static_cast<uint8_t *>(call.data)[1] = 0x11;
        return 0;
    });
    EXPECT_EQ(write(4), 0);
    EXPECT_EQ(current(), "ee 11 ee ee");
}

TEST_F(FrameWrite, AConstraintsRefusalIsReturnedWithoutThePostHook) {
    const tavDBMRangeS32 range = {.key = 0, .type = 0, .minimum = 0, .maximum = 5, .step = 0};
    fakeMedia().setWordAt(kValues, keys.currentValue + offsetof(tavDBMValue, constraintKey), putRange(range));
    hookTheLeaf();
    EXPECT_EQ(write(2), 65);
    EXPECT_TRUE(recorded(65, 0));
    EXPECT_EQ(eventLog().count(Operation::hookCall), 1U);
    EXPECT_TRUE(nothingChanged());
}

TEST_F(FrameWrite, ALengthThatThePreWriteHookChangesReachesTheConstraint) {
    const tavDBMRangeS32 range = {.key = 0, .type = 0, .minimum = INT_MIN, .maximum = INT_MAX, .step = 0};
    fakeMedia().setWordAt(kValues, keys.currentValue + offsetof(tavDBMValue, constraintKey), putRange(range));
    hookTheLeaf();
    changeLength(HookPhase::preWrite, 3);
    EXPECT_EQ(write(4), 65);
    EXPECT_TRUE(nothingChanged());
}

TEST_F(FrameWrite, ANegativeLengthWritesNothing) {
    EXPECT_EQ(write(-1), 0);
    EXPECT_TRUE(recorded(23, EINVAL));
    EXPECT_TRUE(nothingChanged());
}

TEST_F(FrameWrite, ThereIsNoWayToTheFactoryValue) {
    EXPECT_EQ(write(4), 0);
    EXPECT_EQ(tavDBMSetDefaultGeneric(&session, at, buffer, 4), 0);
    EXPECT_EQ(hexText(dataOf(keys.factoryValue)), "09 0a 0b 0c");
}

}  // namespace
}  // namespace tavdb_test
