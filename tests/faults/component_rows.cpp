// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_rows.h"

namespace tavdb_test {

namespace {

template <auto Function, auto... Arguments>
int64_t call(World &w) {
    return Function(w.session, w.*Arguments...);
}

/// Reads a record with `Function` at one of the world's keys.
template <auto Function, auto Key>
int64_t read(World &w) {
    tavDBMLeaf record;
    return given(Function(w.session, w.*Key, &record));
}

template <auto Function, auto Key>
int64_t readAndWrite(World &w) {
    const auto record = fakeMedia().recordAt<tavDBMLeaf>(kComponents, w.*Key);
    return Function(w.session, &record);
}

template <auto Function>
int64_t reserve(World &w) {
    tavDBMLeaf record = {};
    return given(Function(w.session, &record));
}

template <auto Function>
void lock(World &w) {
    Function(w.session, w.leaf, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED);
}

constexpr auto kNode = &World::node;
constexpr auto kLeaf = &World::leaf;
constexpr auto kParent = &World::parent;
constexpr auto kPrevious = &World::previous;
constexpr auto kChild = &World::child;
constexpr auto kValue = &World::value;
constexpr auto kString = &World::string;

constexpr FaultRow kComponentRows[] = {
    {"comp_getComponent", read<comp_getComponent, kLeaf>},
    {"comp_getNode", read<comp_getNode, kNode>},
    {"comp_getLeaf", read<comp_getLeaf, kLeaf>},
    {"comp_setComponent", readAndWrite<comp_setComponent, kLeaf>},
    {"comp_setNode", readAndWrite<comp_setNode, kNode>},
    {"comp_setLeaf", readAndWrite<comp_setLeaf, kLeaf>},
    {"comp_setDeleted", readAndWrite<comp_setDeleted, kLeaf>},
    {"comp_setDeleted/node", readAndWrite<comp_setDeleted, kNode>},
    {"comp_newNode", reserve<comp_newNode>},
    {"comp_newLeaf", reserve<comp_newLeaf>},
    {"comp_getStringKey", call<comp_getStringKey, kLeaf>},
    {"comp_setStringKey", call<comp_setStringKey, kLeaf, kString>},
    {"comp_getParent", call<comp_getParent, kLeaf>},
    {"comp_setParent", call<comp_setParent, kLeaf, kParent>},
    {"comp_getNextSibling", call<comp_getNextSibling, kPrevious>},
    {"comp_setNextSibling", call<comp_setNextSibling, kPrevious, kLeaf>},
    {"comp_getFirstChild", call<comp_getFirstChild, kNode>},
    {"comp_setFirstChild", call<comp_setFirstChild, kNode, kChild>},
    {"comp_getChildCount", call<comp_getChildCount, kNode>},
    {"comp_getChildByIndex", [](World &w) { return int64_t{comp_getChildByIndex(w.session, w.node, 1)}; }},
    {"comp_getRoot", call<comp_getRoot>},
    {"leaf_getCurrentValueKey", call<leaf_getCurrentValueKey, kLeaf>},
    {"leaf_getDefaultValueKey", call<leaf_getDefaultValueKey, kLeaf>},
    {"leaf_getFactoryValueKey", call<leaf_getFactoryValueKey, kLeaf>},
    {"leaf_setCurrentValueKey", call<leaf_setCurrentValueKey, kLeaf, kValue>},
    {"leaf_setDefaultValueKey", call<leaf_setDefaultValueKey, kLeaf, kValue>},
    {"leaf_setFactoryValueKey", call<leaf_setFactoryValueKey, kLeaf, kValue>},
    {"node_create", call<node_create, kString, kParent, kPrevious, kChild>},
    {"node_create/first", [](World &w) { return int64_t{node_create(w.session, w.string, w.node, 0, 0)}; }},
    {"leaf_create",
     [](World &w) { return int64_t{leaf_create(w.session, w.string, w.parent, w.previous, w.value, 0, 0, 0)}; }},
    {"leaf_create/first",
     [](World &w) { return int64_t{leaf_create(w.session, w.string, w.node, 0, w.value, 0, 0, 0)}; }},
    {"leaf_move", call<leaf_move, kLeaf, kParent, kPrevious>},
    {"node_move", call<node_move, kNode, kParent, kPrevious, kChild>},
    {"node_moveWithSub", call<node_moveWithSub, kNode, kParent, kPrevious>},
    {"comp_delete", call<comp_delete, kNode>},
    {"comp_delete/leaf", call<comp_delete, kLeaf>},
    {"comp_deleteWithSub", [](World &w) { return int64_t{comp_deleteWithSub(w.session, w.node, 1)}; }},
    {"comp_deleteWithSub/linked", [](World &w) { return int64_t{comp_deleteWithSub(w.session, w.parent, 0)}; }},
    {"comp_traverseAndPrint",
     [](World &w) {
         comp_traverseAndPrint(w.session, w.node, 0);
         return int64_t{0};
     },
     catchOutput, dropOutput},
    {"comp_searchByName", [](World &w) { return int64_t{comp_searchByName(w.session, w.root, "/node/inner/")}; }},
    {"comp_defaultToCurrent", call<comp_defaultToCurrent, kNode>},
    {"comp_factoryToDefault", call<comp_factoryToDefault, kNode>},
    {"comp_currentToDefault", call<comp_currentToDefault, kNode>},
    {"comp_lock", [](World &w) { return int64_t{comp_lock(w.session, w.leaf, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED)}; }},
    {"comp_unlock", call<comp_unlock, kLeaf>, lock<comp_lock>},
};

}  // namespace

void catchOutput(World &) {
    testing::internal::CaptureStdout();
}

void dropOutput(World &) {
    testing::internal::GetCapturedStdout();
}

std::span<const FaultRow> componentRows() {
    return kComponentRows;
}

}  // namespace tavdb_test
