// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "faults/fault_rows.h"
#include "manager/manager_calls.h"

namespace tavdb_test {

namespace {

CallArguments argumentsOf(const World &w) {
    return {.session = w.session,
            .node = w.node,
            .leaf = w.leaf,
            .parent = w.parent,
            .previous = w.previous,
            .child = w.child,
            .value = w.otherValue,
            .word = w.string};
}

constexpr size_t kCounted = 52;

template <size_t Index>
int64_t counted(World &w) {
    return countedFunctions()[Index].call(argumentsOf(w));
}

template <size_t... Indices>
void addCounted(std::vector<FaultRow> &rows, std::index_sequence<Indices...>) {
    static std::array<std::string, kCounted> names;
    ((names[Indices] = std::string("tavDBM") + countedFunctions()[Indices].name), ...);
    (rows.push_back({names[Indices].c_str(), counted<Indices>}), ...);
}

/// A read of up to 8 bytes.
template <auto Get>
int64_t get(World &w) {
    uint8_t buffer[8];
    int32_t length = sizeof buffer;
    return Get(w.session, w.leaf, buffer, &length);
}

template <auto Set>
int64_t set(World &w) {
    const uint64_t number = 3;
    return Set(w.session, w.leaf, &number, sizeof number);
}

constexpr FaultRow kManagerRows[] = {
    {"tavDBMGetGeneric", get<tavDBMGetGeneric>},
    {"tavDBMGetDefaultGeneric", get<tavDBMGetDefaultGeneric>},
    {"tavDBMGetFactoryGeneric", get<tavDBMGetFactoryGeneric>},
    {"tavDBMGetCreateListGeneric", get<tavDBMGetCreateListGeneric>},
    {"tavDBMSetGeneric", set<tavDBMSetGeneric>},
    {"tavDBMSetDefaultGeneric", set<tavDBMSetDefaultGeneric>},
    {"tavDBMGetType", [](World &w) { return int64_t{tavDBMGetType(w.session, w.leaf)}; }},
    {"tavDBMGetLength", [](World &w) { return int64_t{tavDBMGetLength(w.session, w.leaf)}; }},
    {"tavDBMCopy", [](World &w) { return int64_t{tavDBMCopy(w.session, w.leaf, w.leaf)}; }},
    {"tavDBMCopy/from a shorter one", [](World &w) { return int64_t{tavDBMCopy(w.session, w.witness, w.leaf)}; }},
    {"tavDBMSetCurrentComponent", [](World &w) { return int64_t{tavDBMSetCurrentComponent(w.session, w.node)}; }},
    {"tavDBMSearchByName", [](World &w) { return int64_t{tavDBMSearchByName(w.session, "/node/inner/")}; }},
    {"tavDBMSearchByName/relative", [](World &w) { return int64_t{tavDBMSearchByName(w.session, "node/inner/")}; }},
    {"tavDBMGetConstraintData",
     [](World &w) {
         uint8_t data[24];
         return int64_t{tavDBMGetConstraintData(w.session, w.leaf, data, sizeof data)};
     }},
    {"tavDBMSetConstraintData",
     [](World &w) {
         const uint64_t data[3] = {0, 20, 2};
         return int64_t{tavDBMSetConstraintData(w.session, w.leaf, data, sizeof data)};
     }},
    {"tavDBMGetConstraintLength", [](World &w) { return int64_t{tavDBMGetConstraintLength(w.session, w.leaf)}; }},
    {"tavDBMGetConstraintType", [](World &w) { return int64_t{tavDBMGetConstraintType(w.session, w.leaf)}; }},
};

std::vector<FaultRow> allRows() {
    std::vector<FaultRow> rows(std::begin(kManagerRows), std::end(kManagerRows));
    addCounted(rows, std::make_index_sequence<kCounted>());
    for (FaultRow &row : rows) {
        if (row.function() != "tavDBMtraverseAndPrint")
            continue;
        row.before = catchOutput;
        row.after = dropOutput;
    }
    return rows;
}

}  // namespace

std::span<const FaultRow> managerRows() {
    static const std::vector<FaultRow> rows = allRows();
    return rows;
}

}  // namespace tavdb_test
