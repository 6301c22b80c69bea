// SPDX-License-Identifier: Apache-2.0
// A file that the library opens by its path, in the folder of the target. The pages that
// it has once it keeps: giving them back and asking for them anew costs more than an input.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz/fuzz_place.h"

namespace tavdb_fuzz {

class MemoryFile {
public:
    MemoryFile() : path_(fileInPlace("file")), fd_(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {}
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    void put(std::string_view content) const {
        const auto sizeBytes = static_cast<off_t>(content.size());
        if (pwrite(fd_, content.data(), content.size(), 0) != sizeBytes || ftruncate(fd_, sizeBytes) != 0)
            std::abort();
    }
    const char *path() const {
        return path_.c_str();
    }

private:
    std::string path_;
    int fd_;
};

}  // namespace tavdb_fuzz
