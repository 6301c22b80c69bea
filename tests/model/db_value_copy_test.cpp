// SPDX-License-Identifier: Apache-2.0
// Copies of one value's data into another, plain and through write hooks: what
// is copied, what the hooks are called with and may change, what refuses a copy,
// and that a refused or failed one leaves the destination as it was.
#include <errno.h>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kHook = 6;

class ValueCopy : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        four = putValue({1, 2, 3, 4}, TAVDB_TYPE_S32);
        otherFour = putValue({5, 6, 7, 8}, TAVDB_TYPE_S32);
        two = putValue({9, 10});
        before = fakeMedia().snapshotAll();
    }
    std::string data(uint32_t valueKey) const {
        return hexText(dataOf(valueKey));
    }
    void spoil(uint32_t valueKey, size_t offset, uint32_t word) {
        fakeMedia().setWordAt(kValues, valueKey + offset, word);
        before = fakeMedia().snapshotAll();
    }
    void tieToRange(uint32_t valueKey, int32_t minimum, int32_t maximum) {
        const tavDBMRangeS32 range = {.key = 0, .type = 0, .minimum = minimum, .maximum = maximum, .step = 0};
        spoil(valueKey, offsetof(tavDBMValue, constraintKey), putRange(range));
    }
    testing::AssertionResult nothingChanged() const {
        const auto changes = fakeMedia().changesSince(before);
        return changes.empty() ? testing::AssertionSuccess()
                               : testing::AssertionFailure() << testing::PrintToString(changes);
    }
    static std::string at(const char *what, uint32_t size, uint32_t where) {
        return std::string(what) + ' ' + std::to_string(size) + '@' + std::to_string(where);
    }

    uint32_t four = 0;
    uint32_t otherFour = 0;
    uint32_t two = 0;
    MediaImage before;
};

/// The two copies; without a hook they copy alike.
struct Copier : Named {
    int32_t (*copy)(tavDBMSession *, uint32_t destination, uint32_t source);
    int32_t site;
};

constexpr Copier kCopiers[] = {
    {"value_copy", value_copy, 190},
    {"value_copy2",
     [](tavDBMSession *session, uint32_t destination, uint32_t source) {
         return value_copy2(session, destination, source, 0);
     },
     200},
};

class CopierTest : public ValueCopy, public testing::WithParamInterface<Copier> {
protected:
    int32_t copy(uint32_t destination, uint32_t source) {
        return GetParam().copy(&session, destination, source);
    }
    std::string errorAt(int32_t step, std::initializer_list<uint32_t> words) const {
        return errorLine(GetParam().name, GetParam().site + step, words);
    }
};

INSTANTIATE_TEST_SUITE_P(All, CopierTest, testing::ValuesIn(kCopiers), kRowName);

TEST_P(CopierTest, DuplicatesTheDataAndSharesNothing) {
    EXPECT_EQ(copy(otherFour, four), 0);
    EXPECT_EQ(data(otherFour), "01 02 03 04");
    EXPECT_EQ(data(four), "01 02 03 04");
    EXPECT_NE(value(otherFour).dataOffset, value(four).dataOffset);
    EXPECT_EQ(fakeMedia().snapshot(kValues), before[kValues]);
}

TEST_P(CopierTest, AShorterSourceLeavesTheRestOfTheDestination) {
    EXPECT_EQ(copy(four, two), 0);
    EXPECT_EQ(data(four), "09 0a 03 04");
}

TEST_P(CopierTest, ALongerSourceIsCode49AndWritesNothing) {
    EXPECT_EQ(copy(two, four), 49);
    EXPECT_TRUE(recorded(49, 0));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(0, {2, 4})));
    EXPECT_TRUE(nothingChanged());
    EXPECT_THAT(eventLog().lines(Category::memory), IsEmpty());
}

TEST_P(CopierTest, ReadsBothLengthsThenTheSourceThroughABufferOfTheDestinationsLength) {
    ASSERT_EQ(copy(four, two), 0);
    EXPECT_THAT(transfers(),
                ElementsAre(at("value read", 28, four), at("value read", 28, two),                 // the lengths
                            at("value read", 28, two), at("data read", 2, value(two).dataOffset),  // the source
                            at("value read", 28, four), at("data write", 2, value(four).dataOffset)));
    EXPECT_THAT(eventLog().lines(Category::memory), ElementsAre("alloc 4", "free 4"));
}

