// SPDX-License-Identifier: Apache-2.0
#include "image/schema_edit.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "image/directory.h"
#include "image/files.h"

namespace tavdb::image {

namespace {

Status inSchema(Fault fault) {
    return faultIn(std::string(kSchemaName), std::move(fault));
}

std::string folderOf(const std::string &path) {
    const auto end = path.rfind('/');
    return end == std::string::npos ? "." : path.substr(0, end + 1);
}

}  // namespace

bool isWithin(const std::string &path, const std::string &top) {
    return path == top || top == "/" || (path.starts_with(top) && path[top.size()] == '/');
}

bool removeEntries(Schema &schema, const std::string &top) {
    return std::erase_if(schema.components, [&](const auto &entry) { return isWithin(entry.first, top); }) != 0;
}

bool copyEntries(Schema &schema, const std::string &from, const std::string &to) {
    bool changed = removeEntries(schema, to);
    std::map<std::string, SchemaEntry> copies;
    for (const auto &[path, entry] : schema.components)
        if (isWithin(path, from))
            copies.emplace(to + path.substr(from.size()), entry);
    changed |= !copies.empty();
    schema.components.merge(copies);
    return changed;
}

SchemaReplacement::SchemaReplacement(std::string path) : target(std::move(path)) {}

SchemaReplacement::~SchemaReplacement() {
    if (isPrepared)
        unlink(beside.c_str());
}

Status SchemaReplacement::prepare(const Schema &schema) {
    // A link keeps leading to the file.
    const auto real = realPath(target);
    if (!real)
        return inSchema(real.error);
    target = *real.value;
    beside = target + ".new";
    // What a run that was killed has left.
    unlink(beside.c_str());
    // Nobody else reads it before it has the rights of the old one.
    if (auto fault = writeNewFile(beside, formatSchema(schema), 0600))
        return inSchema(std::move(*fault));
    isPrepared = true;
    auto fault = takeRights(target, beside);
    if (!fault)
        fault = syncPath(beside);
    return fault ? inSchema(std::move(*fault)) : std::nullopt;
}

Status SchemaReplacement::commit() {
    if (rename(beside.c_str(), target.c_str()) != 0)
        return inSchema(faultOfError(errno, "cannot be replaced"));
    isPrepared = false;
    auto fault = syncPath(folderOf(target));
    return fault ? inSchema(std::move(*fault)) : std::nullopt;
}

Status replaceSchema(const std::string &path, const Schema &schema) {
    SchemaReplacement replacement(path);
    auto fault = replacement.prepare(schema);
    return fault ? fault : replacement.commit();
}

}  // namespace tavdb::image
