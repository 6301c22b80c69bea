// SPDX-License-Identifier: Apache-2.0
#include "image/schema_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tavdb::image {

namespace {

constexpr const char *kNoEntry = "schema.json: a line is no entry";
constexpr off_t kLongestBytes = off_t{256} << 20;
/// So much is read at a time: a few lines.
constexpr size_t kBlockBytes = 4096;

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

/// The first line that begins behind the front of `block`, with its place. Nothing when the block ends in its path.
std::optional<std::pair<size_t, EntryLine>> firstLine(std::string_view block) {
    const auto newline = block.find('\n');
    const auto line = newline == std::string_view::npos ? std::nullopt : splitLine(block.substr(newline + 1));
    return line ? std::optional(std::pair{newline + 1, *line}) : std::nullopt;
}

}  // namespace

Result<SchemaFile> SchemaFile::open(const std::string &path) {
    SchemaFile file;
    file.descriptor = openFile(path, O_RDONLY | O_NONBLOCK);
    if (!file.descriptor.isOpen() && errno == ENOENT)
        return {std::move(file), {}};
    struct stat status = {};
    if (!file.descriptor.isOpen() || fstat(file.descriptor.get(), &status) != 0)
        return Result<SchemaFile>::bad(faultOfError(errno, "cannot be opened"));
    if (auto fault = checkRegular(file.descriptor.get()))
        return Result<SchemaFile>::bad(std::move(*fault));
    if (status.st_size > kLongestBytes)
        return Result<SchemaFile>::bad(damaged("is longer than " + std::to_string(kLongestBytes) + " bytes"));
    file.sizeBytes = static_cast<size_t>(status.st_size);
    return {std::move(file), {}};
}

Result<std::optional<SchemaFile::Extent>> SchemaFile::findLines() const {
    using Found = Result<std::optional<Extent>>;
    const auto head = readPart(descriptor.get(), kBlockBytes, 0);
    if (!head)
        return Found::bad(head.error);
    const auto middle = head.value->find(kSchemaMiddle);
    if (!head.value->starts_with(kSchemaStart) || middle == std::string::npos)
        return {std::optional<Extent>(), {}};
    const Extent lines = {middle + kSchemaMiddle.size(), sizeBytes - kSchemaEnd.size()};
    const auto tail = readPart(descriptor.get(), kSchemaEnd.size(), lines.end);
    if (!tail)
        return Found::bad(tail.error);
    return {*tail.value == kSchemaEnd ? std::optional(lines) : std::nullopt, {}};
}

Result<SchemaEntry> SchemaFile::find(const std::string &path) const {
    if (!isThere())
        return {SchemaEntry{}, {}};
    const auto lines = findLines();
    if (!lines)
        return Result<SchemaEntry>::bad(lines.error);
    if (*lines.value)
        return findAmong(**lines.value, path);
    const auto whole = readAll();
    if (!whole)
        return Result<SchemaEntry>::bad(whole.error);
    const auto entry = whole.value->components.find(path);
    return {entry == whole.value->components.end() ? SchemaEntry{} : entry->second, {}};
}

Result<SchemaEntry> SchemaFile::findAmong(Extent lines, const std::string &path) const {
    while (lines.begin < lines.end && lines.end - lines.begin > 4 * kBlockBytes) {
        const auto middle = lines.begin + (lines.end - lines.begin) / 2;
        const auto block = readPart(descriptor.get(), kBlockBytes, middle);
        if (!block)
            return Result<SchemaEntry>::bad(block.error);
        const auto line = firstLine(*block.value);
        if (!line)
            break;  // a line longer than a block
        const auto key = parseSchemaKey(line->second.key);
        if (!key)
            return Result<SchemaEntry>::bad(damaged(kNoEntry));
        const auto begin = middle + line->first;
        if (path < *key.value)
            lines.end = begin - 1;
        else
            lines.begin = begin;
    }
    if (lines.begin >= lines.end)
        return {SchemaEntry{}, {}};
    const auto text = readPart(descriptor.get(), lines.end - lines.begin, lines.begin);
    return text ? findLine(*text.value, path) : Result<SchemaEntry>::bad(text.error);
}

Result<SchemaEntry> SchemaFile::findLine(std::string_view lines, const std::string &path) {
    while (!lines.empty()) {
        const auto before = lines.substr(0, lines.size() / 2).rfind('\n');
        const auto begin = before == std::string_view::npos ? 0 : before + 1;
        const auto end = std::min(lines.find('\n', begin), lines.size());
        const auto line = splitLine(lines.substr(begin, end - begin));
        const auto key = line ? parseSchemaKey(line->key) : Outcome<std::string>{};
        if (!key)
            return Result<SchemaEntry>::bad(damaged(kNoEntry));
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
    if (!isThere())
        return {Schema{}, {}};
    const auto text = readPart(descriptor.get(), sizeBytes, 0);
    if (!text)
        return Result<Schema>::bad(text.error);
    auto read = parseSchema(*text.value);
    if (read.errors.empty())
        return Result<Schema>::good(std::move(read.schema));
    return Result<Schema>::bad(damaged(formatDiagnostic("schema.json", read.errors.front())));
}

Result<Source> SchemaFile::readSource() const {
    auto schema = readAll();
    return schema ? Result<Source>::good(std::move(schema.value->source)) : Result<Source>::bad(schema.error);
}

}  // namespace tavdb::image
