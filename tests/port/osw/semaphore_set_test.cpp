// SPDX-License-Identifier: Apache-2.0
// Which table gets which set: the same objects again after every attach, nothing
// leaked, tables made anew or reached by other names, and wrong handles.
#include <sys/file.h>
#include <sys/resource.h>

#include <atomic>
#include <vector>

#include "port/osw/osw_test_support.h"

namespace tavdb::test {
namespace {

constexpr int kSetCapacity = 64;

class SemaphoreSets : public ::testing::Test {
protected:
    SemaphoreSets() : path(folder / "table") {
        makeTable(path);
    }
    /// Whether a process that attaches by that name cannot get the mutex.
    static bool isLockedFor(const std::string &name) {
        return Child([&] {
                   const Semaphores set = attach(name);
                   if (tavOSWRequestMutexSem(set.mutex, 0) == code(EAGAIN))
                       return 1;
                   return tavOSWReleaseMutexSem(set.mutex) == 0 ? 0 : 2;
               }).join() == 1;
    }
    static bool works(const Semaphores &set, const std::string &name) {
        return set.result == 0 && tavOSWRequestMutexSem(set.mutex, 0) == 0 && isLockedFor(name) &&
               tavOSWReleaseMutexSem(set.mutex) == 0 && !isLockedFor(name);
    }
    void makeAnew() {
        std::filesystem::remove(path);
        makeTable(path);
    }

    TempFolder folder;
    std::string path;
};

TEST_F(SemaphoreSets, AttachingAgainGivesTheSameHandles) {
    makeTable(folder / "other");
    const Semaphores set = attach(path);
    const Semaphores other = attach(folder / "other");
    EXPECT_EQ(attach(path), set);
    EXPECT_EQ(attach(folder / "other"), other);
    EXPECT_NE(set.mutex, other.mutex);
}

TEST_F(SemaphoreSets, TablesDoNotShareTheirMutex) {
    makeTable(folder / "other");
    const Semaphores set = attach(path);
    const Semaphores other = attach(folder / "other");
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    EXPECT_EQ(tavOSWRequestMutexSem(other.mutex, 0), 0);
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    EXPECT_EQ(tavOSWWaitEventSem(other.event, 20), code(ETIMEDOUT));
}

TEST_F(SemaphoreSets, AThousandAttachmentsLeakNothing) {
    const Semaphores set = attach(path);
    const Footprint before;
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(attach(path), set);
    EXPECT_TRUE(Footprint() == before);
}

TEST_F(SemaphoreSets, ManyRecreatedTablesLeakNothing) {
    const Semaphores set = attach(path);
    const Footprint before;
    for (int i = 0; i < 300; ++i) {
        makeAnew();
        ASSERT_EQ(attach(path), set);
    }
    EXPECT_TRUE(Footprint() == before);
    EXPECT_TRUE(works(set, path));
}

TEST_F(SemaphoreSets, ARecreatedTableGetsNewObjectsBehindTheOldHandles) {
    const Semaphores set = attach(path);
    EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
    Shared<std::atomic<int>> stage;
    Child old([&] {
        const int32_t result = tavOSWRequestMutexSem(set.mutex, 0);
        stage->store(1);
        while (stage->load() == 1)
            usleep(1000);
        return result == 0 ? static_cast<int>(tavOSWReleaseMutexSem(set.mutex)) : 1;
    });
    ASSERT_TRUE(eventually([&] { return stage->load() == 1; }));
    makeAnew();
    EXPECT_EQ(attach(path), set);
    EXPECT_TRUE(works(set, path)) << "the old table's mutex is still held";
    EXPECT_EQ(tavOSWWaitCountSem(set.count, 20), code(ETIMEDOUT)) << "the old table's count";
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    stage->store(2);
    EXPECT_EQ(old.join(), 0);
}

TEST_F(SemaphoreSets, AHolderCannotMoveItsMutexToARecreatedTable) {
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    makeAnew();
    EXPECT_EQ(attach(path).result, code(EDEADLK));
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_EQ(attach(path), set);
    EXPECT_TRUE(works(set, path));
}

TEST_F(SemaphoreSets, AttachingWhileHoldingKeepsTheMutex) {
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    EXPECT_EQ(attach(path), set);
    EXPECT_TRUE(isLockedFor(path));
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
}

TEST_F(SemaphoreSets, ARenamedTableKeepsItsSetAndGetsAPageOfItsNewName) {
    const Semaphores set = attach(path);
    const std::string moved = folder / "moved";
    std::filesystem::rename(path, moved);
    EXPECT_EQ(attach(moved), set);
    EXPECT_TRUE(works(set, moved));
    EXPECT_TRUE(std::filesystem::exists(moved + ".sem"));
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_EQ(Child([&] { return tavOSWPostEventSem(attach(moved).event); }).join(), 0);
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 0), 0);
}

