// SPDX-License-Identifier: Apache-2.0
// A fresh gateway database for each test, and programs in processes of their
// own with what they print. Nothing here looks into the database.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace tavdb::test {

using Words = std::vector<std::string>;

std::vector<std::string> linesOf(const std::string &text);

/// A running program; standard output and error go to one file.
class Program {
public:
    Program(const Words &command, std::string outputPath);
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    ~Program();  ///< kills what is still running

    /// Waits up to a generous limit. @return the exit code, or -1 when a signal or the limit ended it
    int wait();
    /// @return whether the output came to hold `text` in time
    bool awaitOutput(const std::string &text) const;
    void signal(int number) const;
    std::string output() const;

private:
    pid_t pid = -1;
    std::string path;
};

struct Ending {
    int code;
    std::string output;
};

class GatewayTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::string place(const std::string &name) const;
    std::string database() const;
    /// Builds the database; with its hooks unless told otherwise.
    void build(bool withHooks = true);
    Ending run(const Words &command);
    /// Runs the tavdb command on the database.
    Ending tavdb(const Words &arguments);

private:
    std::string folder;
    int runs = 0;
};

}  // namespace tavdb::test
