// SPDX-License-Identifier: Apache-2.0
// The call counters of the application interface, one for each of 52 functions,
// in the order in which the dump prints them.
#pragma once

#include <cstdint>

#include "control/db_counter.h"

/// X(name of the counter, name of the function behind "tavDBM")
#define TAVDB_MANAGER_COUNTERS(X)                        \
    X(current_to_default, CurrentToDefault)              \
    X(factory_to_default, FactoryToDefault)              \
    X(default_to_current, DefaultToCurrent)              \
    X(get_root, GetRoot)                                 \
    X(get_parent, GetParent)                             \
    X(get_first_child, GetFirstChild)                    \
    X(get_next_child, GetNextChild)                      \
    X(get_child_count, GetChildCount)                    \
    X(get_child_by_index, GetChildByIndex)               \
    X(get_string, GetString)                             \
    X(set_string, SetString)                             \
    X(get_sint8, GetSint8)                               \
    X(get_sint16, GetSint16)                             \
    X(get_sint32, GetSint32)                             \
    X(get_sint64, GetSint64)                             \
    X(get_uint8, GetUint8)                               \
    X(get_uint16, GetUint16)                             \
    X(get_uint32, GetUint32)                             \
    X(get_uint64, GetUint64)                             \
    X(get_float32, GetFloat32)                           \
    X(get_float64, GetFloat64)                           \
    X(set_sint8, SetSint8)                               \
    X(set_sint16, SetSint16)                             \
    X(set_sint32, SetSint32)                             \
    X(set_sint64, SetSint64)                             \
    X(set_uint8, SetUint8)                               \
    X(set_uint16, SetUint16)                             \
    X(set_uint32, SetUint32)                             \
    X(set_uint64, SetUint64)                             \
    X(set_float32, SetFloat32)                           \
    X(set_float64, SetFloat64)                           \
    X(create_string, CreateString)                       \
    X(create_value, CreateValue)                         \
    X(create_leaf, CreateLeaf)                           \
    X(create_node, CreateNode)                           \
    X(move_leaf, MoveLeaf)                               \
    X(move_node, MoveNode)                               \
    X(move_sub_tree, MoveSubTree)                        \
    X(get_current_value_key, GetCurrentValueKey)         \
    X(get_default_value_key, GetDefaultValueKey)         \
    X(get_factory_value_key, GetFactoryValueKey)         \
    X(set_current_value_key, SetCurrentValueKey)         \
    X(set_default_value_key, SetDefaultValueKey)         \
    X(set_factory_value_key, SetFactoryValueKey)         \
    X(get_constraint_key, GetConstraintKey)              \
    X(set_constraint_key, SetConstraintKey)              \
    X(get_string_key, GetStringKey)                      \
    X(set_string_key, SetStringKey)                      \
    X(delete_component, DeleteComponent)                 \
    X(delete_component_with_sub, DeleteComponentWithSub) \
    X(delete_value, DeleteValue)                         \
    X(traverse_and_print, traverseAndPrint)

namespace tavdb {

/// A function's place among the counters.
enum class Call : uint32_t {
#define TAVDB_CALL(name, function) function,
    TAVDB_MANAGER_COUNTERS(TAVDB_CALL)
#undef TAVDB_CALL
};

inline constexpr uint32_t kManagerCounters = 0
#define TAVDB_CALL(name, function) +1
    TAVDB_MANAGER_COUNTERS(TAVDB_CALL)
#undef TAVDB_CALL
    ;
static_assert(kManagerCounters == 52);

extern uint32_t managerCounters[kManagerCounters];

/// First thing in each counted function, before an argument is looked at.
inline void count(Call call) {
    enterCounter(managerCounters[static_cast<uint32_t>(call)]);
}

}  // namespace tavdb