TEST_P(CopierTest, AValueWithoutARecordGivesZeroWithTheErrorInTheSession) {
    EXPECT_EQ(copy(0, four), 0);
    EXPECT_TRUE(recorded(51, 0));
    EXPECT_EQ(copy(four, 0), 0);
    EXPECT_TRUE(recorded(51, 0));
    EXPECT_EQ(copy(four, kBeyond), 0);
    EXPECT_TRUE(recorded(46, 0));
    EXPECT_TRUE(nothingChanged());
}

TEST_P(CopierTest, ALengthBelowZeroInADamagedRecordCopiesNothing) {
    spoil(four, offsetof(tavDBMValue, length), kMinusOne);
    EXPECT_EQ(copy(otherFour, four), 0);
    EXPECT_EQ(copy(four, otherFour), 0);
    EXPECT_TRUE(nothingChanged());
}

TEST_P(CopierTest, ABufferThatCannotBeHadIsCode86) {
    faultPlan().add({.operation = Operation::alloc});
    EXPECT_EQ(copy(four, two), 86);
    EXPECT_TRUE(recorded(86, ENOMEM));
    EXPECT_TRUE(fakeTrace().onlyError(errorAt(1, {four, 4, ENOMEM})));
    EXPECT_TRUE(nothingChanged());
}

TEST_P(CopierTest, ASourceThatCannotBeReadStopsTheCopyWithCode24) {
    faultPlan().add({.operation = Operation::mediaRead, .subject = kData});
    EXPECT_EQ(copy(four, two), 0);
    EXPECT_TRUE(recorded(24, EIO));
    EXPECT_TRUE(nothingChanged());
}

TEST_P(CopierTest, ASourceWhoseCloseFailsDeliberatelyStopsTheCopyWithZero) {
    faultPlan().add({.operation = Operation::mediaClose, .subject = kData});
    EXPECT_EQ(copy(four, two), 0);
    EXPECT_TRUE(nothingChanged());
}

TEST_P(CopierTest, ASourceWhoseMediumDoesNotOpenDeliberatelyStopsTheCopyWithZero) {
    faultPlan().add({.operation = Operation::mediaOpen, .subject = kData});
    EXPECT_EQ(copy(four, two), 0);
    EXPECT_TRUE(recorded(22, EIO));
    EXPECT_TRUE(nothingChanged());
}

TEST_P(CopierTest, ASourceWhoseMediumIsNotConfiguredWritesNothing) {
    spoil(two, offsetof(tavDBMValue, dataMedia), 77);
    EXPECT_EQ(copy(four, two), 0);
    EXPECT_TRUE(recorded(21, 0));
    EXPECT_TRUE(nothingChanged()) << "what was never read must not become the value";
}

TEST_P(CopierTest, ASourceWhoseRecordCannotBeReadAgainWritesNothing) {
    faultPlan().add({.operation = Operation::mediaRead, .subject = kValues, .skip = 2});
    EXPECT_EQ(copy(four, two), 0);
    EXPECT_TRUE(recorded(46, EIO));
    EXPECT_TRUE(nothingChanged()) << "what was never read must not become the value";
}

TEST_P(CopierTest, TheDestinationsConstraintRefusesTheCopy) {
    tieToRange(otherFour, 1, 2);
    EXPECT_EQ(copy(otherFour, four), 67);
    EXPECT_TRUE(recorded(67, 0));
    EXPECT_TRUE(nothingChanged());
}

TEST_P(CopierTest, GivesTheResultOfTheWrite) {
    faultPlan().add({.operation = Operation::mediaClose, .subject = kData, .skip = 1});
    EXPECT_EQ(copy(four, two), -1);
    faultPlan().add({.operation = Operation::mediaOpen, .subject = kData, .skip = 1});
    EXPECT_EQ(copy(four, two), 22);
}

TEST_P(CopierTest, AShortReadOfTheSourceCopiesWhatCame) {
    faultPlan().add({.operation = Operation::mediaRead, .subject = kData, .fault = shortBy(1)});
    EXPECT_EQ(copy(otherFour, four), 0);
    EXPECT_EQ(data(otherFour), "01 02 03 08");
}

TEST_P(CopierTest, AnEmptyValueCanBeCopied) {
    const uint32_t empty = putValue({});
    EXPECT_EQ(copy(empty, empty), 0);
    EXPECT_EQ(copy(four, empty), 0);
    EXPECT_EQ(data(four), "01 02 03 04");
}

