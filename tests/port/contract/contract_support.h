// SPDX-License-Identifier: Apache-2.0
// What the contract tests share: tables in a folder of their own, child processes
// and memory that outlives a fork. Needs POSIX and tavdb_platform.h, no particular
// port. Children report by their exit status; they must not use the test framework's
// checks.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/prctl.h>
#endif

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

#include "tavdb_platform.h"

// A platform may lack these two.
extern "C" {
__attribute__((weak)) void tavOSWSemAnnounce(const char *path, int32_t fd);
__attribute__((weak)) int32_t tavOSWMutexAbandoned(uint32_t handle);
}

namespace tavdb::test {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

inline milliseconds since(Clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

/// Waits for another process or thread to get somewhere. @return whether it did within five seconds
template <typename Condition>
bool eventually(Condition condition) {
    const auto start = Clock::now();
    while (!condition()) {
        if (since(start) > milliseconds(5000))
            return false;
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

class TempFolder {
public:
    TempFolder() {
        std::string pattern = std::filesystem::temp_directory_path() / "tavosw-test-XXXXXX";
        path_ = mkdtemp(pattern.data());
        chmod(path_.c_str(), 0755);
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;

    std::string operator/(const std::string &name) const {
        return path_ + "/" + name;
    }
    const std::string &path() const {
        return path_;
    }

private:
    std::string path_;
};

inline void makeFile(const std::string &path, size_t sizeBytes, char content = '\0') {
    std::ofstream(path, std::ios::binary) << std::string(sizeBytes, content);
}

inline void makeTable(const std::string &path) {
    makeFile(path, 8192);
}

struct Semaphores {
    uint32_t mutex = 0;
    uint32_t count = 0;
    uint32_t event = 0;
    int32_t result = -1;
    bool operator==(const Semaphores &) const = default;
};

inline Semaphores createSemaphores() {
    Semaphores set;
    set.result = tavOSWCreateMutexSem(&set.mutex, 0, 1);
    if (set.result == 0)
        set.result = tavOSWCreateCountSem(&set.count, 0, 0);
    if (set.result == 0)
        set.result = tavOSWCreateEventSem(&set.event, 0, 0);
    return set;
}

/// Attaches to a table the way the library does.
inline Semaphores attach(const std::string &path) {
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (tavOSWSemAnnounce != nullptr)
        tavOSWSemAnnounce(path.c_str(), fd);
    const Semaphores set = createSemaphores();
    if (fd >= 0)
        close(fd);
    return set;
}

/// Memory that a process and its later children share.
template <typename T>
class Shared {
public:
    Shared() {
        void *const memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        value_ = new (memory) T();
    }
    ~Shared() {
        munmap(static_cast<void *>(value_), sizeof(T));
    }
    Shared(const Shared &) = delete;
    Shared &operator=(const Shared &) = delete;

    T *operator->() const {
        return value_;
    }
    T &operator*() const {
        return *value_;
    }

private:
    T *value_;
};

/// A child process that runs a function and exits with its result; killed at the end of the scope.
class Child {
public:
    template <typename Body>
    explicit Child(Body body) : pid_(fork()) {
        if (pid_ != 0)
            return;
#if defined(__linux__)
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // no child outlives a test that is cut off
#endif
        _exit(body());
    }
    Child(Child &&other) noexcept : pid_(std::exchange(other.pid_, 0)) {}
    Child &operator=(Child &&other) noexcept {
        std::swap(pid_, other.pid_);
        return *this;
    }
    ~Child() {
        kill();
    }

    void kill() {
        if (pid_ <= 0)
            return;
        ::kill(pid_, SIGKILL);
        join();
    }
    /// @return the exit status, or 1000 and the signal that ended it
    int join() {
        int status = 0;
        while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        pid_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }
    bool hasEnded() const {
        siginfo_t info = {};
        return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid_;
    }
    pid_t pid() const {
        return pid_;
    }

private:
    pid_t pid_;
};

}  // namespace tavdb::test
