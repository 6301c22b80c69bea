// SPDX-License-Identifier: Apache-2.0
// Lines of the form path='value', as get and tree print them and set reads them.
// Inside the quotes a backslash begins an escape, so that any text takes one line.
#pragma once

#include <string>
#include <string_view>

#include "image/outcome.h"

namespace tavdb::command {

struct Assignment {
    std::string path;
    std::string value;
};

/// 'value', with \\ \' \n \r \t and \xHH for what cannot stand there as it is.
std::string quoteValue(std::string_view value);

/// path='value', without a line end.
std::string formatAssignment(std::string_view path, std::string_view value);

/// PATH=VALUE or PATH='VALUE'; only the quoted form knows escapes.
image::Outcome<Assignment> parseAssignment(std::string_view text);

}  // namespace tavdb::command