TEST_F(SemaphoreSets, ATableReachedByRelativePathAndBySymbolicLinkIsTheSame) {
    const Semaphores set = attach(path);
    ASSERT_EQ(chdir(folder.path().c_str()), 0);
    EXPECT_EQ(attach("table"), set);
    EXPECT_EQ(attach("./../" + folder.path().substr(folder.path().rfind('/') + 1) + "/table"), set);
    std::filesystem::create_symlink("table", "link");
    EXPECT_EQ(attach("link"), set);
    EXPECT_FALSE(std::filesystem::exists("link.sem"));
    EXPECT_TRUE(works(set, "link"));
    ASSERT_EQ(chdir("/"), 0);
    EXPECT_TRUE(works(set, path));
}

TEST_F(SemaphoreSets, ATableWithTwoNamesHasOneMutex) {
    const std::string second = folder / "second";
    const Semaphores set = attach(path);
    std::filesystem::create_hard_link(path, second);
    EXPECT_TRUE(works(set, second));
    EXPECT_EQ(attach(second), set);
    EXPECT_TRUE(works(set, path));
}

TEST_F(SemaphoreSets, WhoWaitsOnATableWithTwoNamesLooksAgainByItself) {
    const std::string second = folder / "second";
    std::filesystem::create_hard_link(path, second);
    Shared<std::atomic<int>> stage;
    Child poster([&] {
        while (stage->load() == 0)
            usleep(1000);
        return tavOSWPostEventSem(attach(second).event);
    });
    const Semaphores set = attach(path);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    stage->store(1);
    EXPECT_EQ(poster.join(), 0);
    EXPECT_TRUE(std::filesystem::exists(second + ".sem")) << "the post went to another page";
    const auto start = Clock::now();
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 0), 0);
    EXPECT_LT(since(start).count(), 1000);
}

TEST_F(SemaphoreSets, UnrelatedProcessesExcludeEachOtherByWhateverNameTheyUse) {
    const std::string second = folder / "second";
    std::filesystem::create_hard_link(path, second);
    std::filesystem::create_symlink("table", folder / "link");
    struct Shares {
        volatile int counter = 0;
        std::atomic<int> faults = 0;
    };
    Shared<Shares> shared;
    constexpr int kRounds = 1000;
    std::vector<Child> children;
    for (const std::string &name : {path, second, folder / "link", std::string("table"), std::string("./second")})
        children.emplace_back([&, name] {
            if (chdir(folder.path().c_str()) != 0)
                return 1;
            const Semaphores set = attach(name);
            for (int round = 0; round < kRounds; ++round) {
                if (tavOSWRequestMutexSem(set.mutex, -1) != 0)
                    ++shared->faults;
                const int before = shared->counter;
                if (round % 16 == 0)
                    sched_yield();
                shared->counter = before + 1;
                if (tavOSWReleaseMutexSem(set.mutex) != 0)
                    ++shared->faults;
            }
            return 0;
        });
    for (Child &child : children)
        EXPECT_EQ(child.join(), 0);
    EXPECT_EQ(shared->faults, 0);
    EXPECT_EQ(shared->counter, static_cast<int>(children.size()) * kRounds);
}

TEST_F(SemaphoreSets, ThePageOfATableReachedByALinkLiesBesideTheTable) {
    std::filesystem::create_directory(folder / "elsewhere");
    std::filesystem::create_symlink(path, folder / "elsewhere/link");
    EXPECT_EQ(attach(folder / "elsewhere/link").result, 0);
    EXPECT_TRUE(std::filesystem::exists(path + ".sem"));
    EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere/link.sem"));
}

