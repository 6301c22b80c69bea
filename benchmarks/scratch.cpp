// SPDX-License-Identifier: Apache-2.0
#include "scratch.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace tavdb_benchmark {

namespace {
/// Where launcher.c reports.
constexpr int kReportDescriptor = 3;
}  // namespace

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

namespace {

/// @param report a descriptor that the program gets as number 3; -1: none
pid_t spawn(const std::vector<std::string> &words, int report) {
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_WRONLY, 0);
    if (report >= 0)
        posix_spawn_file_actions_adddup2(&actions, report, kReportDescriptor);
    pid_t process = -1;
    const int error = posix_spawn(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? process : -1;
}

}  // namespace

pid_t start(const std::vector<std::string> &words) {
    return spawn(words, -1);
}

Cost run(const std::vector<std::string> &words) {
    std::vector<std::string> launched = {TAVDB_LAUNCHER};
    launched.insert(launched.end(), words.begin(), words.end());
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return {};
    const pid_t launcher = spawn(launched, ends[1]);
    close(ends[1]);
    FILE *const report = fdopen(ends[0], "r");
    Cost cost;
    int status = -1;
    const bool isReported = report != nullptr && fscanf(report, "%d %lf %lf %ld", &status, &cost.seconds,
                                                        &cost.processorSeconds, &cost.memoryKib) == 4;
    cost.isGood = isReported && status == 0;
    if (report != nullptr)
        fclose(report);
    if (launcher >= 0)
        waitpid(launcher, nullptr, 0);
    return cost;
}

void end(pid_t process) {
    if (process < 0)
        return;
    kill(process, SIGTERM);
    waitpid(process, nullptr, 0);
}

}  // namespace tavdb_benchmark
