// SPDX-License-Identifier: Apache-2.0
// Memory media as their callers see them: descriptors, bounds, errors, and what
// an access costs.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <iterator>

#include "media_test_support.h"

namespace {

using MemoryMedia = MediaTest;

TEST_F(MemoryMedia, WrittenBytesAreInTheFileAtOnce) {
    writeFile("a.med", "0123456789");
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(writeMedium(memoryMedium, fd, "xyz", 4), success(3));
    EXPECT_EQ(readFile("a.med"), "0123xyz789");
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "0123xyz789");
    EXPECT_EQ(closeMedium(memoryMedium, fd), success(0));
}

TEST_F(MemoryMedia, EveryLengthIsCopiedExactly) {
    std::string content;
    for (int i = 0; i < 400; i++)
        content += static_cast<char>('A' + i % 23);
    writeFile("a.med", content);
    const int32_t fd = mapped("a.med");
    for (uint32_t length = 1; length <= 150; length++)
        for (const uint32_t offset : {0U, 1U, 7U, 100U}) {
            ASSERT_EQ(bytesOf(memoryMedium, fd, static_cast<int32_t>(length), offset), content.substr(offset, length));
            const std::string bytes(length, static_cast<char>('a' + length % 26));
            ASSERT_EQ(writeMedium(memoryMedium, fd, bytes, offset), success(static_cast<int32_t>(length)));
            content.replace(offset, length, bytes);
            ASSERT_EQ(readFile("a.med"), content) << "length " << length << " at " << offset;
        }
}

TEST_F(MemoryMedia, BytesWrittenToTheFileAreReadAtOnce) {
    writeFile("a.med", "0123456789");
    const int32_t fd = mapped("a.med");
    const int32_t file = openMedium(fileMedium, "a.med").result;
    EXPECT_EQ(writeMedium(fileMedium, file, "xyz", 4), success(3));
    EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "0123xyz789");
    EXPECT_EQ(closeMedium(fileMedium, file), success(0));
}

TEST_F(MemoryMedia, DescriptorBelongsToTheTextOfTheHint) {
    writeFile("a.med", "A");
    writeFile("b.med", "B");
    const std::string a = "a.med";
    const std::string sameText = "a.med";
    EXPECT_EQ(mapped(a), mapped(sameText));
    EXPECT_NE(mapped(a), mapped("b.med"));
    char reused[] = "a.med";
    uint32_t err = 0;
    EXPECT_EQ(tavdbMemOpen(reused, 0, &err), mapped(a));
    reused[0] = 'b';
    EXPECT_EQ(tavdbMemOpen(reused, 0, &err), mapped("b.med")) << "an address with another text behind it";
    EXPECT_EQ(bytesOf(memoryMedium, tavdbMemOpen(reused, 0, &err), 1, 0), "B");
}

/// A page in front of one that cannot be read.
class LastPage {
public:
    LastPage() : bytes_(static_cast<char *>(mmap(nullptr, 2 * size_, PROT_READ | PROT_WRITE, kPrivate, -1, 0))) {
        EXPECT_NE(bytes_, MAP_FAILED);
        EXPECT_EQ(mprotect(bytes_ + size_, size_, PROT_NONE), 0);
        memset(bytes_, '#', size_);
    }
    ~LastPage() {
        munmap(bytes_, 2 * size_);
    }
    LastPage(const LastPage &) = delete;
    LastPage &operator=(const LastPage &) = delete;
    /// A text so many bytes in front of the page's end, with '#' behind it.
    const char *place(const std::string &text, size_t spare) {
        memset(bytes_, '#', size_);
        char *const start = bytes_ + size_ - spare - text.size() - 1;
        return static_cast<char *>(memcpy(start, text.c_str(), text.size() + 1));
    }

private:
    static constexpr int kPrivate = MAP_PRIVATE | MAP_ANONYMOUS;
    size_t size_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    char *bytes_;
};

TEST_F(MemoryMedia, HintsOfEveryLengthAndPlaceAreToldApart) {
    LastPage page;
    uint32_t err = 0;
    for (size_t length = 1; length <= 20; length++) {
        const std::string name(length, 'n');
        writeFile(name, "x");
        const int32_t fd = mapped(name);
        for (size_t spare = 0; spare < 16; spare++) {
            EXPECT_EQ(tavdbMemOpen(page.place(name, spare), 0, &err), fd) << name << " + " << spare;
            EXPECT_EQ(tavdbMemOpen(page.place(name, spare), 0, &err), fd) << "once more: " << name << " + " << spare;
            for (size_t i = 0; i < length; i++) {
                std::string other = name;
                other[i] = 'o';
                EXPECT_EQ(tavdbMemOpen(page.place(other, spare), 0, &err), -1) << other << " + " << spare;
            }
            const std::string longer = name + "n";
            EXPECT_EQ(tavdbMemOpen(page.place(longer, spare), 0, &err), -1) << longer << " + " << spare;
        }
    }
}

