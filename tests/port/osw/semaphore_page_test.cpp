// SPDX-License-Identifier: Apache-2.0
// The page beside the table: its form, what happens when something else is in
// its place or it goes away, and life without it.
#include <sched.h>
#include <sys/mount.h>

#include <atomic>
#include <cstring>

#include "port/osw/osw_test_support.h"

namespace tavdb::test {
namespace {

constexpr size_t kPageBytes = 4096;

class SemaphorePages : public ::testing::Test {
protected:
    SemaphorePages() : path(folder / "table"), page(path + ".sem") {
        makeTable(path);
    }
    static bool visit(const Semaphores &set) {
        return set.result == 0 && tavOSWRequestMutexSem(set.mutex, -1) == 0 && tavOSWReleaseMutexSem(set.mutex) == 0;
    }
    /// Whether the mutex excludes another process.
    static bool excludes(const Semaphores &set, const std::string &table) {
        if (set.result != 0 || tavOSWRequestMutexSem(set.mutex, 0) != 0)
            return false;
        const bool excluded =
            Child([&] { return tavOSWRequestMutexSem(attach(table).mutex, 0) == code(EAGAIN); }).join() == 1;
        return tavOSWReleaseMutexSem(set.mutex) == 0 && excluded;
    }
    /// Whether a post of another process reaches this one's page.
    static bool hears(const Semaphores &set, const std::string &table) {
        return visit(set) && tavOSWWaitEventSem(set.event, 20) == code(ETIMEDOUT) &&
               Child([&] { return tavOSWPostEventSem(attach(table).event); }).join() == 0 &&
               tavOSWWaitEventSem(set.event, 20) == 0;
    }
    /// Whether the set works as it has to without a page: exclusion, and waits that return to look again.
    static bool polls(const Semaphores &set, const std::string &table, int reason) {
        if (!excludes(set, table) || !visit(set))
            return false;
        const auto start = Clock::now();
        if (tavOSWWaitEventSem(set.event, 0) != 0 || since(start).count() < 90 || since(start).count() > 1000)
            return false;
        return tavOSWPostEventSem(set.event) == 0 && tavOSWPostCountSem(set.count) == code(reason) &&
               tavOSWWaitCountSem(set.count, 0) == code(reason);
    }
    uint64_t wordAt(size_t offset, size_t size) const {
        const std::string bytes = contentOf(page);
        uint32_t narrow = 0;
        uint64_t wide = 0;
        memcpy(size == sizeof wide ? static_cast<void *>(&wide) : &narrow, bytes.data() + offset, size);
        return size == sizeof wide ? wide : narrow;
    }

