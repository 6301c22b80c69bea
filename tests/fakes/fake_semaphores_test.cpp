// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_semaphores.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "fakes/event_log.h"
#include "fakes/fakes_test.h"
#include "fakes/fault_plan.h"
#include "fakes/home_folder.h"
#include "tavdb_platform.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

class Semaphores : public FakesTest {
protected:
    Semaphores() {
        setHomeFolder("/x");
    }
    ~Semaphores() override {
        setHomeFolder("");
    }
};
using SemaphoresDeathTest = Semaphores;

struct Table {
    uint32_t mutex = 0;
    uint32_t count = 0;
    uint32_t event = 0;
};

Table createTable(const char *path) {
    Table table;
    tavOSWSemAnnounce(path, STDOUT_FILENO);
    EXPECT_EQ(tavOSWCreateMutexSem(&table.mutex, 0, 1), 0);
    EXPECT_EQ(tavOSWCreateCountSem(&table.count, 0, 0), 0);
    EXPECT_EQ(tavOSWCreateEventSem(&table.event, 0, 0), 0);
    return table;
}

TEST_F(Semaphores, BelongToTheAnnouncedTable) {
    const Table lock = createTable("/x/lock.tbl");
    const Table session = createTable("/x/session.tbl");
    const Table elsewhere = createTable("/y/lock.tbl");
    fakeSemaphores().reset();  // as between two tests
    const Table again = createTable("/x/lock.tbl");
    EXPECT_NE(lock.mutex, 0U);
    EXPECT_NE(lock.mutex, session.mutex);
    EXPECT_NE(lock.mutex, elsewhere.mutex);
    EXPECT_EQ(lock.mutex, again.mutex);
    EXPECT_EQ(lock.count, again.count);
    EXPECT_EQ(lock.event, again.event);
    EXPECT_EQ(fakeSemaphores().handleOf("session.tbl", FakeSemaphores::Kind::event), session.event);
}

TEST_F(Semaphores, WithoutAnnouncementAreNewEachTime) {
    uint32_t first = 0;
    uint32_t second = 0;
    tavOSWCreateMutexSem(&first, 0, 1);
    tavOSWCreateMutexSem(&second, 0, 1);
    EXPECT_NE(first, second);
    createTable("/x/lock.tbl");
    tavOSWCreateMutexSem(&second, 0, 1);
    EXPECT_NE(second, fakeSemaphores().handleOf("lock.tbl", FakeSemaphores::Kind::mutex));
}

TEST_F(Semaphores, AreLoggedByTable) {
    const Table table = createTable("/x/lock.tbl");
    eventLog().clear();
    EXPECT_EQ(tavOSWRequestMutexSem(table.mutex, -1), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(table.mutex), 0);
    EXPECT_EQ(tavOSWPostEventSem(table.event), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(table.mutex), 0);
    EXPECT_EQ(tavOSWWaitEventSem(table.event, 0), 0);
    EXPECT_EQ(tavOSWPostCountSem(table.count), 0);
    EXPECT_EQ(tavOSWWaitCountSem(table.count, 0), 0);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("mutexRequest lock.tbl", "mutexAbandoned lock.tbl", "eventPost lock.tbl",
                            "mutexRelease lock.tbl", "eventWait lock.tbl", "countPost lock.tbl", "countWait lock.tbl"));
    EXPECT_EQ(fakeSemaphores().countsOf("lock.tbl", FakeSemaphores::Kind::mutex).requests, 1U);
    EXPECT_EQ(fakeSemaphores().countsOf("lock.tbl", FakeSemaphores::Kind::mutex).releases, 1U);
}

TEST_F(Semaphores, HandleZeroFails) {
    EXPECT_EQ(tavOSWRequestMutexSem(0, -1), platformCode(EBADF));
    EXPECT_EQ(tavOSWWaitEventSem(0, 0), platformCode(EBADF));
    EXPECT_EQ(tavOSWMutexAbandoned(0), 0);
}

TEST_F(Semaphores, AWrongHandleFailsTheTest) {
    const Table table = createTable("/x/lock.tbl");
    EXPECT_NONFATAL_FAILURE(tavOSWRequestMutexSem(table.event, -1), "not of the kind");
}

TEST_F(Semaphores, RequestingTwiceFailsTheTestAndDoesNotHang) {
    const Table table = createTable("/x/lock.tbl");
    tavOSWRequestMutexSem(table.mutex, -1);
    EXPECT_EQ(tavOSWRequestMutexSem(table.mutex, 0), platformCode(EBUSY));
    EXPECT_NONFATAL_FAILURE(tavOSWRequestMutexSem(table.mutex, -1), "lock.tbl was requested twice");
    EXPECT_THAT(fakeSemaphores().heldMutexes(), ElementsAre("lock.tbl"));
}

