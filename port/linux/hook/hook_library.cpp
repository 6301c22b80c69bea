// SPDX-License-Identifier: Apache-2.0
// What libtavdb and applications call: loading hook files and forgetting them,
// registering a hook, looking one up. Attaching and detaching belong to one
// thread at a time; registering and looking up do not.
#include <errno.h>
#include <string.h>

#include "common/library_lock.h"
#include "hook/hook_file.h"
#include "hook/hook_load.h"
#include "hook/hook_state.h"
#include "hook/hook_table.h"
#include "tavdb_platform.h"

namespace tavdb {
namespace {

HookFile *s_db_hook_files;      // the last one loaded first
uint32_t s_db_hook_init_count;  // hook_init calls that succeeded and have no hook_term yet
uint32_t s_db_hook_file_count;

/// A path that was loaded before is not read again, whatever its file holds by now.
bool countIfKnown(const char *path) {
    const LibraryLock lock;
    bool isKnown = path == nullptr || path[0] == '\0';
    for (const HookFile *file = s_db_hook_files; !isKnown && file != nullptr; file = file->next)
        isKnown = strcmp(file->path, path) == 0;
    if (isKnown)
        s_db_hook_init_count++;
    return isKnown;
}

int32_t claim(const HookFile *file) {
    const FileHook *refused = nullptr;
    Claim result;
    {
        const LibraryLock lock;
        result = claimIds(file, &refused);
    }
    if (result == Claim::granted)
        return 0;
    if (result == Claim::noMemory)
        return refuseHookFile(kHookSystemError | ENOMEM, kSiteMemory, file->path, 0, "no memory", nullptr);
    const bool isOwn = result == Claim::twiceInFile;
    return refuseHookFile(kHookMalformed, isOwn ? kSiteTwiceInFile : kSiteOtherFile, file->path, refused->line,
                          isOwn ? "the id is given twice" : "another file gives the id", nullptr);
}

void withdraw(const HookFile *file) {
    const LibraryLock lock;
    withdrawHooks(file);
}

int32_t claimAndLoad(HookFile *file) {
    int32_t code = claim(file);
    if (code != 0)
        return code;
    code = loadHooks(file);
    if (code != 0)
        withdraw(file);
    return code;
}

void publishFile(HookFile *file) {
    const LibraryLock lock;
    publishHooks(file);
    file->next = s_db_hook_files;
    s_db_hook_files = file;
    s_db_hook_file_count++;
    s_db_hook_init_count++;
}

/// Counts a detach. @return the files to unload when it was the last one
HookFile *detach() {
    const LibraryLock lock;
    if (s_db_hook_init_count == 0 || --s_db_hook_init_count != 0)
        return nullptr;
    HookFile *const files = s_db_hook_files;
    for (const HookFile *file = files; file != nullptr; file = file->next)
        withdrawHooks(file);
    forgetReplaced();
    s_db_hook_files = nullptr;
    s_db_hook_file_count = 0;
    return files;
}

}  // namespace

HookState hookState() {
    return {s_db_hook_file_count, s_db_hook_init_count};
}

}  // namespace tavdb

int32_t hook_init(const char *path) {
    if (tavdb::countIfKnown(path))
        return 0;
    tavdb::HookFile *file = nullptr;
    int32_t code = tavdb::readHookFile(path, &file);
    if (code != 0)
        return code;
    code = tavdb::claimAndLoad(file);
    if (code == 0)
        tavdb::publishFile(file);
    else
        tavdb::freeHookFile(file);
    return code;
}

int32_t hook_term() {
    for (tavdb::HookFile *file = tavdb::detach(); file != nullptr;) {
        tavdb::HookFile *const next = file->next;
        tavdb::unloadHooks(file);
        tavdb::freeHookFile(file);
        file = next;
    }
    return 0;
}

const tavDBMHook *getHook(tavDBMSession *, uint32_t hookId) {
    return tavdb::lookUpHook(hookId);
}

int32_t tavHookRegister(uint32_t hookId, const tavDBMHook *hook) {
    if (hookId == 0)
        return tavdb::kHookSystemError | EINVAL;
    const tavdb::LibraryLock lock;
    return tavdb::registerHook(hookId, hook) ? 0 : tavdb::kHookSystemError | ENOMEM;
}
