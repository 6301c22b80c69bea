// SPDX-License-Identifier: Apache-2.0
// What the semaphore tests share: temporary folders, tables, child processes
// and memory that outlives a fork. Children report by their exit status; they
// must not use the test framework's checks.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

#include "tavdb_platform.h"

namespace tavdb::test {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

inline int32_t code(int error) {
    return 0x1000 | error;
}

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

inline std::string contentOf(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
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
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // no child outlives a test that is cut off
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

inline bool isRoot() {
    return geteuid() == 0;
}

/// In a child: becomes a user without rights. @return whether it is one now
inline bool becomeNobody() {
    constexpr uid_t kNobody = 65534;
    return !isRoot() || (setegid(kNobody) == 0 && seteuid(kNobody) == 0);
}

inline size_t entriesOf(const char *folder) {
    size_t entries = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(folder))
        ++entries;
    return entries;
}

inline size_t openDescriptors() {
    return entriesOf("/proc/self/fd");
}

/// Mappings of this process: all of them, and those of files of these tests.
struct Mappings {
    size_t all = 0;
    size_t ofTests = 0;
    bool operator==(const Mappings &) const = default;
};

inline Mappings mappings() {
    Mappings found;
    std::ifstream file("/proc/self/maps");
    for (std::string line; std::getline(file, line);) {
        found.ofTests += line.find("tavosw") != std::string::npos ? 1U : 0U;
#if !defined(__SANITIZE_ADDRESS__)  // which maps memory of its own as it goes
        ++found.all;
#endif
    }
    return found;
}

/// What must not grow by using semaphores again and again.
struct Footprint {
    size_t descriptors = openDescriptors();
    Mappings maps = mappings();
    bool operator==(const Footprint &) const = default;
};

}  // namespace tavdb::test
