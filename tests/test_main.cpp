// SPDX-License-Identifier: Apache-2.0
// main() of every test program. Tests are meant to run in a process each. Under
// emulation and sanitizers starting one costs more than most tests, so with
// --few-processes the program forks some that run several tests each. A test that
// does not pass there, perhaps because it met what another one left, runs again in a
// process of its own, and only that counts; so do all tests of a process that
// ends badly, as one does that has lost memory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr size_t kTestsPerProcess = 16;
constexpr time_t kTimeoutSeconds = 300;

enum class Verdict : char { none, passed, failed, skipped };

std::string nameOf(const testing::TestInfo &test) {
    return std::string(test.test_suite_name()) + "." + test.name();
}

Verdict verdictOf(const testing::TestInfo &test) {
    const testing::TestResult &result = *test.result();
    return result.Failed() ? Verdict::failed : result.Skipped() ? Verdict::skipped : Verdict::passed;
}

/// What forked processes write: the verdicts of all tests, and whether the framework came to its end.
class Board : public testing::EmptyTestEventListener {
public:
    Board() {
        const testing::UnitTest &unit = *testing::UnitTest::GetInstance();
        for (int i = 0; i < unit.total_test_suite_count(); ++i)
            for (int j = 0; j < unit.GetTestSuite(i)->total_test_count(); ++j)
                add(nameOf(*unit.GetTestSuite(i)->GetTestInfo(j)));
        isFinished_ = static_cast<bool *>(
            mmap(nullptr, sizeof(bool) + names_.size(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        verdicts_ = reinterpret_cast<Verdict *>(isFinished_ + 1);
    }
    void OnTestEnd(const testing::TestInfo &test) override {
        verdicts_[indices_.at(nameOf(test))] = verdictOf(test);
    }
    bool &isFinished() {
        return *isFinished_;
    }
    const std::vector<std::string> &names() const {
        return names_;
    }
    Verdict &operator[](size_t index) {
        return verdicts_[index];
    }
    std::string all() const {
        return {reinterpret_cast<const char *>(verdicts_), names_.size()};
    }
    void restore(const std::string &all) {
        std::memcpy(verdicts_, all.data(), names_.size());
    }
    size_t count(Verdict verdict) const {
        return static_cast<size_t>(std::count(verdicts_, verdicts_ + names_.size(), verdict));
    }

private:
    void add(const std::string &name) {
        indices_[name] = names_.size();
        names_.push_back(name);
    }

    std::vector<std::string> names_;
    std::map<std::string, size_t> indices_;
    bool *isFinished_;
    Verdict *verdicts_;
};

/// Signals are left alone: tests look at them. @return whether the process ended with status 0
bool waitFor(pid_t child) {
    const time_t end = time(nullptr) + kTimeoutSeconds;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (time(nullptr) > end)
            kill(child, SIGKILL);
        usleep(1000);
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// How a process ended, and what it printed.
struct Ended {
    bool isGood;
    std::string output;
};

/// Runs the tests that `choose` asks for in a process of their own.
Ended runForked(Board &board, const std::function<void()> &choose) {
    FILE *const output = std::tmpfile();
    std::fflush(nullptr);
    board.isFinished() = false;
    const pid_t child = fork();
    if (child == 0) {
        dup2(fileno(output), STDOUT_FILENO);
        dup2(fileno(output), STDERR_FILENO);
        choose();
        // Failed tests stand on the board. Another status than 0 is that of a sanitizer, or of a test that ended
        // the process.
        const int result = RUN_ALL_TESTS();
        board.isFinished() = result == 0 || testing::UnitTest::GetInstance()->failed_test_count() > 0;
        std::exit(0);
    }
    const bool isGood = waitFor(child) && board.isFinished();
    std::rewind(output);
    std::string text;
    for (int c = std::fgetc(output); c != EOF; c = std::fgetc(output))
        text += static_cast<char>(c);
    std::fclose(output);
    return {isGood, text};
}

void runTogether(Board &board) {
    const size_t processes = (board.names().size() + kTestsPerProcess - 1) / kTestsPerProcess;
    for (size_t i = 0; i < processes; ++i) {
        const std::string before = board.all();
        const Ended ended = runForked(board, [&] {
            setenv("GTEST_TOTAL_SHARDS", std::to_string(processes).c_str(), 1);
            setenv("GTEST_SHARD_INDEX", std::to_string(i).c_str(), 1);
        });
        if (!ended.isGood)
            board.restore(before);
    }
}

void runApart(Board &board, size_t index) {
    const std::string &name = board.names()[index];
    board[index] = Verdict::failed;  // unless its process lives to say otherwise
    const Ended ended = runForked(board, [&] { GTEST_FLAG_SET(filter, name); });
    if (!ended.isGood)
        board[index] = Verdict::failed;
    if (board[index] != Verdict::passed)
        std::printf("%s %s\n%s", board[index] == Verdict::skipped ? "SKIPPED" : "FAILED", name.c_str(),
                    ended.output.c_str());
}

int runInFewProcesses() {
    auto *const listener = new Board;  // the framework deletes it
    Board &board = *listener;
    testing::UnitTest::GetInstance()->listeners().Append(listener);
    runTogether(board);
    for (size_t i = 0; i < board.names().size(); ++i)
        if (board[i] != Verdict::passed)
            runApart(board, i);
    std::printf("verdicts: %zu passed, %zu failed, %zu skipped\n", board.count(Verdict::passed),
                board.count(Verdict::failed), board.count(Verdict::skipped));
    return board.count(Verdict::failed) == 0 && board.count(Verdict::passed) > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleMock(&argc, argv);
    return argc > 1 && std::strcmp(argv[1], "--few-processes") == 0 ? runInFewProcesses() : RUN_ALL_TESTS();
}