TEST_P(CopierTest, AnEmptySourceStillMeetsTheDestinationsConstraint) {
    const uint32_t empty = putValue({});
    tieToRange(four, 1, 2);
    EXPECT_EQ(copy(four, empty), 65);
    EXPECT_TRUE(recorded(65, 0));
    EXPECT_EQ(data(four), "01 02 03 04");
}

using ValueCopyPlain = ValueCopy;

TEST_F(ValueCopyPlain, WritesNoErrorLine) {
    EXPECT_EQ(value_copy(&session, otherFour, four), 0);
    EXPECT_TRUE(fakeTrace().noErrors());
}

class ValueCopyHook : public ValueCopy {
protected:
    void SetUp() override {
        ValueCopy::SetUp();
        fakeHooks().putReady(kHook);
    }
    int32_t copy(uint32_t destination, uint32_t source) {
        return value_copy2(&session, destination, source, kHook);
    }
    /// Every phase that is named gives a result; the others give 0.
    static void answer(HookPhase phase, int32_t result) {
        fakeHooks().onCall([=](const HookCall &call) { return call.phase == phase ? result : 0; });
    }
};

TEST_F(ValueCopyHook, WithoutAHookIdDeliberatelyTracesAnErrorLineAndWrites) {
    EXPECT_EQ(value_copy2(&session, four, two, 0), 0);
    EXPECT_EQ(data(four), "09 0a 03 04");
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_copy2", 204, {4, 2})));
    EXPECT_TRUE(recorded(0, 0));
    EXPECT_THAT(eventLog().lines(Category::hooks), IsEmpty()) << "hook 0 is never asked for";
}

TEST_F(ValueCopyHook, AnUnknownHookIdDeliberatelyTracesAnErrorLineAndWrites) {
    EXPECT_EQ(value_copy2(&session, four, two, 999), 0);
    EXPECT_EQ(data(four), "09 0a 03 04");
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_copy2", 204, {4, 2})));
    EXPECT_THAT(eventLog().lines(Category::hooks), ElementsAre("getHook 999"));
}

TEST_F(ValueCopyHook, RunsPreWriteBeforeAndPostWriteBehindTheWrite) {
    ASSERT_EQ(copy(four, two), 0);
    const std::string key = std::to_string(four);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("open value.med", "read 28@" + key, "close",  // lengths
                            "open value.med", "read 28@" + std::to_string(two), "close", "alloc 4", "open value.med",
                            "read 28@" + std::to_string(two), "close",                                         // source
                            "open data.med", "read 2@8", "close", "getHook 6", "hook preWrite " + key + " 2",  // write
                            "open value.med", "read 28@" + key, "close", "open data.med", "write 2@0", "close",
                            "hook postWrite " + key + " 2", "free 4"));
    EXPECT_TRUE(fakeTrace().noErrors());
}

