// SPDX-License-Identifier: Apache-2.0
// A file that is reached by a path and lies in memory: on a disk every input would
// wait for it.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace tavdb_fuzz {

class MemoryFile {
public:
    MemoryFile() : fd_(memfd_create("fuzz", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(fd_)) {}
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    void put(std::string_view content) const {
        if (ftruncate(fd_, 0) != 0 || pwrite(fd_, content.data(), content.size(), 0) < 0)
            std::abort();
    }
    const char *path() const {
        return path_.c_str();
    }

private:
    int fd_;
    std::string path_;
};

}  // namespace tavdb_fuzz
