// SPDX-License-Identifier: Apache-2.0
// Several processes on one database. Each attaches for itself and does a round of
// accesses whenever it is told to; the time is that from telling the first to
// hearing from the last, so it falls when processors share the work.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "workloads.h"

namespace tavdb_benchmark {

namespace {

constexpr uint32_t kAccesses = 20000;

enum class Job : uint8_t { read, write };

bool doRound(Device &device, Round<uint32_t> &leaves, Job job) {
    uint32_t value = 0;
    for (uint32_t i = 0; i < kAccesses; i++) {
        const int32_t code = job == Job::read ? tavDBMGetUint32(device.session(), leaves.next(), &value)
                                              : tavDBMSetUint32(device.session(), leaves.next(), i);
        if (code != TAVDB_OK)
            return false;
    }
    return true;
}

/// A process that waits for a byte, does its round and answers with a byte.
class Worker {
public:
    Worker(const Directory &directory, Job job) {
        if (pipe(orders_) != 0 || pipe(answers_) != 0)
            giveUp("there are no pipes");
        process_ = fork();
        if (process_ != 0) {
            close(orders_[0]);
            close(answers_[1]);
            return;
        }
        close(orders_[1]);
        close(answers_[0]);
        _exit(work(directory, job) ? 0 : 1);
    }
    ~Worker() {
        order(kEnd);
        close(orders_[1]);
        close(answers_[0]);
        waitpid(process_, nullptr, 0);
    }
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    void order(char word = kGo) const {
        [[maybe_unused]] const ssize_t written = write(orders_[1], &word, 1);
    }
    bool answers() const {
        char word = 0;
        return ::read(answers_[0], &word, 1) == 1;
    }

private:
    static constexpr char kGo = 'g';
    static constexpr char kEnd = 'e';

    bool work(const Directory &directory, Job job) const {
        Device device(directory);
        Round<uint32_t> leaves(device.leaves(Kind::u32));
        bool isGood = write(answers_[1], &kGo, 1) == 1;
        char word = kGo;
        while (isGood && ::read(orders_[0], &word, 1) == 1 && word == kGo)
            isGood = doRound(device, leaves, job) && write(answers_[1], &kGo, 1) == 1;
        return isGood;
    }

    int orders_[2];
    int answers_[2];
    pid_t process_ = -1;
};

void runRounds(benchmark::State &state, const Directory &directory, uint32_t readers, uint32_t writers) {
    std::vector<std::unique_ptr<Worker>> workers;
    for (uint32_t i = 0; i < readers + writers; i++)
        workers.push_back(std::make_unique<Worker>(directory, i < readers ? Job::read : Job::write));
    bool isGood = true;
    for (const auto &worker : workers)
        isGood = worker->answers() && isGood;
    while (isGood && state.KeepRunningBatch(kAccesses)) {
        const auto begin = std::chrono::steady_clock::now();
        for (const auto &worker : workers)
            worker->order();
        for (const auto &worker : workers)
            isGood = worker->answers() && isGood;
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    if (!isGood)
        state.SkipWithError("a process failed");
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * (readers + writers));
}

}  // namespace

void addProcesses(const Directory &directory) {
    struct Case {
        const char *name;
        uint32_t readers;
        uint32_t writers;
    };
    constexpr Case kCases[] = {{"1 reads", 1, 0}, {"2 read", 2, 0}, {"4 read", 4, 0}, {"1 reads while 1 writes", 1, 1}};
    for (const Case &one : kCases)
        benchmark::RegisterBenchmark(
            nameOf(std::string("processes, ") + one.name, directory.media(), directory.settings()).c_str(),
            [&directory, one](auto &state) { runRounds(state, directory, one.readers, one.writers); })
            ->UseManualTime()
            ->Repetitions(kFewRounds);
}

}  // namespace tavdb_benchmark
