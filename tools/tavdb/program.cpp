// SPDX-License-Identifier: Apache-2.0
#include "program.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace tavdb::command {

namespace {

constexpr std::array kPassedOn = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2, SIGALRM};
/// This command ignores these; a program must not find them ignored.
constexpr std::array kIgnoredHere = {SIGPIPE, SIGXFSZ};

template <typename Numbers>
sigset_t setOf(const Numbers &numbers) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : numbers)
        sigaddset(&signals, number);
    return signals;
}

/// @return 0 or an error number
int startProgram(const std::vector<std::string> &words, const sigset_t &mask, pid_t &process) {
    std::vector<char *> arguments;
    for (const auto &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    const auto defaults = setOf(kIgnoredHere);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &mask);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int error = posix_spawnp(&process, arguments[0], nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    return error;
}

/// @return the wait status of the program's end
int supervise(pid_t process) {
    const auto signals = supervisedSignals();
    for (int status = 0;;) {
        if (waitpid(process, &status, WNOHANG) == process)
            return status;
        siginfo_t signal = {};
        const int number = sigwaitinfo(&signals, &signal);
        // What the terminal sends reaches the program by itself.
        if (number > 0 && number != SIGCHLD && signal.si_code <= 0)
            kill(process, number);
    }
}

}  // namespace

sigset_t supervisedSignals() {
    auto signals = setOf(kPassedOn);
    sigaddset(&signals, SIGCHLD);
    return signals;
}

image::Result<int> runProgram(const std::vector<std::string> &words, const sigset_t &mask) {
    constexpr int kSignalBase = 128;
    // A SIGCHLD that is ignored would take the exit code away.
    signal(SIGCHLD, SIG_DFL);
    pid_t process = -1;
    if (const int error = startProgram(words, mask, process); error != 0)
        return image::Result<int>::bad(image::faultOfError(error, "cannot be run"));
    const int status = supervise(process);
    return image::Result<int>::good(WIFSIGNALED(status) ? kSignalBase + WTERMSIG(status) : WEXITSTATUS(status));
}

}  // namespace tavdb::command
