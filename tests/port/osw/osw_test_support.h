// SPDX-License-Identifier: Apache-2.0
// What the OS wrapper's own tests need beyond the contract tests: the port's codes,
// users without rights, and what a process holds.
#pragma once

#include "file_content.h"
#include "port/contract/contract_support.h"

namespace tavdb::test {

using tavdb_test::contentOf;

inline int32_t code(int error) {
    return 0x1000 | error;
}

inline bool isRoot() {
    return geteuid() == 0;
}

/// In a child: becomes a user without rights. @return whether it is one now
inline bool becomeNobody() {
    constexpr uid_t kNobody = 65534;
    return !isRoot() || (setegid(kNobody) == 0 && seteuid(kNobody) == 0);
}

inline size_t entriesOf(const char *folder) {
    size_t entries = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(folder))
        ++entries;
    return entries;
}

inline size_t openDescriptors() {
    return entriesOf("/proc/self/fd");
}

/// Mappings of this process: all of them, and those of files of these tests.
struct Mappings {
    size_t all = 0;
    size_t ofTests = 0;
    bool operator==(const Mappings &) const = default;
};

inline Mappings mappings() {
    Mappings found;
    std::ifstream file("/proc/self/maps");
    for (std::string line; std::getline(file, line);) {
        found.ofTests += line.find("tavosw") != std::string::npos ? 1U : 0U;
#if !defined(__SANITIZE_ADDRESS__)  // which maps memory of its own as it goes
        ++found.all;
#endif
    }
    return found;
}

/// What must not grow by using semaphores again and again.
struct Footprint {
    size_t descriptors = openDescriptors();
    Mappings maps = mappings();
    bool operator==(const Footprint &) const = default;
};

}  // namespace tavdb::test
