// SPDX-License-Identifier: Apache-2.0
// Where trace lines go: standard error, syslog or a file. What the environment
// says is read once; which lines are wanted is not decided here.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavdb::osw {

/// Chooses the sink: "syslog", an absolute path, or else standard error. To be called once, before the first line.
void chooseSink(const char *name);

/// Writes one line with one system call. @param level 0 is an error
void writeToSink(int32_t level, const char *line, size_t length);

}  // namespace tavdb::osw
