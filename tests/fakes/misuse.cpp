// SPDX-License-Identifier: Apache-2.0
#include "fakes/misuse.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "fakes/errno_keeper.h"

namespace tavdb_test {

void reportMisuse(const char *fake, const std::string &text) {
    const ErrnoKeeper keeper;
    ADD_FAILURE() << "misuse of the " << fake << ": " << text;
}

void endHangingTest(const char *fake, const std::string &text) {
    fprintf(stderr, "misuse of the %s: %s; the test would hang and is ended\n", fake, text.c_str());
    abort();
}

}  // namespace tavdb_test
