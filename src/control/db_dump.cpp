// SPDX-License-Identifier: Apache-2.0
#include "control/db_dump.h"

#include <stdio.h>

#include "control/db_ring.h"
#include "tavdb_platform.h"

namespace tavdb {

void dumpWord(int32_t level, const char *name, uint32_t value) {
    dbs_me_debug_trace(level, "[0x%8x]:%s\n", value, name);
}

void dumpText(int32_t level, const char *name, const char *text) {
    dbs_me_debug_trace(level, "[%s]:%s\n", text, name);
}

void traceRingRecord(int32_t level, const uint32_t *words, uint32_t count) {
    char line[kRingWordsMax * 12 + 1];
    size_t used = 0;
    for (uint32_t i = 1; i < count && used < sizeof line; i++)
        used += static_cast<size_t>(snprintf(line + used, sizeof line - used, "[0x%8x]", words[i]));
    dbs_me_debug_trace(level, "[%10d]:%s\n", static_cast<int32_t>(words[0]), line);
}

int32_t dumpModule(const DumpModule &module, int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    const bool silent = level == kDumpStatics && module.atLevel98 == AtLevel98::nothing;
    if (!silent) {
        dbs_me_debug_trace(level, "%s", module.banner);
        if (level == kDumpWithSizes) {
            dumpWord(level, "debug_size", module.debugSize);
            dumpWord(level, "ram_size", module.ramSize);
        }
        for (const DumpWord &word : module.words)
            dumpWord(level, word.name, *word.value);
        if (module.moreStatics != nullptr)
            module.moreStatics(level);
    }
    if (level != kDumpStatics)
        for (const DumpFunction &function : module.functions)
            dumpWord(level, function.name, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(function.address)));
    if (debugSize != nullptr)
        *debugSize += module.debugSize;
    if (ramSize != nullptr)
        *ramSize += module.ramSize;
    return 0;
}

}  // namespace tavdb
