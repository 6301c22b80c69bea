// SPDX-License-Identifier: Apache-2.0
#include "fuzz/fuzz_place.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace tavdb_fuzz {

namespace {

constexpr std::string_view kPrefix = "tavdb_fuzz.";

pid_t s_owner;

/// In memory where the machine offers it: on a disk every input would wait for it.
std::string parentOfPlace() {
    constexpr const char *kMemory = "/dev/shm";
    return access(kMemory, W_OK) == 0 ? kMemory : std::filesystem::temp_directory_path().string();
}

/// What targets left that came to a bad end; the name tells whose it is.
void removeLeft(const std::string &parent) {
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(parent, ignored)) {
        const auto name = entry.path().filename().string();
        const bool isPlace = name.starts_with(kPrefix);
        const auto process = isPlace ? name.substr(kPrefix.size(), name.rfind('.') - kPrefix.size()) : "";
        if (isPlace && !std::filesystem::exists("/proc/" + process, ignored))
            std::filesystem::remove_all(entry.path(), ignored);
    }
}

const std::string &place() {
    static const std::string *const folder = [] {
        const auto parent = parentOfPlace();
        removeLeft(parent);
        auto pattern = (parent + '/').append(kPrefix) + std::to_string(getpid()) + ".XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            std::perror("a folder for the fuzz target");
            std::exit(1);
        }
        return new std::string(pattern);
    }();
    return *folder;
}

void removePlace() {
    std::error_code ignored;
    if (getpid() == s_owner)
        std::filesystem::remove_all(place(), ignored);
}

}  // namespace

std::string fileInPlace(const std::string &name) {
    if (s_owner == 0) {
        s_owner = getpid();
        std::atexit(removePlace);
    }
    return place() + '/' + name;
}

void writeFile(const std::string &path, const std::string &content) {
    std::ofstream(path, std::ios::binary) << content;
}

}  // namespace tavdb_fuzz
