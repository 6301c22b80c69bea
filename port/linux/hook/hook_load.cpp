// SPDX-License-Identifier: Apache-2.0
// Loading the libraries of a hook file. Each line holds a reference of its own
// to its library; the loader counts them.
#include "hook/hook_load.h"

#include <dlfcn.h>
#include <errno.h>
#include <string.h>

#include "tavdb_platform.h"

namespace tavdb {
namespace {

bool isNone(const char *name) {
    return strcmp(name, "-") == 0;
}

const char *loaderText() {
    const char *const text = dlerror();
    return text != nullptr ? text : "no reason given";
}

/// "folder of the hook file/name". @return memory that the caller gives back, or null
char *besideFile(const char *filePath, const char *name) {
    const char *const slash = strrchr(filePath, '/');
    const size_t folderLength = slash != nullptr ? static_cast<size_t>(slash - filePath) + 1 : 0;
    const size_t nameSize = strlen(name) + 1;
    auto *const path = static_cast<char *>(tavOSWSubAllocMem(static_cast<uint32_t>(folderLength + nameSize)));
    if (path == nullptr)
        return nullptr;
    memcpy(path, filePath, folderLength);
    memcpy(path + folderLength, name, nameSize);
    return path;
}

/// With a "/" a name is a path, without one the loader searches for it.
bool isRelativePath(const char *name) {
    return name[0] != '/' && strchr(name, '/') != nullptr;
}

int32_t loadLibrary(const HookFile *file, FileHook *hook) {
    const bool isRelative = isRelativePath(hook->libraryName);
    char *const path = isRelative ? besideFile(file->path, hook->libraryName) : nullptr;
    if (isRelative && path == nullptr)
        return refuseHookFile(kHookSystemError | ENOMEM, kSiteMemory, file->path, hook->line, "no memory", nullptr);
    hook->library = dlopen(isRelative ? path : hook->libraryName, RTLD_NOW | RTLD_LOCAL);
    if (isRelative)
        tavOSWOrgFreeMemPart(0, path);
    if (hook->library != nullptr)
        return 0;
    return refuseHookFile(kHookLibrary, kSiteLibrary, file->path, hook->line, "the library cannot be loaded",
                          loaderText());
}

int32_t findFunction(const HookFile *file, const FileHook *hook, const char *name, tavDBMHookFunction *function) {
    if (isNone(name))
        return 0;
    void *const scope = hook->library != nullptr ? hook->library : RTLD_DEFAULT;
    *function = reinterpret_cast<tavDBMHookFunction>(dlsym(scope, name));
    if (*function != nullptr)
        return 0;
    return refuseHookFile(kHookFunction, kSiteFunction, file->path, hook->line, "the function is not found", name);
}

int32_t loadHook(const HookFile *file, FileHook *hook) {
    int32_t code = isNone(hook->libraryName) ? 0 : loadLibrary(file, hook);
    tavDBMHookFunction *const functions[kHookFunctions] = {&hook->hook.preWrite, &hook->hook.postWrite,
                                                           &hook->hook.preRead, &hook->hook.postRead};
    for (size_t i = 0; code == 0 && i < kHookFunctions; i++)
        code = findFunction(file, hook, hook->functionNames[i], functions[i]);
    return code;
}

}  // namespace

int32_t loadHooks(HookFile *file) {
    for (FileHook *hook = file->first; hook != nullptr; hook = hook->next) {
        const int32_t code = loadHook(file, hook);
        if (code != 0) {
            unloadHooks(file);
            return code;
        }
    }
    return 0;
}

void unloadHooks(HookFile *file) {
    for (FileHook *hook = file->first; hook != nullptr; hook = hook->next) {
        if (hook->library != nullptr)
            dlclose(hook->library);
        hook->library = nullptr;
    }
}

}  // namespace tavdb
