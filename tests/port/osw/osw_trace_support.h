// SPDX-License-Identifier: Apache-2.0
// The trace reads its environment once in a process, so every case runs in a
// child of its own. Lines for syslog end in a stand-in for syslog() that this
// test program defines (osw_system_error_test.cpp) and that writes them to a file.
#pragma once

#include <stdlib.h>

#include <functional>
#include <string>

#include "port/osw/osw_test_support.h"

namespace tavdb::test {

/// What a child's run left behind.
struct TraceOutput {
    int exitStatus;
    std::string standardError;
    std::string systemLog;
};

/// Where the stand-in for syslog() writes; null drops the lines.
extern const char *systemLogPath;

/// Runs the body in a child with these settings of TAVDB_TRACE and TAVDB_TRACE_TO; null leaves one unset.
inline TraceOutput traced(const char *level, const char *destination, const std::function<int()> &body) {
    const TempFolder folder;
    const std::string errorPath = folder / "stderr";
    const std::string logPath = folder / "syslog";
    Child child([&] {
        unsetenv("TAVDB_TRACE");
        unsetenv("TAVDB_TRACE_TO");
        if (level != nullptr)
            setenv("TAVDB_TRACE", level, 1);
        if (destination != nullptr)
            setenv("TAVDB_TRACE_TO", destination, 1);
        systemLogPath = logPath.c_str();
        const int fd = open(errorPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        if (dup2(fd, STDERR_FILENO) < 0)
            return 99;
        return body();
    });
    const int status = child.join();
    return {status, contentOf(errorPath), contentOf(logPath)};
}

}  // namespace tavdb::test
