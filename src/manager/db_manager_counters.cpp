// SPDX-License-Identifier: Apache-2.0
#include "manager/db_manager_counters.h"

#include "control/db_dump.h"
#include "tavdb_modules.h"

namespace tavdb {

uint32_t managerCounters[kManagerCounters];

}  // namespace tavdb

using namespace tavdb;

int32_t dbs_me_db_manager_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpWord words[] = {
#define TAVDB_COUNTER(name, function) \
    {"s_debug_db_manager_" #name, &managerCounters[static_cast<uint32_t>(Call::function)]},
        TAVDB_MANAGER_COUNTERS(TAVDB_COUNTER)
#undef TAVDB_COUNTER
    };
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(dbs_me_db_manager_debug_info),
#define TAVDB_COUNTED(name, function) TAVDB_DUMP_FUNCTION(tavDBM##function),
        TAVDB_MANAGER_COUNTERS(TAVDB_COUNTED)
#undef TAVDB_COUNTED
            TAVDB_DUMP_FUNCTION(tavDBMGetGeneric),
        TAVDB_DUMP_FUNCTION(tavDBMGetDefaultGeneric),
        TAVDB_DUMP_FUNCTION(tavDBMGetFactoryGeneric),
        TAVDB_DUMP_FUNCTION(tavDBMGetCreateListGeneric),
        TAVDB_DUMP_FUNCTION(tavDBMSetGeneric),
        TAVDB_DUMP_FUNCTION(tavDBMSetDefaultGeneric),
        TAVDB_DUMP_FUNCTION(tavDBMGetType),
        TAVDB_DUMP_FUNCTION(tavDBMGetLength),
        TAVDB_DUMP_FUNCTION(tavDBMSetCurrentComponent),
        TAVDB_DUMP_FUNCTION(tavDBMCopy),
        TAVDB_DUMP_FUNCTION(tavDBMSearchByName),
        TAVDB_DUMP_FUNCTION(tavDBMGetConstraintData),
        TAVDB_DUMP_FUNCTION(tavDBMSetConstraintData),
        TAVDB_DUMP_FUNCTION(tavDBMGetConstraintLength),
        TAVDB_DUMP_FUNCTION(tavDBMGetConstraintType),
    };
    return dumpModule({.banner = "====(db_manager)\n",
                       .debugSize = sizeof managerCounters,
                       .ramSize = 0,
                       .words = words,
                       .functions = functions,
                       .atLevel98 = AtLevel98::nothing},
                      level, debugSize, ramSize);
}
