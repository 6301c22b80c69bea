// SPDX-License-Identifier: Apache-2.0
// Many processes attach to and detach from databases at once; the references in
// the control table are right at the end, also when the first of them have to
// make the tables.
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "multiprocess/multiprocess_test_support.h"

namespace tavdb_test {
namespace {

using testing::Each;
using testing::Eq;

class Attach : public MultiProcess {
protected:
    /// Every process attaches when all are there, and detaches when all are attached.
    std::vector<int> attachAtOnce(uint32_t processes) {
        Shared<Barrier> start;
        Shared<Barrier> attached;
        return runAtOnce(processes, [&](uint32_t) {
            if (!start->arriveAndWait(processes))
                return 1;
            const int32_t dbId = database_.attach();
            if (dbId < 1 || !attached->arriveAndWait(processes))
                return 2;
            if (database_.references(static_cast<uint32_t>(dbId)) > processes)
                return 3;
            return tavDBMTerm(static_cast<uint32_t>(dbId)) == 0 ? 0 : 4;
        });
    }
    std::vector<uint32_t> databases() const {
        const ControlView table(database_.path(Table::control));
        return chain(table->entry, table->usedHead);
    }
};

TEST_F(Attach, ProcessesThatAttachAtOnceShareOneEntry) {
    constexpr uint32_t kProcesses = 16;
    Shared<Barrier> attached;
    Shared<Barrier> end;
    std::vector<Child> children;
    for (uint32_t i = 0; i < kProcesses; i++)
        children.emplace_back([&] {
            const int32_t dbId = database_.attach();
            attached->arrive();
            if (dbId != 1 || !end->waitFor(1))
                return 1;
            return tavDBMTerm(1) == 0 ? 0 : 2;
        });
    ASSERT_TRUE(attached->waitFor(kProcesses));
    EXPECT_EQ(database_.references(1), kProcesses);
    EXPECT_THAT(databases(), testing::ElementsAre(1));
    end->arrive();
    for (Child &child : children)
        EXPECT_EQ(joinInTime(child), 0);
    EXPECT_EQ(database_.references(1), 0U);
    EXPECT_THAT(databases(), testing::IsEmpty());
    EXPECT_EQ(database_.faults(), "");
}

TEST_F(Attach, OnAFreshMachineEveryoneSucceedsWhoeverMakesTheTables) {
    constexpr int kRounds = 25;
    for (int round = 0; round < kRounds && !HasFailure(); round++) {
        for (const Table table : {Table::control, Table::session, Table::lock}) {
            unlink(database_.path(table).c_str());
            unlink((database_.path(table) + ".sem").c_str());
        }
        EXPECT_THAT(attachAtOnce(6), Each(Eq(0))) << "round " << round;
        EXPECT_EQ(database_.faults(), "") << "round " << round;
        EXPECT_EQ(database_.references(1), 0U) << "round " << round;
    }
}

TEST_F(Attach, TheTablesOfARaceHaveTheirSizes) {
    attachAtOnce(8);
    const auto sizeOf = [&](Table table) { return std::filesystem::file_size(database_.path(table)); };
    EXPECT_EQ(sizeOf(Table::control), 541740U);
    EXPECT_EQ(sizeOf(Table::session), 16412U);
    EXPECT_EQ(sizeOf(Table::lock), 24624U);
}

TEST_F(Attach, AttachingAndDetachingAtOnceLeavesNoReference) {
    constexpr int kRepeats = 40;
    const auto statuses = runAtOnce(6, [&](uint32_t) {
        for (int i = 0; i < kRepeats; i++) {
            const int32_t dbId = database_.attach();
            if (dbId < 1 || tavDBMTerm(static_cast<uint32_t>(dbId)) != 0)
                return 1;
        }
        return 0;
    });
    EXPECT_THAT(statuses, Each(Eq(0)));
    EXPECT_THAT(databases(), testing::IsEmpty());
    EXPECT_EQ(database_.faults(), "");
}

TEST_F(Attach, DifferentDatabasesAtOnceGetDifferentIds) {
    constexpr uint32_t kProcesses = 12;
    Shared<std::array<std::atomic<int32_t>, kProcesses>> ids;
    Shared<Barrier> attached;
    const auto statuses = runAtOnce(kProcesses, [&](uint32_t number) {
        (*ids)[number] = database_.attach(number + 1);
        return attached->arriveAndWait(kProcesses) ? 0 : 1;
    });
    EXPECT_THAT(statuses, Each(Eq(0)));
    std::vector<int32_t> sorted(ids->begin(), ids->end());
    std::sort(sorted.begin(), sorted.end());
    for (uint32_t i = 0; i < kProcesses; i++)
        EXPECT_EQ(sorted[i], static_cast<int32_t>(i) + 1);
}

TEST_F(Attach, TheReferenceOfAKilledProcessStays) {
    Shared<Barrier> attached;
    Child child([&]() -> int {
        database_.attach();
        attached->arrive();
        waitForTheEnd();
    });
    ASSERT_TRUE(attached->waitFor(1));
    child.kill();
    EXPECT_EQ(database_.references(1), 1U);
    EXPECT_EQ(database_.faults(), "");
}

/// So many processes, each attached to a database of its own until the test lets them go on.
class AttachedProcesses {
public:
    AttachedProcesses(const DatabaseFolder &database, uint32_t count) : count_(count) {
        for (uint32_t i = 0; i < count; i++)
            children_.emplace_back([this, &database, i] {
                const int32_t dbId = database.attach(i + 1);
                attached_->arrive();
                if (dbId < 1 || !end_->waitFor(1))
                    return 1;
                return tavDBMTerm(static_cast<uint32_t>(dbId)) == 0 ? 0 : 2;
            });
    }
    bool areAttached() const {
        return attached_->waitFor(count_);
    }
    void detach() {
        end_->arrive();
        for (Child &child : children_)
            EXPECT_EQ(joinInTime(child), 0);
    }

private:
    uint32_t count_;
    Shared<Barrier> attached_;
    Shared<Barrier> end_;
    std::vector<Child> children_;
};

TEST_F(Attach, TheThirtySecondDatabaseOfTheMachineFailsWith84) {
    AttachedProcesses processes(database_, kDatabases);
    ASSERT_TRUE(processes.areAttached());
    Child late([&] {
        int32_t error = 0;
        return database_.attach(1000, &error) == -1 ? error : -1;
    });
    EXPECT_EQ(joinInTime(late), 84);
    EXPECT_EQ(databases().size(), kDatabases);
    processes.detach();
    EXPECT_EQ(database_.faults(), "");
}

TEST_F(Attach, AfterADetachTheNextDatabaseFitsAgain) {
    AttachedProcesses processes(database_, kDatabases);
    ASSERT_TRUE(processes.areAttached());
    processes.detach();
    Child late([&] { return database_.attach(1000) > 0 ? 0 : 1; });
    EXPECT_EQ(joinInTime(late), 0);
}

}  // namespace
}  // namespace tavdb_test
