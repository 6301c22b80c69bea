// SPDX-License-Identifier: Apache-2.0
// What `tavdb build` costs, from the start of the process to a directory that is
// flushed to its device. The directory is made below the folder that TMPDIR
// names, so that its file system can be chosen.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

/// A folder of its own for each run, removed with everything in it.
class ScratchFolder {
public:
    ScratchFolder() : path(std::filesystem::temp_directory_path() / ("tavdb-benchmark-" + std::to_string(getpid()))) {
        std::filesystem::create_directories(path);
    }
    ~ScratchFolder() {
        std::filesystem::remove_all(path);
    }
    ScratchFolder(const ScratchFolder &) = delete;
    ScratchFolder &operator=(const ScratchFolder &) = delete;

    const std::filesystem::path path;
};

void build(benchmark::State &state, const std::string &file, const std::string &media) {
    const ScratchFolder folder;
    const std::string target = folder.path / "database";
    const std::string command = std::string("'" TAVDB_COMMAND "' build --media ") + media + " '" + file + "' -o '" +
                                target + "' 2>'" + target + ".log'";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0)
            return state.SkipWithError((command + " failed").c_str());
        state.PauseTiming();
        std::filesystem::remove_all(target);
        state.ResumeTiming();
    }
}

void add(const std::string &name, const std::string &file) {
    for (const std::string media : {"memory", "file"})
        benchmark::RegisterBenchmark(("build/" + name + "/" + media).c_str(), build, file, media)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
}

[[maybe_unused]] const bool hasDataModels = [] {
    const std::string folder = TAVDB_DATA_DIR;
    add("gateway", TAVDB_GATEWAY);
    if (folder.empty())
        return false;
    add("tr-140", folder + "/tr/tr-140-1-3-1-cwmp-full.xml");
    add("tr-196", folder + "/tr/tr-196-2-1-2-cwmp-full.xml");
    add("tr-181", folder + "/tr/tr-181-2-17-0-cwmp-full.xml");
    return true;
}();

}  // namespace
