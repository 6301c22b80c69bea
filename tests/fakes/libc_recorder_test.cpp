// SPDX-License-Identifier: Apache-2.0
#include "fakes/libc_recorder.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "fakes/fakes_test.h"
#include "fakes/fault_plan.h"
#include "fakes/home_folder.h"
#include "fakes/open_resources.h"
#include "fakes/test_surroundings.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LibcRecorderTest : public FakesTest {
protected:
    LibcRecorderTest() {
        setHomeFolder(folder_.path());
    }
    ~LibcRecorderTest() override {
        setHomeFolder("");
    }

    std::string file(const char *name) const {
        return folder_.file(name);
    }
    int openTable(int flags = O_RDWR | O_CREAT) const {
        return open(file("a.tbl").c_str(), flags, 0664);
    }

    TestFolder folder_;
};

TEST_F(LibcRecorderTest, CallsOutsideARecordingAreNotLogged) {
    const int fd = openTable();
    ASSERT_GE(fd, 0);
    EXPECT_EQ(write(fd, "x", 1), 1);
    EXPECT_EQ(close(fd), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

TEST_F(LibcRecorderTest, ATableIsMadeStepByStep) {
    const Recording recording;
    const int fd = openTable();
    EXPECT_EQ(flock(fd, LOCK_EX), 0);
    struct stat status {};
    EXPECT_EQ(fstat(fd, &status), 0);
    EXPECT_EQ(posix_fallocate(fd, 0, 4096), 0);
    EXPECT_EQ(write(fd, "abcd", 4), 4);
    void *const table = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ASSERT_NE(table, MAP_FAILED);
    EXPECT_EQ(flock(fd, LOCK_UN), 0);
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(static_cast<const char *>(table)[2], 'c');
    EXPECT_EQ(munmap(table, 4096), 0);
    EXPECT_THAT(eventLog().lines(Category::libc),
                ElementsAre("sys.open a.tbl O_RDWR|O_CREAT 0664", "sys.flock a.tbl exclusive", "sys.fstat a.tbl",
                            "sys.fallocate a.tbl 4096@0", "sys.write a.tbl 4", "sys.mmap a.tbl 4096",
                            "sys.flock a.tbl unlock", "sys.close a.tbl", "sys.munmap a.tbl 4096"));
}

TEST_F(LibcRecorderTest, SixtyFourBitVariantsAreTheSameCalls) {
    const Recording recording;
    const int fd = open64(file("a.tbl").c_str(), O_RDWR | O_CREAT | O_SYNC | O_CLOEXEC, 0600);
    char buffer[4];
    EXPECT_EQ(pwrite64(fd, "abcd", 4, 2), 4);
    EXPECT_EQ(pread64(fd, buffer, 4, 2), 4);
    EXPECT_EQ(lseek64(fd, 0, SEEK_END), 6);
    EXPECT_EQ(posix_fallocate64(fd, 0, 6), 0);
    struct stat64 status {};
    EXPECT_EQ(fstat64(fd, &status), 0);
    EXPECT_EQ(status.st_size, 6);
    void *const table = mmap64(nullptr, 6, PROT_READ, MAP_SHARED, fd, 0);
    EXPECT_EQ(munmap(table, 6), 0);
    EXPECT_EQ(close(fd), 0);
    FILE *const stream = fopen64(file("a.tbl").c_str(), "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fclose(stream), 0);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("sys.open a.tbl O_RDWR|O_CREAT|O_SYNC|O_CLOEXEC 0600", "sys.pwrite a.tbl 4@2",
                            "sys.pread a.tbl 4@2", "sys.lseek a.tbl 0 end", "sys.fallocate a.tbl 6@0",
                            "sys.fstat a.tbl", "sys.mmap a.tbl 6", "sys.munmap a.tbl 6", "sys.close a.tbl",
                            "sys.fopen a.tbl r", "sys.fclose a.tbl"));
}

TEST_F(LibcRecorderTest, OpenInAFolderAndSync) {
    const Recording recording;
    const int fd = openat(AT_FDCWD, file("a.tbl").c_str(), O_WRONLY | O_CREAT, 0600);
    EXPECT_EQ(pwrite(fd, "ab", 2, 0), 2);
    EXPECT_EQ(lseek(fd, 1, SEEK_SET), 1);
    EXPECT_EQ(fsync(fd), 0);
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(openat64(AT_FDCWD, file("none").c_str(), O_RDONLY), -1);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("sys.open a.tbl O_WRONLY|O_CREAT 0600", "sys.pwrite a.tbl 2@0", "sys.lseek a.tbl 1 set",
                            "sys.fsync a.tbl", "sys.close a.tbl", "sys.open none O_RDONLY -> -1 ENOENT"));
}

