// SPDX-License-Identifier: Apache-2.0
// The workloads, each in a file of its own. Names are "what/who/how many settings",
// for example "read u32/memory/5000"; scripts/bench.sh makes its ratios from them.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <memory>
#include <string>

#include "counted_media.h"
#include "device.h"
#include "scratch.h"

namespace tavdb_benchmark {

using Body = std::function<void(benchmark::State &)>;

/// Of workloads that take long once; the others run as often as the command line says.
constexpr int kFewRounds = 9;

inline std::string nameOf(const std::string &what, const std::string &who, uint32_t settings) {
    return what + '/' + who + '/' + std::to_string(settings);
}

/// Its time is the processor's, which what else runs on the machine disturbs least.
inline benchmark::internal::Benchmark *add(const std::string &name, Body body) {
    return benchmark::RegisterBenchmark(name.c_str(), std::move(body));
}

/// For workloads that wait for a device or another process: its time is that which passes.
inline void addWaiting(const std::string &name, Body body) {
    add(name, std::move(body))->UseRealTime();
}

/// As the medium of the directory asks for.
inline void addFor(const Directory &directory, const std::string &name, Body body) {
    if (directory.media() == "message")
        addWaiting(name, std::move(body));
    else
        add(name, std::move(body));
}

/// What was asked of counted media since `before`, for each iteration.
inline void count(benchmark::State &state, const MediumCalls &before) {
    const auto add = [&state](const char *name, uint64_t calls) {
        state.counters[name] = benchmark::Counter(static_cast<double>(calls), benchmark::Counter::kAvgIterations);
    };
    add("accesses", countedCalls.accesses - before.accesses);
    add("system_calls", countedCalls.systemCalls - before.systemCalls);
    add("bytes", countedCalls.bytes - before.bytes);
}

/// Runs `step` again and again; it returns whether it did what it should.
template <typename Step>
void measure(benchmark::State &state, Step step) {
    const MediumCalls before = countedCalls;
    for (auto _ : state) {
        if (!step())
            return state.SkipWithError("it failed");
    }
    if (countedCalls.accesses != before.accesses)
        count(state, before);
}

/// Typed reads and writes, and the floor of the medium.
void addValues(Device &device);
/// Finding by name, walking, resetting, making and deleting.
void addTree(Device &device);
/// A write that is on the device afterwards.
void addSync(Device &device);
/// The other stores, with the same settings.
void addPeers(const std::string &place, uint32_t settings);
void addLocks(Device &device);
/// Attaching and detaching; the process must not be attached.
void addAttach(const Directory &directory);
/// Several processes at once; the process must not be attached.
void addProcesses(const Directory &directory);
/// The command as a whole process.
void addCommands(const ScratchFolder &place);

}  // namespace tavdb_benchmark
