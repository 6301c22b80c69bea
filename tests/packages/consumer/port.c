/* SPDX-License-Identifier: Apache-2.0 */
/* Calls one function of each library of the Linux port. */
#include <stdio.h>
#include <tavdb_modules.h>
#include <tavdb_platform.h>

int main(void) {
    uint32_t debugSize = 0;
    uint32_t ramSize = 0;
    void *const memory = tavOSWSubAllocMem(16);
    if (memory == NULL || tavOSWOrgFreeMemPart(0, memory) != 0)
        return 1;
    if (hook_init("") != 0 || getHook(NULL, 1) != NULL || hook_term() != 0)
        return 2;
    if (dbs_me_db_media_file_debug_info(0, &debugSize, &ramSize) != 0)
        return 3;
    puts("the port answers");
    return 0;
}
