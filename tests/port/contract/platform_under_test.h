// SPDX-License-Identifier: Apache-2.0
// The platform that a contract test program is linked with. What the tests cannot
// know about it stands in one record, defined in a file of its own per platform
// (linux_platform.cpp is the model). Everything else comes from tavdb_platform.h.
#pragma once

#include <map>
#include <string>

#include "port/contract/contract_support.h"

namespace tavdb::test {

/// What is special about one kind of medium: "memory", "file", "rom" or "message".
struct MediumFacts {
    const char *whyMissing = nullptr;  ///< the kind is not offered; its open then fails
    bool grows = true;                 ///< a write beyond the end makes the medium longer
};

/// A reason is null where the platform can do it; else tests are skipped with it.
struct PlatformUnderTest {
    const char *whyOneProcessOnly = nullptr;  ///< semaphores and media are not shared by processes
    const char *whyNoSleep = nullptr;         ///< waits for events and counts return at once
    /// Kinds of media that differ from MediumFacts{}.
    std::map<std::string, MediumFacts> media = {};
    /// A hook path that gives no hooks.
    std::string hookPath = {};

    /// Before each test; the folder is fresh and removed afterwards.
    void (*prepare)(const std::string &folder) = nullptr;
    /// Makes a medium with that content. @return its hint; it may use the folder of the last prepare()
    std::string (*makeMedium)(const std::string &kind, const std::string &name, const std::string &content) = nullptr;
    /// Gives the id a hook, before hook_init is called.
    void (*installHook)(uint32_t id, const tavDBMHook &hook) = nullptr;
};

const PlatformUnderTest &platformUnderTest();

/// Each test has a folder, which its platform was told about.
class ContractTest : public ::testing::Test {
protected:
    ContractTest() {
        platformUnderTest().prepare(folder.path());
    }
    TempFolder folder;
};

/// Each test has a table too.
class TableContractTest : public ContractTest {
protected:
    TableContractTest() : path(folder / "table") {
        makeTable(path);
    }
    std::string path;
};

}  // namespace tavdb::test

/// Skips the test where the platform cannot do what it is about.
#define TAVDB_NEEDS(reason)                                     \
    do {                                                        \
        if (const char *const whyNot = (reason))                \
            GTEST_SKIP() << "not on this platform: " << whyNot; \
    } while (false)
#define TAVDB_NEEDS_PROCESSES TAVDB_NEEDS(platformUnderTest().whyOneProcessOnly)
#define TAVDB_NEEDS_SLEEP TAVDB_NEEDS(platformUnderTest().whyNoSleep)
