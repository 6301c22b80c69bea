// SPDX-License-Identifier: Apache-2.0
// The packages of this build, unpacked into a root folder of their own, and
// programs that are compiled against them and run with them. Nothing of the
// source tree's headers or of the build's libraries is in reach.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "abi/command_output.h"

namespace tavdb_test {

inline const std::vector<std::string> kPackages = {"libtavdb1", "libtavdb-dev", "tavdb-tools"};

std::string joined(const std::vector<std::string> &lines);

/// The package's file.
std::filesystem::path packageFile(const std::string &package);

class Packages : public testing::Test {
protected:
    Packages();
    ~Packages() override;

    /// Runs a shell command in the test's folder, with the unpacked libraries.
    CommandOutput run(const std::string &command) const;
    /// The same for a program of the machine that the packages are for.
    CommandOutput runThere(const std::string &program) const;
    /// The README's database description, built with the unpacked command.
    void buildDatabase(const std::string &place) const;
    /// Puts the README's example, for a database at `place`, into a file.
    void writeExample(const std::string &file, const std::string &place) const;
    void expectExampleRuns(const std::string &program) const;

    std::filesystem::path folder;
    std::filesystem::path root;       ///< what would be /
    std::filesystem::path libraries;  ///< the libraries' folder in it
};

}  // namespace tavdb_test
