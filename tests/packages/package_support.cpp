// SPDX-License-Identifier: Apache-2.0
#include "packages/package_support.h"

#include <gmock/gmock.h>
#include <stdlib.h>

#include <fstream>

#include "abi/readme.h"

namespace tavdb_test {

namespace fs = std::filesystem;

std::string joined(const std::vector<std::string> &lines) {
    std::string text;
    for (const std::string &line : lines)
        text += line + "\n";
    return text;
}

fs::path packageFile(const std::string &package) {
    for (const auto &entry : fs::directory_iterator(TAVDB_TEST_PACKAGES))
        if (entry.path().filename().string().starts_with(package + "_"))
            return entry.path();
    throw std::runtime_error("there is no package " + package + " in " TAVDB_TEST_PACKAGES);
}

Packages::Packages() {
    std::string name = testing::TempDir() + "tavdb-packages-XXXXXX";
    folder = mkdtemp(name.data());
    root = folder / "root";
    libraries = root / "usr" / TAVDB_TEST_LIBDIR;
    for (const std::string &package : kPackages)
        run("dpkg-deb -x '" + packageFile(package).string() + "' '" + root.string() + "'");
    setenv("TAVDB_DBTABLE", (folder / "control.tbl").c_str(), 1);
}

Packages::~Packages() {
    fs::remove_all(folder);
}

CommandOutput Packages::run(const std::string &command) const {
    return runCommand("cd '" + folder.string() + "' && " + command);
}

CommandOutput Packages::runThere(const std::string &program) const {
    return run("LD_LIBRARY_PATH='" + libraries.string() + "' " TAVDB_TEST_EMULATOR " " + program);
}

void Packages::buildDatabase(const std::string &place) const {
    std::ofstream(folder / "gateway.yaml") << readmeBlock(TAVDB_TEST_SOURCE, "yaml");
    ASSERT_EQ(runThere("root/usr/bin/tavdb build gateway.yaml -o " + place).status, 0);
}

void Packages::writeExample(const std::string &file, const std::string &place) const {
    const std::string example = readmeBlock(TAVDB_TEST_SOURCE, "c");
    ASSERT_NE(example.find(kReadmePlace), std::string::npos);
    std::ofstream(folder / file) << withPlace(example, (folder / place).string());
}

void Packages::expectExampleRuns(const std::string &program) const {
    buildDatabase("gateway");
    const auto output = runThere(program);
    EXPECT_EQ(output.status, 0);
    EXPECT_THAT(output.lines, testing::ElementsAre("20000 is refused with code 67", "the MTU is 1492 now"));
}

}  // namespace tavdb_test
