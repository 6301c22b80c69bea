// SPDX-License-Identifier: Apache-2.0
// The comparison of two paths, absolute or not, with any working folder.
#include <cstdlib>

#include "fuzz/fuzz_input.h"
#include "fuzz/fuzz_target.h"
#include "tavdb_modules.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    tavdb_fuzz::Input input(data, size);
    const std::string folder = input.text();
    const std::string a = input.text();
    const std::string b = input.text();
    setenv("PWD", folder.c_str(), 1);
    const int32_t forth = misc_pathCompare(a.c_str(), b.c_str());
    const int32_t back = misc_pathCompare(b.c_str(), a.c_str());
    if ((forth == 0) != (back == 0) || misc_pathCompare(a.c_str(), a.c_str()) != 0)
        abort();
    return 0;
}