TEST_F(Semaphores, AReleaseWithoutARequestFailsTheTest) {
    const Table table = createTable("/x/lock.tbl");
    EXPECT_NONFATAL_FAILURE(tavOSWReleaseMutexSem(table.mutex), "does not hold it");
}

TEST_F(Semaphores, AnotherThreadWaitsForTheMutex) {
    const Table table = createTable("/x/lock.tbl");
    tavOSWRequestMutexSem(table.mutex, -1);
    bool released = false;
    std::thread other([&] {
        EXPECT_EQ(tavOSWRequestMutexSem(table.mutex, -1), 0);
        EXPECT_TRUE(released);
        tavOSWReleaseMutexSem(table.mutex);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    released = true;
    tavOSWReleaseMutexSem(table.mutex);
    other.join();
    EXPECT_THAT(fakeSemaphores().heldMutexes(), ElementsAre());
}

TEST_F(Semaphores, AFailedReleaseCountsAsGivenBack) {
    const Table table = createTable("/x/lock.tbl");
    faultPlan().add({.operation = Operation::mutexRelease, .fault = returning(9, EINTR)});
    tavOSWRequestMutexSem(table.mutex, -1);
    errno = 0;
    EXPECT_EQ(tavOSWReleaseMutexSem(table.mutex), 9);
    EXPECT_EQ(errno, EINTR);
    EXPECT_THAT(fakeSemaphores().heldMutexes(), ElementsAre());
}

TEST_F(Semaphores, AFailedRequestHoldsNothing) {
    const Table table = createTable("/x/lock.tbl");
    faultPlan().add({.operation = Operation::mutexRequest, .subject = "lock.tbl"});
    EXPECT_EQ(tavOSWRequestMutexSem(table.mutex, -1), platformCode(EIO));
    EXPECT_THAT(fakeSemaphores().heldMutexes(), ElementsAre());
}

TEST_F(Semaphores, TellOnceThatAHolderDied) {
    const Table table = createTable("/x/lock.tbl");
    fakeSemaphores().abandonMutex("lock.tbl");
    tavOSWRequestMutexSem(table.mutex, -1);
    EXPECT_EQ(tavOSWMutexAbandoned(table.mutex), 1);
    EXPECT_EQ(tavOSWMutexAbandoned(table.mutex), 0);
    tavOSWReleaseMutexSem(table.mutex);
    EXPECT_NONFATAL_FAILURE(tavOSWMutexAbandoned(table.mutex), "does not hold it");
}

TEST_F(Semaphores, AWaitRunsTheTestsAction) {
    const Table table = createTable("/x/lock.tbl");
    std::string waited;
    fakeSemaphores().onEventWait([&](const std::string &name) {
        waited = name;
        tavOSWPostEventSem(table.event);
    });
    eventLog().clear();
    EXPECT_EQ(tavOSWWaitEventSem(table.event, 0), 0);
    EXPECT_EQ(waited, "lock.tbl");
    EXPECT_THAT(eventLog().lines(), ElementsAre("eventWait lock.tbl", "eventPost lock.tbl"));
}

TEST_F(Semaphores, WaitingWithTheMutexHeldFailsTheTest) {
    const Table table = createTable("/x/lock.tbl");
    tavOSWRequestMutexSem(table.mutex, -1);
    EXPECT_NONFATAL_FAILURE(tavOSWWaitEventSem(table.event, 0), "with the mutex held");
}

TEST_F(Semaphores, WaitingForACountOfZeroFailsTheTest) {
    const Table table = createTable("/x/lock.tbl");
    EXPECT_NONFATAL_FAILURE(tavOSWWaitCountSem(table.count, 0), "nobody posts it");
}

TEST_F(SemaphoresDeathTest, WaitingForEverEndsTheProgram) {
    const Table table = createTable("/x/lock.tbl");
    EXPECT_DEATH(
        {
            for (;;)
                tavOSWWaitEventSem(table.event, 0);
        },
        "again and again");
}

TEST_F(Semaphores, WrongCreationArgumentsFailTheTest) {
    uint32_t handle = 0;
    EXPECT_NONFATAL_FAILURE(tavOSWCreateMutexSem(&handle, 0, 0), "wrong arguments");
    EXPECT_NONFATAL_FAILURE(tavOSWSemAnnounce("/x/lock.tbl", 12345), "not open");
    EXPECT_EQ(handle, 0U);
}

TEST_F(Semaphores, AFailedCreationGivesNoHandle) {
    faultPlan().add({.operation = Operation::countCreate});
    uint32_t handle = 0;
    EXPECT_EQ(tavOSWCreateCountSem(&handle, 0, 0), platformCode(EIO));
    EXPECT_EQ(handle, 0U);
}

}  // namespace
}  // namespace tavdb_test
