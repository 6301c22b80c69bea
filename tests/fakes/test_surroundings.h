// SPDX-License-Identifier: Apache-2.0
// What a test changes around itself and puts back at its end: a folder of its
// own below TMPDIR, and environment variables.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace tavdb_test {

/// A fresh folder, removed with everything in it at the end of its scope.
class TestFolder {
public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder &) = delete;
    TestFolder &operator=(const TestFolder &) = delete;

    /// Empty when the folder could not be made.
    const std::string &path() const {
        return path_;
    }
    std::string file(const std::string &name) const {
        return path_ + '/' + name;
    }

private:
    std::string path_;
};

/// Environment variables that come back as they were at the end of its scope.
class TestEnvironment {
public:
    TestEnvironment() = default;
    ~TestEnvironment();
    TestEnvironment(const TestEnvironment &) = delete;
    TestEnvironment &operator=(const TestEnvironment &) = delete;

    void set(const std::string &name, const std::string &value);
    void unset(const std::string &name);

private:
    void remember(const std::string &name);

    std::map<std::string, std::optional<std::string>> before_;
};

}  // namespace tavdb_test
