// SPDX-License-Identifier: Apache-2.0
// The session in docs/PLUGINS.md, run as it stands there: its commands must print
// what it says. Only folders differ, and figures that are times.
#include <gmock/gmock.h>

#include <bit>
#include <fstream>
#include <regex>
#include <sstream>

#include "gateway_test_support.h"

namespace tavdb::test {

namespace {

class PluginGuide : public GatewayTest {
protected:
    /// The lines of all console blocks.
    static Words sessionLines() {
        std::ifstream guide(TAVDB_TEST_PLUGIN_GUIDE);
        Words lines;
        bool isInside = false;
        for (std::string line; std::getline(guide, line);) {
            if (line.starts_with("```"))
                isInside = line == "```console";
            else if (isInside)
                lines.push_back(line);
        }
        return lines;
    }
    /// A line of the guide with the folders of this test.
    std::string here(std::string line) const {
        const std::pair<std::string, std::string> places[] = {
            {"$PWD/build/release/bin", TAVDB_TEST_PROGRAM_FOLDER},
            {"build/release/lib/libfaulty_medium.so", TAVDB_TEST_FAULTY_MEDIUM},
            {"examples/gateway", TAVDB_TEST_GATEWAY_DIR},
            {"/tmp/gateway", database()}};
        for (const auto &[theirs, ours] : places)
            if (const size_t at = line.find(theirs); at != std::string::npos)
                line.replace(at, theirs.size(), ours);
        return line;
    }
    static std::string withoutTimes(const std::string &line) {
        static const std::regex times("in [0-9]+ ms|^(real|user|sys) [0-9.]+$");
        return std::regex_replace(line, times, "TIME");
    }
    /// A shell script that shows each command and what it prints.
    std::string scriptOf(const Words &session) const {
        std::ostringstream script;
        script << "exec 2>&1\n";
        for (const auto &line : session)
            if (line.starts_with("$ "))
                script << "cat <<'END OF COMMAND'\n"
                       << here(line) << "\nEND OF COMMAND\n"
                       << here(line).substr(2) << '\n';
        return script.str();
    }
};

TEST_F(PluginGuide, ItsSessionPrintsWhatItSays) {
    if (std::endian::native != std::endian::little)
        GTEST_SKIP() << "the guide shows a little-endian machine";
    const Words session = sessionLines();
    ASSERT_GT(session.size(), 20U);
    std::ofstream(place("session.sh")) << scriptOf(session);
    Words expected;
    for (const auto &line : session)
        expected.push_back(withoutTimes(here(line)));
    Words printed = linesOf(run({"/bin/bash", place("session.sh")}).output);
    for (auto &line : printed)
        line = withoutTimes(line);
    EXPECT_EQ(printed, expected);
}

}  // namespace

}  // namespace tavdb::test