TEST_F(MemoryMedia, DescriptorsStartAtZeroAfterEachInit) {
    writeFile("a.med", "A");
    EXPECT_EQ(mapped("a.med"), 0);
    initialise();
    EXPECT_EQ(closeMedium(memoryMedium, 0), failure(EBADF));
    EXPECT_EQ(mapped("a.med"), 0);
}

constexpr int kNoFilter = 78;

/// From now on the kernel kills the process at any system call but exit_group. @return false: it cannot do that
bool allowNoSystemCalls() {
    sock_filter instructions[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_exit_group},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_KILL_PROCESS},
    };
    const sock_fprog program = {static_cast<unsigned short>(std::size(instructions)), instructions};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

/// Ends the process past everything that runs at an exit, so the result is never seen.
int leave(int status) {
    return static_cast<int>(syscall(SYS_exit_group, status));
}

TEST_F(MemoryMedia, OpenReadWriteCloseMakeNoSystemCall) {
    writeFile("a.med", std::string(1000, 'a'));
    writeFile("b.med", std::string(1000, 'b'));
    const int result = inChild([] {
        const std::string copy = "b.med";
        uint32_t err = 0;
        char record[28] = "record";
        int32_t fd = tavdbMemOpen("a.med", 0, &err);
        tavdbMemWrite(fd, record, sizeof record, 0, &err);
        fd = tavdbMemOpen("b.med", 0, &err);
        tavdbMemWrite(fd, record, sizeof record, 0, &err);
        if (!allowNoSystemCalls())
            return kNoFilter;
        bool isGood = true;
        for (uint32_t i = 0; i < 1000; i++) {
            const char *const hint = i % 3 == 0 ? "a.med" : i % 3 == 1 ? "b.med" : copy.c_str();
            fd = tavdbMemOpen(hint, 0, &err);
            isGood = isGood && tavdbMemWrite(fd, record, sizeof record, i % 972, &err) == sizeof record;
            isGood = isGood && tavdbMemRead(fd, record, sizeof record, i % 972, &err) == sizeof record;
            isGood = isGood && tavdbMemSeek(fd, 5, SEEK_SET, &err) == 5 && tavdbMemClose(fd, &err) == 0;
        }
        return leave(isGood ? 0 : 1);
    });
    if (result == kNoFilter)
        GTEST_SKIP() << "the kernel has no filter of system calls";
    EXPECT_EQ(result, 0);
}

TEST_F(MemoryMedia, FilterDoesCatchASystemCall) {
    writeFile("a.med", "A");
    const int result = inChild([] {
        const int32_t fd = mapped("a.med");
        uint32_t err = 0;
        if (!allowNoSystemCalls())
            return kNoFilter;
        tavdbMemSeek(fd, 0, SEEK_END, &err);
        return leave(0);
    });
    if (result == kNoFilter)
        GTEST_SKIP() << "the kernel has no filter of system calls";
    EXPECT_EQ(result, kChildKilled + SIGSYS);
}

TEST_F(MemoryMedia, TransferOfNoBytesDoesNothing) {
    writeFile("a.med", "0123");
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(writeMedium(memoryMedium, fd, "", 100), success(0));
    EXPECT_EQ(tavdbMemRead(fd, nullptr, 0, 0, nullptr), 0);
    EXPECT_EQ(tavdbMemWrite(fd, nullptr, 0, 0, nullptr), 0);
    EXPECT_EQ(readFile("a.med"), "0123");
}

TEST_F(MemoryMedia, NegativeLengthIsRefused) {
    writeFile("a.med", "0123");
    const int32_t fd = mapped("a.med");
    char bytes[4] = {'x', 'x', 'x', 'x'};
    for (const int32_t length : {-1, INT32_MIN}) {
        uint32_t err = 0;
        EXPECT_EQ(tavdbMemRead(fd, bytes, length, 0, &err), -1);
        EXPECT_EQ(err, static_cast<uint32_t>(EINVAL));
        err = 0;
        EXPECT_EQ(tavdbMemWrite(fd, bytes, length, 0, &err), -1);
        EXPECT_EQ(err, static_cast<uint32_t>(EINVAL));
    }
    EXPECT_EQ(readFile("a.med"), "0123");
}

