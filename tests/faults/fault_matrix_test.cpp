// SPDX-License-Identifier: Apache-2.0
// Every exported operation, on two databases, while each operation of the platform
// that it needs fails in every way there is, once or from there on. Looked at after
// each call: what it answered, the session, the trace, memory, descriptors, mutexes,
// every byte that the call does not write when nothing fails, and whether the
// library still works. Attaching and detaching are in attach_faults_test.cpp.
#include <algorithm>
#include <cerrno>

#include "fakes/fakes.h"
#include "faults/fault_count.h"
#include "faults/fault_kinds.h"
#include "faults/fault_rows.h"
#include "faults/outcomes.h"

namespace tavdb_test {
namespace {

using testing::IsEmpty;

/// Every byte of the media and of the file, and which of them a call may write.
class Surroundings {
public:
    explicit Surroundings(const Bytes &listFile) : media_(fakeMedia().snapshotAll()), file_(listFile) {}

    const MediaImage &media() const {
        return media_;
    }
    void allow(const std::string &name, uint64_t offset, uint64_t length) {
        auto &allowed = allowed_[name];
        allowed.resize(std::max(allowed.size(), static_cast<size_t>(offset + length)));
        std::fill_n(allowed.begin() + static_cast<std::ptrdiff_t>(offset), length, true);
    }
    /// Allows what the log says that was written.
    void allowWritten() {
        for (const Event &event : eventLog().events())
            if (event.operation == Operation::mediaWrite || event.operation == Operation::sysPwrite)
                allow(event.subject, event.offset, static_cast<uint64_t>(event.length));
    }
    std::vector<std::string> changes(const Bytes &listFile) const {
        std::vector<std::string> found;
        for (const auto &[hint, bytes] : media_)
            compare(hint, bytes, fakeMedia().snapshot(hint), found);
        compare("list.bin", file_, listFile, found);
        return found;
    }

private:
    bool mayWrite(const std::string &name, size_t at) const {
        const auto allowed = allowed_.find(name);
        return allowed != allowed_.end() && at < allowed->second.size() && allowed->second[at];
    }
    void compare(const std::string &name, const Bytes &before, const Bytes &after,
                 std::vector<std::string> &found) const {
        if (before == after)
            return;
        for (size_t at = 0; at < std::max(before.size(), after.size()); ++at) {
            const bool same = at < before.size() && at < after.size() && before[at] == after[at];
            if (!same && !mayWrite(name, at))
                found.push_back(name + '@' + std::to_string(at));
        }
    }

    MediaImage media_;
    Bytes file_;
    std::map<std::string, std::vector<bool>> allowed_;
};

class FaultMatrix : public FaultWorld, public testing::WithParamInterface<FaultRow> {
protected:
    /// The call in the world, without faults and then with each; the outcomes are added.
    void runIn(WorldForm form) {
        const MediaImage empty = fakeMedia().snapshotAll();
        makeWorld(form);
        resources_ = OpenResources::now();
        held_ = leftInFakes();
        Surroundings surroundings(readListFile());
        untouched_ = callAfresh(surroundings);
        untouchedLines_ = fakeTrace().errors().size();
        surroundings.allowWritten();
        for (const uint32_t key : {world.value, world.otherValue})  // a constraint that cannot be read refuses nothing
            surroundings.allow(kData, value(key).dataOffset, sizeof(uint64_t));
        callAfterwards();
        outcomes_.insert(textOf(untouched_, untouched_));
        for (const FaultKind &kind : faultKinds()) {
            runKind(surroundings, kind, Persistence::once);
            if (GetParam().underLastingFaults == Repeats::yes && lastsHere(kind))
                runKind(surroundings, kind, Persistence::forEver);
        }
        fakeMedia().restoreAll(empty);
        lock_compUnlockAll();
    }

