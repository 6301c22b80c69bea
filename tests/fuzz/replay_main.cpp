// SPDX-License-Identifier: Apache-2.0
// main() of a fuzz target in an ordinary build: runs it over the files that are
// named, and over those in folders that are named. Fails when there is none.
#include <cstdio>
#include <filesystem>
#include <string>

#include "file_content.h"
#include "fuzz/fuzz_target.h"

namespace {

namespace fs = std::filesystem;

void replay(const fs::path &path) {
    std::fprintf(stderr, "%s\n", path.c_str());  // the last one named is the one that failed
    const std::string content = tavdb_test::contentOf(path);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(content.data()), content.size());
}

int replayAll(const fs::path &path) {
    if (!fs::is_directory(path)) {
        if (fs::is_regular_file(path))
            replay(path);
        return fs::is_regular_file(path) ? 1 : 0;
    }
    int files = 0;
    for (const auto &entry : fs::directory_iterator(path))
        files += replayAll(entry.path());
    return files;
}

}  // namespace

int main(int argc, char **argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i)
        files += replayAll(argv[i]);
    std::fprintf(stderr, "%d inputs\n", files);
    return files > 0 ? 0 : 1;
}
