// SPDX-License-Identifier: Apache-2.0
// The Linux port under the contract tests.
#include <fstream>

#include "port/contract/platform_under_test.h"
#if defined(TAVDB_TEST_MEDIA_SERVER)
#include "port/contract/linux_media_server.h"
#endif

namespace tavdb::test {
namespace {

std::string mediaFolder;

#if defined(TAVDB_TEST_MEDIA_SERVER)
constexpr MediumFacts kMessageMedia = {};
#else
constexpr MediumFacts kMessageMedia = {.whyMissing = "message media need the tools' server, which is not built"};
void serveImage(const std::string &, const std::string &) {}
void stopServing() {}
#endif

void prepare(const std::string &folder) {
    mediaFolder = folder;
    stopServing();
    // Trace lines are formatted and written, so that a bad one shows.
    setenv("TAVDB_TRACE", "99", 1);
    setenv("TAVDB_TRACE_TO", (folder + "/trace").c_str(), 1);
}

void writeFile(const std::string &name, const std::string &content) {
    std::ofstream(mediaFolder + "/" + name, std::ios::binary) << content;
}

/// Hints are relative to the folder of the media configuration.
std::string makeMedium(const std::string &kind, const std::string &name, const std::string &content) {
    writeFile(name, content);
    if (kind != "message")
        return name;
    serveImage(mediaFolder + "/" + name, mediaFolder + "/" + name + ".sock");
    return name + ".sock";
}

void installHook(uint32_t id, const tavDBMHook &hook) {
    EXPECT_EQ(tavHookRegister(id, &hook), 0);
}

}  // namespace

const PlatformUnderTest &platformUnderTest() {
    static const PlatformUnderTest platform = {
        .media = {{"message", kMessageMedia}},
        .hookPath = "",
        .prepare = prepare,
        .makeMedium = makeMedium,
        .installHook = installHook,
    };
    return platform;
}

}  // namespace tavdb::test
