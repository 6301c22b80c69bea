// SPDX-License-Identifier: Apache-2.0
// A plug-in library with hooks, built twice under different numbers. Each
// function refuses with a result that says which function of which plug-in ran.
#include "tavdb_plugin.h"

extern "C" {
TAVDB_API int32_t pluginPreWrite(uint32_t valueKey, void *data, int32_t *length);
TAVDB_API int32_t pluginPostWrite(uint32_t valueKey, void *data, int32_t *length);
TAVDB_API int32_t pluginPreRead(uint32_t valueKey, void *data, int32_t *length);
TAVDB_API int32_t pluginPostRead(uint32_t valueKey, void *data, int32_t *length);
/// The test program's, when it has one: a plug-in may register hooks while it is loaded.
extern void onPluginLoaded(int number) __attribute__((weak));
}

namespace {

constexpr int32_t kNumber = HOOK_PLUGIN_NUMBER;

__attribute__((constructor)) void announce() {
    if (onPluginLoaded != nullptr)
        onPluginLoaded(kNumber);
}

}  // namespace

int32_t pluginPreWrite(uint32_t, void *, int32_t *) {
    return kNumber * 10 + 1;
}

int32_t pluginPostWrite(uint32_t, void *, int32_t *) {
    return kNumber * 10 + 2;
}

int32_t pluginPreRead(uint32_t, void *, int32_t *) {
    return kNumber * 10 + 3;
}

int32_t pluginPostRead(uint32_t, void *, int32_t *) {
    return kNumber * 10 + 4;
}