    TempFolder folder;
    std::string path;
    std::string page;
};

TEST_F(SemaphorePages, ItIsStampedWithItsTableAndKnowsTheHolder) {
    const Semaphores set = attach(path);
    struct stat table = {};
    ASSERT_EQ(stat(path.c_str(), &table), 0);
    ASSERT_EQ(contentOf(page).size(), kPageBytes);
    EXPECT_EQ(wordAt(8, 8), table.st_dev);
    EXPECT_EQ(wordAt(16, 8), table.st_ino);
    const uint64_t generation = wordAt(24, 4);
    EXPECT_EQ(wordAt(28, 4), 0U);
    EXPECT_EQ(wordAt(32, 4), 0U);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(wordAt(28, 4), static_cast<uint32_t>(getpid()));
    ASSERT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_EQ(wordAt(28, 4), 0U);
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    EXPECT_EQ(wordAt(24, 4), static_cast<uint32_t>(generation + 1));
    EXPECT_EQ(tavOSWPostCountSem(set.count), 0);
    EXPECT_EQ(wordAt(32, 4), 1U);
}

TEST_F(SemaphorePages, ItsSpaceIsAllocated) {
    attach(path);
    struct stat status = {};
    ASSERT_EQ(stat(page.c_str(), &status), 0);
    EXPECT_GE(status.st_blocks * 512, static_cast<blkcnt_t>(kPageBytes));
}

TEST_F(SemaphorePages, ItHasTheRightsOfItsTable) {
    for (const mode_t mode : {0600U, 0640U, 0664U, 0666U}) {
        std::filesystem::remove(page);
        std::filesystem::remove(path);
        makeTable(path);
        chmod(path.c_str(), mode);
        ASSERT_EQ(Child([&] { return attach(path).result; }).join(), 0);
        struct stat status = {};
        ASSERT_EQ(stat(page.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, mode);
    }
}

TEST_F(SemaphorePages, ItHasTheOwnerOfItsTable) {
    if (!isRoot())
        GTEST_SKIP() << "needs to be root";
    ASSERT_EQ(chown(path.c_str(), 1234, 4321), 0);
    attach(path);
    struct stat status = {};
    ASSERT_EQ(stat(page.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 1234U);
    EXPECT_EQ(status.st_gid, 4321U);
}

TEST_F(SemaphorePages, AttachingAgainKeepsIt) {
    ASSERT_EQ(Child([&] { return tavOSWPostCountSem(attach(path).count); }).join(), 0);
    const std::string before = contentOf(page);
    ASSERT_EQ(Child([&] { return attach(path).result; }).join(), 0);
    EXPECT_EQ(contentOf(page), before);
}

TEST_F(SemaphorePages, AnUnfinishedOneIsMadeAnew) {
    for (const size_t size : {size_t{0}, size_t{1}, size_t{40}, kPageBytes - 1, kPageBytes}) {
        makeFile(page, size);
        ASSERT_EQ(Child([&] { return hears(attach(path), path) ? 0 : 1; }).join(), 0) << size;
        EXPECT_EQ(contentOf(page).size(), kPageBytes);
    }
}

TEST_F(SemaphorePages, OneCutShortIsMadeAnew) {
    ASSERT_EQ(Child([&] { return attach(path).result; }).join(), 0);
    std::filesystem::resize_file(page, 100);
    EXPECT_TRUE(hears(attach(path), path));
}

TEST_F(SemaphorePages, OneGrownTooLongIsMadeAnew) {
    ASSERT_EQ(Child([&] { return attach(path).result; }).join(), 0);
    std::filesystem::resize_file(page, 2 * kPageBytes);
    EXPECT_TRUE(hears(attach(path), path));
    EXPECT_EQ(contentOf(page).size(), kPageBytes);
}

TEST_F(SemaphorePages, OneOfADeletedTableIsMadeAnew) {
    ASSERT_EQ(Child([&] { return tavOSWPostCountSem(attach(path).count); }).join(), 0);
    makeTable(folder / "next");
    std::filesystem::rename(folder / "next", path);
    const Semaphores set = attach(path);
    EXPECT_EQ(tavOSWWaitCountSem(set.count, 20), code(ETIMEDOUT)) << "a count of the deleted table";
    EXPECT_TRUE(hears(set, path));
}

TEST_F(SemaphorePages, ItFollowsTheRightsOfItsTable) {
    chmod(path.c_str(), 0600);
    ASSERT_EQ(Child([&] { return attach(path).result; }).join(), 0);
    chmod(path.c_str(), 0660);
    ASSERT_EQ(Child([&] { return attach(path).result; }).join(), 0);
    struct stat status = {};
    ASSERT_EQ(stat(page.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0660U);
}

// A file system may give the number of a deleted inode to the next file.
TEST_F(SemaphorePages, OneOfADeletedTableIsMadeAnewAlsoWhenTheInodeNumberIsTheSame) {
    ASSERT_EQ(Child([&] { return tavOSWPostCountSem(attach(path).count); }).join(), 0);
    struct statx before = {};
    ASSERT_EQ(statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_BTIME, &before), 0);
    if ((before.stx_mask & STATX_BTIME) == 0)
        GTEST_SKIP() << "this file system does not know when a file was made";
    std::this_thread::sleep_for(milliseconds(20));
    std::filesystem::remove(path);
    makeTable(path);
    struct statx after = {};
    ASSERT_EQ(statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_BTIME, &after), 0);
    printf("inode numbers %llu and %llu\n", static_cast<unsigned long long>(before.stx_ino),
           static_cast<unsigned long long>(after.stx_ino));
    EXPECT_EQ(tavOSWWaitCountSem(attach(path).count, 20), code(ETIMEDOUT));
}

TEST_F(SemaphorePages, CutShortItIsReplacedBeforeAWaitOrAPostTouchesIt) {
    for (const bool posts : {true, false})
        EXPECT_EQ(Child([&] {
                      const Semaphores set = attach(path);
                      if (!visit(set))
                          return 1;
                      std::filesystem::resize_file(page, 0);
                      const int32_t result = posts ? tavOSWPostEventSem(set.event) : tavOSWWaitEventSem(set.event, 0);
                      return result == 0 && contentOf(page).size() == kPageBytes ? 0 : 2;
                  }).join(),
                  0)
            << posts;
}

TEST_F(SemaphorePages, ALongerFileOfSomebodyElseIsLeftAlone) {
    makeFile(page, 5000, 'x');
    EXPECT_TRUE(polls(attach(path), path, EEXIST));
    EXPECT_EQ(contentOf(page), std::string(5000, 'x'));
}

TEST_F(SemaphorePages, ASymbolicLinkInItsPlaceIsNotFollowed) {
    makeFile(folder / "victim", kPageBytes, 'v');
    std::filesystem::create_symlink(folder / "victim", page);
    EXPECT_TRUE(polls(attach(path), path, ELOOP));
    EXPECT_EQ(contentOf(folder / "victim"), std::string(kPageBytes, 'v'));
    std::filesystem::remove(page);
    std::filesystem::create_symlink(folder / "nowhere", page);
    EXPECT_TRUE(polls(attach(path), path, ELOOP));
    EXPECT_FALSE(std::filesystem::exists(folder / "nowhere"));
}

TEST_F(SemaphorePages, AFolderInItsPlaceMeansNoPage) {
    std::filesystem::create_directory(page);
    EXPECT_TRUE(polls(attach(path), path, EISDIR));
}

TEST_F(SemaphorePages, APipeInItsPlaceMeansNoPageAndStopsNobody) {
    ASSERT_EQ(mkfifo(page.c_str(), 0666), 0);
    EXPECT_TRUE(polls(attach(path), path, ENOTSUP));
}

TEST_F(SemaphorePages, InAFolderThatCannotBeWrittenTheMutexWorksAndWaitsPoll) {
    chmod(path.c_str(), 0666);
    chmod(folder.path().c_str(), 0555);
    EXPECT_EQ(Child([&] {
                  if (!becomeNobody())
                      return 1;
                  return polls(attach(path), path, EACCES) ? 0 : 2;
              }).join(),
              0);
    chmod(folder.path().c_str(), 0755);
}

TEST_F(SemaphorePages, WithoutAPageADeathStopsNobody) {
    std::filesystem::create_directory(page);
    EXPECT_EQ(Child([&] { return tavOSWRequestMutexSem(attach(path).mutex, -1); }).join(), 0);
    const Semaphores set = attach(path);
    EXPECT_EQ(tavOSWRequestMutexSem(set.mutex, 0), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 0);
}

TEST_F(SemaphorePages, WithoutAPageAShortWaitKeepsItsLimit) {
    std::filesystem::create_directory(page);
    const Semaphores set = attach(path);
    ASSERT_TRUE(visit(set));
    const auto start = Clock::now();
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 20), 0);
    EXPECT_LT(since(start).count(), 90);
}

TEST_F(SemaphorePages, WhoHadNoPageJoinsTheFirstThatIsMade) {
    std::filesystem::create_directory(page);
    const Semaphores set = attach(path);
    ASSERT_TRUE(visit(set));
    std::filesystem::remove(page);
    ASSERT_EQ(Child([&] { return attach(path).result; }).join(), 0);
    EXPECT_TRUE(hears(set, path));
}

TEST_F(SemaphorePages, OnAFullMediumTheMutexWorksAndWaitsPoll) {
    const int result = Child([&] {
                           if (unshare(CLONE_NEWNS) != 0)
                               return 10;
                           if (mount("none", folder.path().c_str(), "tmpfs", 0, "size=64k") != 0)
                               return 10;
                           makeTable(path);
                           makeFile(folder / "filler", 100000, 'x');
                           if (!polls(attach(path), path, ENOSPC))
                               return 1;
                           return std::filesystem::exists(page) ? 2 : 0;
                       }).join();
    if (result == 10)
        GTEST_SKIP() << "needs the right to mount";
    EXPECT_EQ(result, 0);
}

TEST_F(SemaphorePages, DeletedBetweenTwoAttachmentsItIsFoundAgainByBoth) {
    Shared<std::atomic<int>> stage;
    Child later([&] {
        while (*stage == 0)
            usleep(1000);
        const Semaphores own = attach(path);
        if (!visit(own))
            return 1;
        *stage = 2;
        return tavOSWWaitEventSem(own.event, 3000) == 0 ? 0 : 2;
    });
    const Semaphores set = attach(path);
    ASSERT_TRUE(visit(set));
    std::filesystem::remove(page);
    *stage = 1;
    ASSERT_TRUE(eventually([&] { return *stage == 2; }));
    EXPECT_EQ(tavOSWPostEventSem(set.event), 0);
    EXPECT_EQ(later.join(), 0) << "the post went to the deleted page";
    EXPECT_TRUE(hears(set, path));
}

TEST_F(SemaphorePages, DeletedUnderASleeperThePostOfALaterProcessStillWakesIt) {
    Shared<std::atomic<int>> stage;
    Child sleeper([&] {
        const Semaphores set = attach(path);
        if (!visit(set))
            return 1;
        *stage = 1;
        return tavOSWWaitEventSem(set.event, 4000) == 0 ? 0 : 2;
    });
    ASSERT_TRUE(eventually([&] { return *stage == 1; }));
    std::this_thread::sleep_for(milliseconds(20));
    std::filesystem::remove(page);
    EXPECT_EQ(Child([&] { return tavOSWPostEventSem(attach(path).event); }).join(), 0);
    EXPECT_EQ(sleeper.join(), 0);
}

TEST_F(SemaphorePages, DeletedUnderAHolderItsDeathIsStillReportedToWhoSharedIt) {
    const Semaphores set = attach(path);
    ASSERT_TRUE(visit(set));
    Child holder([&] {
        const int32_t result = tavOSWRequestMutexSem(set.mutex, -1);
        std::filesystem::remove(page);
        return result;
    });
    EXPECT_EQ(holder.join(), 0);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    EXPECT_TRUE(hears(set, path));
}

TEST_F(SemaphorePages, DeletedUnderAHolderItsDeathIsStillReportedToTheSleeperItWoke) {
    const Semaphores set = attach(path);
    ASSERT_TRUE(visit(set));
    EXPECT_EQ(Child([&] {
                  const int32_t result = tavOSWRequestMutexSem(set.mutex, -1);
                  std::filesystem::remove(page);
                  return result;
              }).join(),
              0);
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 2000), 0);
    EXPECT_TRUE(std::filesystem::exists(page));
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 1);
    EXPECT_EQ(tavOSWReleaseMutexSem(set.mutex), 0);
    ASSERT_EQ(tavOSWRequestMutexSem(set.mutex, -1), 0);
    EXPECT_EQ(tavOSWMutexAbandoned(set.mutex), 0);
}

