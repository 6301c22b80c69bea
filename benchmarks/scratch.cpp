// SPDX-License-Identifier: Apache-2.0
#include "scratch.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>

namespace tavdb_benchmark {

ScratchFolder::ScratchFolder()
    : path_(std::filesystem::temp_directory_path() / ("tavdb-benchmark-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(path_);
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void writeFile(const std::string &path, const std::string &content) {
    std::ofstream(path, std::ios::binary) << content;
}

pid_t start(const std::vector<std::string> &words) {
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_WRONLY, 0);
    pid_t process = -1;
    const int error = posix_spawn(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? process : -1;
}

Cost run(const std::vector<std::string> &words) {
    const auto begin = std::chrono::steady_clock::now();
    const pid_t process = start(words);
    int status = -1;
    rusage usage = {};
    if (process < 0 || wait4(process, &status, 0, &usage) != process)
        return {};
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    return {WIFEXITED(status) && WEXITSTATUS(status) == 0, taken.count(), usage.ru_maxrss};
}

void end(pid_t process) {
    if (process < 0)
        return;
    kill(process, SIGTERM);
    waitpid(process, nullptr, 0);
}

}  // namespace tavdb_benchmark
