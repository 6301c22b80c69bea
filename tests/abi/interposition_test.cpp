// SPDX-License-Identifier: Apache-2.0
// A program that defines the platform's functions is served by its own, although
// the port's libraries, which define them too, are loaded with the library. Which
// functions these are is read from the library itself, so none can be forgotten.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "abi/command_output.h"
#include "fakes/database_fixture.h"
#include "fakes/event_log.h"

namespace tavdb_test {
namespace {

const std::string kLibraries = TAVDB_TEST_LIBRARIES;

/// What libtavdb calls and neither defines nor finds in libc.
std::set<std::string> platformSymbols() {
    std::set<std::string> names;
    const std::regex symbol("([A-Za-z0-9_]+)@TAV[A-Z]+_[0-9.]+$");
    for (const std::string &line : runCommand("nm -D --undefined-only '" + kLibraries + "/libtavdb.so.1'").lines) {
        std::smatch match;
        if (std::regex_search(line, match, symbol))
            names.insert(match[1]);
    }
    return names;
}

void *baseOf(const void *address) {
    Dl_info info{};
    return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

/// The port's own definition, or null.
void *definedByPort(const std::string &name) {
    for (const char *const library : {"libtavosw.so.1", "libtavhook.so.1", "libtavdbfile.so.1"}) {
        void *const handle = dlopen((kLibraries + "/" + library).c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (handle == nullptr)
            continue;
        void *const function = dlsym(handle, name.c_str());
        dlclose(handle);
        if (function != nullptr)
            return function;
    }
    return nullptr;
}

TEST(Interposition, EveryPlatformFunctionIsTheProgramsAlthoughThePortIsLoaded) {
    const std::set<std::string> names = platformSymbols();
    ASSERT_GE(names.size(), 100U);
    void *const program = baseOf(reinterpret_cast<const void *>(&platformSymbols));
    for (const std::string &name : names) {
        void *const ports = definedByPort(name);
        EXPECT_NE(ports, nullptr) << name << ": no library of the port that defines it is loaded";
        EXPECT_NE(baseOf(ports), program) << name;
        EXPECT_EQ(baseOf(dlsym(RTLD_DEFAULT, name.c_str())), program) << name;
    }
}

using InterposedDatabase = OpenDatabaseFixture;

TEST_F(InterposedDatabase, IsUsedThroughTheProgramsFunctions) {
    tavDBMSession another = {};
    ASSERT_EQ(tavDBMInitSession(&another, session.dbId), 0);
    EXPECT_EQ(eventLog().count(Operation::mutexRequest), 1U);
    EXPECT_EQ(eventLog().count(Operation::mediaOpen), 1U) << "the root is looked up";
    EXPECT_EQ(tavDBMTermSession(&another), 0);
    EXPECT_EQ(eventLog().count(Operation::mutexRelease), 2U);
}

}  // namespace
}  // namespace tavdb_test