TEST_F(LibcRecorderTest, NaturalFailuresKeepTheirErrno) {
    const Recording recording;
    errno = 0;
    EXPECT_EQ(open(file("none").c_str(), O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(fopen(file("none").c_str(), "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(dlopen(file("none.so").c_str(), RTLD_NOW), nullptr);
    EXPECT_NE(dlerror(), nullptr);
    EXPECT_THAT(eventLog().lines(), ElementsAre("sys.open none O_RDWR -> -1 ENOENT", "sys.fopen none r -> 0 ENOENT",
                                                "sys.dlopen none.so -> 0"));
}

TEST_F(LibcRecorderTest, SuccessLeavesErrnoAlone) {
    const Recording recording;
    errno = EXDEV;
    close(openTable());
    EXPECT_EQ(errno, EXDEV);
}

TEST_F(LibcRecorderTest, ThePlanFailsOpening) {
    faultPlan().add({.operation = Operation::sysOpen, .subject = "a.tbl", .fault = returning(-1, EMFILE)});
    faultPlan().add({.operation = Operation::sysFopen});
    faultPlan().add({.operation = Operation::sysDlopen});
    const Recording recording;
    EXPECT_EQ(openTable(), -1);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(access(file("a.tbl").c_str(), F_OK), -1) << "the file was made all the same";
    EXPECT_EQ(fopen(file("a.tbl").c_str(), "w"), nullptr);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(dlopen(nullptr, RTLD_NOW), nullptr);
}

TEST_F(LibcRecorderTest, ThePlanCutsTransfers) {
    faultPlan().add({.operation = Operation::sysWrite, .fault = shortBy(1)});
    faultPlan().add({.operation = Operation::sysPwrite, .fault = returning(-1, EIO)});
    faultPlan().add({.operation = Operation::sysRead, .fault = moreBy(5)});
    const Recording recording;
    const int fd = openTable();
    char buffer[4] = {};
    EXPECT_EQ(write(fd, "abcd", 4), 3);
    EXPECT_EQ(pwrite(fd, "xyz", 3, 0), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(pread(fd, buffer, 3, 0), 8);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(close(fd), 0);
    EXPECT_THAT(eventLog().lines(),
                ElementsAre("sys.open a.tbl O_RDWR|O_CREAT 0664", "sys.write a.tbl 4 -> 3",
                            "sys.pwrite a.tbl 3@0 -> -1 EIO", "sys.pread a.tbl 3@0 -> 8", "sys.close a.tbl"));
}

TEST_F(LibcRecorderTest, ThePlanFailsTheRest) {
    for (const Operation operation : {Operation::sysFlock, Operation::sysStat, Operation::sysAllocate,
                                      Operation::sysSeek, Operation::sysSync, Operation::sysMmap})
        faultPlan().add({.operation = operation});
    const Recording recording;
    const int fd = openTable();
    struct stat status {};
    EXPECT_EQ(flock(fd, LOCK_EX), -1);
    EXPECT_EQ(fstat(fd, &status), -1);
    EXPECT_EQ(posix_fallocate(fd, 0, 8), ENOSPC);
    EXPECT_EQ(lseek(fd, 0, SEEK_END), -1);
    EXPECT_EQ(fsync(fd), -1);
    EXPECT_EQ(mmap(nullptr, 8, PROT_READ, MAP_SHARED, fd, 0), MAP_FAILED);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(lseek(fd, 0, SEEK_END), 0) << "the file was changed all the same";
    EXPECT_EQ(close(fd), 0);
}

TEST_F(LibcRecorderTest, AFailedCloseHasClosed) {
    faultPlan().add({.operation = Operation::sysClose});
    faultPlan().add({.operation = Operation::sysFclose});
    const OpenResources before = OpenResources::now();
    {
        const Recording recording;
        EXPECT_EQ(close(openTable()), -1);
        EXPECT_EQ(errno, EIO);
        EXPECT_EQ(fclose(fopen(file("a.tbl").c_str(), "r")), -1);
    }
    EXPECT_THAT(OpenResources::now().newSince(before), IsEmpty());
}

TEST_F(LibcRecorderTest, ARefusedUnmapKeepsTheMappingUntilTheEnd) {
    faultPlan().add({.operation = Operation::sysMunmap});
    const OpenResources before = OpenResources::now();
    {
        const Recording recording;
        const int fd = openTable();
        EXPECT_EQ(posix_fallocate(fd, 0, 4096), 0);
        void *const table = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0);
        close(fd);
        EXPECT_EQ(munmap(table, 4096), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_THAT(OpenResources::now().newSince(before), ElementsAre("mapping: " + file("a.tbl")));
    LibcRecorder::instance().releaseRefusedMappings();
    EXPECT_THAT(OpenResources::now().newSince(before), IsEmpty());
}

TEST_F(LibcRecorderTest, ClosingTwiceFailsTheTest) {
    const Recording recording;
    const int fd = openTable();
    close(fd);
    EXPECT_NONFATAL_FAILURE(close(fd), "which is not open");
}

TEST_F(LibcRecorderTest, UnmappingAnotherLengthFailsTheTest) {
    const Recording recording;
    const int fd = openTable();
    EXPECT_EQ(posix_fallocate(fd, 0, 8192), 0);
    void *const table = mmap(nullptr, 8192, PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    EXPECT_NONFATAL_FAILURE(munmap(table, 4096), "of a mapping of 8192 bytes");
    EXPECT_EQ(munmap(static_cast<char *>(table) + 4096, 4096), 0);
}

TEST_F(LibcRecorderTest, ClosedDescriptorsAreForgottenOutsideARecording) {
    int fd = -1;
    {
        const Recording recording;
        fd = openTable();
    }
    close(fd);
    eventLog().clear();
    const int again = openTable();  // the same number, of a file that nobody recorded
    EXPECT_EQ(again, fd);
    const Recording recording;
    EXPECT_EQ(write(again, "x", 1), 1);
    EXPECT_EQ(close(again), 0);
    EXPECT_THAT(eventLog().lines(), IsEmpty());
}

TEST_F(LibcRecorderTest, LibrariesAreLoggedByPath) {
    const Recording recording;
    void *const program = dlopen(nullptr, RTLD_NOW);
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(dlclose(program), 0);
    EXPECT_THAT(eventLog().lines(), ElementsAre("sys.dlopen (null)", "sys.dlclose (null)"));
}

TEST_F(LibcRecorderTest, OpenResourcesSeesDescriptorsAndMappings) {
    const OpenResources before = OpenResources::now();
    const int fd = openTable();
    ASSERT_EQ(posix_fallocate(fd, 0, 4096), 0);
    void *const table = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0);
    EXPECT_THAT(OpenResources::now().newSince(before),
                ElementsAre("descriptor " + std::to_string(fd) + ": " + file("a.tbl"), "mapping: " + file("a.tbl")));
    munmap(table, 4096);
    close(fd);
    EXPECT_THAT(OpenResources::now().newSince(before), IsEmpty());
}

}  // namespace
}  // namespace tavdb_test
