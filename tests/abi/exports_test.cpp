// SPDX-License-Identifier: Apache-2.0
// The dynamic symbols of the libraries: what libtavdb exports is what its list
// says, and the libraries need nothing but libc and each other.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <set>
#include <string>

#include "abi/command_output.h"

namespace tavdb_test {
namespace {

using testing::ContainerEq;
using testing::IsEmpty;
using Names = std::set<std::string>;

const std::string kLibraries = TAVDB_TEST_LIBRARIES;

std::string libraryPath(const std::string &name) {
    return kLibraries + "/lib" + name + ".so.1";
}

Names matches(const std::vector<std::string> &lines, const std::regex &pattern) {
    Names found;
    for (const std::string &line : lines)
        for (std::sregex_iterator match(line.begin(), line.end(), pattern), end; match != end; ++match)
            found.insert((*match)[1]);
    return found;
}

Names exported(const std::string &library) {
    // the last column is name@@version; the version's own symbol is of type A
    return matches(runCommand("nm -D --defined-only '" + libraryPath(library) + "'").lines,
                   std::regex("^[0-9a-f]+ [^A] ([A-Za-z0-9_]+)@@"));
}

Names exportedByPort() {
    Names names = exported("tavosw");
    names.merge(exported("tavhook"));
    names.merge(exported("tavdbfile"));
    return names;
}

/// What libtavdb is to export.
Names listed() {
    std::ifstream file(TAVDB_TEST_SOURCE "/src/tavdb.map");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line) && line.find("local:") == std::string::npos;)
        lines.push_back(line);
    return matches(lines, std::regex("^ +([A-Za-z0-9_]+);"));
}

Names declaredIn(const std::string &header) {
    const auto output =
        runCommand("'" TAVDB_TEST_C_COMPILER "' -std=c11 -E -P '" TAVDB_TEST_SOURCE "/include/" + header + "'");
    EXPECT_EQ(output.status, 0);
    std::string text;
    for (const std::string &line : output.lines)
        text += line + " ";
    return matches({text}, std::regex(R"(visibility\s*\("default"\)\)\)[^;(]*?([A-Za-z0-9_]+)\s*[;(])"));
}

Names without(Names all, const Names &some) {
    for (const std::string &name : some)
        all.erase(name);
    return all;
}

TEST(ExportedSymbols, AreThoseOfTheList) {
    const Names list = listed();
    ASSERT_GT(list.size(), 300U);
    EXPECT_THAT(exported("tavdb"), ContainerEq(list));
}

TEST(ExportedSymbols, AreWhatThePublicHeadersDeclare) {
    Names declared = declaredIn("tavdb.h");
    ASSERT_TRUE(declared.contains("tavDBMInit"));
    declared.merge(declaredIn("tavdb_modules.h"));
    EXPECT_TRUE(declared.contains("media_table"));
    EXPECT_TRUE(declared.contains("rangeS8_new"));
    EXPECT_THAT(without(without(declared, listed()), exportedByPort()), IsEmpty()) << "declared and not exported";
    EXPECT_THAT(without(listed(), declared), IsEmpty()) << "exported and not declared";
}

TEST(ExportedSymbols, OfThePortAreWhatThePlatformHeadersDeclare) {
    const Names defined = exportedByPort();
    Names declared = declaredIn("tavdb_platform.h");
    declared.merge(declaredIn("tavdb_plugin.h"));
    ASSERT_TRUE(declared.contains("getHook"));
    EXPECT_THAT(without(without(declared, defined), listed()), IsEmpty()) << "declared and not exported";
}

TEST(ExportedSymbols, AreAllCalledFromC) {
    std::ifstream source(TAVDB_TEST_SOURCE "/tests/abi/every_function.c");
    std::vector<std::string> lines;
    for (std::string line; std::getline(source, line);)
        lines.push_back(line);
    EXPECT_THAT(matches(lines, std::regex(R"(^ +CALL\(([A-Za-z0-9_]+))")), ContainerEq(listed()));
    const std::string table = testing::TempDir() + "tavdb-every-function-" + std::to_string(getpid());
    // what a call hands out is lost with the zeros that follow it, so leaks are not looked for here
    const auto run = runCommand("ASAN_OPTIONS=detect_leaks=0 TAVDB_DBTABLE='" + table +
                                "' " TAVDB_TEST_EMULATOR " '" TAVDB_TEST_EVERY_FUNCTION "' </dev/null");
    runCommand("rm -f '" + table + "' '" + table + ".sem'");
    EXPECT_EQ(run.status, 0);
    ASSERT_FALSE(run.lines.empty());
    EXPECT_EQ(run.lines.back(), "every function came back");
}

class Needed : public testing::TestWithParam<std::string> {};

TEST_P(Needed, LibrariesAreLibcAndThePort) {
    const auto lines = runCommand("readelf -d '" + libraryPath(GetParam()) + "'").lines;
    const Names needed = matches(lines, std::regex(R"(\(NEEDED\).*\[([^\]]+)\])"));
    EXPECT_TRUE(needed.contains("libc.so.6"));
    Names allowed = {"libc.so.6",      "ld-linux-x86-64.so.2", "ld.so.1",
                     "libtavosw.so.1", "libtavhook.so.1",      "libtavdbfile.so.1"};
    if (TAVDB_TEST_SANITIZE[0] != '\0')
        allowed.merge(
            matches({needed.begin(), needed.end()}, std::regex("^(lib[a-z]+san\\.so\\.[0-9]+|libgcc_s.*|libm.*)$")));
    EXPECT_THAT(without(needed, allowed), IsEmpty());
}

TEST_P(Needed, NameIsTheOneThatProgramsRecord) {
    const auto lines = runCommand("readelf -d '" + libraryPath(GetParam()) + "'").lines;
    EXPECT_THAT(matches(lines, std::regex(R"(\(SONAME\).*\[([^\]]+)\])")),
                testing::ElementsAre("lib" + GetParam() + ".so.1"));
}

class Hardened : public testing::TestWithParam<std::string> {};

TEST_P(Hardened, AddressesAreBoundAtTheStartAndReadOnlyFromThenOn) {
    const std::string file = '\'' + GetParam() + '\'';
    EXPECT_THAT(matches(runCommand("readelf -d " + file).lines, std::regex("\\(FLAGS(?:_1)?\\).*\\b(NOW)\\b")),
                testing::ElementsAre("NOW"));
    EXPECT_THAT(matches(runCommand("readelf -lW " + file).lines, std::regex("^ +(GNU_RELRO) ")),
                testing::ElementsAre("GNU_RELRO"));
}

TEST_P(Hardened, AnOverwrittenStackEndsTheProcess) {
    const auto lines = runCommand("nm -D --undefined-only '" + GetParam() + "'").lines;
    EXPECT_THAT(matches(lines, std::regex(R"( (__stack_chk_fail)\b)")), testing::ElementsAre("__stack_chk_fail"));
}

INSTANTIATE_TEST_SUITE_P(All, Hardened,
                         testing::Values(libraryPath("tavdb"), libraryPath("tavosw"), libraryPath("tavhook"),
                                         libraryPath("tavdbfile"), TAVDB_TEST_COMMAND),
                         [](const auto &file) {
                             const std::string name = file.param.substr(file.param.rfind('/') + 1);
                             return name.substr(0, name.find('.'));
                         });

INSTANTIATE_TEST_SUITE_P(All, Needed, testing::Values("tavdb", "tavosw", "tavhook", "tavdbfile"),
                         [](const auto &library) { return library.param; });

}  // namespace
}  // namespace tavdb_test
