// SPDX-License-Identifier: Apache-2.0
#include "media_test_support.h"

#include <malloc.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>

namespace {

std::mutex traceMutex;
std::vector<TraceLine> traceLines;
std::atomic<int32_t> allocationsLeft{-1};
std::atomic<int32_t> s_liveBlocks{0};

Outcome outcomeOf(const std::function<int32_t(uint32_t *err)> &call) {
    Outcome outcome = {0, kNoError};
    outcome.result = call(&outcome.error);
    return outcome;
}

}  // namespace

void dbs_me_debug_trace(int32_t level, const char *format, ...) {
    char text[8192];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::scoped_lock lock(traceMutex);
    traceLines.push_back({level, text});
}

void *tavOSWSubAllocMem(uint32_t size) {
    if (allocationsLeft >= 0 && allocationsLeft-- == 0)
        return nullptr;
    s_liveBlocks++;
    return malloc(size != 0 ? size : 1);
}

int32_t tavOSWOrgFreeMemPart(int32_t, void *buffer) {
    s_liveBlocks--;
    // Whoever still uses it gets nonsense, with or without a sanitizer.
    memset(buffer, 0xDD, malloc_usable_size(buffer));
    free(buffer);
    return 0;
}

std::vector<TraceLine> takeTrace() {
    const std::scoped_lock lock(traceMutex);
    return std::exchange(traceLines, {});
}

void failAllocationAfter(int32_t count) {
    allocationsLeft = count;
}

int32_t liveBlocks() {
    return s_liveBlocks;
}

void PrintTo(const Outcome &outcome, std::ostream *stream) {
    *stream << outcome.result << " (error " << outcome.error << ")";
}

Outcome failure(int error) {
    return {-1, static_cast<uint32_t>(error)};
}

Outcome success(int32_t result) {
    return {result, kNoError};
}

const Medium memoryMedium = {tavdbMemOpen, tavdbMemClose, tavdbMemRead, tavdbMemWrite, tavdbMemSeek, tavdbMemSync1};
const Medium fileMedium = {tavdbFileOpenHD, tavdbFileClose, tavdbFileRead,
                           tavdbFileWrite,  tavdbFileSeek,  tavdbFileSync3};
const Medium romMedium = {tavdbFileOpenRom, tavdbFileClose, tavdbFileRead,
                          tavdbFileWrite,   tavdbFileSeek,  tavdbFileSync6};
const Medium messageMedium = {tavdbMsgOpen, tavdbMsgClose, tavdbMsgRead, tavdbMsgWrite, tavdbMsgSeek, tavdbMsgSync};

Outcome openMedium(const Medium &medium, const std::string &hint) {
    return outcomeOf([&](uint32_t *err) { return medium.open(hint.c_str(), 0, err); });
}

Outcome closeMedium(const Medium &medium, int32_t fd) {
    return outcomeOf([&](uint32_t *err) { return medium.close(fd, err); });
}

Outcome writeMedium(const Medium &medium, int32_t fd, const std::string &bytes, uint32_t offset) {
    return outcomeOf(
        [&](uint32_t *err) { return medium.write(fd, bytes.data(), static_cast<int32_t>(bytes.size()), offset, err); });
}

Outcome seekMedium(const Medium &medium, int32_t fd, int32_t offset, int whence) {
    return outcomeOf([&](uint32_t *err) { return medium.seek(fd, offset, whence, err); });
}

Outcome readMedium(const Medium &medium, int32_t fd, int32_t length, uint32_t offset, std::string *bytes) {
    bytes->assign(static_cast<size_t>(std::max(length, 1)), '?');
    const Outcome outcome =
        outcomeOf([&](uint32_t *err) { return medium.read(fd, bytes->data(), length, offset, err); });
    bytes->resize(static_cast<size_t>(std::max(outcome.result, 0)));
    return outcome;
}

std::string bytesOf(const Medium &medium, int32_t fd, int32_t length, uint32_t offset) {
    std::string bytes;
    const Outcome outcome = readMedium(medium, fd, length, offset, &bytes);
    EXPECT_GE(outcome.result, 0) << "error " << outcome.error;
    EXPECT_EQ(outcome.error, kNoError);
    return bytes;
}

MediaTest::MediaTest() {
    faultPlan = {};
    char name[] = "/tmp/media_test_XXXXXX";
    folder_ = mkdtemp(name);
    initialise();
    takeTrace();
}

MediaTest::~MediaTest() {
    faultPlan = {};
    failAllocationAfter(-1);
    EXPECT_EQ(dbs_me_db_media_file_init(nullptr, 0), 0);
    EXPECT_EQ(liveBlocks(), 0) << "everything is given back";
    std::filesystem::remove_all(folder_);
}

void MediaTest::initialise() {
    ASSERT_EQ(dbs_me_db_media_file_init(pathOf("media.conf").c_str(), 0), 0);
}

void MediaTest::writeFile(const std::string &name, const std::string &content) {
    std::ofstream(pathOf(name), std::ios::binary) << content;
}

std::string MediaTest::readFile(const std::string &name) {
    std::ifstream file(pathOf(name), std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

int32_t MediaTest::mapped(const std::string &hint) {
    const Outcome outcome = openMedium(memoryMedium, hint);
    EXPECT_GE(outcome.result, 0) << "error " << outcome.error;
    return outcome.result;
}

int inChild(const std::function<int()> &work) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        const int result = work();
        // A failed expectation of the child counts as its failure.
        _exit(result == 0 && testing::Test::HasFailure() ? 99 : result);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : kChildKilled + WTERMSIG(status);
}

Baton::Baton() {
    EXPECT_EQ(pipe(pipe_), 0);
}

Baton::~Baton() {
    close(pipe_[0]);
    close(pipe_[1]);
}

void Baton::pass() {
    EXPECT_EQ(write(pipe_[1], "", 1), 1);
}

void Baton::await() {
    char byte;
    EXPECT_EQ(read(pipe_[0], &byte, 1), 1);
}

int withFileSystem(const std::string &type, const std::string &options, const std::string &folder,
                   const std::function<int()> &work) {
    return inChild([&] {
        const bool isMounted = unshare(CLONE_NEWNS) == 0 &&
                               mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                               mount("none", folder.c_str(), type.c_str(), 0, options.c_str()) == 0;
        return isMounted ? work() : kNotPermitted;
    });
}

int openDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<int>(std::distance(begin(descriptors), end(descriptors)));
}

int mappingsOf(const std::string &folder) {
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);)
        count += line.find(folder + "/") != std::string::npos;
    return count;
}
