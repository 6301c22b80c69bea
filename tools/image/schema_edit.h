// SPDX-License-Identifier: Apache-2.0
// Changes of schema.json: its entries follow their components when these move or
// go, and the file is replaced as a whole. It must not fall behind: a secret mark
// that is left at an old path would show the secret at the new one.
#pragma once

#include <string>

#include "image/fault.h"
#include "image/schema_json.h"

namespace tavdb::image {

/// Whether `path` is that of `top` or of something below it.
bool isWithin(const std::string &path, const std::string &top);

/// Takes the entries of a component and of all below it away. @return whether there were any
bool removeEntries(Schema &schema, const std::string &top);

/// Gives the entries of `from` and of all below it to `to` as well, in place of
/// those that were there. @return whether anything changed
bool copyEntries(Schema &schema, const std::string &from, const std::string &to);

/// A new schema.json beside the old one, which takes its place with commit().
class SchemaReplacement {
public:
    /// @param path of the schema.json
    explicit SchemaReplacement(std::string path);
    SchemaReplacement(const SchemaReplacement &) = delete;
    SchemaReplacement &operator=(const SchemaReplacement &) = delete;
    /// Removes what was not committed.
    ~SchemaReplacement();

    /// Writes the new file and flushes it to its device, with the rights of the old one.
    Status prepare(const Schema &schema);
    Status commit();

private:
    std::string target;
    std::string beside;
    bool isPrepared = false;
};

/// Both steps at once.
Status replaceSchema(const std::string &path, const Schema &schema);

}  // namespace tavdb::image
