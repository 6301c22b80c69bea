// SPDX-License-Identifier: Apache-2.0
// The schema.json of a database: the entry of one path, found by a binary search
// over the lines, of which only a few are read. A file of another shape that is
// JSON all the same is read whole.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "image/fault.h"
#include "image/files.h"
#include "image/schema_json.h"

namespace tavdb::image {

class SchemaFile {
public:
    /// A file that is not there is a schema without entries.
    static Result<SchemaFile> open(const std::string &path);

    bool isThere() const {
        return descriptor.isOpen();
    }
    /// The entry of a path; one without content when there is none.
    Result<SchemaEntry> find(const std::string &path) const;
    Result<Schema> readAll() const;
    Result<Source> readSource() const;

private:
    /// Bytes of the file.
    struct Extent {
        size_t begin;
        size_t end;
    };

    SchemaFile() = default;
    /// Where the lines of the entries are, in a file of the shape in which it was written.
    Result<std::optional<Extent>> findLines() const;
    Result<SchemaEntry> findAmong(Extent lines, const std::string &path) const;
    static Result<SchemaEntry> findLine(std::string_view lines, const std::string &path);

    Descriptor descriptor;
    size_t sizeBytes = 0;
};

}  // namespace tavdb::image
