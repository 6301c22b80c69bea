// SPDX-License-Identifier: Apache-2.0
#include "faults/outcomes.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>

namespace tavdb_test {

namespace {

std::string joined(const std::set<std::string> &outcomes) {
    std::string line;
    for (const std::string &outcome : outcomes)
        line += (line.empty() ? "" : ", ") + outcome;
    return line;
}

std::map<std::string, std::string> readLines() {
    std::ifstream file(TAVDB_TEST_OUTCOMES);
    std::map<std::string, std::string> outcomes;
    for (std::string line; std::getline(file, line);) {
        const size_t colon = line.find(": ");
        if (!line.empty() && line[0] != '#' && colon != std::string::npos)
            outcomes[line.substr(0, colon)] = line.substr(colon + 2);
    }
    return outcomes;
}

}  // namespace

std::string textOf(const Outcome &outcome, const Outcome &untouched) {
    std::string text = outcome.result == untouched.result ? "=" : std::to_string(outcome.result);
    if (outcome.code != 0 || outcome.detail != 0)
        text += ' ' + std::to_string(outcome.code);
    if (outcome.detail != 0)
        text += '(' + std::to_string(outcome.detail) + ')';
    return text;
}

void expectOutcomes(const std::string &name, const std::set<std::string> &outcomes) {
    static const auto expected = readLines();
    const auto line = expected.find(name);
    EXPECT_EQ(name + ": " + joined(outcomes), name + ": " + (line != expected.end() ? line->second : "(no line)"));
}

}  // namespace tavdb_test