TEST_F(ValueCopyHook, TheHookSeesTheSourcesBytesAndMayChangeThem) {
    Bytes seen;
    fakeHooks().onCall([&](const HookCall &call) {
        auto *const bytes = static_cast<uint8_t *>(call.data);
        if (call.phase == HookPhase::preWrite) {
            seen.assign(bytes, bytes + *call.length);
            bytes[0] = 0xAB;
        }
        return 0;
    });
    EXPECT_EQ(copy(otherFour, four), 0);
    EXPECT_EQ(seen, (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(data(otherFour), "ab 02 03 04");
    EXPECT_EQ(data(four), "01 02 03 04");
}

TEST_F(ValueCopyHook, ALengthThatTheHookLowersIsWritten) {
    fakeHooks().onCall([](const HookCall &call) {
        *call.length = call.phase == HookPhase::preWrite ? 1 : *call.length;
        return 0;
    });
    EXPECT_EQ(copy(otherFour, four), 0);
    EXPECT_EQ(data(otherFour), "01 06 07 08");
    EXPECT_EQ(eventLog().lines(Category::hooks).back(), "hook postWrite " + std::to_string(otherFour) + " 1");
}

TEST_F(ValueCopyHook, ALengthThatTheHookEnlargesIsClampedByTheWriteAndSeenByPostWrite) {
    fakeHooks().onCall([](const HookCall &call) {
        *call.length = call.phase == HookPhase::preWrite ? 1000 : *call.length;
        return 0;
    });
    EXPECT_EQ(copy(otherFour, four), 0);
    EXPECT_EQ(data(otherFour), "01 02 03 04");
    EXPECT_EQ(data(two), "09 0a") << "the neighbour's data";
    EXPECT_EQ(eventLog().lines(Category::hooks).back(), "hook postWrite " + std::to_string(otherFour) + " 1000");
}

TEST_F(ValueCopyHook, ALengthThatTheHookEnlargesReachesTheConstraintAsItIs) {
    tieToRange(otherFour, 0, 0x7FFFFFFF);
    fakeHooks().onCall([](const HookCall &call) {
        *call.length = 1000;
        return 0;
    });
    EXPECT_EQ(copy(otherFour, four), 65);
    EXPECT_TRUE(recorded(65, 0));
    EXPECT_TRUE(nothingChanged());
    EXPECT_EQ(eventLog().count(Operation::hookCall), 1U) << "post-write does not run";
}

TEST_F(ValueCopyHook, APreWriteThatRefusesIsCode9AndNothingIsWritten) {
    answer(HookPhase::preWrite, 123);
    EXPECT_EQ(copy(four, two), 9);
    EXPECT_TRUE(recorded(9, 123));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_copy2", 202, {four, 123})));
    EXPECT_TRUE(nothingChanged());
    EXPECT_EQ(eventLog().lines(Category::memory).back(), "free 4");
}

TEST_F(ValueCopyHook, ANegativeRefusalIsTheDetailAsAWord) {
    answer(HookPhase::preWrite, -1);
    EXPECT_EQ(copy(four, two), 9);
    EXPECT_TRUE(recorded(9, kMinusOne));
}

TEST_F(ValueCopyHook, APostWriteThatFailsIsCode10AndTheValueStaysWritten) {
    answer(HookPhase::postWrite, 45);
    EXPECT_EQ(copy(four, two), 10);
    EXPECT_TRUE(recorded(10, 45));
    EXPECT_TRUE(fakeTrace().onlyError(errorLine("value_copy2", 203, {four, 45})));
    EXPECT_EQ(data(four), "09 0a 03 04");
}

TEST_F(ValueCopyHook, PostWriteDoesNotRunWhenTheWriteFails) {
    faultPlan().add({.operation = Operation::mediaClose, .subject = kData, .skip = 1});
    EXPECT_EQ(copy(four, two), -1);
    EXPECT_EQ(eventLog().count(Operation::hookCall), 1U);
}

TEST_F(ValueCopyHook, PostWriteRunsWhenTheWriteReturnedZeroAlthoughItFailed) {
    faultPlan().add({.operation = Operation::mediaWrite, .subject = kData});
    EXPECT_EQ(copy(four, two), 0);
    EXPECT_TRUE(recorded(23, EIO));
    EXPECT_EQ(eventLog().count(Operation::hookCall), 2U);
}

TEST_F(ValueCopyHook, AHookWithoutFunctionsIsAHook) {
    fakeHooks().put(8, {});
    EXPECT_EQ(value_copy2(&session, four, two, 8), 0);
    EXPECT_EQ(data(four), "09 0a 03 04");
    EXPECT_TRUE(fakeTrace().noErrors()) << "the line without a hook is not written";
}

TEST_F(ValueCopyHook, TheReadFunctionsOfAHookAreNotCalled) {
    ASSERT_EQ(copy(four, two), 0);
    for (const std::string &line : eventLog().lines(Category::hooks))
        EXPECT_THAT(line, testing::Not(testing::HasSubstr("Read")));
}

TEST_F(ValueCopyHook, WhateverFailsWritesTheSourceOrNothing) {
    forEachFault([&] {
        const int32_t code = copy(otherFour, four);
        const Bytes now = dataOf(otherFour);
        const bool cutShort = now == Bytes{1, 2, 3, 8};  // a read or write one byte short is accepted
        EXPECT_TRUE(now == (Bytes{1, 2, 3, 4}) || now == (Bytes{5, 6, 7, 8}) || cutShort) << hexText(now);
        EXPECT_TRUE(code == 0 || code == -1 || static_cast<uint32_t>(code) == session.errorCode) << code;
        EXPECT_TRUE(faultPlan().fired() || now == (Bytes{1, 2, 3, 4}));
    });
}

}  // namespace
}  // namespace tavdb_test
