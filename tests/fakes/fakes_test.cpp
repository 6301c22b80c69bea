// SPDX-License-Identifier: Apache-2.0
// That the fakes are complete: each function of the platform header, and each
// built-in media function, is the test program's own.
#include "fakes/fakes_test.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "file_content.h"
#include "tavdb_platform.h"

namespace tavdb_test {
namespace {

using Platform = FakesTest;

/// The functions that the platform header declares one by one; the media functions stand in its lists.
std::set<std::string> declaredFunctions() {
    const std::string text = contentOf(TAVDB_TEST_PLATFORM_HEADER);
    std::set<std::string> names;
    const std::regex declaration(R"(\nTAVDB_API [a-zA-Z0-9_ ]*[ *]([a-zA-Z0-9_]+)\()");
    for (std::sregex_iterator match(text.begin(), text.end(), declaration), end; match != end; ++match)
        names.insert((*match)[1]);
    return names;
}

std::set<std::string> mediaFunctions() {
    return {
#define TAVDB_TEST_NAME(name) #name,
        TAVDB_MEDIA_SYNC_LIST(TAVDB_TEST_NAME) TAVDB_MEDIA_SEEK_LIST(TAVDB_TEST_NAME)
            TAVDB_MEDIA_WRITE_LIST(TAVDB_TEST_NAME) TAVDB_MEDIA_READ_LIST(TAVDB_TEST_NAME)
                TAVDB_MEDIA_CLOSE_LIST(TAVDB_TEST_NAME) TAVDB_MEDIA_OPEN_LIST(TAVDB_TEST_NAME)
#undef TAVDB_TEST_NAME
    };
}

/// Whether a library loaded into this program would be served by the program's own definition.
bool isServedByProgram(const std::string &name) {
    void *const function = dlsym(RTLD_DEFAULT, name.c_str());
    Dl_info served{};
    Dl_info program{};
    return function != nullptr && dladdr(function, &served) != 0 &&
           dladdr(reinterpret_cast<void *>(&isServedByProgram), &program) != 0 && served.dli_fbase == program.dli_fbase;
}

TEST_F(Platform, EveryFunctionIsServedByTheProgram) {
    const std::set<std::string> declared = declaredFunctions();
    EXPECT_GE(declared.size(), 25U) << "the header was not read as it is written";
    EXPECT_EQ(mediaFunctions().size(), 77U);
    for (const std::string &name : declared)
        EXPECT_TRUE(isServedByProgram(name)) << name;
    for (const std::string &name : mediaFunctions())
        EXPECT_TRUE(isServedByProgram(name)) << name;
}

}  // namespace
}  // namespace tavdb_test
