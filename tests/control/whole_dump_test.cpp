// SPDX-License-Identifier: Apache-2.0
// The dump of the whole library, line by line, against the text in
// whole_dump.txt. Stars stand there for what differs between machines and runs:
// addresses, the semaphore set that is handed over whole, and the memory of the
// media table, whose entries hold pointers.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include <regex>
#include <string>

#include "control/control_test_support.h"
#include "fakes/fake_trace.h"
#include "file_content.h"
#include "tavdb_modules.h"

namespace tavdb_test {
namespace {

/// The trace lines of a level, the varying values masked.
std::string maskedLines(int32_t level) {
    static const std::regex valueLine(R"(\[0x[ 0-9a-f]{8}\]:(\w+)\n)");
    static const std::regex varies(R"(flst_\w+|s_debug_db_(lock_init|media_(get_media|init|sync))_error|\w+_mutex)");
    std::string module;
    std::string text;
    for (const std::string &line : fakeTrace().texts(level)) {
        if (line.starts_with("===="))
            module = line;
        std::smatch match;
        const bool isVarying =
            std::regex_match(line, match, valueLine) &&
            (std::regex_match(match[1].str(), varies) || dlsym(RTLD_DEFAULT, match[1].str().c_str()) != nullptr ||
             (match[1] == "ram_size" && module == "====(db_media)\n"));
        text += isVarying ? "[0x********]:" + match[1].str() + "\n" : line;
    }
    return text;
}

using GoldenDump = ControlFixture;

TEST_F(GoldenDump, OfAFreshlyAttachedLibraryAtLevel5) {
    start();
    uint32_t debugSize = 0;
    uint32_t ramSize = 0;
    ASSERT_EQ(dbs_me_db_debug(5, &debugSize, &ramSize), 0);
    EXPECT_EQ(maskedLines(5), contentOf(TAVDB_TEST_WHOLE_DUMP));
    EXPECT_EQ(debugSize, 208U + 8 + 14904 + 28 + 3632 + 512 + 4);
    EXPECT_EQ(ramSize, 20U + 8 + 8 + sizeof media_table + 4);
}

class GoldenDumpAt : public ControlFixture, public testing::WithParamInterface<int32_t> {};

INSTANTIATE_TEST_SUITE_P(Levels, GoldenDumpAt, testing::Values(99, 0, 6), testing::PrintToStringParamName());

TEST_P(GoldenDumpAt, AnyLevelButThoseOfTheirOwnIsThatOfLevel5WithoutItsSizes) {
    start();
    ASSERT_EQ(dbs_me_db_debug(GetParam(), nullptr, nullptr), 0);
    const std::string golden = contentOf(TAVDB_TEST_WHOLE_DUMP);
    ASSERT_FALSE(golden.empty());
    EXPECT_EQ(maskedLines(GetParam()), std::regex_replace(golden, std::regex(R"(.*\]:(debug|ram)_size\n)"), ""));
}

}  // namespace
}  // namespace tavdb_test
