// SPDX-License-Identifier: Apache-2.0
// The forwarders of the application interface: each advances its counter and
// hands its arguments on.
#include "manager/db_manager_counters.h"
#include "tavdb_modules.h"

using namespace tavdb;

uint32_t tavDBMGetRoot(tavDBMSession *session) {
    count(Call::GetRoot);
    return comp_getRoot(session);
}

uint32_t tavDBMGetParent(tavDBMSession *session, uint32_t component) {
    count(Call::GetParent);
    return comp_getParent(session, component);
}

uint32_t tavDBMGetFirstChild(tavDBMSession *session, uint32_t component) {
    count(Call::GetFirstChild);
    return comp_getFirstChild(session, component);
}

uint32_t tavDBMGetNextChild(tavDBMSession *session, uint32_t component) {
    count(Call::GetNextChild);
    return comp_getNextSibling(session, component);
}

uint32_t tavDBMGetChildCount(tavDBMSession *session, uint32_t component) {
    count(Call::GetChildCount);
    return comp_getChildCount(session, component);
}

uint32_t tavDBMGetChildByIndex(tavDBMSession *session, uint32_t component, uint32_t index) {
    count(Call::GetChildByIndex);
    return comp_getChildByIndex(session, component, index);
}

int32_t tavDBMCurrentToDefault(tavDBMSession *session, uint32_t component) {
    count(Call::CurrentToDefault);
    return comp_currentToDefault(session, component);
}

int32_t tavDBMFactoryToDefault(tavDBMSession *session, uint32_t component) {
    count(Call::FactoryToDefault);
    return comp_factoryToDefault(session, component);
}

int32_t tavDBMDefaultToCurrent(tavDBMSession *session, uint32_t component) {
    count(Call::DefaultToCurrent);
    return comp_defaultToCurrent(session, component);
}

uint32_t tavDBMCreateNode(tavDBMSession *session, uint32_t name, uint32_t parent, uint32_t previous, uint32_t child) {
    count(Call::CreateNode);
    return node_create(session, name, parent, previous, child);
}

uint32_t tavDBMCreateLeaf(tavDBMSession *session, uint32_t name, uint32_t parent, uint32_t previous,
                          uint32_t currentValue, uint32_t defaultValue, uint32_t factoryValue, uint32_t hookId) {
    count(Call::CreateLeaf);
    return leaf_create(session, name, parent, previous, currentValue, defaultValue, factoryValue, hookId);
}

uint32_t tavDBMCreateValue(tavDBMSession *session, int32_t type, uint32_t creationWord, const void *data,
                           int32_t length, int32_t mediaId) {
    count(Call::CreateValue);
    return value_create(session, type, creationWord, data, length, mediaId);
}

uint32_t tavDBMCreateString(tavDBMSession *session, const char *text, int32_t mediaId) {
    count(Call::CreateString);
    return str_create(session, text, mediaId);
}

int32_t tavDBMMoveLeaf(tavDBMSession *session, uint32_t leaf, uint32_t parent, uint32_t previous) {
    count(Call::MoveLeaf);
    return leaf_move(session, leaf, parent, previous);
}

int32_t tavDBMMoveNode(tavDBMSession *session, uint32_t node, uint32_t parent, uint32_t previous, uint32_t child) {
    count(Call::MoveNode);
    return node_move(session, node, parent, previous, child);
}

int32_t tavDBMMoveSubTree(tavDBMSession *session, uint32_t node, uint32_t parent, uint32_t previous) {
    count(Call::MoveSubTree);
    return node_moveWithSub(session, node, parent, previous);
}

uint32_t tavDBMGetCurrentValueKey(tavDBMSession *session, uint32_t component) {
    count(Call::GetCurrentValueKey);
    return leaf_getCurrentValueKey(session, component);
}

uint32_t tavDBMGetDefaultValueKey(tavDBMSession *session, uint32_t component) {
    count(Call::GetDefaultValueKey);
    return leaf_getDefaultValueKey(session, component);
}

uint32_t tavDBMGetFactoryValueKey(tavDBMSession *session, uint32_t component) {
    count(Call::GetFactoryValueKey);
    return leaf_getFactoryValueKey(session, component);
}

int32_t tavDBMSetCurrentValueKey(tavDBMSession *session, uint32_t component, uint32_t value) {
    count(Call::SetCurrentValueKey);
    return leaf_setCurrentValueKey(session, component, value);
}

int32_t tavDBMSetDefaultValueKey(tavDBMSession *session, uint32_t component, uint32_t value) {
    count(Call::SetDefaultValueKey);
    return leaf_setDefaultValueKey(session, component, value);
}

int32_t tavDBMSetFactoryValueKey(tavDBMSession *session, uint32_t component, uint32_t value) {
    count(Call::SetFactoryValueKey);
    return leaf_setFactoryValueKey(session, component, value);
}

uint32_t tavDBMGetConstraintKey(tavDBMSession *session, uint32_t value) {
    count(Call::GetConstraintKey);
    return value_getConstraintKey(session, value);
}

int32_t tavDBMSetConstraintKey(tavDBMSession *session, uint32_t value, uint32_t constraint) {
    count(Call::SetConstraintKey);
    return value_setConstraintKey(session, value, constraint);
}

uint32_t tavDBMGetStringKey(tavDBMSession *session, uint32_t component) {
    count(Call::GetStringKey);
    return comp_getStringKey(session, component);
}

int32_t tavDBMSetStringKey(tavDBMSession *session, uint32_t component, uint32_t string) {
    count(Call::SetStringKey);
    return comp_setStringKey(session, component, string);
}

int32_t tavDBMDeleteComponent(tavDBMSession *session, uint32_t component) {
    count(Call::DeleteComponent);
    return comp_delete(session, component);
}

int32_t tavDBMDeleteComponentWithSub(tavDBMSession *session, uint32_t component) {
    count(Call::DeleteComponentWithSub);
    return comp_deleteWithSub(session, component, 1);
}

int32_t tavDBMDeleteValue(tavDBMSession *session, uint32_t value) {
    count(Call::DeleteValue);
    return value_delete(session, value);
}

void tavDBMtraverseAndPrint(tavDBMSession *session, uint32_t component) {
    count(Call::traverseAndPrint);
    comp_traverseAndPrint(session, component != 0 ? component : comp_getRoot(session), 0);
}
