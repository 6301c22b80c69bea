// SPDX-License-Identifier: Apache-2.0
// A folder of its own for one test, with a control table of its own, so that no
// test meets a database of the machine or of another test.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tavdb_test {

class TestPlace {
public:
    TestPlace();
    TestPlace(const TestPlace &) = delete;
    TestPlace &operator=(const TestPlace &) = delete;
    /// Removes the folder with everything in it.
    ~TestPlace();

    std::string operator/(std::string_view name) const {
        return (folder / name).string();
    }
    std::string path() const {
        return folder.string();
    }
    /// What stands in the folder, sorted.
    std::vector<std::string> names() const;
    void write(std::string_view name, std::string_view content) const;

private:
    std::filesystem::path folder;
};

/// A whole file; a failure of the test when it cannot be read.
std::string bytesOf(const std::string &path);

/// The content of every file in a folder by its name.
std::map<std::string, std::string> filesIn(const std::string &folder);

/// Overwrites bytes of a file.
void patch(const std::string &path, size_t offset, std::string_view bytes);

/// A word as it lies in a file of this machine.
std::string word(uint32_t value);
uint32_t wordAt(const std::string &path, size_t offset);

/// The seed of a random test: from the environment variable TAVDB_TEST_SEED, else a
/// new one. It is printed.
uint32_t randomSeed();

}  // namespace tavdb_test