    uint64_t faults_ = 0;
    std::set<std::string> outcomes_;

private:
    void runKind(const Surroundings &surroundings, const FaultKind &kind, Persistence persistence) {
        const auto run = [&](uint64_t index) {
            if (HasFailure())
                return;  // the first operation that is not survived says enough
            SCOPED_TRACE("operation " + std::to_string(index) + ' ' + kind.name +
                         (persistence == Persistence::once ? "" : " for ever"));
            const Outcome outcome = callAfresh(surroundings);
            look(outcome, surroundings);
            callAfterwards();
            lookAfterwards();
        };
        faults_ += forEachFailingOperation(run, kind.choose, persistence);
        EXPECT_THAT(OpenResources::now().newSince(resources_), IsEmpty()) << kind.name;
    }

    /// The call on the media as they were.
    Outcome callAfresh(const Surroundings &surroundings) {
        prepare(surroundings);
        const Recording recording;
        const int64_t result = GetParam().call(world);
        return {result, session.errorCode, session.errorDetail};
    }

    void prepare(const Surroundings &surroundings) {
        const FaultPause pause;
        const Recording recording;
        fakeMedia().restoreAll(surroundings.media());
        writeListFile();
        lockAsTheFormHas();
        session.currentComponent = root;
        if (GetParam().before != nullptr)
            GetParam().before(world);
        session.errorCode = 0;
        session.errorDetail = 0;
        clearTraces();
        errno = 0;
    }

    void look(const Outcome &outcome, const Surroundings &surroundings) {
        const bool fired = faultPlan().fired();
        if (fired) {
            outcomes_.insert(textOf(outcome, untouched_));
        } else {
            EXPECT_EQ(textOf(outcome, untouched_), textOf(untouched_, untouched_)) << "nothing failed";
            EXPECT_EQ(fakeTrace().errors().size(), untouchedLines_);
        }
        if (outcome.code != 0) {
            EXPECT_THAT(fakeTrace().errors(), testing::Not(IsEmpty())) << textOf(outcome, untouched_);
        }
        EXPECT_THAT(surroundings.changes(readListFile()), IsEmpty()) << eventLog().text();
    }

    void callAfterwards() {
        const FaultPause pause;
        const Recording recording;
        if (GetParam().after != nullptr)
            GetParam().after(world);
    }

    /// Nothing is left behind, and the next calls find all in order.
    void lookAfterwards() {
        const FaultPause pause;
        EXPECT_EQ(leftInFakes(), held_);
        session.errorCode = 0;
        uint32_t number = 0;
        EXPECT_EQ(tavDBMGetUint32(&session, world.witness, &number), 0);
        EXPECT_EQ(number, kWitnessNumber);
        EXPECT_EQ(tavDBMLock(&session, world.witness, TAVDB_LOCK_TRY), 0);
        EXPECT_EQ(tavDBMUnlock(&session, world.witness), 0);
        EXPECT_EQ(session.errorCode, 0U);
    }

    OpenResources resources_;
    std::vector<std::string> held_;
    Outcome untouched_;
    size_t untouchedLines_ = 0;
};

TEST_P(FaultMatrix, WhateverFails) {
    runIn(WorldForm::plain);
    runIn(WorldForm::crowded);
    countFaults(faults_);
    EXPECT_GT(faults_, 0U) << "the operation asks the platform for nothing: it belongs into the list of those";
    expectOutcomes(GetParam().name, outcomes_);
}

INSTANTIATE_TEST_SUITE_P(Components, FaultMatrix, testing::ValuesIn(componentRows()), kTestOfRow);
INSTANTIATE_TEST_SUITE_P(Constraints, FaultMatrix, testing::ValuesIn(constraintRows()), kTestOfRow);
INSTANTIATE_TEST_SUITE_P(Control, FaultMatrix, testing::ValuesIn(controlRows()), kTestOfRow);
INSTANTIATE_TEST_SUITE_P(Manager, FaultMatrix, testing::ValuesIn(managerRows()), kTestOfRow);
INSTANTIATE_TEST_SUITE_P(Storage, FaultMatrix, testing::ValuesIn(storageRows()), kTestOfRow);
INSTANTIATE_TEST_SUITE_P(Values, FaultMatrix, testing::ValuesIn(valueRows()), kTestOfRow);

}  // namespace
}  // namespace tavdb_test