TEST_F(SemaphoreSets, ARelativePathMeansTheFolderOfTheMomentItWasAnnounced) {
    ASSERT_EQ(chdir(folder.path().c_str()), 0);
    const Semaphores set = attach("table");
    ASSERT_EQ(chdir("/"), 0);
    std::filesystem::remove(path + ".sem");
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_TRUE(std::filesystem::exists(path + ".sem"));
}

TEST_F(SemaphoreSets, TheLockIsNotSharedWithTheDescriptorThatWasAnnounced) {
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    tavOSWSemAnnounce(path.c_str(), fd);
    const Semaphores set = createSemaphores();
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), -1);
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
    close(fd);
}

TEST_F(SemaphoreSets, SixtyFourTablesFitAndTheNextIsRefused) {
    std::vector<Semaphores> sets;
    for (int i = 0; i < kSetCapacity; ++i) {
        const std::string name = folder / ("table" + std::to_string(i));
        makeTable(name);
        sets.push_back(attach(name));
        ASSERT_EQ(sets.back().result, 0) << i;
    }
    const size_t descriptors = openDescriptors();
    EXPECT_EQ(attach(path).result, code(ENOSPC));
    EXPECT_EQ(createSemaphores().result, code(ENOSPC));
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(attach(folder / "table0"), sets[0]);
    EXPECT_TRUE(works(sets[0], folder / "table0"));
    EXPECT_TRUE(works(sets[kSetCapacity - 1], folder / ("table" + std::to_string(kSetCapacity - 1))));
}

TEST_F(SemaphoreSets, WrongHandlesAreRefused) {
    const Semaphores set = attach(path);
    const auto refused = [](uint32_t mutex, uint32_t count, uint32_t event) {
        EXPECT_EQ(tavOSWRequestMutexSem(mutex, -1), code(EINVAL));
        EXPECT_EQ(tavOSWReleaseMutexSem(mutex), code(EINVAL));
        EXPECT_EQ(tavOSWWaitCountSem(count, 0), code(EINVAL));
        EXPECT_EQ(tavOSWPostCountSem(count), code(EINVAL));
        EXPECT_EQ(tavOSWWaitEventSem(event, 0), code(EINVAL));
        EXPECT_EQ(tavOSWPostEventSem(event), code(EINVAL));
    };
    refused(0, 0, 0);
    refused(set.count, set.event, set.mutex);
    refused(set.event, set.mutex, set.count);
    refused(set.mutex + kSetCapacity, set.count + kSetCapacity, set.event + kSetCapacity);
    refused(set.mutex ^ 0x80000000U, set.count ^ 0x80000000U, set.event ^ 0x80000000U);
    refused(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF);
    refused(set.mutex - 1, set.count - 1, set.event - 1);
}

TEST_F(SemaphoreSets, WrongCreationArgumentsAreRefusedAndLeaveTheHandleAlone) {
    uint32_t handle = 7;
    EXPECT_EQ(tavOSWCreateMutexSem(nullptr, 0, 1), code(EINVAL));
    EXPECT_EQ(tavOSWCreateCountSem(nullptr, 0, 0), code(EINVAL));
    EXPECT_EQ(tavOSWCreateEventSem(nullptr, 0, 0), code(EINVAL));
    EXPECT_EQ(tavOSWCreateMutexSem(&handle, 1, 1), code(EINVAL));
    EXPECT_EQ(tavOSWCreateMutexSem(&handle, 0, 0), code(EINVAL));
    EXPECT_EQ(tavOSWCreateCountSem(&handle, 0, 1), code(EINVAL));
    EXPECT_EQ(tavOSWCreateEventSem(&handle, 0, 1), code(EINVAL));
    EXPECT_EQ(handle, 7U);
}

TEST_F(SemaphoreSets, AWrongAnnouncementIsRefusedOnceAndLeavesTheHandleAlone) {
    uint32_t handle = 7;
    tavOSWSemAnnounce(path.c_str(), -1);
    EXPECT_EQ(tavOSWCreateMutexSem(&handle, 0, 1), code(EBADF));
    const int fd = open(path.c_str(), O_RDWR);
    tavOSWSemAnnounce(nullptr, fd);
    EXPECT_EQ(tavOSWCreateMutexSem(&handle, 0, 1), code(EINVAL));
    tavOSWSemAnnounce("", fd);
    EXPECT_EQ(tavOSWCreateMutexSem(&handle, 0, 1), code(EINVAL));
    EXPECT_EQ(handle, 7U);
    close(fd);
    EXPECT_TRUE(works(attach(path), path));
}

