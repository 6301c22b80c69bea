// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_rows.h"

namespace tavdb_test {

namespace {

constexpr uint64_t kTwo = 2;

tavDBMValue valueRecord(const World &w) {
    return {.key = w.value,
            .type = TAVDB_TYPE_U64,
            .dataMedia = kDataMedia,
            .dataOffset = 0,
            .length = 8,
            .creationWord = 0x1234,
            .constraintKey = 0};
}

tavDBMString stringRecord(const World &w) {
    return {.key = w.string, .textMedia = kTextMedia, .textOffset = 0, .textLength = 7};
}

constexpr FaultRow kValueRows[] = {
    {"value_new",
     [](World &w) {
         tavDBMValue record = {};
         return given(value_new(w.session, &record));
     }},
    {"value_create",
     [](World &w) { return int64_t{value_create(w.session, TAVDB_TYPE_U64, 5, &kTwo, sizeof kTwo, kDataMedia)}; }},
    {"value_create/zeros",
     [](World &w) { return int64_t{value_create(w.session, TAVDB_TYPE_U64, 5, nullptr, 40, kDataMedia)}; }},
    {"value_set",
     [](World &w) {
         const tavDBMValue record = valueRecord(w);
         return int64_t{value_set(w.session, &record)};
     }},
    {"value_get",
     [](World &w) {
         tavDBMValue record;
         return given(value_get(w.session, w.value, &record));
     }},
    {"value_getType", [](World &w) { return int64_t{value_getType(w.session, w.value)}; }},
    {"value_getLength", [](World &w) { return int64_t{value_getLength(w.session, w.value)}; }},
    {"value_setConstraintKey",
     [](World &w) { return int64_t{value_setConstraintKey(w.session, w.value, w.ranges[0])}; }},
    {"value_getConstraintKey", [](World &w) { return int64_t{value_getConstraintKey(w.session, w.value)}; }},
    {"value_setGeneric", [](World &w) { return int64_t{value_setGeneric(w.session, w.value, &kTwo, sizeof kTwo)}; }},
    {"value_setGeneric/listed",
     [](World &w) {
         const uint64_t three = 3;
         return int64_t{value_setGeneric(w.session, w.otherValue, &three, sizeof three)};
     }},
    {"value_getGeneric",
     [](World &w) {
         uint8_t buffer[8];
         int32_t length = sizeof buffer;
         return int64_t{value_getGeneric(w.session, w.value, buffer, &length)};
     }},
    {"value_getCreateListGeneric",
     [](World &w) {
         uint8_t buffer[8];
         return int64_t{value_getCreateListGeneric(w.session, w.value, buffer, sizeof buffer)};
     }},
    {"value_copy", [](World &w) { return int64_t{value_copy(w.session, w.otherValue, w.value)}; }},
    {"value_copy2", [](World &w) { return int64_t{value_copy2(w.session, w.otherValue, w.value, kWorldHook)}; }},
    {"value_setDeleted",
     [](World &w) {
         const tavDBMValue record = valueRecord(w);
         return int64_t{value_setDeleted(w.session, &record)};
     }},
    {"value_delete", [](World &w) { return int64_t{value_delete(w.session, w.otherValue)}; }},
    {"str_newEntry",
     [](World &w) {
         tavDBMString entry = {};
         return given(str_newEntry(w.session, &entry));
     }},
    {"str_setEntry",
     [](World &w) {
         const tavDBMString entry = stringRecord(w);
         return int64_t{str_setEntry(w.session, &entry)};
     }},
    {"tavdb_getStrEntry",
     [](World &w) {
         tavDBMString entry = {};
         return given(tavdb_getStrEntry(w.session, w.string, &entry));
     }},
    {"tavdb_getString",
     [](World &w) {
         char text[16] = {};
         return given(tavdb_getString(w.session, w.string, text, sizeof text));
     }},
    {"str_create", [](World &w) { return int64_t{str_create(w.session, "another text", kTextMedia)}; }},
    {"str_setDeleted",
     [](World &w) {
         const tavDBMString entry = stringRecord(w);
         return int64_t{str_setDeleted(w.session, &entry)};
     }},
    {"tavDBMDeleteString", [](World &w) { return int64_t{tavDBMDeleteString(w.session, w.string)}; }},
    {"dbs_me_db_string_delete", [](World &w) { return int64_t{dbs_me_db_string_delete(w.session, w.string)}; }},
};

}  // namespace

std::span<const FaultRow> valueRows() {
    return kValueRows;
}

}  // namespace tavdb_test
