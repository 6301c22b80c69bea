// SPDX-License-Identifier: Apache-2.0
// The rows against the list of what the library exports: nothing is left out but
// what asks the platform for nothing that could fail.
#include <fstream>
#include <regex>

#include "faults/fault_rows.h"

namespace tavdb_test {
namespace {

using testing::ContainerEq;
using Names = std::set<std::string>;

/// Why functions have no row.
struct Left {
    const char *pattern;
    const char *reason;
};

constexpr Left kLeft[] = {
    {"media_table", "data"},
    {"boadj_.*", "works on the caller's bytes"},
    {"IsCompMedia", "compares two texts"},
    {"db_getDb|getMedia|media_getCount", "looks into a table in memory"},
    {"session_setError", "writes into the caller's session"},
    {"session_show", "prints the table in memory"},
    {".*_debug_info|dbs_me_db_debug", "traces only, and the trace gives no result"},
    {"(comp|constraint|value)_(init|term)|misc_freeSems|value_print", "does nothing, or counts"},
    {"media_term", "closes entries; dbs_me_db_media_entry_close is tested"},
    {"lock_compUnlockAll", "works on the table in memory, without its mutex"},
    {"dbs_me_db_control_get_file_name", "asks the environment"},
    {"dbs_me_db_control_(inclement_ref_count|(set|get|free|add|remove)_table_entry)", "links entries in memory"},
    {"dbs_me_db_session_(add|remove|get_entry|free_entry|init_table)", "links slots in memory"},
    {"dbs_me_db_media_entry_set_(open|close|read|write|lseek|sync|debug)(_function)?", "looks a name up"},
};

Names exported() {
    std::ifstream file(TAVDB_TEST_EXPORTS);
    Names names;
    const std::regex symbol(R"(\s+([A-Za-z]\w+);)");
    std::smatch match;
    for (std::string line; std::getline(file, line) && line.find("local:") == std::string::npos;)
        if (std::regex_match(line, match, symbol))
            names.insert(match[1]);
    return names;
}

Names withRows() {
    Names names = attachFunctions();
    for (const auto &rows :
         {componentRows(), constraintRows(), controlRows(), managerRows(), storageRows(), valueRows()})
        for (const FaultRow &row : rows)
            names.insert(row.function());
    return names;
}

TEST(FaultList, EveryExportedFunctionHasARowOrAReasonToHaveNone) {
    Names expected = exported();
    ASSERT_GT(expected.size(), 300U);
    for (const Left &left : kLeft)
        std::erase_if(expected, [&](const auto &name) { return std::regex_match(name, std::regex(left.pattern)); });
    EXPECT_THAT(withRows(), ContainerEq(expected));
}

}  // namespace
}  // namespace tavdb_test
