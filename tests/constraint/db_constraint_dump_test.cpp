// SPDX-License-Identifier: Apache-2.0
// The dump of the constraint module: it has no statics, so its banner and the
// addresses of its functions are all there is.
#include "constraint/constraint_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ConstraintDumpTest : public ConstraintTest {
protected:
    /// Dumps at a level; all lines must be of that level, and the totals stay.
    std::vector<std::string> dump(int32_t level) {
        uint32_t debugSize = 7;
        uint32_t ramSize = 9;
        observe();
        EXPECT_EQ(dbs_me_db_constraint_debug_info(level, &debugSize, &ramSize), 0);
        EXPECT_EQ(debugSize, 7U);
        EXPECT_EQ(ramSize, 9U);
        EXPECT_EQ(fakeTrace().lines().size(), fakeTrace().texts(level).size());
        return fakeTrace().texts(level);
    }
    static std::vector<std::string> namesOf(const std::vector<std::string> &lines) {
        std::vector<std::string> names;
        for (const std::string &line : lines) {
            const size_t colon = line.find("]:");
            names.push_back(line.substr(colon == std::string::npos ? 0 : colon + 2));
        }
        return names;
    }
    /// The names without those of a group, which may stand anywhere.
    static std::vector<std::string> without(std::vector<std::string> names, const std::vector<std::string> &others) {
        std::erase_if(names, [&](const std::string &name) {
            return std::find(others.begin(), others.end(), name) != others.end();
        });
        return names;
    }
};

const char *const kHeaderFunctions[] = {"constraint_new",     "constraint_set",       "constraint_get",
                                        "constraint_getType", "constraint_getLength", "constraint_getData",
                                        "constraint_setData"};
const char *const kEnumerationFunctions[] = {"constraint_newEnumArray",
                                             "constraint_setEnumArray",
                                             "constraint_getEnumArray",
                                             "enum_new",
                                             "enum_get",
                                             "enum_set",
                                             "enum_setData"};

/// The functions in the order in which the interface lists them.
std::vector<std::string> functionLines() {
    std::vector<std::string> lines;
    const auto add = [&lines](const std::string &name) { lines.push_back(name + '\n'); };
    const auto addForAll = [&](const std::string &start, const std::string &end) {
        for (const TypeRow &row : typeRows())
            add(start + row.name + end);
    };
    for (const char *const name : kHeaderFunctions)
        add(name);
    for (const char *const verb : {"_new", "_get", "_set", "_getData", "_setData"})
        addForAll("range", verb);
    for (const char *const name : kEnumerationFunctions)
        add(name);
    addForAll("checkRange", "");
    addForAll("checkEnum", "");
    add("constraint_check");
    return lines;
}

TEST_F(ConstraintDumpTest, Level98PrintsTheBannerAlone) {
    EXPECT_THAT(dump(98), ElementsAre("====(db_constraint)\n"));
}

TEST_F(ConstraintDumpTest, Level5PrintsTheSizesBehindTheBanner) {
    const std::vector<std::string> lines = dump(5);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[0], "====(db_constraint)\n");
    EXPECT_EQ(lines[1], dumpLine(0, "debug_size"));
    EXPECT_EQ(lines[2], dumpLine(0, "ram_size"));
}

TEST_F(ConstraintDumpTest, Level99PrintsTheBannerAndTheFunctionsInTheOrderOfTheInterface) {
    std::vector<std::string> names = namesOf(dump(99));
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names[0], "====(db_constraint)\n");
    names.erase(names.begin());
    EXPECT_EQ(without(names, {"constraint_init\n", "constraint_term\n", "dbs_me_db_constraint_debug_info\n"}),
              functionLines());
}

TEST_F(ConstraintDumpTest, EveryFunctionIsListedOnceWithItsOwnAddress) {
    const std::vector<std::string> lines = dump(99);
    std::vector<std::string> names = namesOf(lines);
    std::vector<std::string> expected = functionLines();
    std::sort(names.begin(), names.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(without(names, {"====(db_constraint)\n", "constraint_init\n", "constraint_term\n",
                              "dbs_me_db_constraint_debug_info\n"}),
              expected);
    const std::vector<std::string> addresses(lines.begin() + 1, lines.end());
    const auto addressOf = [](const std::string &line) { return line.substr(0, line.find("]:")); };
    std::set<std::string> distinct;
    for (const std::string &line : addresses)
        distinct.insert(addressOf(line));
    // constraint_init and constraint_term do the same, so that a linker may make one of them
    EXPECT_GE(distinct.size() + 1, addresses.size());
    EXPECT_FALSE(distinct.contains("[0x       0"));
}

TEST_F(ConstraintDumpTest, AnyOtherLevelPrintsWhatLevel99PrintsAtItsOwnLevel) {
    const std::vector<std::string> full = dump(99);
    EXPECT_EQ(dump(2), full);
    EXPECT_EQ(dump(7), full);
}

TEST_F(ConstraintDumpTest, TotalsMayBeNull) {
    observe();
    EXPECT_EQ(dbs_me_db_constraint_debug_info(5, nullptr, nullptr), 0);
    EXPECT_FALSE(fakeTrace().texts(5).empty());
}

}  // namespace
}  // namespace tavdb_test
