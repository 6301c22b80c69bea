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

/// What an access works on.
struct Target {
    uint32_t valueKey;
    const tavDBMHook *hook;
};

using ReadValue = int32_t (*)(tavDBMSession *session, uint32_t valueKey, void *buffer, int32_t *length);

/// Which of a leaf's values one function is for. A constant for each, so that a call hands over one address.
struct LeafAccess {
    uint32_t tavDBMLeaf::*valueKey;
    ReadValue read;  ///< null in writes
    Site site;
};

/// Finds a leaf's value and hook. @return 0, or the code recorded
int32_t findTarget(tavDBMSession *session, uint32_t component, const LeafAccess &access, Target &target) {
    tavDBMLeaf leaf;
    if (comp_getLeaf(session, component, &leaf) == nullptr)
        return lastError(session);
    if (leaf.component.kind != TAVDB_KIND_LEAF)
        return fail(session, TAVDB_ERR_NOT_LEAF, 0, access.site + kNotLeaf, component, leaf.component.kind);
    target = {leaf.*access.valueKey, findHook(session, leaf.hookId)};
    return 0;
}

int32_t hookRefused(tavDBMSession *session, int32_t code, int32_t result, uint32_t component, Site site) {
    return fail(session, code, static_cast<uint32_t>(result), site, component, result);
}

int32_t readLeaf(tavDBMSession *session, uint32_t component, const LeafAccess &access, void *buffer, int32_t *length) {
    Target target;
    const int32_t code = findTarget(session, component, access, target);
    if (code != 0)
        return code;
    if (buffer == nullptr || length == nullptr)
        return fail(session, TAVDB_ERR_NULL_ARGUMENT, 0, access.site + kNullArgument, component);
    if (target.hook == nullptr)
        return access.read(session, target.valueKey, buffer, length);
    const int32_t refused = runHook(target.hook->preRead, target.valueKey, buffer, length);
    if (refused != 0)
        return hookRefused(session, TAVDB_ERR_PRE_READ, refused, component, access.site + kPreHook);
    const int32_t failed = access.read(session, target.valueKey, buffer, length);
    if (failed != 0)
        return failed;
    const int32_t rejected = runHook(target.hook->postRead, target.valueKey, buffer, length);
    return rejected != 0 ? hookRefused(session, TAVDB_ERR_POST_READ, rejected, component, access.site + kPostHook) : 0;
}

int32_t writeLeaf(tavDBMSession *session, uint32_t component, const LeafAccess &access, const void *data,
                  int32_t length) {
    Target target;
    const int32_t code = findTarget(session, component, access, target);
    if (code != 0)
        return code;
    if (data == nullptr)
        return fail(session, TAVDB_ERR_NULL_ARGUMENT, 0, access.site + kNullArgument, component);
    if (target.hook == nullptr)
        return value_setGeneric(session, target.valueKey, data, length);
    void *const bytes = const_cast<void *>(data);  // a pre-write hook may change them in place
    const int32_t refused = runHook(target.hook->preWrite, target.valueKey, bytes, &length);
    if (refused != 0)
        return hookRefused(session, TAVDB_ERR_PRE_WRITE, refused, component, access.site + kPreHook);
    const int32_t failed = value_setGeneric(session, target.valueKey, bytes, length);
    if (failed != 0)
        return failed;
    const int32_t rejected = runHook(target.hook->postWrite, target.valueKey, bytes, &length);
    return rejected != 0 ? hookRefused(session, TAVDB_ERR_POST_WRITE, rejected, component, access.site + kPostHook) : 0;
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
    static constexpr LeafAccess access = {&tavDBMLeaf::currentValue, value_getGeneric, {__func__, 100}};
    return readLeaf(session, component, access, buffer, length);
}

int32_t tavDBMGetDefaultGeneric(tavDBMSession *session, uint32_t component, void *buffer, int32_t *length) {
    static constexpr LeafAccess access = {&tavDBMLeaf::defaultValue, value_getGeneric, {__func__, 110}};
    return readLeaf(session, component, access, buffer, length);
}

int32_t tavDBMGetFactoryGeneric(tavDBMSession *session, uint32_t component, void *buffer, int32_t *length) {
    static constexpr LeafAccess access = {&tavDBMLeaf::factoryValue, value_getGeneric, {__func__, 120}};
    return readLeaf(session, component, access, buffer, length);
}

int32_t tavDBMGetCreateListGeneric(tavDBMSession *session, uint32_t component, void *buffer, int32_t *length) {
    static constexpr LeafAccess access = {&tavDBMLeaf::currentValue, readRaw, {__func__, 130}};
    return readLeaf(session, component, access, buffer, length);
}

int32_t tavDBMSetGeneric(tavDBMSession *session, uint32_t component, const void *data, int32_t length) {
    static constexpr LeafAccess access = {&tavDBMLeaf::currentValue, nullptr, {__func__, 140}};
    return writeLeaf(session, component, access, data, length);
}

int32_t tavDBMSetDefaultGeneric(tavDBMSession *session, uint32_t component, const void *data, int32_t length) {
    static constexpr LeafAccess access = {&tavDBMLeaf::defaultValue, nullptr, {__func__, 150}};
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
    static constexpr LeafAccess access = {&tavDBMLeaf::currentValue, readOrFail, {"tavDBMGetGeneric", 100}};
    const int32_t code = readLeaf(session, source, access, buffer.get(), &length);
    if (code != 0)
        return code;  // nothing was read, so nothing is overwritten
    return tavDBMSetGeneric(session, destination, buffer.get(), destinationLength);
}
