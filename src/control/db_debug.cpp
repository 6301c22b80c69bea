// SPDX-License-Identifier: Apache-2.0
// The dump of the whole library, module by module.
#include "control/db_dump.h"
#include "tavdb_modules.h"
#include "tavdb_platform.h"

namespace {

using ModuleDump = int32_t (*)(int32_t level, uint32_t *debugSize, uint32_t *ramSize);

constexpr ModuleDump kModules[] = {
    dbs_me_db_manager_debug_info,     dbs_me_db_value_debug_info,     dbs_me_db_session_debug_info,
    dbs_me_db_lock_debug_info,        dbs_me_db_misc_debug_info,      dbs_me_db_media_debug_info,
    dbs_me_db_media_entry_debug_info, dbs_me_db_control_debug_info,   dbs_me_db_constraint_debug_info,
    dbs_me_db_string_debug_info,      dbs_me_db_component_debug_info, dbs_me_db_queue_debug_info,
    dbs_me_db_file_list_debug_info,   dbs_me_db_hook_debug_info,      dbs_me_db_hook_entry_debug_info,
    dbs_me_db_hook_post_debug_info,
};

}  // namespace

int32_t dbs_me_db_debug(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    if (level == tavdb::kDumpStatics)
        return 0;  // deliberate: statics alone are asked of one module at a time
    int32_t result = 0;
    for (const ModuleDump dump : kModules)
        result = dump(level, debugSize, ramSize);
    return result;
}
