// SPDX-License-Identifier: Apache-2.0
#include "fakes/test_surroundings.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tavdb_test {

TestFolder::TestFolder() {
    const char *const parent = getenv("TMPDIR");
    std::string name = std::string(parent != nullptr && *parent != '\0' ? parent : "/tmp") + "/tavdb_test_XXXXXX";
    if (mkdtemp(name.data()) != nullptr)
        path_ = name;
}

TestFolder::~TestFolder() {
    std::error_code error;
    if (!path_.empty())
        std::filesystem::remove_all(path_, error);
    if (error)
        fprintf(stderr, "%s is left behind: %s\n", path_.c_str(), error.message().c_str());
}

TestEnvironment::~TestEnvironment() {
    for (const auto &[name, value] : before_) {
        if (value)
            setenv(name.c_str(), value->c_str(), 1);
        else
            unsetenv(name.c_str());
    }
}

void TestEnvironment::set(const std::string &name, const std::string &value) {
    remember(name);
    setenv(name.c_str(), value.c_str(), 1);
}

void TestEnvironment::unset(const std::string &name) {
    remember(name);
    unsetenv(name.c_str());
}

void TestEnvironment::remember(const std::string &name) {
    const char *const value = getenv(name.c_str());
    before_.try_emplace(name, value != nullptr ? std::optional<std::string>(value) : std::nullopt);
}

}  // namespace tavdb_test