TEST_F(SemaphorePages, DeletedAgainAndAgainItLeaksNothing) {
    const Semaphores set = attach(path);
    const Footprint before;
    for (int i = 0; i < 300; ++i) {
        std::filesystem::remove(page);
        ASSERT_TRUE(visit(set));
        ASSERT_TRUE(std::filesystem::exists(page));
    }
    EXPECT_TRUE(Footprint() == before);
}

TEST_F(SemaphorePages, WhoStillUsesADeletedTableKeepsItsPageAndLeavesTheNewOneAlone) {
    const Semaphores set = attach(path);
    Shared<std::atomic<int>> stage;
    Child old([&] {
        while (*stage == 0)
            usleep(1000);
        if (!visit(set) || tavOSWPostEventSem(set.event) != 0)
            return 1;
        *stage = 2;
        return 0;
    });
    ASSERT_TRUE(visit(set));
    std::filesystem::remove(path);
    makeTable(path);
    ASSERT_EQ(Child([&] { return tavOSWPostCountSem(attach(path).count) == 0 ? 0 : 1; }).join(), 0)
        << "the child moved to the new table and page";
    const std::string newPage = contentOf(page);
    *stage = 1;
    EXPECT_EQ(tavOSWWaitEventSem(set.event, 4000), 0) << "both still share the old page";
    EXPECT_EQ(old.join(), 0);
    EXPECT_TRUE(visit(set));
    EXPECT_EQ(contentOf(page), newPage);
}

TEST_F(SemaphorePages, CutShortUnderAProcessItIsReplaced) {
    const Semaphores set = attach(path);
    ASSERT_TRUE(visit(set));
    std::filesystem::resize_file(page, 0);
    EXPECT_TRUE(visit(set));
    EXPECT_EQ(contentOf(page).size(), kPageBytes);
    EXPECT_TRUE(hears(set, path));
}

TEST_F(SemaphorePages, ATooLongNameMeansNoPage) {
    const std::string name = folder / std::string(253, 'n');
    makeTable(name);
    EXPECT_TRUE(polls(attach(name), name, ENAMETOOLONG));
}

}  // namespace
}  // namespace tavdb::test
