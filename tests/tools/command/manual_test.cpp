// SPDX-License-Identifier: Apache-2.0
// The examples of the user's manual, run from the first to the last: what stands
// there is what the command prints.
#include <gtest/gtest.h>
#include <stdio.h>

#include <bit>
#include <filesystem>
#include <regex>
#include <sstream>

#include "tools/test_place.h"

namespace tavdb_test {
namespace {

std::string document(const std::string &name) {
    return bytesOf(std::string(TAVDB_DOCS_DIR) + "/" + name);
}

/// The texts between ```LANGUAGE and ```, in one.
std::string examples(const std::string &text, const std::string &language) {
    const auto fence = "\n```" + language + "\n";
    std::string found;
    for (size_t at = text.find(fence); at != std::string::npos; at = text.find(fence, at)) {
        at += fence.size();
        found += text.substr(at, text.find("\n```\n", at) + 1 - at);
    }
    return found;
}

/// What differs from run to run and from place to place becomes the same.
std::string normal(std::string text) {
    const std::pair<const char *, const char *> changes[] = {
        {" in [0-9]+ ms", " in N ms"},
        {"directory    [^\n]*/gateway.db", "directory    PLACE/gateway.db"},
        {"(session|process|database|\"session\":|\"process\":|\"database\":) [0-9]+", "$1 N"},
    };
    for (const auto &[pattern, replacement] : changes)
        text = std::regex_replace(text, std::regex(pattern), replacement);
    return text;
}

/// Runs all "$ " lines in one shell and puts what they print between them.
std::string run(const std::string &session, const TestPlace &place) {
    std::string script = "exec 2>&1\n";
    std::istringstream lines(session);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("$ "))
            script += "printf '%s\\n' '" + std::regex_replace(line, std::regex("'"), "'\\''") + "'\n" +
                      (line == "$ echo $?" ? "echo $last" : line.substr(2)) + "\nlast=$?\n";
    place.write("script", script);
    FILE *const pipe = popen(("cd " + place.path() + " && sh ./script").c_str(), "r");
    std::string output;
    char part[4096];
    while (const size_t count = fread(part, 1, sizeof part, pipe))
        output.append(part, count);
    pclose(pipe);
    return output;
}

/// Two sessions: the verbs that work on values and look around, and those behind
/// "find", which begin with a fresh database.
class Manual : public testing::Test {
protected:
    void SetUp() override {
        if (std::endian::native != std::endian::little)
            GTEST_SKIP() << "the manual shows a little-endian machine";
        const std::filesystem::path command = TAVDB_COMMAND;
        setenv("PATH", (command.parent_path().string() + ":" + getenv("PATH")).c_str(), 1);
        const auto descriptions = document("DESCRIPTIONS.md");
        // The first example, up to its end.
        place.write("gateway.yaml", examples(descriptions.substr(0, descriptions.find("\n### Names\n")), "yaml"));
    }

    TestPlace place;
    const std::string text = document("COMMAND.md");
    const size_t middle = text.find("\n## find\n");
};

TEST_F(Manual, FirstSessionPrintsWhatStandsThere) {
    place.write("wrong.yaml", "mtu: {type: u32, range: [300, 4000000], factory: 5}\nmode: {type: u9}\n");
    const auto session = examples(text.substr(0, middle), "console");
    for (const auto *command : {"build", "get", "set", "list", "tree", "describe", "info"})
        EXPECT_NE(session.find("$ tavdb " + std::string(command)), std::string::npos) << command;
    EXPECT_EQ(normal(run(session, place)), normal(session));
}

TEST_F(Manual, SecondSessionPrintsWhatStandsThere) {
    if (middle == std::string::npos)
        GTEST_SKIP() << "there are no such verbs";
    run("$ tavdb build gateway.yaml -o gateway.db\n", place);
    setenv("TAVDB_DIR", "gateway.db", 1);
    const auto session = examples(text.substr(middle), "console");
    EXPECT_FALSE(session.empty());
    EXPECT_EQ(normal(run(session, place)), normal(session));
}

}  // namespace
}  // namespace tavdb_test
