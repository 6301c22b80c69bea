// SPDX-License-Identifier: Apache-2.0
#include "model/module_dump.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>

#include "fakes/fake_trace.h"

namespace tavdb_test {

uint32_t Dump::wordOf(const std::string &name) const {
    uint32_t word = 0;
    for (const std::string &line : lines) {
        if (line.ends_with("]:" + name + '\n') && sscanf(line.c_str(), "[0x%x]", &word) == 1)
            return word;
    }
    ADD_FAILURE() << "the dump has no line for " << name;
    return 0;
}

Dump dumpOf(DumpFunction function, int32_t level) {
    constexpr uint32_t kBefore = 1000;
    uint32_t debugSize = kBefore;
    uint32_t ramSize = kBefore;
    fakeTrace().clear();
    const int32_t result = function(level, &debugSize, &ramSize);
    EXPECT_EQ(fakeTrace().lines().size(), fakeTrace().texts(level).size()) << "lines of another level";
    return {fakeTrace().texts(level), result, debugSize - kBefore, ramSize - kBefore};
}

std::vector<std::string> withAddresses(std::vector<std::string> lines, std::span<const char *const> functions) {
    for (const char *const name : functions) {
        const void *const address = dlsym(RTLD_DEFAULT, name);
        EXPECT_NE(address, nullptr) << name << " is not exported";
        lines.push_back(dumpLine(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address)), name));
    }
    return lines;
}

}  // namespace tavdb_test