// A privileged process opens the table and gives its rights up before it attaches.
TEST_F(SemaphoreSets, ADescriptorThatCannotBeOpenedAgainIsUsedAsItIsButNotByChildren) {
    if (!isRoot())
        GTEST_SKIP() << "needs to be root";
    chmod(path.c_str(), 0600);
    Child child([&] {
        const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        if (!becomeNobody())
            return 1;
        tavOSWSemAnnounce(path.c_str(), fd);
        const Semaphores set = createSemaphores();
        close(fd);
        if (set.result != 0 || tavOSWRequestMutexSem(set.mutex, 0) != 0)
            return 2;
        const int inChild = Child([&] { return tavOSWRequestMutexSem(set.mutex, 0) == code(EACCES) ? 0 : 3; }).join();
        if (inChild != 0 || seteuid(0) != 0)
            return 4;
        const bool locked = isLockedFor(path);
        return tavOSWReleaseMutexSem(set.mutex) == 0 && locked && !isLockedFor(path) ? 0 : 5;
    });
    EXPECT_EQ(child.join(), 0);
}

TEST_F(SemaphoreSets, AnAnnouncementBelongsToTheThreadThatMadeIt) {
    const int fd = open(path.c_str(), O_RDWR);
    tavOSWSemAnnounce(path.c_str(), fd);
    std::thread([] { EXPECT_EQ(createSemaphores().result, 0); }).join();
    EXPECT_FALSE(std::filesystem::exists(path + ".sem"));
    const Semaphores set = createSemaphores();
    EXPECT_TRUE(std::filesystem::exists(path + ".sem"));
    EXPECT_EQ(attach(path), set);
    close(fd);
}

TEST_F(SemaphoreSets, AnAnnouncementServesOneMutexOnly) {
    const Semaphores set = attach(path);
    uint32_t second = 0;
    EXPECT_EQ(tavOSWCreateMutexSem(&second, 0, 1), 0);
    EXPECT_NE(second, set.mutex);
}

TEST_F(SemaphoreSets, ThreadsThatAttachAtOnceGetTheSameSet) {
    constexpr int kThreads = 8;
    std::vector<Semaphores> sets(kThreads);
    std::vector<std::thread> threads;
    for (Semaphores &set : sets)
        threads.emplace_back([&] { set = attach(path); });
    for (std::thread &thread : threads)
        thread.join();
    for (const Semaphores &set : sets)
        EXPECT_EQ(set, sets[0]);
    EXPECT_TRUE(works(sets[0], path));
}

TEST_F(SemaphoreSets, ProcessesThatAttachAtOnceGetOnePage) {
    constexpr int kProcesses = 6;
    Shared<std::atomic<int>> ready;
    std::vector<Child> waiters;
    for (int i = 0; i < kProcesses; ++i)
        waiters.emplace_back([&] {
            const Semaphores set = attach(path);
            ++*ready;
            return tavOSWWaitEventSem(set.event, 4000) == 0 ? 0 : 1;
        });
    ASSERT_TRUE(eventually([&] { return *ready == kProcesses; }));
    EXPECT_EQ(tavOSWPostEventSem(attach(path).event), 0);
    for (Child &waiter : waiters)
        EXPECT_EQ(waiter.join(), 0);
}

TEST_F(SemaphoreSets, WithoutDescriptorsAttachingFailsCleanlyAndWorksLater) {
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    for (rlim_t spare = 0; spare < 4; ++spare) {
        const size_t descriptors = openDescriptors();
        const rlimit tight = {static_cast<rlim_t>(fd) + 1 + spare, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
        uint32_t handle = 0;
        tavOSWSemAnnounce(path.c_str(), fd);
        const int32_t result = tavOSWCreateMutexSem(&handle, 0, 1);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
        EXPECT_EQ(result, spare == 0 ? code(EMFILE) : 0);
        EXPECT_TRUE(result == 0 || openDescriptors() == descriptors) << spare;
    }
    close(fd);
    EXPECT_TRUE(works(attach(path), path));
}

}  // namespace
}  // namespace tavdb::test
