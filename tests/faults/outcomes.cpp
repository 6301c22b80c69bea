// SPDX-License-Identifier: Apache-2.0
#include "faults/outcomes.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "rounds.h"

namespace tavdb_test {

namespace {

constexpr const char *kBetween = ", ";

std::string joined(const std::set<std::string> &outcomes) {
    std::string line;
    for (const std::string &outcome : outcomes)
        line += (line.empty() ? "" : kBetween) + outcome;
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
    const auto found = expected.find(name);
    const std::string line = found != expected.end() ? found->second : "(no line)";
    if (!kSlow) {
        EXPECT_EQ(name + ": " + joined(outcomes), name + ": " + line);
        return;
    }
    // Not every kind of fault was there, so not every outcome has to be.
    for (const std::string &outcome : outcomes)
        EXPECT_NE((kBetween + line + kBetween).find(kBetween + outcome + kBetween), std::string::npos)
            << name << ": " << outcome;
}

}  // namespace tavdb_test
