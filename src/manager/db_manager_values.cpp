// SPDX-License-Identifier: Apache-2.0
// Reads and writes of leaf values: one frame that finds the leaf and runs its
// hooks, and the generic and typed functions on top of it.
#include <errno.h>
#include <string.h>

#include "constraint/db_value_types.h"
#include "control/db_trace.h"
#include "manager/db_manager_counters.h"
#include "model/db_value_data.h"
#include "platform/hook_library.h"
#include "platform/os_wrapper.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

/// Sites of the frame, behind the first site of each function that uses it.
enum FrameStep : int32_t { kNotLeaf, kNullArgument, kPreHook, kPostHook };

/// The functions of a hook around an access, and the codes of their failures.
struct HookSteps {
    tavDBMHookFunction tavDBMHook::*before;
    tavDBMHookFunction tavDBMHook::*after;
    int32_t beforeCode;
    int32_t afterCode;
};
constexpr HookSteps kAroundReads = {&tavDBMHook::preRead, &tavDBMHook::postRead, TAVDB_ERR_PRE_READ,
                                    TAVDB_ERR_POST_READ};
constexpr HookSteps kAroundWrites = {&tavDBMHook::preWrite, &tavDBMHook::postWrite, TAVDB_ERR_PRE_WRITE,
                                     TAVDB_ERR_POST_WRITE};

using AccessValue = int32_t (*)(tavDBMSession *session, uint32_t valueKey, void *data, int32_t *length);

/// What one function does with which of a leaf's values. A constant for each, so that a call hands over one address.
struct LeafAccess {
    uint32_t tavDBMLeaf::*valueKey;
    AccessValue run;
    const HookSteps &steps;
    Site site;
};

/// What an access works on.
struct Target {
    uint32_t component;
    uint32_t valueKey;
    void *data;
    int32_t *length;
};

int32_t runStep(tavDBMSession *session, tavDBMHookFunction function, const Target &target, int32_t code, Site site) {
    const int32_t result = runHook(function, target.valueKey, target.data, target.length);
    return result != 0 ? fail(session, code, static_cast<uint32_t>(result), site, target.component, result) : 0;
}

int32_t accessWithHook(tavDBMSession *session, const LeafAccess &access, const tavDBMHook &hook, const Target &target) {
    const HookSteps &steps = access.steps;
    const int32_t refused = runStep(session, hook.*steps.before, target, steps.beforeCode, access.site + kPreHook);
    if (refused != 0)
        return refused;
    const int32_t failed = access.run(session, target.valueKey, target.data, target.length);
    if (failed != 0)
        return failed;
    return runStep(session, hook.*steps.after, target, steps.afterCode, access.site + kPostHook);
}

int32_t accessLeaf(tavDBMSession *session, uint32_t component, const LeafAccess &access, void *data, int32_t *length) {
    tavDBMLeaf leaf;
    if (comp_getLeaf(session, component, &leaf) == nullptr)
        return lastError(session);
    if (leaf.component.kind != TAVDB_KIND_LEAF)
        return fail(session, TAVDB_ERR_NOT_LEAF, 0, access.site + kNotLeaf, component, leaf.component.kind);
    const uint32_t valueKey = leaf.*access.valueKey;
    const tavDBMHook *const hook = findHook(session, leaf.hookId);
    if (data == nullptr || length == nullptr)
        return fail(session, TAVDB_ERR_NULL_ARGUMENT, 0, access.site + kNullArgument, component);
    if (hook != nullptr)
        return accessWithHook(session, access, *hook, {component, valueKey, data, length});
    return access.run(session, valueKey, data, length);
}

int32_t writeValue(tavDBMSession *session, uint32_t valueKey, void *data, int32_t *length) {
    return value_setGeneric(session, valueKey, data, *length);
}

/// A pre-write hook may change the data in place, and the length: that of this call only.
int32_t writeLeaf(tavDBMSession *session, uint32_t component, const LeafAccess &access, const void *data,
                  int32_t length) {
    return accessLeaf(session, component, access, const_cast<void *>(data), &length);
}

int32_t readRaw(tavDBMSession *session, uint32_t valueKey, void *buffer, int32_t *length) {
    return value_getCreateListGeneric(session, valueKey, buffer, *length);
}

/// A read whose every failure shows in its result, for what goes on to write the data elsewhere.
int32_t readOrFail(tavDBMSession *session, uint32_t valueKey, void *buffer, int32_t *length) {
    int32_t count = -1;
    const int32_t code = readData(session, valueKey, buffer, *length, count);
    *length = count;
    return code == 0 && count < 0 ? lastError(session) : code;
}

/// The current value of a component that must be a leaf. @return false with the failure recorded
bool currentValue(tavDBMSession *session, uint32_t component, uint32_t &key, Site site) {
    tavDBMLeaf leaf;
    if (comp_getLeaf(session, component, &leaf) == nullptr)
        return false;
    if (leaf.component.kind != TAVDB_KIND_LEAF) {
        fail(session, TAVDB_ERR_NOT_LEAF, 0, site, component, leaf.component.kind);
        return false;
    }
    key = leaf.currentValue;
    return true;
}

