// SPDX-License-Identifier: Apache-2.0
#include "storage/media_slots.h"

namespace tavdb_test {

namespace {

template <auto Slot>
const void *wordOf(const tavDBMMediaEntry &entry) {
    return reinterpret_cast<const void *>(entry.*Slot);
}

std::vector<std::string> syncNames() {
    std::vector<std::string> names;
    for (int number = 1; number <= 60; ++number) {
        const bool isFile = number == 3 || number == 6;
        names.push_back((isFile ? "tavdbFileSync" : "tavdbMemSync") + std::to_string(number));
    }
    names.push_back("tavdbMsgSync");
    return names;
}

}  // namespace

const std::vector<SlotRow> &slotRows() {
    using Entry = tavDBMMediaEntry;
    static const std::vector<SlotRow> rows = {
        {"open", 14, 14, 1, 120, 220, 310, "tavdbMemOpen", "pluginOpen", dbs_me_db_media_entry_set_open_function,
         dbs_me_db_media_entry_set_open, wordOf<&Entry::open>},
        {"close", 15, 15, 2, 130, 230, 320, "tavdbMemClose", "pluginClose", dbs_me_db_media_entry_set_close_function,
         dbs_me_db_media_entry_set_close, wordOf<&Entry::close>},
        {"read", 16, 16, 3, 140, 240, 330, "tavdbMemRead", "pluginRead", dbs_me_db_media_entry_set_read_function,
         dbs_me_db_media_entry_set_read, wordOf<&Entry::read>},
        {"write", 17, 17, 4, 150, 250, 340, "tavdbMemWrite", "pluginWrite", dbs_me_db_media_entry_set_write_function,
         dbs_me_db_media_entry_set_write, wordOf<&Entry::write>},
        {"lseek", 18, 18, 5, 160, 260, 350, "tavdbMemSeek", "pluginSeek", dbs_me_db_media_entry_set_lseek_function,
         dbs_me_db_media_entry_set_lseek, wordOf<&Entry::lseek>},
        {"sync", 19, 19, 6, 170, 270, 360, "tavdbMemSync1", "pluginSync", dbs_me_db_media_entry_set_sync_function,
         dbs_me_db_media_entry_set_sync, wordOf<&Entry::sync>},
        {"debug", 14, 0, 0, 180, 280, 0, "dbs_me_db_media_file_debug_info", "dbs_me_db_media_file_debug_info",
         dbs_me_db_media_entry_set_debug_function, dbs_me_db_media_entry_set_debug, wordOf<&Entry::debug>},
    };
    return rows;
}

std::vector<SlotRow> lineSlotRows() {
    return {slotRows().begin(), slotRows().end() - 1};
}

void PrintTo(const SlotRow &row, std::ostream *stream) {
    *stream << row.name;
}

std::vector<std::string> builtInNames(const SlotRow &row) {
    const std::string slot = row.name;
    if (slot == "sync")
        return syncNames();
    if (slot == "debug")
        return {"dbs_me_db_media_file_debug_info"};
    if (slot == "open")
        return {"tavdbMemOpen", "tavdbFileOpenHD", "tavdbFileOpenRom", "tavdbMsgOpen"};
    const std::string memory = row.memoryFunction;
    const std::string verb = memory.substr(std::string("tavdbMem").size());
    return {memory, "tavdbFile" + verb, "tavdbMsg" + verb};
}

std::vector<std::string> pluginTokens(const std::string &library, const std::string &hint) {
    std::vector<std::string> tokens = {library};
    for (const SlotRow &row : lineSlotRows())
        tokens.emplace_back(row.pluginFunction);
    tokens.push_back(hint);
    return tokens;
}

std::vector<std::string> builtInTokens(const std::string &hint) {
    std::vector<std::string> tokens = {"libtavdbfile.so"};
    for (const SlotRow &row : lineSlotRows())
        tokens.emplace_back(row.memoryFunction);
    tokens.push_back(hint);
    return tokens;
}

std::string lineOf(const std::vector<std::string> &tokens) {
    std::string line;
    for (const std::string &token : tokens)
        line += (line.empty() ? "" : " ") + token;
    return line;
}

}  // namespace tavdb_test
