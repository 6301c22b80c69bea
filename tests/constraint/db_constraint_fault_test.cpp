// SPDX-License-Identifier: Apache-2.0
// Each main operation with its first step failing, then its second, and so on:
// what is recorded and returned, that every medium is closed and every buffer
// given back, and that records which are not concerned stay as they are.
#include <functional>

#include "constraint/constraint_test_support.h"
#include "fakes/fakes.h"
#include "fakes/fault_runs.h"
#include "tavdb_platform.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

class ConstraintFaultTest : public ConstraintTest {
protected:
    using Call = std::function<int64_t()>;
    static constexpr uint32_t kBystander = 3000;

    void SetUp() override {
        ConstraintTest::SetUp();
        const Bytes bystander = Bytes(256, 0x5A);
        put(kBystander, bystander);
    }

    /// One text for each step: the code in the session, then the result, when that step failed.
    std::vector<std::string> outcomes(const Call &call) {
        const MediaImage clean = fakeMedia().snapshotAll();
        const std::vector<std::string> held = leftInFakes();  // what attaching took
        std::vector<std::string> texts;
        forEachFailingOperation([&](uint64_t) {
            fakeMedia().restoreAll(clean);
            session_setError(&session, 0, 0);
            const int64_t result = call();
            if (faultPlan().fired())
                texts.push_back(std::to_string(session.errorCode) + '/' + std::to_string(result));
            else
                EXPECT_EQ(session.errorCode, 0U);
            EXPECT_EQ(leftInFakes(), held);
            EXPECT_EQ(fakeMedia().bytesAt(kMedium, kBystander, 256), Bytes(256, 0x5A));
        });
        return texts;
    }
    static int64_t given(const void *pointer) {
        return pointer != nullptr ? 1 : 0;
    }
};

// The steps of a reservation, in between: three accesses of the file list, of which only what tells it where the
// slot is and the split's second write stop it. A failing close stops nothing.

TEST_F(ConstraintFaultTest, NewHeaderStepByStep) {
    uint32_t key = 0;
    EXPECT_THAT(outcomes([&] { return given(constraint_new(&session, &key)); }),
                ElementsAre("59/0",                 // open
                            "62/0", "62/0", "0/1",  // first free offset
                            "62/0", "62/0", "0/1",  // block
                            "22/1", "23/1", "0/1",  // link
                            "62/0", "62/0", "0/1",  // rest of the block
                            "0/1"));                // close
}

TEST_F(ConstraintFaultTest, NewRangeStepByStep) {
    tavDBMRangeS32 record = {0, 4, 10, 20, 5};
    EXPECT_THAT(outcomes([&] { return given(rangeS32_new(&session, &record)); }),
                ElementsAre("59/0", "62/0", "62/0", "0/1", "62/0", "62/0", "0/1", "22/1", "23/1", "0/1", "62/0", "62/0",
                            "0/1", "60/0", "0/1"));
}

TEST_F(ConstraintFaultTest, NewEnumerationRecordStepByStep) {
    tavDBMEnumeration record = {0, 1024, kArrayKey, 4, 3};
    EXPECT_THAT(outcomes([&] { return given(enum_new(&session, &record)); }),
                ElementsAre("59/0", "62/0", "62/0", "0/1", "62/0", "62/0", "0/1", "22/1", "23/1", "0/1", "62/0", "62/0",
                            "0/1", "60/0", "0/1"));
}

TEST_F(ConstraintFaultTest, NewArrayGivesItsSlotEvenWithoutAFill) {
    EXPECT_THAT(outcomes([&] { return constraint_newEnumArray(&session, 4, 3) == kFirstSlot ? 1 : 0; }),
                ElementsAre("59/0", "62/0", "62/0", "0/1", "62/0", "62/0", "0/1", "22/1", "23/1", "0/1", "62/0", "62/0",
                            "0/1", "86/1", "60/1", "0/1"));
}

TEST_F(ConstraintFaultTest, SetHeaderStepByStep) {
    const tavDBMConstraint header = {kKey, 4};
    EXPECT_THAT(outcomes([&] { return constraint_set(&session, &header); }), ElementsAre("59/59", "60/0", "0/-1"));
}

