// SPDX-License-Identifier: Apache-2.0
// The constraint of a leaf's current value, reached through the leaf.
#include "control/db_trace.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

/// The constraint key of a leaf's current value, or 0 with the failure recorded.
uint32_t constraintOf(tavDBMSession *session, uint32_t component, Site site) {
    tavDBMLeaf leaf;
    if (comp_getLeaf(session, component, &leaf) == nullptr)
        return 0;
    if (leaf.component.kind != TAVDB_KIND_LEAF) {
        fail(session, TAVDB_ERR_NOT_LEAF, 0, site, component, leaf.component.kind);
        return 0;
    }
    if (leaf.currentValue == 0) {
        fail(session, TAVDB_ERR_NO_CURRENT, 0, site + 1, component);
        return 0;
    }
    tavDBMValue value;
    if (value_get(session, leaf.currentValue, &value) == nullptr)
        return 0;
    if (value.constraintKey == 0)
        fail(session, TAVDB_ERR_NO_CONSTRAINT, 0, site + 2, component, leaf.currentValue);
    return value.constraintKey;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

// deliberate: the data functions answer 0 without a constraint, as after a success; the length answers -1

int32_t tavDBMGetConstraintData(tavDBMSession *session, uint32_t component, void *buffer, int32_t bufferLength) {
    const uint32_t key = constraintOf(session, component, {__func__, 100});
    return key != 0 ? constraint_getData(session, key, buffer, bufferLength) : 0;
}

int32_t tavDBMSetConstraintData(tavDBMSession *session, uint32_t component, const void *data, int32_t length) {
    const uint32_t key = constraintOf(session, component, {__func__, 110});
    return key != 0 ? constraint_setData(session, key, data, length) : 0;
}

int32_t tavDBMGetConstraintLength(tavDBMSession *session, uint32_t component) {
    const uint32_t key = constraintOf(session, component, {__func__, 120});
    return key != 0 ? constraint_getLength(session, key) : -1;
}

int32_t tavDBMGetConstraintType(tavDBMSession *session, uint32_t component) {
    const uint32_t key = constraintOf(session, component, {__func__, 130});
    return key != 0 ? constraint_getType(session, key) : 0;
}
