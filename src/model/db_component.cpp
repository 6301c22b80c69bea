// SPDX-License-Identifier: Apache-2.0
// Component records: reading and writing them, reserving new ones, and the links
// and names in them. Whatever works on several components is in
// db_component_tree.cpp, db_component_walk.cpp and db_component_search.cpp.
#include "model/db_component.h"

#include <string.h>
#include <unistd.h>

#include <cstddef>

#include "control/db_control.h"
#include "control/db_dump.h"
#include "control/db_trace.h"

namespace tavdb {
namespace {

static_assert(sizeof(tavDBMComponent) == 24);
static_assert(offsetof(tavDBMComponent, key) == 0);
static_assert(offsetof(tavDBMComponent, name) == 4);
static_assert(offsetof(tavDBMComponent, reserved) == 8);
static_assert(offsetof(tavDBMComponent, parent) == 12);
static_assert(offsetof(tavDBMComponent, next) == 16);
static_assert(offsetof(tavDBMComponent, kind) == 20);
static_assert(sizeof(tavDBMNode) == 28);
static_assert(offsetof(tavDBMNode, firstChild) == 24);
static_assert(sizeof(tavDBMLeaf) == 40);
static_assert(offsetof(tavDBMLeaf, currentValue) == 24);
static_assert(offsetof(tavDBMLeaf, defaultValue) == 28);
static_assert(offsetof(tavDBMLeaf, factoryValue) == 32);
static_assert(offsetof(tavDBMLeaf, hookId) == 36);

void refuseKey0(tavDBMSession *session, Site site) {
    fail(session, TAVDB_ERR_NO_COMPONENT, 0, site, 0);
}

/// Reserves a record and sets its key and kind; the rest of the buffer stays.
void *newRecord(tavDBMSession *session, void *buffer, uint32_t sizeBytes, tavDBMKind kind, Site site) {
    int32_t mediaId = 0;
    if (!hasBuffer(session, buffer, site) || !findMediaId(session, kComponentRecord, 0, site, mediaId))
        return nullptr;
    const uint32_t key = flst_m_get(session, mediaId, sizeBytes);
    if (!isSlot(key)) {
        traceError(site + kNoSlot, key, mediaId);
        return nullptr;
    }
    auto *const component = static_cast<tavDBMComponent *>(buffer);
    component->key = key;
    component->kind = kind;
    return buffer;
}

uint32_t headerWord(tavDBMSession *session, uint32_t key, uint32_t tavDBMComponent::*field) {
    tavDBMComponent header;
    return comp_getComponent(session, key, &header) != nullptr ? header.*field : 0;
}

int32_t setHeaderWord(tavDBMSession *session, uint32_t key, uint32_t tavDBMComponent::*field, uint32_t value,
                      Site site) {
    if (key == 0)  // what stands there is the medium's header, not a component
        return fail(session, TAVDB_ERR_NO_COMPONENT, 0, site, key);
    tavDBMComponent header;
    if (comp_getComponent(session, key, &header) == nullptr)
        return lastError(session);
    header.*field = value;
    return comp_setComponent(session, &header);
}

uint32_t valueKey(tavDBMSession *session, uint32_t key, uint32_t tavDBMLeaf::*field, Site site) {
    tavDBMLeaf leaf;
    if (comp_getLeaf(session, key, &leaf) == nullptr)
        return 0;
    if (leaf.component.kind == TAVDB_KIND_LEAF)
        return leaf.*field;
    fail(session, TAVDB_ERR_NOT_LEAF, 0, site, key, leaf.component.kind);
    return 0;
}

int32_t setValueKey(tavDBMSession *session, uint32_t key, uint32_t tavDBMLeaf::*field, uint32_t value, Site site) {
    tavDBMLeaf leaf;
    if (comp_getLeaf(session, key, &leaf) == nullptr)
        return lastError(session);
    if (leaf.component.kind != TAVDB_KIND_LEAF)
        return fail(session, TAVDB_ERR_NOT_LEAF, 0, site, key, leaf.component.kind);
    leaf.*field = value;
    return comp_setLeaf(session, &leaf);
}

/// The first child of a component that must be a node. @return false with the failure recorded
bool firstChildOf(tavDBMSession *session, uint32_t key, uint32_t &first, Site site) {
    tavDBMComponent header;
    if (comp_getComponent(session, key, &header) == nullptr)
        return false;
    if (header.kind != TAVDB_KIND_NODE) {
        fail(session, TAVDB_ERR_NOT_NODE, 0, site, key, header.kind);
        return false;
    }
    tavDBMNode node;
    if (comp_getNode(session, key, &node) == nullptr)
        return false;
    first = node.firstChild;
    return true;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

int32_t comp_init() {
    return 0;
}

int32_t comp_term() {
    return 0;
}

void *comp_getComponent(tavDBMSession *session, uint32_t key, void *buffer) {
    // deliberate: key 0 is not refused here
    static constexpr RecordAccess access = {kComponentRecord, sizeof(tavDBMComponent), {__func__, 100}};
    return readRecord(session, access, key, buffer);
}

void *comp_getNode(tavDBMSession *session, uint32_t key, void *buffer) {
    static constexpr RecordAccess access = {kComponentRecord, sizeof(tavDBMNode), {__func__, 110}, refuseKey0};
    return readRecord(session, access, key, buffer);
}

void *comp_getLeaf(tavDBMSession *session, uint32_t key, void *buffer) {
    static constexpr RecordAccess access = {kComponentRecord, sizeof(tavDBMLeaf), {__func__, 120}, refuseKey0};
    return readRecord(session, access, key, buffer);
}

int32_t comp_setComponent(tavDBMSession *session, const void *record) {
    static constexpr RecordAccess access = {kComponentRecord, sizeof(tavDBMComponent), {__func__, 130}};
    return writeRecord(session, access, record).code;
}

int32_t comp_setNode(tavDBMSession *session, const void *record) {
    static constexpr RecordAccess access = {kComponentRecord, sizeof(tavDBMNode), {__func__, 140}};
    return writeRecord(session, access, record).code;
}

int32_t comp_setLeaf(tavDBMSession *session, const void *record) {
    static constexpr RecordAccess access = {kComponentRecord, sizeof(tavDBMLeaf), {__func__, 150}};
    return writeRecord(session, access, record).code;
}

void *comp_newNode(tavDBMSession *session, void *buffer) {
    return newRecord(session, buffer, sizeof(tavDBMNode), TAVDB_KIND_NODE, {__func__, 160});
}

void *comp_newLeaf(tavDBMSession *session, void *buffer) {
    return newRecord(session, buffer, sizeof(tavDBMLeaf), TAVDB_KIND_LEAF, {__func__, 170});
}

uint32_t comp_getStringKey(tavDBMSession *session, uint32_t key) {
    return headerWord(session, key, &tavDBMComponent::name);
}

int32_t comp_setStringKey(tavDBMSession *session, uint32_t key, uint32_t name) {
    return setHeaderWord(session, key, &tavDBMComponent::name, name, {__func__, 260});
}

uint32_t comp_getParent(tavDBMSession *session, uint32_t key) {
    return headerWord(session, key, &tavDBMComponent::parent);
}

int32_t comp_setParent(tavDBMSession *session, uint32_t key, uint32_t parent) {
    return setHeaderWord(session, key, &tavDBMComponent::parent, parent, {__func__, 261});
}

uint32_t comp_getNextSibling(tavDBMSession *session, uint32_t key) {
    return headerWord(session, key, &tavDBMComponent::next);
}

int32_t comp_setNextSibling(tavDBMSession *session, uint32_t key, uint32_t next) {
    return setHeaderWord(session, key, &tavDBMComponent::next, next, {__func__, 262});
}

uint32_t comp_getFirstChild(tavDBMSession *session, uint32_t key) {
    tavDBMComponent header;
    if (comp_getComponent(session, key, &header) == nullptr || header.kind != TAVDB_KIND_NODE)
        return 0;  // deliberate: a leaf has no first child, and asking for it is no error
    tavDBMNode node;
    return comp_getNode(session, key, &node) != nullptr ? node.firstChild : 0;
}

int32_t comp_setFirstChild(tavDBMSession *session, uint32_t key, uint32_t child) {
    tavDBMComponent header;
    if (comp_getComponent(session, key, &header) == nullptr)
        return lastError(session);
    if (header.kind != TAVDB_KIND_NODE)
        return fail(session, TAVDB_ERR_NOT_NODE, 0, {__func__, 180}, key, header.kind);
    tavDBMNode node;
    if (comp_getNode(session, key, &node) == nullptr)
        return lastError(session);
    node.firstChild = child;
    return comp_setNode(session, &node);
}

uint32_t comp_getChildCount(tavDBMSession *session, uint32_t key) {
    uint32_t first = 0;
    if (!firstChildOf(session, key, first, {__func__, 190}))
        return 0;
    uint32_t count = 0;
    walkSiblings(session, first, {__func__, 191}, [&count](uint32_t) {
        count += 1;
        return false;
    });
    return count;
}

uint32_t comp_getChildByIndex(tavDBMSession *session, uint32_t key, uint32_t index) {
    uint32_t first = 0;
    if (!firstChildOf(session, key, first, {__func__, 200}))
        return 0;
    uint32_t left = index;
    return walkSiblings(session, first, {__func__, 201}, [&left](uint32_t) { return left-- == 0; });
}

uint32_t comp_getRoot(tavDBMSession *session) {
    const tavDBMDescription *const description = databaseOf(session);
    if (description != nullptr)
        return flst_m_getRoot(session, static_cast<int32_t>(description->componentMedia));
    traceError({__func__, 210}, session != nullptr ? session->dbId : 0);
    return 0;  // deliberate: nothing is recorded
}

#define TAVDB_VALUE_KEY(Tier, field, site)                                                   \
    uint32_t leaf_get##Tier##ValueKey(tavDBMSession *session, uint32_t key) {                \
        return valueKey(session, key, &tavDBMLeaf::field, {__func__, site});                 \
    }                                                                                        \
    int32_t leaf_set##Tier##ValueKey(tavDBMSession *session, uint32_t key, uint32_t value) { \
        return setValueKey(session, key, &tavDBMLeaf::field, value, {__func__, (site) + 1}); \
    }
TAVDB_VALUE_KEY(Current, currentValue, 220)
TAVDB_VALUE_KEY(Default, defaultValue, 230)
TAVDB_VALUE_KEY(Factory, factoryValue, 240)
#undef TAVDB_VALUE_KEY

int32_t comp_lock(tavDBMSession *session, uint32_t key, int32_t mode) {
    const int32_t wait = mode & 0xFF;
    if (wait == TAVDB_LOCK_WAIT)
        return lock_compLockW(session, key, mode);
    if (wait == TAVDB_LOCK_TRY)
        return lock_compLock(session, key, mode);
    return fail(session, TAVDB_ERR_LOCK_MODE, 0, {__func__, 250}, key, mode);
}

int32_t comp_unlock(tavDBMSession *session, uint32_t key) {
    return lock_compUnlock(session, key);
}

int32_t tavDBMLock(tavDBMSession *session, uint32_t component, int32_t mode) {
    return comp_lock(session, component, mode);
}

int32_t tavDBMUnlock(tavDBMSession *session, uint32_t component) {
    return comp_unlock(session, component);
}

int32_t IsCompMedia(const char *name) {
    // deliberate: the ninth character is not compared
    return name != nullptr && strncmp(name, "compMedia", 8) == 0 ? 1 : 0;
}

int32_t compFileRead(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    uint32_t unused = 0;
    uint32_t &error = err != nullptr ? *err : unused;
    error = 0;
    const ssize_t count = length >= 0 ? pread(fd, buffer, static_cast<size_t>(length), static_cast<off_t>(offset)) : -1;
    if (count == -1) {
        traceError({__func__, 270}, fd, length, offset, 0);
        error = UINT32_MAX;
    }
    return static_cast<int32_t>(count);
}

int32_t dbs_me_db_component_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    static const DumpFunction functions[] = {
        TAVDB_DUMP_FUNCTION(dbs_me_db_component_debug_info),
        TAVDB_DUMP_FUNCTION(comp_delete),
        TAVDB_DUMP_FUNCTION(comp_deleteWithSub),
        TAVDB_DUMP_FUNCTION(comp_init),
        TAVDB_DUMP_FUNCTION(comp_term),
        TAVDB_DUMP_FUNCTION(IsCompMedia),
        TAVDB_DUMP_FUNCTION(compFileRead),
        TAVDB_DUMP_FUNCTION(comp_getComponent),
        TAVDB_DUMP_FUNCTION(comp_getNode),
        TAVDB_DUMP_FUNCTION(comp_getLeaf),
        TAVDB_DUMP_FUNCTION(comp_setComponent),
        TAVDB_DUMP_FUNCTION(comp_setNode),
        TAVDB_DUMP_FUNCTION(comp_setDeleted),
        TAVDB_DUMP_FUNCTION(comp_setLeaf),
        TAVDB_DUMP_FUNCTION(comp_newNode),
        TAVDB_DUMP_FUNCTION(comp_newLeaf),
        TAVDB_DUMP_FUNCTION(comp_currentToDefault),
        TAVDB_DUMP_FUNCTION(comp_factoryToDefault),
        TAVDB_DUMP_FUNCTION(comp_defaultToCurrent),
        TAVDB_DUMP_FUNCTION(comp_lock),
        TAVDB_DUMP_FUNCTION(comp_unlock),
        TAVDB_DUMP_FUNCTION(comp_searchByName),
        TAVDB_DUMP_FUNCTION(comp_getChildCount),
        TAVDB_DUMP_FUNCTION(comp_getChildByIndex),
        TAVDB_DUMP_FUNCTION(comp_getNextSibling),
        TAVDB_DUMP_FUNCTION(comp_setNextSibling),
        TAVDB_DUMP_FUNCTION(comp_traverseAndPrint),
        TAVDB_DUMP_FUNCTION(comp_getParent),
        TAVDB_DUMP_FUNCTION(comp_setParent),
        TAVDB_DUMP_FUNCTION(comp_getFirstChild),
        TAVDB_DUMP_FUNCTION(comp_setFirstChild),
        TAVDB_DUMP_FUNCTION(comp_getStringKey),
        TAVDB_DUMP_FUNCTION(comp_setStringKey),
        TAVDB_DUMP_FUNCTION(comp_getRoot),
        TAVDB_DUMP_FUNCTION(leaf_getCurrentValueKey),
        TAVDB_DUMP_FUNCTION(leaf_getDefaultValueKey),
        TAVDB_DUMP_FUNCTION(leaf_getFactoryValueKey),
        TAVDB_DUMP_FUNCTION(leaf_setCurrentValueKey),
        TAVDB_DUMP_FUNCTION(leaf_setDefaultValueKey),
        TAVDB_DUMP_FUNCTION(leaf_setFactoryValueKey),
        TAVDB_DUMP_FUNCTION(leaf_create),
        TAVDB_DUMP_FUNCTION(leaf_move),
        TAVDB_DUMP_FUNCTION(node_create),
        TAVDB_DUMP_FUNCTION(node_move),
        TAVDB_DUMP_FUNCTION(node_moveWithSub),
    };
    return dumpModule({.banner = "====(db_component)\n",
                       .debugSize = 0,
                       .ramSize = 0,
                       .words = {},
                       .functions = functions,
                       .atLevel98 = AtLevel98::nothing},
                      level, debugSize, ramSize);
}
