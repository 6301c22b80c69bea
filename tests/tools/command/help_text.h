// SPDX-License-Identifier: Apache-2.0
// What the help of the command says, for tests of what is made from the same
// declarations: the names of the commands, and the options of each.
#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace tavdb_test {

/// The first words of the lines below "HEADING:" that are indented by two blanks.
inline std::vector<std::string> itemsBelow(const std::string &help, const std::string &heading) {
    std::vector<std::string> items;
    std::istringstream lines(help);
    bool isBelow = false;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with(" "))
            isBelow = line == heading + ":";
        else if (isBelow && line.size() > 2 && line[2] != ' ')
            items.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return items;
}

inline std::vector<std::string> commandsIn(const std::string &help) {
    return itemsBelow(help, "Subcommands");
}

/// "-r,--recursive" are two.
inline std::vector<std::string> optionsIn(const std::string &help) {
    std::vector<std::string> names;
    for (const auto &item : itemsBelow(help, "Options")) {
        std::istringstream parts(item);
        for (std::string name; std::getline(parts, name, ',');)
            names.push_back(name);
    }
    return names;
}

}  // namespace tavdb_test