TEST_F(MemoryMedia, NullBufferIsRefused) {
    writeFile("a.med", "0123");
    const int32_t fd = mapped("a.med");
    uint32_t err = 0;
    EXPECT_EQ(tavdbMemRead(fd, nullptr, 1, 0, &err), -1);
    EXPECT_EQ(err, static_cast<uint32_t>(EFAULT));
    err = 0;
    EXPECT_EQ(tavdbMemWrite(fd, nullptr, 1, 0, &err), -1);
    EXPECT_EQ(err, static_cast<uint32_t>(EFAULT));
}

TEST_F(MemoryMedia, UnknownDescriptorIsRefusedEverywhere) {
    writeFile("a.med", "0123");
    mapped("a.med");
    std::string bytes;
    uint32_t err = 0;
    for (const int32_t fd : {-1, 1, 127, 128, 1000000, INT32_MIN}) {
        EXPECT_EQ(closeMedium(memoryMedium, fd), failure(EBADF));
        EXPECT_EQ(readMedium(memoryMedium, fd, 1, 0, &bytes), failure(EBADF));
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 0), failure(EBADF));
        EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_END), failure(EBADF));
        EXPECT_EQ(tavdbMemSync1(fd, &err, 0), -1);
        EXPECT_EQ(err, static_cast<uint32_t>(EBADF));
    }
}

TEST_F(MemoryMedia, ErrorWordMayBeNull) {
    EXPECT_EQ(tavdbMemOpen("none.med", 0, nullptr), -1);
    EXPECT_EQ(tavdbMemOpen(nullptr, 0, nullptr), -1);
    EXPECT_EQ(tavdbMemClose(5, nullptr), -1);
    EXPECT_EQ(tavdbMemRead(5, nullptr, 1, 0, nullptr), -1);
    EXPECT_EQ(tavdbMemWrite(5, nullptr, 1, 0, nullptr), -1);
    EXPECT_EQ(tavdbMemSeek(5, 0, SEEK_SET, nullptr), -1);
    EXPECT_EQ(tavdbMemSync60(5, nullptr, 0), -1);
}

TEST_F(MemoryMedia, SeekToTheEndGivesTheTrueSize) {
    writeFile("a.med", "0123456789");
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_END), success(10));
    EXPECT_EQ(seekMedium(memoryMedium, fd, -4, SEEK_END), success(6));
    EXPECT_EQ(seekMedium(memoryMedium, fd, 7, SEEK_END), success(17));
    EXPECT_EQ(seekMedium(memoryMedium, fd, -11, SEEK_END), failure(EINVAL));
    EXPECT_EQ(seekMedium(memoryMedium, fd, INT32_MAX, SEEK_END), failure(EOVERFLOW));
    std::filesystem::resize_file(pathOf("a.med"), 5000);
    EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_END), success(5000));
}

TEST_F(MemoryMedia, SeekElsewhereHasNoPositionToMove) {
    writeFile("a.med", "0123456789");
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(seekMedium(memoryMedium, fd, 3, SEEK_SET), success(3));
    EXPECT_EQ(seekMedium(memoryMedium, fd, INT32_MAX, SEEK_SET), success(INT32_MAX));
    EXPECT_EQ(seekMedium(memoryMedium, fd, -1, SEEK_SET), failure(EINVAL));
    EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_CUR), failure(EINVAL));
    EXPECT_EQ(seekMedium(memoryMedium, fd, 0, 99), failure(EINVAL));
}

TEST_F(MemoryMedia, OnlyRegularFilesAreMapped) {
    std::filesystem::create_directory(pathOf("folder"));
    ASSERT_EQ(mkfifo(pathOf("fifo").c_str(), 0600), 0);
    const int before = openDescriptors();
    EXPECT_EQ(openMedium(memoryMedium, "folder"), failure(EISDIR));
    EXPECT_EQ(openMedium(memoryMedium, "fifo"), failure(ENODEV));
    EXPECT_EQ(openMedium(memoryMedium, "/dev/zero"), failure(ENODEV));
    EXPECT_EQ(openMedium(memoryMedium, "none.med"), failure(ENOENT));
    EXPECT_EQ(openMedium(memoryMedium, ""), failure(ENOENT));
    EXPECT_EQ(openMedium(memoryMedium, std::string(PATH_MAX, 'x')), failure(ENAMETOOLONG));
    uint32_t err = 0;
    EXPECT_EQ(tavdbMemOpen(nullptr, 0, &err), -1);
    EXPECT_EQ(err, static_cast<uint32_t>(EFAULT));
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(std::filesystem::exists(pathOf("none.med"))) << "nothing is created";
}

