// SPDX-License-Identifier: Apache-2.0
// Completion scripts for three shells, each made from the declarations of the
// command line. The paths of components come from the database itself while
// somebody types: the scripts call "tavdb list" for them.
#pragma once

#include <string>
#include <string_view>

#include "declarations.h"

namespace tavdb::command {

std::string bashCompletion(const Declarations &declarations);
std::string fishCompletion(const Declarations &declarations);
std::string zshCompletion(const Declarations &declarations);

/// @return the text with every occurrence of `from` replaced
std::string replaced(std::string text, std::string_view from, std::string_view to);

/// The names of all commands.
std::vector<std::string> commandNames(const Declarations &declarations);

/// The names of those that have their options in front of the first operand.
std::vector<std::string> optionsFirstNames(const Declarations &declarations);

}  // namespace tavdb::command
