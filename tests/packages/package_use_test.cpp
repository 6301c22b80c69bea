// SPDX-License-Identifier: Apache-2.0
// Programs compiled and linked against the packages alone: with pkg-config, with
// CMake, and by hand as the examples' README says.
#include <gmock/gmock.h>

#include <sstream>

#include "packages/package_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

const std::string kWarnings = " -std=c11 -Wall -Wextra -Wpedantic -Werror ";

class PackageUse : public Packages {
protected:
    /// What pkg-config says about a library in a system that lies in the root folder.
    std::string flags(const std::string &arguments) const {
        const auto output = run("PKG_CONFIG_SYSROOT_DIR='" + root.string() + "' PKG_CONFIG_LIBDIR='" +
                                (libraries / "pkgconfig").string() + "' pkg-config " + arguments);
        EXPECT_EQ(output.status, 0) << arguments;
        return output.lines.empty() ? "" : output.lines[0];
    }
    /// Libraries that libraries need are found by the linker in /usr/lib, which the root folder only plays.
    std::string linkFlags(const std::string &library) const {
        return flags("--cflags --libs " + library) + " -Wl,-rpath-link,'" + libraries.string() + "' ";
    }
    int compile(const std::string &what) const {
        return run("'" TAVDB_TEST_C_COMPILER "'" + kWarnings + what).status;
    }
    std::string crossing() const {
        const std::string file = TAVDB_TEST_TOOLCHAIN;
        if (file.empty())
            return " -DCMAKE_PREFIX_PATH='" + (root / "usr").string() + "'";
        // a toolchain file keeps find_package to the folders that it names
        return " -DCMAKE_TOOLCHAIN_FILE='" + file + "' -Dtavdb_DIR='" + (libraries / "cmake/tavdb").string() + "'";
    }
};

TEST_F(PackageUse, ReadmeExampleWithPkgConfig) {
    writeExample("example.c", "gateway");
    ASSERT_EQ(compile("example.c " + linkFlags("libtavdb") + "-o example"), 0);
    expectExampleRuns("./example");
}

TEST_F(PackageUse, PkgConfigNamesNoPlaceOutsideOfTheRoot) {
    for (const std::string library : {"libtavdb", "libtavosw", "libtavhook", "libtavdbfile"}) {
        std::istringstream words(flags("--cflags --libs " + library));
        for (std::string word; words >> word;) {
            const bool isPlace = word.starts_with("-I") || word.starts_with("-L");
            EXPECT_TRUE(!isPlace || word.substr(2).starts_with(root.string())) << library << ": " << word;
        }
        EXPECT_EQ(flags("--modversion " + library), flags("--modversion libtavdb"));
    }
}

TEST_F(PackageUse, EveryLibraryOfThePortWithPkgConfig) {
    ASSERT_EQ(compile("'" TAVDB_TEST_SOURCE "/tests/packages/consumer/port.c' " +
                      linkFlags("libtavosw libtavhook libtavdbfile") + "-o port"),
              0);
    EXPECT_THAT(runThere("./port").lines, ElementsAre("the port answers"));
}

TEST_F(PackageUse, ProjectWithCMake) {
    writeExample("example.c", "gateway");
    const std::string example = " -DEXAMPLE='" + (folder / "example.c").string() + "'";
    const auto configured =
        run("'" TAVDB_TEST_CMAKE "' -G Ninja -S '" TAVDB_TEST_SOURCE "/tests/packages/consumer' -B made" + example +
            crossing() + " 2>&1");
    ASSERT_EQ(configured.status, 0) << joined(configured.lines);
    const auto built = run("'" TAVDB_TEST_CMAKE "' --build made 2>&1");
    ASSERT_EQ(built.status, 0) << joined(built.lines);
    expectExampleRuns("made/example");
    EXPECT_THAT(runThere("made/port").lines, ElementsAre("the port answers"));
    EXPECT_THAT(runThere("made/builder built").lines, ElementsAre("/lan/mtu is 1500"));
}

TEST_F(PackageUse, InstalledExamplesCompile) {
    const std::string example = "root/usr/share/doc/tavdb/examples/gateway/";
    for (const std::string program : {"gateway_writer", "gateway_watcher", "gateway_refused"})
        EXPECT_EQ(compile("-D_POSIX_C_SOURCE=200809L " + example + program + ".c " + example + "directory.c " +
                          example + "error_text.c " + linkFlags("libtavdb") + "-o " + program),
                  0);
    EXPECT_EQ(
        compile("-shared -fPIC " + example + "gateway_hooks.c " + flags("--cflags libtavhook") + " -o libhooks.so"), 0);
    ASSERT_EQ(runThere("root/usr/bin/tavdb build " + example + "gateway.yaml -o gateway").status, 0);
    EXPECT_EQ(runThere("./gateway_writer gateway >/dev/null").status, 0);
}

}  // namespace
}  // namespace tavdb_test
