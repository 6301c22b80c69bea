// SPDX-License-Identifier: Apache-2.0
#include "image/schema_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "image/files.h"

namespace tavdb::image {

namespace {

/// A line of the file: the path in its quotes, and the entry.
struct EntryLine {
    std::string_view key;
    std::string_view entry;
};

/// The quote that ends a JSON string which begins at the front of `text`.
size_t endOfString(std::string_view text) {
    for (size_t i = 1; i < text.size(); i++) {
        if (text[i] == '"')
            return i;
        if (text[i] == '\\')
            i++;
    }
    return std::string_view::npos;
}

std::optional<EntryLine> splitLine(std::string_view line) {
    const auto end = line.starts_with('"') ? endOfString(line) : std::string_view::npos;
    if (end == std::string_view::npos || line.substr(end + 1, 1) != ":")
        return std::nullopt;
    auto entry = line.substr(end + 2);
    if (entry.ends_with(','))
        entry.remove_suffix(1);
    return EntryLine{line.substr(0, end + 1), entry};
}

Fault damaged(std::string sentence) {
    return {FaultKind::damaged, std::move(sentence), 0, 0};
}

}  // namespace

Result<SchemaFile> SchemaFile::open(const std::string &path) {
    SchemaFile file;
    const auto descriptor = openFile(path, O_RDONLY | O_NONBLOCK);
    if (!descriptor.isOpen() && errno == ENOENT)
        return {std::move(file), {}};
    struct stat status = {};
    if (!descriptor.isOpen() || fstat(descriptor.get(), &status) != 0)
        return Result<SchemaFile>::bad(faultOfError(errno, "cannot be opened"));
    if (auto fault = checkRegular(descriptor.get()))
        return Result<SchemaFile>::bad(std::move(*fault));
    file.there = true;
    const auto size = static_cast<size_t>(status.st_size);
    if (size == 0)
        return {std::move(file), {}};
    void *const address = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor.get(), 0);
    if (address == MAP_FAILED)
        return Result<SchemaFile>::bad(faultOfError(errno, "cannot be read"));
    file.text = {static_cast<const char *>(address), size};
    return {std::move(file), {}};
}

SchemaFile::SchemaFile(SchemaFile &&other) noexcept : text(std::exchange(other.text, {})), there(other.there) {}

SchemaFile::~SchemaFile() {
    if (!text.empty())
        munmap(const_cast<char *>(text.data()), text.size());
}

/// Whether the file has the shape in which it was written.
bool SchemaFile::hasLines() const {
    return text.starts_with(kSchemaStart) && text.ends_with(kSchemaEnd) && text.find(kSchemaMiddle) < text.size();
}

Result<SchemaEntry> SchemaFile::find(const std::string &path) const {
    if (!there)
        return {SchemaEntry{}, {}};
    if (hasLines()) {
        const auto begin = text.find(kSchemaMiddle) + kSchemaMiddle.size();
        const auto end = text.size() - kSchemaEnd.size();
        return findLine(begin < end ? text.substr(begin, end - begin) : std::string_view{}, path);
    }
    const auto whole = readAll();
    if (!whole)
        return Result<SchemaEntry>::bad(whole.error);
    const auto entry = whole.value->components.find(path);
    return {entry == whole.value->components.end() ? SchemaEntry{} : entry->second, {}};
}

Result<SchemaEntry> SchemaFile::findLine(std::string_view lines, const std::string &path) const {
    while (!lines.empty()) {
        const auto before = lines.substr(0, lines.size() / 2).rfind('\n');
        const auto begin = before == std::string_view::npos ? 0 : before + 1;
        const auto end = std::min(lines.find('\n', begin), lines.size());
        const auto line = splitLine(lines.substr(begin, end - begin));
        const auto key = line ? parseSchemaKey(line->key) : Outcome<std::string>{};
        if (!key)
            return Result<SchemaEntry>::bad(damaged("schema.json: a line is no entry"));
        if (*key.value == path) {
            auto entry = parseSchemaEntry(line->entry, path);
            return entry ? Result<SchemaEntry>::good(std::move(*entry.value))
                         : Result<SchemaEntry>::bad(damaged("schema.json: " + entry.error));
        }
        if (path < *key.value)
            lines = lines.substr(0, begin == 0 ? 0 : begin - 1);
        else
            lines = end == lines.size() ? std::string_view{} : lines.substr(end + 1);
    }
    return {SchemaEntry{}, {}};
}

Result<Schema> SchemaFile::readAll() const {
    if (!there)
        return {Schema{}, {}};
    auto read = parseSchema(text);
    if (read.errors.empty())
        return Result<Schema>::good(std::move(read.schema));
    return Result<Schema>::bad(damaged(formatDiagnostic("schema.json", read.errors.front())));
}

Result<Source> SchemaFile::readSource() const {
    auto schema = readAll();
    return schema ? Result<Source>::good(std::move(schema.value->source)) : Result<Source>::bad(schema.error);
}

}  // namespace tavdb::image
