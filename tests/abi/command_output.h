// SPDX-License-Identifier: Apache-2.0
// What another program prints, line by line.
#pragma once

#include <stdio.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace tavdb_test {

struct CommandOutput {
    int status;  ///< as wait() gives it
    std::vector<std::string> lines;
};

/// Runs a shell command; its standard error is shown as it comes.
inline CommandOutput runCommand(const std::string &command) {
    FILE *const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        throw std::runtime_error("cannot run " + command);
    std::string text;
    char part[4096];
    while (const size_t count = fread(part, 1, sizeof part, pipe))
        text.append(part, count);
    CommandOutput output{pclose(pipe), {}};
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        output.lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return output;
}

}  // namespace tavdb_test
