// SPDX-License-Identifier: Apache-2.0
// The 52 call counters: their order in the dump, and that each is advanced by
// its own function only, by two, first thing, whatever becomes of the call.
#include <algorithm>
#include <functional>

#include "control/db_counter.h"
#include "manager/manager_calls.h"
#include "model/module_dump.h"

namespace tavdb_test {
namespace {

constexpr size_t kCounters = 52;
const std::string kPrefix = "s_debug_db_manager_";

/// The counters as the dump prints them: name and number, in order.
std::vector<std::pair<std::string, uint32_t>> counters() {
    const Dump dump = dumpOf(dbs_me_db_manager_debug_info, 99);
    std::vector<std::pair<std::string, uint32_t>> found;
    for (const std::string &line : dump.lines) {
        const size_t at = line.find(':' + kPrefix);
        if (at == std::string::npos)
            continue;
        const std::string name = line.substr(at + 1, line.size() - at - 2);
        found.emplace_back(name.substr(kPrefix.size()), dump.wordOf(name));
    }
    return found;
}

class Counters : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        build("n(a b) p(x y) leaf");
        const uint32_t value = putValue({1, 2, 3, 4, 5, 6, 7, 8});
        setKeys(key("leaf"), {.currentValue = value, .defaultValue = value, .factoryValue = value});
        arguments = {.session = &session,
                     .node = key("n"),
                     .leaf = key("leaf"),
                     .parent = key("p"),
                     .previous = key("x"),
                     .child = key("y"),
                     .value = value,
                     .word = 4711};
    }
    /// The names of the counters that the action advanced, each with how far.
    static std::vector<std::pair<std::string, uint32_t>> advancedBy(const std::function<void()> &action) {
        const auto before = counters();
        testing::internal::CaptureStdout();
        action();
        testing::internal::GetCapturedStdout();
        const auto after = counters();
        std::vector<std::pair<std::string, uint32_t>> advanced;
        for (size_t i = 0; i < before.size() && i < after.size(); ++i) {
            if (after[i] != before[i])
                advanced.emplace_back(after[i].first, after[i].second - before[i].second);
        }
        return advanced;
    }

    CallArguments arguments{};
};

class CounterTest : public Counters, public testing::WithParamInterface<CountedFunction> {
protected:
    void expectOwnCounterAdvanced() {
        EXPECT_THAT(advancedBy([this] { GetParam().call(arguments); }),
                    testing::ElementsAre(std::pair<std::string, uint32_t>(GetParam().counter, 2)));
    }
};

INSTANTIATE_TEST_SUITE_P(All, CounterTest, testing::ValuesIn(countedFunctions().begin(), countedFunctions().end()),
                         kRowName);

TEST_P(CounterTest, IsAdvancedByTwoByItsOwnFunctionOnly) {
    expectOwnCounterAdvanced();
}

TEST_P(CounterTest, IsAdvancedAlsoWhenTheCallFails) {
    session.dbId = kNotOpenDb;
    clearTraces();
    expectOwnCounterAdvanced();
    EXPECT_EQ(accesses(), 0U) << "the call did not fail";
    session.dbId = 1;
}

TEST_P(CounterTest, IsAdvancedBeforeAnArgumentIsLookedAt) {
    arguments.session = nullptr;
    expectOwnCounterAdvanced();
}

TEST_F(Counters, StandInTheDumpInTheirFixedOrder) {
    std::vector<std::string> names;
    for (const auto &[name, number] : counters())
        names.push_back(name);
    std::vector<std::string> expected;
    for (const CountedFunction &function : countedFunctions())
        expected.emplace_back(function.counter);
    EXPECT_EQ(names, expected);
    EXPECT_EQ(names.size(), kCounters);
}

