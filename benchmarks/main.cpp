// SPDX-License-Identifier: Apache-2.0
// tavdb_benchmark GROUP [options of Google Benchmark]
//
// A process uses one media configuration, and some workloads need a process that
// is not attached; so workloads come in groups, one for each run of the program.
// scripts/bench.sh runs them all and makes one table of them.
#include <sched.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "workloads.h"

namespace tavdb_benchmark {

namespace {

/// The number of settings where it does not matter.
constexpr uint32_t kSettings = 5000;

/// With the processes that are started from here on. Where the scheduler puts two that wake each other decides more
/// than what they do, and not alike for all.
void stayOnOneProcessor() {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &processors);
    sched_setaffinity(0, sizeof processors, &processors);
}

class Run {
public:
    void all(const char *media, uint32_t settings) {
        attach(media, settings);
        addValues(*device_);
        addTree(*device_);
    }
    void memory() {
        all("memory", kSettings);
        addPeers(place_.file("peers"), kSettings);
    }
    void message() {
        stayOnOneProcessor();
        attach("message", kSettings);
        addValues(*device_);
    }
    void locks() {
        attach("memory", kSettings);
        addLocks(*device_);
    }
    void sync(const char *media) {
        attach(media, kSettings);
        addSync(*device_);
    }
    void attaching() {
        for (const uint32_t settings : {500U, 5000U, 50000U})
            addAttach(build("memory", settings));
    }
    void processes() {
        addProcesses(build("memory", kSettings));
        addProcesses(build("file", kSettings));
    }
    void commands() {
        addCommands(place_);
    }

private:
    const Directory &build(const char *media, uint32_t settings) {
        setenv("TAVDB_DBTABLE", place_.file("control.tbl").c_str(), 1);
        directories_.push_back(std::make_unique<Directory>(place_.file(""), media, settings));
        return *directories_.back();
    }
    void attach(const char *media, uint32_t settings) {
        device_ = std::make_unique<Device>(build(media, settings));
    }

    ScratchFolder place_;
    std::vector<std::unique_ptr<Directory>> directories_;
    std::unique_ptr<Device> device_;
};

struct Group {
    const char *name;
    void (*add)(Run &run);
};
constexpr Group kGroups[] = {
    {"memory", [](Run &run) { run.memory(); }},
    {"memory-500", [](Run &run) { run.all("memory", 500); }},
    {"memory-50000", [](Run &run) { run.all("memory", 50000); }},
    {"file", [](Run &run) { run.all("file", kSettings); }},
    {"message", [](Run &run) { run.message(); }},
    {"counted", [](Run &run) { run.all("counted", kSettings); }},
    {"sync-memory", [](Run &run) { run.sync("memory"); }},
    {"sync-file", [](Run &run) { run.sync("file"); }},
    {"locks", [](Run &run) { run.locks(); }},
    {"attach", [](Run &run) { run.attaching(); }},
    {"processes", [](Run &run) { run.processes(); }},
    {"commands", [](Run &run) { run.commands(); }},
};

int runGroup(const std::string_view name, int argumentCount, char **argumentValues) {
    for (const Group &group : kGroups) {
        if (name != group.name)
            continue;
        Run run;
        group.add(run);
        benchmark::Initialize(&argumentCount, argumentValues);
        if (benchmark::ReportUnrecognizedArguments(argumentCount, argumentValues))
            return 2;
        return benchmark::RunSpecifiedBenchmarks() > 0 ? 0 : 1;
    }
    fprintf(stderr, "usage: tavdb_benchmark GROUP [OPTION...], where GROUP is one of\n");
    for (const Group &group : kGroups)
        fprintf(stderr, "  %s\n", group.name);
    return 2;
}

}  // namespace

}  // namespace tavdb_benchmark

int main(int argumentCount, char **argumentValues) {
    return tavdb_benchmark::runGroup(argumentCount > 1 ? argumentValues[1] : "", argumentCount - 1, argumentValues + 1);
}
