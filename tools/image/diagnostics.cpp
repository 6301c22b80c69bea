// SPDX-License-Identifier: Apache-2.0
#include "image/diagnostics.h"

#include <algorithm>
#include <utility>

namespace tavdb::image {

std::string formatDiagnostic(std::string_view file, const Diagnostic &diagnostic) {
    std::string line(file);
    if (diagnostic.position.line != 0)
        line += ":" + std::to_string(diagnostic.position.line) + ":" + std::to_string(diagnostic.position.column);
    return line + ": " + diagnostic.sentence;
}

FaultKind kindOf(const std::vector<Diagnostic> &errors) {
    const auto other = std::find_if(errors.begin(), errors.end(),
                                    [](const Diagnostic &error) { return error.kind != FaultKind::refused; });
    return other == errors.end() ? FaultKind::refused : other->kind;
}

void Diagnostics::add(Position position, const std::string &sentence, const std::string &context, FaultKind kind) {
    if (seen.emplace(position, sentence).second)
        list.push_back({position, sentence + context, kind});
}

std::vector<Diagnostic> Diagnostics::take() {
    std::stable_sort(list.begin(), list.end(),
                     [](const Diagnostic &a, const Diagnostic &b) { return a.position < b.position; });
    seen.clear();
    return std::exchange(list, {});
}

}  // namespace tavdb::image
