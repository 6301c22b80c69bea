// SPDX-License-Identifier: Apache-2.0
// Another program, run to its end. Signals that are meant for it are passed on, so
// that whoever ends this command ends the program, and this command comes to put
// its things in order.
#pragma once

#include <csignal>
#include <string>
#include <vector>

#include "image/fault.h"

namespace tavdb::command {

/// What runProgram passes on, and SIGCHLD. To be blocked before it is called.
sigset_t supervisedSignals();

/// @param words the program, found as a shell does, and its arguments
/// @param mask the blocked signals that the program starts with
/// @return its exit code, 128 and the number when a signal ended it
image::Result<int> runProgram(const std::vector<std::string> &words, const sigset_t &mask);

}  // namespace tavdb::command
