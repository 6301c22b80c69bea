// SPDX-License-Identifier: Apache-2.0
#include "tools/test_place.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iostream>
#include <random>
#include <stdexcept>

#include "file_content.h"

namespace tavdb_test {

namespace {

std::vector<std::string> namesIn(const std::filesystem::path &folder) {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

TestPlace::TestPlace() {
    std::string path = std::filesystem::path(testing::TempDir()) / "tavdb_tools_XXXXXX";
    if (mkdtemp(path.data()) == nullptr)
        throw std::runtime_error("no temporary folder can be made");
    folder = std::filesystem::canonical(path);
    setenv("TAVDB_DBTABLE", (*this / "control.tbl").c_str(), 1);
    unsetenv("TAVDB_DIR");
}

TestPlace::~TestPlace() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

std::vector<std::string> TestPlace::names() const {
    return namesIn(folder);
}

void TestPlace::write(std::string_view name, std::string_view content) const {
    std::ofstream(*this / name, std::ios::binary) << content;
}

std::string bytesOf(const std::string &path) {
    EXPECT_EQ(access(path.c_str(), R_OK), 0) << path;
    return contentOf(path);
}

std::map<std::string, std::string> filesIn(const std::string &folder) {
    std::map<std::string, std::string> files;
    for (const auto &name : namesIn(folder))
        files[name] = bytesOf(folder + "/" + name);
    return files;
}

void patch(const std::string &path, size_t offset, std::string_view bytes) {
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(offset));
    file << bytes;
    EXPECT_TRUE(file.good()) << path;
}

std::string word(uint32_t value) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

uint32_t wordAt(const std::string &path, size_t offset) {
    const auto bytes = bytesOf(path);
    uint32_t value = 0;
    if (offset + sizeof value <= bytes.size())
        std::memcpy(&value, bytes.data() + offset, sizeof value);
    else
        ADD_FAILURE() << path << " has no word at " << offset;
    return value;
}

uint32_t randomSeed() {
    const char *const given = getenv("TAVDB_TEST_SEED");
    const auto seed = given != nullptr ? static_cast<uint32_t>(strtoul(given, nullptr, 0)) : std::random_device{}();
    std::cout << "seed " << seed << " (TAVDB_TEST_SEED repeats it)\n";
    return seed;
}

}  // namespace tavdb_test
