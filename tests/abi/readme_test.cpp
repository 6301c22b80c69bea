// SPDX-License-Identifier: Apache-2.0
// The README's example compiles as it stands and does what it says, on the
// database that the README builds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "abi/command_output.h"
#include "abi/readme.h"

namespace tavdb_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

class Readme : public testing::Test {
protected:
    Readme() {
        std::string name = testing::TempDir() + "tavdb-readme-XXXXXX";
        folder = mkdtemp(name.data());
        setenv("TAVDB_DBTABLE", (folder / "control.tbl").c_str(), 1);
    }
    ~Readme() override {
        fs::remove_all(folder);
    }
    void write(const std::string &name, const std::string &text) const {
        std::ofstream(folder / name) << text;
    }
    int build(const std::string &description) const {
        return runCommand(TAVDB_TEST_EMULATOR " '" TAVDB_TEST_COMMAND "' build '" + description + "' -o '" +
                          database() + "' 2>&1")
            .status;
    }
    std::string database() const {
        return folder / "gateway";
    }

    fs::path folder;
};

TEST_F(Readme, ExampleCompilesAndRuns) {
    const std::string example = readmeBlock(TAVDB_TEST_SOURCE, "c");
    ASSERT_NE(example.find("tavDBMInit"), std::string::npos);
    ASSERT_NE(example.find(kReadmePlace), std::string::npos);
    write("example.c", withPlace(example, database()));
    const std::string sanitize = TAVDB_TEST_SANITIZE[0] != '\0' ? " -fsanitize=" TAVDB_TEST_SANITIZE : "";
    const auto compiled = runCommand(
        "cd '" + folder.string() + "' && '" TAVDB_TEST_C_COMPILER "' -std=c11 -Wall -Wextra -Wpedantic -Werror" +
        sanitize + " example.c -I'" TAVDB_TEST_SOURCE "/include' -L'" TAVDB_TEST_LIBRARIES "' -ltavdb -o example " +
        "-Wl,-rpath,'" TAVDB_TEST_LIBRARIES "'");
    ASSERT_EQ(compiled.status, 0);
    ASSERT_EQ(build(TAVDB_TEST_SOURCE "/examples/gateway/gateway.yaml"), 0);
    const auto run = runCommand(TAVDB_TEST_EMULATOR " '" + (folder / "example").string() + "'");
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.lines, ElementsAre("20000 is refused with code 67", "the MTU is 1492 now"));
}

TEST_F(Readme, DescriptionBuildsAndItsCommandsDoWhatTheySay) {
    write("gateway.yaml", readmeBlock(TAVDB_TEST_SOURCE, "yaml"));
    ASSERT_EQ(build(folder / "gateway.yaml"), 0);
    setenv("TAVDB_DIR", database().c_str(), 1);
    const std::string command = TAVDB_TEST_EMULATOR " '" TAVDB_TEST_COMMAND "' ";
    EXPECT_EQ(runCommand(command + "set /network/lan/linkMode full1000").status, 0);
    EXPECT_THAT(runCommand(command + "get /network/lan/linkMode").lines, ElementsAre("full1000"));
    const auto refused = runCommand(command + "set /network/lan/mtuBytes 20000 2>&1");
    EXPECT_NE(refused.status, 0);
    EXPECT_THAT(refused.lines, ElementsAre("tavdb: /network/lan/mtuBytes: value 20000 is outside 576..9000 step 4"));
}

}  // namespace
}  // namespace tavdb_test
