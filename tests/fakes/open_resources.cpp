// SPDX-License-Identifier: Apache-2.0
#include "fakes/open_resources.h"

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace tavdb_test {

namespace {

std::string targetOf(const std::string &link) {
    char target[PATH_MAX];
    const ssize_t length = readlink(link.c_str(), target, sizeof(target));
    return length < 0 ? "?" : std::string(target, static_cast<size_t>(length));
}

/// Descriptors from here on cannot be this program's: a tool that runs it keeps its own there.
int descriptorLimit() {
    rlimit limit{};
    const bool known = getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < INT_MAX;
    return known ? static_cast<int>(limit.rlim_cur) : INT_MAX;
}

std::map<int, std::string> openDescriptors() {
    std::map<int, std::string> descriptors;
    const int limit = descriptorLimit();
    DIR *const folder = opendir("/proc/self/fd");
    if (folder == nullptr)
        return descriptors;
    while (const dirent *const entry = readdir(folder)) {
        const int fd = atoi(entry->d_name);
        if (entry->d_name[0] != '.' && fd != dirfd(folder) && fd < limit)
            descriptors[fd] = targetOf(std::string("/proc/self/fd/") + entry->d_name);
    }
    closedir(folder);
    return descriptors;
}

std::map<std::string, std::string> sharedMappings() {
    std::map<std::string, std::string> mappings;
    std::ifstream file("/proc/self/maps");
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::string range, rights, offset, device, inode, path;
        fields >> range >> rights >> offset >> device >> inode >> path;
        if (rights.ends_with('s') && path.starts_with('/'))
            mappings[range] = path;
    }
    return mappings;
}

}  // namespace

OpenResources OpenResources::now() {
    OpenResources resources;
    resources.descriptors_ = openDescriptors();
    resources.mappings_ = sharedMappings();
    return resources;
}

std::vector<std::string> OpenResources::newSince(const OpenResources &earlier) const {
    std::vector<std::string> lines;
    for (const auto &[fd, target] : descriptors_) {
        const auto before = earlier.descriptors_.find(fd);
        if (before == earlier.descriptors_.end() || before->second != target)
            lines.push_back("descriptor " + std::to_string(fd) + ": " + target);
    }
    for (const auto &[range, path] : mappings_) {
        const auto before = earlier.mappings_.find(range);
        if (before == earlier.mappings_.end() || before->second != path)
            lines.push_back("mapping: " + path);
    }
    return lines;
}

}  // namespace tavdb_test