TEST_F(ConstraintFaultTest, SetRangeDataStepByStep) {
    putRange(typeRow("S32"), 10, 20, 5);
    const int32_t data[] = {1, 2, 1};
    EXPECT_THAT(outcomes([&] { return constraint_setData(&session, kKey, data, sizeof data); }),
                ElementsAre("59/59", "61/61", "0/0",  // header
                            "59/59", "61/61", "0/0",  // record read
                            "59/0", "60/0", "0/0"));  // record written
}

TEST_F(ConstraintFaultTest, SetEnumerationDataStepByStep) {
    putEnumeration(typeRow("S32"), bytesOf(3, 7, 7));
    const int32_t data[] = {1, 2, 3};
    EXPECT_THAT(outcomes([&] { return constraint_setData(&session, kKey, data, sizeof data); }),
                ElementsAre("59/59", "61/61", "0/0",    // header
                            "59/0", "61/0", "0/0",      // record
                            "59/59", "61/61", "0/0"));  // array
}

TEST_F(ConstraintFaultTest, GetRangeDataStepByStep) {
    putRange(typeRow("S32"), 10, 20, 5);
    int32_t data[3];
    EXPECT_THAT(outcomes([&] { return constraint_getData(&session, kKey, data, sizeof data); }),
                ElementsAre("59/59", "61/61", "0/0", "59/59", "61/61", "0/0"));
}

TEST_F(ConstraintFaultTest, GetEnumerationDataStepByStep) {
    putEnumeration(typeRow("S32"), bytesOf(3, 7, 7));
    int32_t data[3];
    EXPECT_THAT(outcomes([&] { return constraint_getData(&session, kKey, data, sizeof data); }),
                ElementsAre("59/59", "61/61", "0/0", "59/59", "61/61", "0/0", "59/59", "86/86", "61/61", "0/0"));
}

TEST_F(ConstraintFaultTest, GetArrayStepByStep) {
    put(kArrayKey, bytesOf(3, 7, 7));
    const auto read = [&] {
        void *const elements = constraint_getEnumArray(&session, kArrayKey, 4, 3);
        if (elements != nullptr)
            tavOSWOrgFreeMemPart(0, elements);
        return given(elements);
    };
    EXPECT_THAT(outcomes(read), ElementsAre("59/0", "86/0", "61/0", "0/1"));
}

TEST_F(ConstraintFaultTest, CheckOfARangeForgivesOnlyTheHeader) {
    putRange(typeRow("S32"), 10, 20, 5);
    const int32_t value = 15;
    EXPECT_THAT(outcomes([&] { return constraint_check(&session, kKey, 4, &value, 4); }),
                ElementsAre("59/0", "61/0", "0/0", "59/59", "61/61", "0/0"));
}

TEST_F(ConstraintFaultTest, CheckOfAnEnumerationForgivesOnlyTheHeader) {
    putEnumeration(typeRow("S32"), bytesOf(3, 7, 7));
    const int32_t value = 7;
    EXPECT_THAT(outcomes([&] { return constraint_check(&session, kKey, 4, &value, 4); }),
                ElementsAre("59/0", "61/0", "0/0", "59/59", "61/61", "0/0", "59/59", "86/86", "61/61", "0/0"));
}

TEST_F(ConstraintFaultTest, AFailedNewLeavesTheBytesBehindItsSlotUntouched) {
    const MediaImage clean = fakeMedia().snapshotAll();
    const auto run = [&](uint64_t) {
        fakeMedia().restoreAll(clean);
        tavDBMRangeS32 record = {0, 4, 10, 20, 5};
        rangeS32_new(&session, &record);
        const Bytes before = clean.at(kMedium);
        const Bytes after = fakeMedia().snapshot(kMedium);
        EXPECT_EQ(hexText(std::span(after).first(12)), hexText(std::span(before).first(12)));
        EXPECT_EQ(differences(Bytes(before.begin() + kFirstSlot + 28, before.end()),
                              Bytes(after.begin() + kFirstSlot + 28, after.end())),
                  std::vector<std::string>{});
    };
    EXPECT_EQ(forEachFailingOperation(run, shortBy(1)), 15U);
}

}  // namespace
}  // namespace tavdb_test
