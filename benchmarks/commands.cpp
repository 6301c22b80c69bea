// SPDX-License-Identifier: Apache-2.0
// The command from the start of its process to its end, and the memory that it
// took: building databases from descriptions, and reading from a large one.
#include <algorithm>
#include <filesystem>
#include <limits>

#include "workloads.h"

namespace tavdb_benchmark {

namespace {

using Words = std::vector<std::string>;

/// Runs a program once per iteration. @param after is not measured
benchmark::internal::Benchmark *addProgram(const std::string &name, const Words &words,
                                           std::function<void()> after = {}) {
    const auto body = [words, after](benchmark::State &state) {
        long memoryKib = 0;
        double processorSeconds = 0;
        double shortestSeconds = std::numeric_limits<double>::max();
        for (auto _ : state) {
            const Cost cost = run(words);
            if (!cost.isGood)
                return state.SkipWithError((words[0] + " failed").c_str());
            processorSeconds += cost.processorSeconds;
            shortestSeconds = std::min(shortestSeconds, cost.seconds);
            memoryKib = std::max(memoryKib, cost.memoryKib);
            state.SetIterationTime(cost.seconds);
            if (after)
                after();
        }
        state.counters["processor_seconds"] = benchmark::Counter(processorSeconds, benchmark::Counter::kAvgIterations);
        state.counters["shortest_seconds"] = shortestSeconds;
        state.counters["memory_kib"] = static_cast<double>(memoryKib);
    };
    return benchmark::RegisterBenchmark(name.c_str(), body)->UseManualTime()->Unit(benchmark::kMillisecond);
}

/// The command as who installed it has it: built in place, it looks for its libraries in more folders.
class Command {
public:
    explicit Command(const std::string &prefix) : program_(prefix + "/bin/tavdb") {
        for (const char *component : {"runtime", "tools"})
            if (!run({TAVDB_CMAKE, "--install", TAVDB_BUILT, "--component", component, "--prefix", prefix}).isGood)
                giveUp("installing in " + prefix + " failed");
        setenv("LD_LIBRARY_PATH", (prefix + "/" TAVDB_LIBRARY_FOLDER).c_str(), 1);
    }
    Words with(Words words) const {
        words.insert(words.begin(), program_);
        return words;
    }

private:
    std::string program_;
};

/// A build takes long enough to be measured one at a time.
void addBuild(const Command &command, const std::string &name, const std::string &media, const std::string &file,
              const std::string &target) {
    addProgram("build/" + name + '/' + media, command.with({"build", "--media", media, file, "-o", target}),
               [target] { std::filesystem::remove_all(target); })
        ->Iterations(1)
        ->Repetitions(kFewRounds);
}

/// A published data model of 6,483 parameters, where there is one.
void addModel(const Command &command, const ScratchFolder &place) {
    const std::string model = std::string(TAVDB_DATA_DIR) + "/tr/tr-181-2-17-0-cwmp-full.xml";
    if (!std::filesystem::exists(model))
        return;
    const std::string directory = place.file("model");
    if (!run(command.with({"build", model, "-o", directory})).isGood)
        giveUp("building " + directory + " failed");
    addBuild(command, "tr-181", "memory", model, place.file("built"));
    addProgram("command get/tr-181", command.with({"-d", directory, "get", "/Device/RootDataModelVersion"}));
    addProgram("command tree/tr-181", command.with({"-d", directory, "tree", "/"}));
}

}  // namespace

void addCommands(const ScratchFolder &place) {
    const Command command(place.file("installed"));
    addProgram("start of an empty program", {TAVDB_LAUNCHER});
    const std::string target = place.file("built");
    for (const uint32_t settings : {500U, 5000U, 50000U}) {
        const std::string file = place.file(std::to_string(settings) + ".yaml");
        writeFile(file, description(settings));
        addBuild(command, std::to_string(settings), "memory", file, target);
    }
    addBuild(command, "5000", "file", place.file("5000.yaml"), target);
    addBuild(command, "gateway", "memory", TAVDB_GATEWAY, target);
    addModel(command, place);
}

}  // namespace tavdb_benchmark
