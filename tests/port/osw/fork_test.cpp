// SPDX-License-Identifier: Apache-2.0
// Processes that fork, and programs that close descriptors they did not open.
#include <atomic>
#include <vector>

#include "port/osw/osw_test_support.h"

namespace tavdb::test {
namespace {

class Fork : public ::testing::Test {
protected:
    Fork() : path(folder / "table") {
        makeTable(path);
    }
    bool isLocked() const {
        return Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, 0) == code(EAGAIN); }).join() == 1;
    }
    TempFolder folder;
    std::string path;
};

TEST_F(Fork, AnIdleChildDoesNotKeepTheLockOfItsDeadParent) {
    struct Stages {
        std::atomic<pid_t> idle = 0;
    };
    Shared<Stages> shared;
    Child parent([&] {
        const Semaphores set = attach(path);
        if (tavOSWRequestMutexSem(set.mutex, -1) != 0)
            return 1;
        const pid_t idle = fork();
        if (idle == 0)
            for (;;)
                pause();
        shared->idle = idle;
        for (;;)
            pause();
    });
    ASSERT_TRUE(eventually([&] { return shared->idle != 0; }));
    const Semaphores set = attach(path);
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 0), code(EAGAIN));
    parent.kill();
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 1000), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
    EXPECT_EQ(kill(shared->idle, SIGKILL), 0) << "the idle child lived until now";
}

TEST_F(Fork, AChildHoldsNothingThatItsParentHolds) {
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(Child([&] {
                  if (tavOSWReleaseMutexSem(set.mutex) != code(EPERM))
                      return 1;
                  return tavOSWRequestMutexSem(set.mutex, 0) == code(EAGAIN) ? 0 : 2;
              }).join(),
              0);
    EXPECT_TRUE(isLocked()) << "the child's end gave the parent's lock back";
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_FALSE(isLocked());
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
}

TEST_F(Fork, AReportOfTheParentIsNotTheChilds) {
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, -1); }).join(), 0);
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    Shared<std::atomic<bool>> released;
    Child child([&] {
        while (!released->load())
            usleep(1000);
        return tavOSWRequestMutexSem(set.mutex, -1) + tavOSWMutexAbandoned(set.mutex);
    });
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    *released = true;
    EXPECT_EQ(child.join(), 0);
}

TEST_F(Fork, AChildUsesTheInheritedHandles) {
    const Semaphores set = attach(path);
    Child child([&] {
        if (tavOSWRequestMutexSem(set.mutex, -1) != 0 || tavOSWReleaseMutexSem(set.mutex) != 0)
            return 1;
        if (attach(path) != set)
            return 2;
        return tavOSWWaitCountSem(set.count, 4000) == 0 ? 0 : 3;
    });
    EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
    EXPECT_EQ(child.join(), 0);
}

TEST_F(Fork, WhileAnotherThreadHoldsTheMutexTheChildGetsItAfterwards) {
    const Semaphores set = attach(path);
    std::atomic<int> stage = 0;
    std::thread holder([&] {
        EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
        stage = 1;
        EXPECT_TRUE(eventually([&] { return stage == 2; }));
        EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    });
    ASSERT_TRUE(eventually([&] { return stage == 1; }));
    Child child([&] { return tavOSWRequestMutexSem(set.mutex, 3000); });
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_FALSE(child.hasEnded());
    stage = 2;
    EXPECT_EQ(child.join(), 0);
    holder.join();
}

TEST_F(Fork, ForksAmidBusyThreadsNeitherHangNorBreakExclusion) {
    constexpr int kForks = 60;
    const Semaphores set = attach(path);
    struct Counts {
        volatile int inside = 0;
        std::atomic<int> faults = 0;
    };
    Shared<Counts> shared;
    const auto visit = [&] {
        if (tavOSWRequestMutexSem(set.mutex, -1) != 0 || shared->inside != 0)
            ++shared->faults;
        shared->inside = 1;
        sched_yield();
        shared->inside = 0;
        if (tavOSWReleaseMutexSem(set.mutex) != 0)
            ++shared->faults;
    };
    std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&, i] {
            const std::string other = folder / ("other" + std::to_string(i));
            makeTable(other);
            while (!stop) {
                visit();
                if (attach(other).result != 0)
                    ++shared->faults;
            }
        });
    for (int i = 0; i < kForks; ++i)
        EXPECT_EQ(Child([&] {
                      for (int round = 0; round < 5; ++round)
                          visit();
                      return 0;
                  }).join(),
                  0);
    stop = true;
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(shared->faults, 0);
}

