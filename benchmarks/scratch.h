// SPDX-License-Identifier: Apache-2.0
// A folder for the files of one run, and programs that are run in it. The folder
// is made below the one that TMPDIR names, so that its file system can be chosen.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tavdb_benchmark {

/// Removed at the end with everything in it.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder &) = delete;
    ScratchFolder &operator=(const ScratchFolder &) = delete;

    std::string file(const std::string &name) const {
        return path_ + '/' + name;
    }

private:
    std::string path_;
};

void writeFile(const std::string &path, const std::string &content);

/// What a program cost from its start to its end.
struct Cost {
    bool isGood = false;  ///< it ran and its exit code was 0
    double seconds = 0;
    double processorSeconds = 0;
    long memoryKib = 0;  ///< the most that was resident
};

/// Runs a program without its output. The first word is its path.
Cost run(const std::vector<std::string> &words);

/// Starts a program without its output. @return its process, -1 when it cannot be started
pid_t start(const std::vector<std::string> &words);

/// Ends what start() gave.
void end(pid_t process);

}  // namespace tavdb_benchmark
