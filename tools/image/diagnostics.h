// SPDX-License-Identifier: Apache-2.0
// The errors of one description file: collected, never thrown, each told once.
// A description with an error yields no model.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "image/fault.h"
#include "image/model.h"

namespace tavdb::image {

struct Diagnostic {
    Position position;
    std::string sentence;
    /// refused: a value that its own leaf does not admit; usage: any other fault of the text.
    FaultKind kind = FaultKind::usage;
};

/// "FILE:3:14: 300 does not fit u8 (0..255)"; a file as a whole has no numbers.
std::string formatDiagnostic(std::string_view file, const Diagnostic &diagnostic);

/// What the errors come to: the first one's kind, but a refused value counts only when all are.
FaultKind kindOf(const std::vector<Diagnostic> &errors);

class Diagnostics {
public:
    /// @param context appended to the sentence; the same sentence at the same place
    ///                is kept with its first context only, however often it comes up
    void add(Position position, const std::string &sentence, const std::string &context = {},
             FaultKind kind = FaultKind::usage);
    bool empty() const {
        return list.empty();
    }
    /// In the order of the file.
    std::vector<Diagnostic> take();

private:
    std::vector<Diagnostic> list;
    std::set<std::pair<Position, std::string>> seen;
};

}  // namespace tavdb::image
