// SPDX-License-Identifier: Apache-2.0
// One line to syslog, also from the child of a fork that another thread of the
// parent was writing a line at. Opening and naming the log is the program's own
// business.
#pragma once

#include <cstdint>

namespace tavdb::osw {

/// @param priority as for syslog()
void writeSystemLog(int32_t priority, const char *text);

}  // namespace tavdb::osw