TEST_F(Fork, ManyGenerationsLeakNoDescriptors) {
    const Semaphores set = attach(path);
    const size_t descriptors = openDescriptors();
    Shared<std::atomic<size_t>> atTheEnd;
    Child child([&] {
        for (int generation = 0; generation < 10; ++generation)
            if (const pid_t pid = fork(); pid != 0) {
                int status = 0;
                waitpid(pid, &status, 0);
                return WIFEXITED(status) ? WEXITSTATUS(status) : 9;
            }
        *atTheEnd = openDescriptors();
        return tavOSWRequestMutexSem(set.mutex, 0) == 0 ? 0 : 1;
    });
    EXPECT_EQ(child.join(), 0);
    EXPECT_EQ(*atTheEnd, descriptors);
}

/// Files of the program's own that take the numbers of descriptors that it closed.
class OwnFiles {
public:
    explicit OwnFiles(const std::string &path) {
        for (int i = 0; i < 16; ++i)
            descriptors_.push_back(open(path.c_str(), O_RDWR | O_CREAT, 0600));
    }
    bool areOpen() const {
        struct stat first = {};
        struct stat other = {};
        for (const int fd : descriptors_)
            if (fstat(descriptors_[0], &first) != 0 || fstat(fd, &other) != 0 || first.st_ino != other.st_ino)
                return false;
        return true;
    }

private:
    std::vector<int> descriptors_;
};

// A daemon that closes every descriptor closes the ones of the semaphores too.
TEST_F(Fork, AProcessThatClosedItsDescriptorsStillExcludesOthers) {
    Child child([&] {
        const Semaphores set = attach(path);
        if (close_range(3, ~0U, 0) != 0)
            return 1;
        const OwnFiles own(folder / "own");
        if (tavOSWRequestMutexSem(set.mutex, -1) != 0)
            return 2;
        if (!isLocked())
            return 3;
        if (tavOSWReleaseMutexSem(set.mutex) != 0 || isLocked())
            return 4;
        return own.areOpen() ? 0 : 5;
    });
    EXPECT_EQ(child.join(), 0);
}

TEST_F(Fork, AForkAfterTheDescriptorsWereClosedLeavesThoseOfTheProgramAlone) {
    Child child([&] {
        const Semaphores set = attach(path);
        if (close_range(3, ~0U, 0) != 0)
            return 1;
        const OwnFiles own(folder / "own");
        return Child([&] {
                   if (!own.areOpen())
                       return 2;
                   return tavOSWRequestMutexSem(set.mutex, 0) == 0 && isLocked() ? 0 : 3;
               })
            .join();
    });
    EXPECT_EQ(child.join(), 0);
}

TEST_F(Fork, ATableMadeAnewAfterTheDescriptorsWereClosedLeavesThoseOfTheProgramAlone) {
    Child child([&] {
        const Semaphores set = attach(path);
        if (close_range(3, ~0U, 0) != 0)
            return 1;
        const OwnFiles own(folder / "own");
        std::filesystem::remove(path);
        makeTable(path);
        if (attach(path) != set || tavOSWRequestMutexSem(set.mutex, 0) != 0 || !isLocked())
            return 2;
        return own.areOpen() ? 0 : 3;
    });
    EXPECT_EQ(child.join(), 0);
}

TEST_F(Fork, WithoutDescriptorsToSpareAChildOpensItsLockWhenItNeedsIt) {
    Child child([&] {
        const Semaphores set = attach(path);
        int last = 0;
        while (last >= 0)
            last = open("/dev/null", O_RDONLY | O_CLOEXEC);
        return Child([&] {
                   if (close_range(100, ~0U, 0) != 0)
                       return 1;
                   return tavOSWRequestMutexSem(set.mutex, 0) == 0 && isLocked() ? 0 : 2;
               })
            .join();
    });
    EXPECT_EQ(child.join(), 0);
}

TEST_F(Fork, AfterDroppingItsRightsAChildOfAPrivilegedProcessStillLocks) {
    if (!isRoot())
        GTEST_SKIP() << "needs to be root";
    chmod(path.c_str(), 0644);
    const Semaphores set = attach(path);
    Child child([&] {
        if (!becomeNobody())
            return 1;
        return Child([&] {
                   if (tavOSWRequestMutexSem(set.mutex, 0) != 0)
                       return 2;
                   Child other([&] { return tavOSWRequestMutexSem(set.mutex, 0) == code(EAGAIN) ? 0 : 3; });
                   return other.join() + (tavOSWReleaseMutexSem(set.mutex) == 0 ? 0 : 4);
               })
            .join();
    });
    EXPECT_EQ(child.join(), 0);
}

}  // namespace
}  // namespace tavdb::test
