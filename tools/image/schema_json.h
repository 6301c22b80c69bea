// SPDX-License-Identifier: Apache-2.0
// schema.json: what a description says and a database's media do not hold, kept
// beside the images and keyed by path. Everything else is read from the database
// itself, so that the two cannot disagree about it.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "image/diagnostics.h"
#include "image/model.h"

namespace tavdb::image {

struct SchemaEntry {
    std::string description;
    std::string units;
    bool secret = false;
    std::vector<std::pair<std::string, Value>> labels;

    bool empty() const {
        return description.empty() && units.empty() && !secret && labels.empty();
    }
};

struct Schema {
    Source source;
    std::map<std::string, SchemaEntry> components;  ///< by path; those with nothing to say are not listed
};

Schema makeSchema(const Model &model);

/// The lines before the entries end in kSchemaMiddle, those behind them are kSchemaEnd.
inline constexpr std::string_view kSchemaStart = "{\n\"format\":1,\n\"source\":";
inline constexpr std::string_view kSchemaMiddle = ",\n\"components\":{\n";
inline constexpr std::string_view kSchemaEnd = "\n}\n}\n";

/// One line for each entry, sorted by the bytes of the paths, so that one of them
/// is found without reading the others. Equal schemas give equal text, whatever
/// order their labels were added in.
std::string formatSchema(const Schema &schema);

struct SchemaRead {
    Schema schema;
    std::vector<Diagnostic> errors;  ///< the first fault, if any; the schema is empty then
};
SchemaRead parseSchema(std::string_view text);

/// The two halves of an entry's line; the key in its quotes.
Outcome<std::string> parseSchemaKey(std::string_view text);
Outcome<SchemaEntry> parseSchemaEntry(std::string_view text, const std::string &path);

/// Gives the elements of an enumeration that was read from a database their labels.
void applyLabels(Type type, const SchemaEntry &entry, Enumeration &elements);

}  // namespace tavdb::image
