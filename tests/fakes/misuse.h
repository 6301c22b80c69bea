// SPDX-License-Identifier: Apache-2.0
// One way for a fake to say that the library broke a rule of the platform: a
// block freed twice, a closed descriptor used, a mutex requested twice.
#pragma once

#include <string>

namespace tavdb_test {

/// Fails the running test with the fake's name and what was done wrong; leaves errno alone.
void reportMisuse(const char *fake, const std::string &text);

/// Ends the process with a message, where going on would hang the test.
[[noreturn]] void endHangingTest(const char *fake, const std::string &text);

}  // namespace tavdb_test
