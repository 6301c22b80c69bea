// SPDX-License-Identifier: Apache-2.0
// The media configuration file. Plug-ins are not loaded: a line that names a library
// by a path would let the input run any file of the machine.
#include <string>

#include "fuzz/fuzz_memory_file.h"
#include "fuzz/fuzz_target.h"
#include "tavdb_modules.h"

namespace {

/// Whether the first word of some line has a slash in it.
bool namesAPath(const std::string &text) {
    bool isFirst = true;
    bool hasBegun = false;
    for (const char c : text) {
        if (isFirst && c == '/')
            return true;
        const bool isBlank = c == ' ' || c == '\t';
        isFirst = c == '\n' || (isFirst && (!isBlank || !hasBegun));
        hasBegun = c != '\n' && (hasBegun || !isBlank);
    }
    return false;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    if (namesAPath(text) || size > 3000)  // a longer line is taken in pieces, whose first words are others
        return 0;
    static const tavdb_fuzz::MemoryFile file;
    file.put(text);
    media_init(file.path(), 0);
    media_term();
    return 0;
}