/// The length of a component's current value, or `none` when the component is no leaf that can be read.
int32_t currentLength(tavDBMSession *session, uint32_t component, int32_t none) {
    uint32_t key = 0;
    return currentValue(session, component, key, {"tavDBMGetLength", 170}) ? value_getLength(session, key) : none;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

int32_t tavDBMGetGeneric(tavDBMSession *session, uint32_t component, void *buffer, int32_t *length) {
    static constexpr LeafAccess access = {&tavDBMLeaf::currentValue, value_getGeneric, kAroundReads, {__func__, 100}};
    return accessLeaf(session, component, access, buffer, length);
}

int32_t tavDBMGetDefaultGeneric(tavDBMSession *session, uint32_t component, void *buffer, int32_t *length) {
    static constexpr LeafAccess access = {&tavDBMLeaf::defaultValue, value_getGeneric, kAroundReads, {__func__, 110}};
    return accessLeaf(session, component, access, buffer, length);
}

int32_t tavDBMGetFactoryGeneric(tavDBMSession *session, uint32_t component, void *buffer, int32_t *length) {
    static constexpr LeafAccess access = {&tavDBMLeaf::factoryValue, value_getGeneric, kAroundReads, {__func__, 120}};
    return accessLeaf(session, component, access, buffer, length);
}

int32_t tavDBMGetCreateListGeneric(tavDBMSession *session, uint32_t component, void *buffer, int32_t *length) {
    static constexpr LeafAccess access = {&tavDBMLeaf::currentValue, readRaw, kAroundReads, {__func__, 130}};
    return accessLeaf(session, component, access, buffer, length);
}

int32_t tavDBMSetGeneric(tavDBMSession *session, uint32_t component, const void *data, int32_t length) {
    static constexpr LeafAccess access = {&tavDBMLeaf::currentValue, writeValue, kAroundWrites, {__func__, 140}};
    return writeLeaf(session, component, access, data, length);
}

int32_t tavDBMSetDefaultGeneric(tavDBMSession *session, uint32_t component, const void *data, int32_t length) {
    static constexpr LeafAccess access = {&tavDBMLeaf::defaultValue, writeValue, kAroundWrites, {__func__, 150}};
    return writeLeaf(session, component, access, data, length);
}

#define TAVDB_TYPED(suffix, apiSuffix, type)                                                \
    int32_t tavDBMGet##apiSuffix(tavDBMSession *session, uint32_t component, type *value) { \
        count(Call::Get##apiSuffix);                                                        \
        int32_t length = sizeof *value;                                                     \
        return tavDBMGetGeneric(session, component, value, &length);                        \
    }                                                                                       \
    int32_t tavDBMSet##apiSuffix(tavDBMSession *session, uint32_t component, type value) {  \
        count(Call::Set##apiSuffix);                                                        \
        return tavDBMSetGeneric(session, component, &value, sizeof value);                  \
    }
TAVDB_VALUE_TYPES(TAVDB_TYPED)
#undef TAVDB_TYPED

int32_t tavDBMGetString(tavDBMSession *session, uint32_t component, char *buffer, int32_t bufferLength) {
    count(Call::GetString);
    return tavDBMGetGeneric(session, component, buffer, &bufferLength);
}

int32_t tavDBMSetString(tavDBMSession *session, uint32_t component, const char *text) {
    count(Call::SetString);
    const size_t size = text != nullptr ? strlen(text) + 1 : 0;
    const int32_t length = size <= INT32_MAX ? static_cast<int32_t>(size) : INT32_MAX;
    return tavDBMSetGeneric(session, component, text, length);
}

int32_t tavDBMGetType(tavDBMSession *session, uint32_t component) {
    uint32_t key = 0;
    return currentValue(session, component, key, {__func__, 160}) ? value_getType(session, key) : -1;
}

int32_t tavDBMGetLength(tavDBMSession *session, uint32_t component) {
    return currentLength(session, component, 0);
}

uint32_t tavDBMSetCurrentComponent(tavDBMSession *session, uint32_t component) {
    if (component == 0) {  // what stands there is the medium's header, not a component
        fail(session, TAVDB_ERR_NO_COMPONENT, 0, {__func__, 181}, component);
        return 0;
    }
    tavDBMComponent header;
    if (comp_getComponent(session, component, &header) == nullptr)
        return 0;
    if (static_cast<uint32_t>(header.kind) > TAVDB_KIND_LEAF) {
        fail(session, TAVDB_ERR_KIND, 0, {__func__, 180}, component, header.kind);
        return 0;
    }
    session->currentComponent = component;
    return component;
}

int32_t tavDBMCopy(tavDBMSession *session, uint32_t source, uint32_t destination) {
    const int32_t sourceLength = currentLength(session, source, -1);
    const int32_t destinationLength = tavDBMGetLength(session, destination);
    const Allocation buffer =
        destinationLength >= 0 ? Allocation(static_cast<uint32_t>(destinationLength)) : Allocation();
    if (!buffer) {
        const int error = errno;
        return fail(session, TAVDB_ERR_MEMORY, static_cast<uint32_t>(error), {__func__, 190}, destination,
                    destinationLength, error);
    }
    memset(buffer.get(), 0, static_cast<size_t>(destinationLength));
    int32_t length = sourceLength < destinationLength ? sourceLength : destinationLength;
    static constexpr LeafAccess access = {
        &tavDBMLeaf::currentValue, readOrFail, kAroundReads, {"tavDBMGetGeneric", 100}};
    const int32_t code = accessLeaf(session, source, access, buffer.get(), &length);
    if (code != 0)
        return code;  // nothing was read, so nothing is overwritten
    return tavDBMSetGeneric(session, destination, buffer.get(), destinationLength);
}
