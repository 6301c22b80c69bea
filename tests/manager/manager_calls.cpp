// SPDX-License-Identifier: Apache-2.0
#include "manager/manager_calls.h"

namespace tavdb_test {

namespace {

constexpr uint8_t kData4[] = {0x21, 0x32, 0x43, 0x54};

template <auto Function, auto... Members>
int64_t call(const CallArguments &a) {
    return Function(a.session, a.*Members...);
}

template <auto Get, typename T>
int64_t get(const CallArguments &a) {
    T value{};
    return Get(a.session, a.leaf, &value);
}

template <auto Set>
int64_t set(const CallArguments &a) {
    return Set(a.session, a.leaf, 1);
}

int64_t getString(const CallArguments &a) {
    char buffer[4];
    return tavDBMGetString(a.session, a.leaf, buffer, sizeof buffer);
}

int64_t setString(const CallArguments &a) {
    return tavDBMSetString(a.session, a.leaf, "x");
}

template <auto Function>
int64_t createString(const CallArguments &a) {
    return Function(a.session, "text", kTextMedia);
}

template <auto Function>
int64_t createValue(const CallArguments &a) {
    return Function(a.session, 1234, 5678, kData4, 3, kDataMedia);
}

template <auto Function>
int64_t createLeaf(const CallArguments &a) {
    return Function(a.session, a.word, a.parent, a.previous, 31, 32, 33, 34);
}

int64_t traverse(const CallArguments &a) {
    tavDBMtraverseAndPrint(a.session, a.node);
    return 0;
}

int64_t traverseBehind(const CallArguments &a) {
    comp_traverseAndPrint(a.session, a.node, 0);
    return 0;
}

int64_t childByIndex(const CallArguments &a) {
    return tavDBMGetChildByIndex(a.session, a.node, 1);
}

int64_t childByIndexBehind(const CallArguments &a) {
    return comp_getChildByIndex(a.session, a.node, 1);
}

int64_t deleteWithSubBehind(const CallArguments &a) {
    return comp_deleteWithSub(a.session, a.node, 1);
}

// The arguments by their places in CallArguments.
constexpr auto kCallNode = &CallArguments::node;
constexpr auto kCallLeaf = &CallArguments::leaf;
constexpr auto kCallParent = &CallArguments::parent;
constexpr auto kCallPrevious = &CallArguments::previous;
constexpr auto kCallChild = &CallArguments::child;
constexpr auto kCallValue = &CallArguments::value;
constexpr auto kCallWord = &CallArguments::word;

#define FORWARDER(function, counter, behind, ...)                                \
    {                                                                            \
#function, counter, call < tavDBM##function __VA_OPT__(, ) __VA_ARGS__>, \
            call < behind __VA_OPT__(, ) __VA_ARGS__>                            \
    }
constexpr CountedFunction kManagerCalls[] = {
    FORWARDER(CurrentToDefault, "current_to_default", comp_currentToDefault, kCallLeaf),
    FORWARDER(FactoryToDefault, "factory_to_default", comp_factoryToDefault, kCallLeaf),
    FORWARDER(DefaultToCurrent, "default_to_current", comp_defaultToCurrent, kCallLeaf),
    FORWARDER(GetRoot, "get_root", comp_getRoot),
    FORWARDER(GetParent, "get_parent", comp_getParent, kCallLeaf),
    FORWARDER(GetFirstChild, "get_first_child", comp_getFirstChild, kCallNode),
    FORWARDER(GetNextChild, "get_next_child", comp_getNextSibling, kCallPrevious),
    FORWARDER(GetChildCount, "get_child_count", comp_getChildCount, kCallNode),
    {"GetChildByIndex", "get_child_by_index", childByIndex, childByIndexBehind},
    {"GetString", "get_string", getString, nullptr},
    {"SetString", "set_string", setString, nullptr},
    {"GetSint8", "get_sint8", get<tavDBMGetSint8, int8_t>, nullptr},
    {"GetSint16", "get_sint16", get<tavDBMGetSint16, int16_t>, nullptr},
    {"GetSint32", "get_sint32", get<tavDBMGetSint32, int32_t>, nullptr},
    {"GetSint64", "get_sint64", get<tavDBMGetSint64, int64_t>, nullptr},
    {"GetUint8", "get_uint8", get<tavDBMGetUint8, uint8_t>, nullptr},
    {"GetUint16", "get_uint16", get<tavDBMGetUint16, uint16_t>, nullptr},
    {"GetUint32", "get_uint32", get<tavDBMGetUint32, uint32_t>, nullptr},
    {"GetUint64", "get_uint64", get<tavDBMGetUint64, uint64_t>, nullptr},
    {"GetFloat32", "get_float32", get<tavDBMGetFloat32, float>, nullptr},
    {"GetFloat64", "get_float64", get<tavDBMGetFloat64, double>, nullptr},
    {"SetSint8", "set_sint8", set<tavDBMSetSint8>, nullptr},
    {"SetSint16", "set_sint16", set<tavDBMSetSint16>, nullptr},
    {"SetSint32", "set_sint32", set<tavDBMSetSint32>, nullptr},
    {"SetSint64", "set_sint64", set<tavDBMSetSint64>, nullptr},
    {"SetUint8", "set_uint8", set<tavDBMSetUint8>, nullptr},
    {"SetUint16", "set_uint16", set<tavDBMSetUint16>, nullptr},
    {"SetUint32", "set_uint32", set<tavDBMSetUint32>, nullptr},
    {"SetUint64", "set_uint64", set<tavDBMSetUint64>, nullptr},
    {"SetFloat32", "set_float32", set<tavDBMSetFloat32>, nullptr},
    {"SetFloat64", "set_float64", set<tavDBMSetFloat64>, nullptr},
    {"CreateString", "create_string", createString<tavDBMCreateString>, createString<str_create>},
    {"CreateValue", "create_value", createValue<tavDBMCreateValue>, createValue<value_create>},
    {"CreateLeaf", "create_leaf", createLeaf<tavDBMCreateLeaf>, createLeaf<leaf_create>},
    FORWARDER(CreateNode, "create_node", node_create, kCallWord, kCallParent, kCallPrevious, kCallChild),
    FORWARDER(MoveLeaf, "move_leaf", leaf_move, kCallLeaf, kCallParent, kCallPrevious),
    FORWARDER(MoveNode, "move_node", node_move, kCallNode, kCallParent, kCallPrevious, kCallChild),
    FORWARDER(MoveSubTree, "move_sub_tree", node_moveWithSub, kCallNode, kCallParent, kCallPrevious),
    FORWARDER(GetCurrentValueKey, "get_current_value_key", leaf_getCurrentValueKey, kCallLeaf),
    FORWARDER(GetDefaultValueKey, "get_default_value_key", leaf_getDefaultValueKey, kCallLeaf),
    FORWARDER(GetFactoryValueKey, "get_factory_value_key", leaf_getFactoryValueKey, kCallLeaf),
    FORWARDER(SetCurrentValueKey, "set_current_value_key", leaf_setCurrentValueKey, kCallLeaf, kCallWord),
    FORWARDER(SetDefaultValueKey, "set_default_value_key", leaf_setDefaultValueKey, kCallLeaf, kCallWord),
    FORWARDER(SetFactoryValueKey, "set_factory_value_key", leaf_setFactoryValueKey, kCallLeaf, kCallWord),
    FORWARDER(GetConstraintKey, "get_constraint_key", value_getConstraintKey, kCallValue),
    FORWARDER(SetConstraintKey, "set_constraint_key", value_setConstraintKey, kCallValue, kCallWord),
    FORWARDER(GetStringKey, "get_string_key", comp_getStringKey, kCallLeaf),
    FORWARDER(SetStringKey, "set_string_key", comp_setStringKey, kCallLeaf, kCallWord),
    FORWARDER(DeleteComponent, "delete_component", comp_delete, kCallNode),
    {"DeleteComponentWithSub", "delete_component_with_sub", call<tavDBMDeleteComponentWithSub, kCallNode>,
     deleteWithSubBehind},
    FORWARDER(DeleteValue, "delete_value", value_delete, kCallValue),
    {"traverseAndPrint", "traverse_and_print", traverse, traverseBehind},
};
#undef FORWARDER

}  // namespace

std::span<const CountedFunction> countedFunctions() {
    return kManagerCalls;
}

}  // namespace tavdb_test
