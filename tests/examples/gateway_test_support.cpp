// SPDX-License-Identifier: Apache-2.0
#include "gateway_test_support.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>

#include "file_content.h"

namespace tavdb::test {

namespace {

constexpr auto kLimit = std::chrono::seconds(30);
constexpr auto kPause = std::chrono::milliseconds(5);

template <typename Condition>
bool within(std::chrono::seconds limit, Condition condition) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

}  // namespace

std::vector<std::string> linesOf(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

Program::Program(const Words &command, std::string outputPath) : path(std::move(outputPath)) {
    std::vector<char *> arguments;
    for (const auto &word : command)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND,
                                     0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    EXPECT_EQ(posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ), 0) << command[0];
    posix_spawn_file_actions_destroy(&actions);
}

Program::~Program() {
    if (pid <= 0)
        return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

int Program::wait() {
    int status = 0;
    if (pid <= 0 || !within(kLimit, [&] { return waitpid(pid, &status, WNOHANG) == pid; }))
        return -1;
    pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool Program::awaitOutput(const std::string &text) const {
    return within(kLimit, [&] { return output().find(text) != std::string::npos; });
}

void Program::signal(int number) const {
    ASSERT_GT(pid, 0);
    EXPECT_EQ(kill(pid, number), 0);
}

std::string Program::output() const {
    return tavdb_test::contentOf(path);
}

void GatewayTest::SetUp() {
    folder = testing::TempDir() + "tavdb_gateway_XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr) << errno;
    // The machine's own table of databases stays as it is.
    ASSERT_EQ(setenv("TAVDB_DBTABLE", place("databases").c_str(), 1), 0);
}

void GatewayTest::TearDown() {
    std::filesystem::remove_all(folder);
}

std::string GatewayTest::place(const std::string &name) const {
    return folder + "/" + name;
}

std::string GatewayTest::database() const {
    return place("gateway");
}

void GatewayTest::build(bool withHooks) {
    const std::string sources = TAVDB_TEST_GATEWAY_DIR;
    Words command = {TAVDB_TEST_COMMAND, "build", sources + "/gateway.yaml", "-o", database()};
    if (withHooks)
        command.insert(command.end(), {"--hooks", sources + "/hooks.conf"});
    const auto built = run(command);
    ASSERT_EQ(built.code, 0) << built.output;
    const std::filesystem::path hooks = TAVDB_TEST_HOOKS;
    std::filesystem::copy(hooks, database() / hooks.filename());
}

Ending GatewayTest::run(const Words &command) {
    Program program(command, place("output" + std::to_string(runs++)));
    const int code = program.wait();
    return {code, program.output()};
}

Ending GatewayTest::tavdb(const Words &arguments) {
    Words command = {TAVDB_TEST_COMMAND, "-d", database()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run(command);
}

}  // namespace tavdb::test
