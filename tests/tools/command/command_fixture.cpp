// SPDX-License-Identifier: Apache-2.0
#include "tools/command/command_fixture.h"

#include <grp.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace tavdb_test {

const char *const kDevice =
    "$description: A small device\n"
    "network:\n"
    "  $description: Everything about interfaces\n"
    "  lan:\n"
    "    mtu: {type: u32, range: [300, 4000000], step: 100, units: bytes, factory: 1500, default: 1400}\n"
    "    mode: {type: u8, enum: {off: 0, on: 1, auto: 7}, factory: auto, description: How it is used}\n"
    "    name: {type: text, size: 31, current: lan0}\n"
    "    key: {type: bytes, size: 4, secret: true, current: 00ff7e01}\n"
    "level: {type: s8, range: [-5, 5], current: -3}\n"
    "ratio: {type: f32, current: 0.1}\n"
    "baud: {type: u32, enum: [9600, 19200], current: 9600}\n";

namespace {

constexpr int kNobody = 65534;
constexpr unsigned kTimeLimitSeconds = 30;

int memoryFile(const std::string &content) {
    const int file = memfd_create("tavdb_test", 0);
    if (file < 0 || write(file, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
        throw std::runtime_error("no file in memory can be made");
    lseek(file, 0, SEEK_SET);
    return file;
}

std::string takeContent(int file) {
    std::string content(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
    const auto count = pread(file, content.data(), content.size(), 0);
    content.resize(count < 0 ? 0 : static_cast<size_t>(count));
    close(file);
    return content;
}

void limit(const Surroundings &surroundings) {
    // A command that hangs is ended, which shows as its exit code.
    alarm(kTimeLimitSeconds);
    const rlimit bytes = {surroundings.fileBytesMax, surroundings.fileBytesMax};
    setrlimit(RLIMIT_FSIZE, &bytes);
    if (surroundings.asNobody && geteuid() == 0 &&
        (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0))
        _exit(126);
}

[[noreturn]] void become(std::vector<char *> &arguments, const std::string &folder) {
    if (chdir(folder.c_str()) == 0)
        execv(TAVDB_COMMAND, arguments.data());
    _exit(127);
}

}  // namespace

CommandTest::Started CommandTest::start(const std::vector<std::string> &arguments,
                                        const Surroundings &surroundings) const {
    std::vector<char *> words{const_cast<char *>("tavdb")};
    for (const auto &argument : arguments)
        words.push_back(const_cast<char *>(argument.c_str()));
    words.push_back(nullptr);
    const int input = memoryFile(surroundings.input);
    Started started{-1, memoryFile(""), memoryFile("")};
    setenv("TAVDB_DIR", "db", 1);
    started.process = fork();
    if (started.process == 0) {
        dup2(input, STDIN_FILENO);
        dup2(surroundings.output >= 0 ? surroundings.output : started.out, STDOUT_FILENO);
        dup2(started.err, STDERR_FILENO);
        if (surroundings.outputClosed)
            close(STDOUT_FILENO);
        limit(surroundings);
        become(words, place.path());
    }
    close(input);
    unsetenv("TAVDB_DIR");
    return started;
}

CommandResult CommandTest::finish(const Started &started) {
    int status = 0;
    waitpid(started.process, &status, 0);
    const int exitCode = WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
    return {exitCode, takeContent(started.out), takeContent(started.err)};
}

CommandResult CommandTest::tavdb(const std::vector<std::string> &arguments, const Surroundings &surroundings) const {
    return finish(start(arguments, surroundings));
}

void CommandTest::build(const std::string &description, const std::vector<std::string> &options) const {
    place.write("d.yaml", description);
    std::vector<std::string> arguments = {"build", "d.yaml", "-o", "db"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const auto built = tavdb(arguments);
    ASSERT_EQ(built.exitCode, 0) << built.err;
}

}  // namespace tavdb_test
