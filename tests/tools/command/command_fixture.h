// SPDX-License-Identifier: Apache-2.0
// Runs the real command in a place of its own and compares what it says on both
// outputs, to the byte, and its exit code.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <ostream>
#include <string>
#include <vector>

#include "tools/test_place.h"

namespace tavdb_test {

struct CommandResult {
    int exitCode = 0;  ///< 1000 + number when a signal ended the command
    std::string out;
    std::string err;

    bool operator==(const CommandResult &) const = default;
};

inline void PrintTo(const CommandResult &result, std::ostream *stream) {
    *stream << "exit " << result.exitCode << "\nout: " << result.out << "\nerr: " << result.err;
}

inline CommandResult says(std::string out) {
    return {0, std::move(out), ""};
}
inline CommandResult fails(int exitCode, std::string err) {
    return {exitCode, "", std::move(err)};
}

/// How the command is run; by default in the test's folder, from nothing to memory.
struct Surroundings {
    std::string input;
    int output = -1;            ///< descriptor that stands in for standard output
    bool outputClosed = false;  ///< there is no standard output at all
    bool asNobody = false;      ///< without the rights of root
    rlim_t fileBytesMax = RLIM_INFINITY;
};

class CommandTest : public testing::Test {
protected:
    /// Runs tavdb with TAVDB_DIR=db.
    CommandResult tavdb(const std::vector<std::string> &arguments, const Surroundings &surroundings = {}) const;
    /// A process that is still running, to be ended by finish().
    struct Started {
        int process = -1;
        int out = -1;
        int err = -1;
    };
    Started start(const std::vector<std::string> &arguments, const Surroundings &surroundings = {}) const;
    static CommandResult finish(const Started &started);

    /// Builds "db" from a text.
    void build(const std::string &description, const std::vector<std::string> &options = {}) const;

    TestPlace place;
};

/// A small device with one of everything.
extern const char *const kDevice;

}  // namespace tavdb_test