TEST_F(MemoryMedia, FileThatAppearsLaterIsFoundLater) {
    EXPECT_EQ(openMedium(memoryMedium, "late.med"), failure(ENOENT));
    writeFile("late.med", "late");
    EXPECT_EQ(bytesOf(memoryMedium, mapped("late.med"), 4, 0), "late");
}

TEST_F(MemoryMedia, NoMoreThan128Media) {
    for (int i = 0; i < 129; i++)
        writeFile(std::to_string(i), std::to_string(i));
    for (int i = 0; i < 128; i++)
        EXPECT_EQ(mapped(std::to_string(i)), i);
    EXPECT_EQ(openMedium(memoryMedium, "128"), failure(EMFILE));
    for (int i = 0; i < 128; i++) {
        EXPECT_EQ(mapped(std::to_string(i)), i);
        EXPECT_EQ(bytesOf(memoryMedium, i, 5, 0), std::to_string(i));
    }
}

TEST_F(MemoryMedia, WithoutMemoryOpeningFailsAndLosesNothing) {
    writeFile("a.med", "0123");
    const int descriptors = openDescriptors();
    failAllocationAfter(0);
    EXPECT_EQ(openMedium(memoryMedium, "a.med"), failure(ENOMEM));
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(mappingsOf(folder()), 0);
    EXPECT_EQ(bytesOf(memoryMedium, mapped("a.med"), 4, 0), "0123");
}

TEST_F(MemoryMedia, ImageThatMayOnlyBeReadIsReadAndRefusesWrites) {
    writeFile("a.med", "0123456789");
    ASSERT_EQ(chmod(folder().c_str(), 0755), 0);
    ASSERT_EQ(chmod(pathOf("a.med").c_str(), 0444), 0);
    const int result = inChild([&] {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            return kNotPermitted;
        const int32_t fd = mapped("a.med");
        EXPECT_EQ(bytesOf(memoryMedium, fd, 10, 0), "0123456789");
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 0), failure(EACCES));
        EXPECT_EQ(writeMedium(memoryMedium, fd, "x", 10), failure(EACCES));
        EXPECT_EQ(seekMedium(memoryMedium, fd, 0, SEEK_END), success(10));
        uint32_t err = 0;
        EXPECT_EQ(tavdbMemSync1(fd, &err, 0), 0);
        return kChildDone;
    });
    EXPECT_EQ(result, kChildDone);
    EXPECT_EQ(readFile("a.med"), "0123456789");
}

TEST_F(MemoryMedia, ImageThatMayNotBeReadIsRefused) {
    writeFile("a.med", "0123456789");
    ASSERT_EQ(chmod(folder().c_str(), 0755), 0);
    ASSERT_EQ(chmod(pathOf("a.med").c_str(), 0200), 0);
    const int result = inChild([&] {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            return kNotPermitted;
        EXPECT_EQ(openMedium(memoryMedium, "a.med"), failure(EACCES));
        return kChildDone;
    });
    EXPECT_EQ(result, kChildDone);
}

TEST_F(MemoryMedia, ChildSharesTheInheritedMapping) {
    writeFile("a.med", "0123456789");
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(inChild([&] {
                  EXPECT_EQ(writeMedium(memoryMedium, fd, "child", 0), success(5));
                  EXPECT_EQ(writeMedium(memoryMedium, fd, "longer", 10), success(6));
                  return kChildDone;
              }),
              kChildDone);
    EXPECT_EQ(bytesOf(memoryMedium, fd, 16, 0), "child56789longer");
}

TEST_F(MemoryMedia, SameImageIsAFileMediumInAnotherProcess) {
    writeFile("a.med", "0123456789");
    const int32_t fd = mapped("a.med");
    EXPECT_EQ(inChild([&] {
                  const int32_t file = openMedium(fileMedium, "a.med").result;
                  EXPECT_EQ(writeMedium(fileMedium, file, "file", 0), success(4));
                  EXPECT_EQ(writeMedium(fileMedium, file, "grown", 10), success(5));
                  return kChildDone;
              }),
              kChildDone);
    EXPECT_EQ(bytesOf(memoryMedium, fd, 100, 0), "file456789grown");
    EXPECT_EQ(writeMedium(memoryMedium, fd, "more", 15), success(4));
    EXPECT_EQ(inChild([&] {
                  const int32_t file = openMedium(fileMedium, "a.med").result;
                  EXPECT_EQ(bytesOf(fileMedium, file, 100, 0), "file456789grownmore");
                  return kChildDone;
              }),
              kChildDone);
}

}  // namespace