TEST_F(Counters, AreNotAdvancedByFunctionsWithoutOne) {
    const auto advanced = advancedBy([this] {
        uint8_t buffer[8] = {};
        int32_t length = sizeof buffer;
        tavDBMGetGeneric(&session, arguments.leaf, buffer, &length);
        tavDBMGetDefaultGeneric(&session, arguments.leaf, buffer, &length);
        tavDBMGetFactoryGeneric(&session, arguments.leaf, buffer, &length);
        tavDBMGetCreateListGeneric(&session, arguments.leaf, buffer, &length);
        tavDBMSetGeneric(&session, arguments.leaf, buffer, 4);
        tavDBMSetDefaultGeneric(&session, arguments.leaf, buffer, 4);
        tavDBMGetType(&session, arguments.leaf);
        tavDBMGetLength(&session, arguments.leaf);
        tavDBMSetCurrentComponent(&session, arguments.leaf);
        tavDBMCopy(&session, arguments.leaf, arguments.leaf);
        tavDBMSearchByName(&session, "x");
        tavDBMGetConstraintData(&session, arguments.leaf, buffer, 8);
        tavDBMSetConstraintData(&session, arguments.leaf, buffer, 8);
        tavDBMGetConstraintLength(&session, arguments.leaf);
        tavDBMGetConstraintType(&session, arguments.leaf);
        tavDBMLock(&session, arguments.leaf, TAVDB_LOCK_TRY);
        tavDBMUnlock(&session, arguments.leaf);
        tavDBMSync(&session, kDataMedia, 0);
        tavDBMDeleteString(&session, 16);
    });
    EXPECT_THAT(advanced, testing::IsEmpty());
}

TEST_F(Counters, AtLevel98TheDumpOnlyAdds208) {
    const Dump dump = dumpOf(dbs_me_db_manager_debug_info, 98);
    EXPECT_THAT(dump.lines, testing::IsEmpty());
    EXPECT_EQ(dump.debugSize, 208U);
    EXPECT_EQ(dump.ramSize, 0U);
}

TEST_F(Counters, AtLevel5TheDumpPrintsItsSizesBehindItsBanner) {
    const Dump dump = dumpOf(dbs_me_db_manager_debug_info, 5);
    ASSERT_GT(dump.lines.size(), 3 + kCounters);
    EXPECT_EQ(dump.lines[0], "====(db_manager)\n");
    EXPECT_EQ(dump.lines[1], dumpLine(208, "debug_size"));
    EXPECT_EQ(dump.lines[2], dumpLine(0, "ram_size"));
    EXPECT_EQ(dump.debugSize, 208U);
    EXPECT_EQ(dump.ramSize, 0U);
}

TEST_F(Counters, TheDumpEndsWithTheAddressesOfTheFunctions) {
    const Dump dump = dumpOf(dbs_me_db_manager_debug_info, 99);
    std::vector<std::string> names;
    for (size_t i = 1 + kCounters; i < dump.lines.size(); ++i)
        names.push_back(dump.lines[i].substr(dump.lines[i].find(':') + 1));
    for (std::string &name : names)
        name.pop_back();
    std::vector<const char *> pointers;
    for (const std::string &name : names)
        pointers.push_back(name.c_str());
    const std::vector<std::string> tail(dump.lines.begin() + 1 + kCounters, dump.lines.end());
    EXPECT_EQ(tail, withAddresses({}, pointers));
    for (const CountedFunction &function : countedFunctions())
        EXPECT_THAT(names, testing::Contains(std::string("tavDBM") + function.name));
}

TEST(CounterStep, DeliberatelyRunsThroughEvenNumbersAndThenFromOneThroughOddOnes) {
    uint32_t counter = 0;
    tavdb::enterCounter(counter);
    EXPECT_EQ(counter, 2U);
    counter = 0xFFFFFEFC;
    tavdb::enterCounter(counter);
    EXPECT_EQ(counter, 0xFFFFFEFE);
    tavdb::enterCounter(counter);
    EXPECT_EQ(counter, 0xFFFFFF00);
    tavdb::enterCounter(counter);
    EXPECT_EQ(counter, 1U);
    tavdb::enterCounter(counter);
    EXPECT_EQ(counter, 3U);
    counter = 0xFFFFFEFF;
    tavdb::enterCounter(counter);
    EXPECT_EQ(counter, 1U);
}

}  // namespace
}  // namespace tavdb_test
