// SPDX-License-Identifier: Apache-2.0
#include "multiprocess/traced_calls.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>

namespace tavdb_test {

namespace {

constexpr int kPrepareFailed = 2;
constexpr int kMeasuredFailed = 3;
constexpr int kNoTrace = 4;
/// A call that nothing here makes: it stands before and behind what is measured.
constexpr long kMark = SYS_getpgid;
constexpr int kSystemCallStop = SIGTRAP | 0x80;

std::string nameOf(uint64_t number) {
    switch (number) {
        case SYS_openat:
            return "openat";
        case SYS_pread64:
            return "pread";
        case SYS_pwrite64:
            return "pwrite";
        case SYS_close:
            return "close";
        default:
            return "number " + std::to_string(number);
    }
}

int runTraced(const std::function<bool()> &prepare, const std::function<bool()> &measured) {
    if (!prepare())
        return kPrepareFailed;
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        return kNoTrace;
    raise(SIGSTOP);
    syscall(kMark, 0);
    const bool isDone = measured();
    syscall(kMark, 0);
    return isDone ? 0 : kMeasuredFailed;
}

/// Collects what is called between the two marks, while the child runs to its end. @return its wait status
int collect(pid_t child, std::vector<std::string> &calls) {
    int status = 0;
    int marks = 0;
    for (int signal = 0; ptrace(PTRACE_SYSCALL, child, nullptr, signal) == 0;) {
        if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status))
            break;
        signal = WSTOPSIG(status) == kSystemCallStop ? 0 : WSTOPSIG(status);
        __ptrace_syscall_info info = {};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) <= 0 || info.op != PTRACE_SYSCALL_INFO_ENTRY)
            continue;
        if (info.entry.nr == kMark)
            ++marks;
        else if (marks == 1)
            calls.push_back(nameOf(info.entry.nr));
    }
    return status;
}

const char *reasonOf(int status) {
    if (!WIFEXITED(status))
        return "the child was ended by a signal";
    switch (WEXITSTATUS(status)) {
        case 0:
            return nullptr;
        case kNoTrace:
            return "processes cannot be traced here";
        default:
            return WEXITSTATUS(status) == kMeasuredFailed ? "what is measured failed" : "the preparation failed";
    }
}

}  // namespace

std::optional<std::vector<std::string>> systemCallsOf(const std::function<bool()> &prepare,
                                                      const std::function<bool()> &measured, std::string &why) {
    const pid_t child = fork();
    if (child == 0)
        _exit(runTraced(prepare, measured));
    int status = 0;
    std::vector<std::string> calls;
    waitpid(child, &status, WUNTRACED);
    if (WIFSTOPPED(status)) {
        ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
        status = collect(child, calls);
    }
    if (const char *const reason = reasonOf(status)) {
        why = reason;
        return std::nullopt;
    }
    return calls;
}

}  // namespace tavdb_test
