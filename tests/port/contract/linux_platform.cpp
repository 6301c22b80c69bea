// SPDX-License-Identifier: Apache-2.0
// The Linux port under the contract tests.
#include <fstream>

#include "port/contract/platform_under_test.h"

namespace tavdb::test {
namespace {

std::string mediaFolder;

void prepare(const std::string &folder) {
    mediaFolder = folder;
    // Trace lines are formatted and written, so that a bad one shows.
    setenv("TAVDB_TRACE", "99", 1);
    setenv("TAVDB_TRACE_TO", (folder + "/trace").c_str(), 1);
}

std::string makeMedium(const std::string &, const std::string &name, const std::string &content) {
    std::ofstream(mediaFolder + "/" + name, std::ios::binary) << content;
    return name;  // relative to the folder of the media configuration
}

void installHook(uint32_t id, const tavDBMHook &hook) {
    EXPECT_EQ(tavHookRegister(id, &hook), 0);
}

}  // namespace

const PlatformUnderTest &platformUnderTest() {
    static const PlatformUnderTest platform = {
        .media = {{"message", {.whyMissing = "message media are not supported yet"}}},
        .hookPath = "",
        .prepare = prepare,
        .makeMedium = makeMedium,
        .installHook = installHook,
    };
    return platform;
}

}  // namespace tavdb::test
