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
constexpr auto kNode = &CallArguments::node;
constexpr auto kLeaf = &CallArguments::leaf;
constexpr auto kParent = &CallArguments::parent;
constexpr auto kPrevious = &CallArguments::previous;
constexpr auto kChild = &CallArguments::child;
constexpr auto kValue = &CallArguments::value;
constexpr auto kWord = &CallArguments::word;

#define FORWARDER(function, counter, behind, ...)                                \
    {                                                                            \
#function, counter, call < tavDBM##function __VA_OPT__(, ) __VA_ARGS__>, \
            call < behind __VA_OPT__(, ) __VA_ARGS__>                            \
    }
constexpr CountedFunction kCounted[] = {
    FORWARDER(CurrentToDefault, "current_to_default", comp_currentToDefault, kLeaf),
    FORWARDER(FactoryToDefault, "factory_to_default", comp_factoryToDefault, kLeaf),
    FORWARDER(DefaultToCurrent, "default_to_current", comp_defaultToCurrent, kLeaf),
    FORWARDER(GetRoot, "get_root", comp_getRoot),
    FORWARDER(GetParent, "get_parent", comp_getParent, kLeaf),
    FORWARDER(GetFirstChild, "get_first_child", comp_getFirstChild, kNode),
    FORWARDER(GetNextChild, "get_next_child", comp_getNextSibling, kPrevious),
    FORWARDER(GetChildCount, "get_child_count", comp_getChildCount, kNode),
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
    FORWARDER(CreateNode, "create_node", node_create, kWord, kParent, kPrevious, kChild),
    FORWARDER(MoveLeaf, "move_leaf", leaf_move, kLeaf, kParent, kPrevious),
    FORWARDER(MoveNode, "move_node", node_move, kNode, kParent, kPrevious, kChild),
    FORWARDER(MoveSubTree, "move_sub_tree", node_moveWithSub, kNode, kParent, kPrevious),
    FORWARDER(GetCurrentValueKey, "get_current_value_key", leaf_getCurrentValueKey, kLeaf),
    FORWARDER(GetDefaultValueKey, "get_default_value_key", leaf_getDefaultValueKey, kLeaf),
    FORWARDER(GetFactoryValueKey, "get_factory_value_key", leaf_getFactoryValueKey, kLeaf),
    FORWARDER(SetCurrentValueKey, "set_current_value_key", leaf_setCurrentValueKey, kLeaf, kWord),
    FORWARDER(SetDefaultValueKey, "set_default_value_key", leaf_setDefaultValueKey, kLeaf, kWord),
    FORWARDER(SetFactoryValueKey, "set_factory_value_key", leaf_setFactoryValueKey, kLeaf, kWord),
    FORWARDER(GetConstraintKey, "get_constraint_key", value_getConstraintKey, kValue),
    FORWARDER(SetConstraintKey, "set_constraint_key", value_setConstraintKey, kValue, kWord),
    FORWARDER(GetStringKey, "get_string_key", comp_getStringKey, kLeaf),
    FORWARDER(SetStringKey, "set_string_key", comp_setStringKey, kLeaf, kWord),
    FORWARDER(DeleteComponent, "delete_component", comp_delete, kNode),
    {"DeleteComponentWithSub", "delete_component_with_sub", call<tavDBMDeleteComponentWithSub, kNode>,
     deleteWithSubBehind},
    FORWARDER(DeleteValue, "delete_value", value_delete, kValue),
    {"traverseAndPrint", "traverse_and_print", traverse, traverseBehind},
};
#undef FORWARDER

}  // namespace

std::span<const CountedFunction> countedFunctions() {
    return kCounted;
}

}  // namespace tavdb_test
