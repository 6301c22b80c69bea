// SPDX-License-Identifier: Apache-2.0
// The seven function slots of a media entry as one table, for tests that say the
// same of each: names, codes, trace sites, the functions that fill the slot.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tavdb_modules.h"

namespace tavdb_test {

struct SlotRow {
    using Fill = int32_t (*)(const char *name, tavDBMMediaEntry *entry);

    const char *name;            ///< as it stands in the library's function names
    int32_t code;                ///< of a function that is not found
    int32_t missingBuiltIn;      ///< what filling gives then for a built-in medium
    size_t token;                ///< place in a configuration line, the library is 0; 0 when no line names it
    int32_t lookUpSite;          ///< fixed for good, like the next two
    int32_t functionSite;        ///< of a missing built-in; a plug-in's two lines follow
    int32_t missingTokenSite;    ///< of the line's token; a rejected one's follows
    const char *memoryFunction;  ///< a valid built-in name
    const char *pluginFunction;  ///< a valid name in the plug-ins of these tests
    Fill fill;                   ///< of a built-in medium or a plug-in
    Fill lookUp;                 ///< in the built-in table only
    const void *(*word)(const tavDBMMediaEntry &entry);

    std::string fillName() const {
        return lookUpName() + "_function";
    }
    std::string lookUpName() const {
        return std::string("dbs_me_db_media_entry_set_") + name;
    }
};

/// open, close, read, write, lseek, sync, debug
const std::vector<SlotRow> &slotRows();
/// The six that a configuration line names, in its order.
std::vector<SlotRow> lineSlotRows();
void PrintTo(const SlotRow &row, std::ostream *stream);

/// Every built-in name of a slot.
std::vector<std::string> builtInNames(const SlotRow &row);

/// The tokens of a line for a plug-in of these tests.
std::vector<std::string> pluginTokens(const std::string &library, const std::string &hint = "flash0");
std::vector<std::string> builtInTokens(const std::string &hint = "data.med");
std::string lineOf(const std::vector<std::string> &tokens);

}  // namespace tavdb_test
