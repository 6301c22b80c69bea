// SPDX-License-Identifier: Apache-2.0
#include "fakes/home_folder.h"

namespace tavdb_test {

namespace {

std::string &homeFolder() {
    static auto *const folder = new std::string;
    return *folder;
}

}  // namespace

void setHomeFolder(const std::string &folder) {
    homeFolder() = folder.empty() ? "" : folder + '/';
}

std::string nameInHome(const char *path) {
    if (path == nullptr)
        return "(null)";
    const std::string name = path;
    const std::string &home = homeFolder();
    return !home.empty() && name.starts_with(home) ? name.substr(home.size()) : name;
}

}  // namespace tavdb_test
