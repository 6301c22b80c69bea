// SPDX-License-Identifier: Apache-2.0
// The schema.json of a database: the entry of one path, found by a binary search
// over the lines of the mapped file. A file of another shape that is JSON all the
// same is read whole.
#pragma once

#include <string>
#include <string_view>

#include "image/fault.h"
#include "image/schema_json.h"

namespace tavdb::image {

class SchemaFile {
public:
    /// A file that is not there is a schema without entries.
    static Result<SchemaFile> open(const std::string &path);

    SchemaFile(SchemaFile &&other) noexcept;
    SchemaFile &operator=(SchemaFile &&) = delete;
    ~SchemaFile();

    bool isThere() const {
        return there;
    }
    /// The entry of a path; one without content when there is none.
    Result<SchemaEntry> find(const std::string &path) const;
    Result<Schema> readAll() const;
    Result<Source> readSource() const;

private:
    SchemaFile() = default;
    bool hasLines() const;
    Result<SchemaEntry> findLine(std::string_view lines, const std::string &path) const;

    std::string_view text;
    bool there = false;
};

}  // namespace tavdb::image
