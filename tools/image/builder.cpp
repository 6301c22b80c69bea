// SPDX-License-Identifier: Apache-2.0
#include "image/builder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

#include "image/build_folder.h"
#include "image/convert.h"
#include "image/database.h"
#include "image/files.h"
#include "image/schema_json.h"
#include "image/tree_builder.h"

namespace tavdb::image {

namespace {

constexpr const char *kControlVariable = "TAVDB_DBTABLE";
constexpr std::string_view kControlTable = "control.tbl";
constexpr size_t kHookFileBytesMax = 1 << 20;

/// The machine's control table is left alone while this lives.
class PrivateControlTable {
public:
    explicit PrivateControlTable(const std::string &path) {
        if (const char *value = getenv(kControlVariable))
            before = value;
        setenv(kControlVariable, path.c_str(), 1);
    }
    PrivateControlTable(const PrivateControlTable &) = delete;
    PrivateControlTable &operator=(const PrivateControlTable &) = delete;
    ~PrivateControlTable() {
        if (before)
            setenv(kControlVariable, before->c_str(), 1);
        else
            unsetenv(kControlVariable);
    }

private:
    std::optional<std::string> before;
};

/// The C header, written beside its place and put there at the end.
class HeaderFile {
public:
    explicit HeaderFile(std::string place) : path(std::move(place)), fresh(path + ".tavdb-new") {}
    HeaderFile(const HeaderFile &) = delete;
    HeaderFile &operator=(const HeaderFile &) = delete;
    ~HeaderFile() {
        if (isWritten)
            unlink(fresh.c_str());
    }

    Status write(const Model &model, const ComponentKeys &keys) {
        if (path.empty())
            return std::nullopt;
        const auto text = formatHeader(model, keys);
        if (!text)
            return Fault{FaultKind::failed, text.error};
        unlink(fresh.c_str());
        isWritten = true;
        auto fault = writeNewFile(fresh, *text.value);
        return fault ? faultIn(path, std::move(*fault)) : syncPath(fresh);
    }
    Status publish() {
        if (!isWritten)
            return std::nullopt;
        if (rename(fresh.c_str(), path.c_str()) != 0)
            return faultIn(path, faultOfError(errno, "cannot be put in its place"));
        isWritten = false;
        return std::nullopt;
    }

private:
    std::string path;
    std::string fresh;
    bool isWritten = false;
};

Status fillDatabase(const Model &model, const std::string &folder, const BuildOptions &options, ComponentKeys &keys) {
    const PrivateControlTable control(joinPath(folder, kControlTable));
    const auto description = describeDirectory(folder);
    if (!description)
        return description.error;
    const auto database = Database::attach(**description.value);
    if (!database)
        return database.error;
    return buildTree(**database.value, model, options.interrupted, keys);
}

void removeTable(const std::string &folder, std::string_view table) {
    const auto path = joinPath(folder, table);
    unlink(path.c_str());
    unlink((path + std::string(kSemaphoreSuffix)).c_str());
}

/// A table as the library makes it: the file must be gone before.
Status makeTable(const std::string &path, int32_t (*start)(const char *), int32_t (*stop)()) {
    const int32_t started = start(path.c_str());
    stop();
    unlink((path + std::string(kSemaphoreSuffix)).c_str());
    if (started != 0)
        return faultOfCode(static_cast<uint32_t>(started), 0);
    // A table that could be neither opened nor made counts as started.
    return access(path.c_str(), F_OK) == 0 ? Status{} : Fault{FaultKind::medium, "cannot be made"};
}

/// The tables bear the traces of the build: they are made anew, on this machine or
/// by the first process on the other one.
Status finishImages(const std::string &folder, ByteOrder order) {
    for (const auto table : {kControlTable, kSessionTable, kLockTable})
        removeTable(folder, table);
    if (order != nativeOrder())
        return convertImages(folder, order);
    if (auto fault = makeTable(joinPath(folder, kSessionTable), session_init, session_term))
        return faultIn(std::string(kSessionTable), std::move(*fault));
    if (auto fault = makeTable(joinPath(folder, kLockTable), lock_init, lock_term))
        return faultIn(std::string(kLockTable), std::move(*fault));
    return std::nullopt;
}

Status writeTexts(const Model &model, const std::string &folder, const BuildOptions &options) {
    if (auto fault = writeNewFile(joinPath(folder, kSchemaName), formatSchema(makeSchema(model))))
        return faultIn(std::string(kSchemaName), std::move(*fault));
    if (options.hookFile.empty())
        return std::nullopt;
    const auto hooks = readFile(options.hookFile, kHookFileBytesMax);
    if (!hooks)
        return faultIn(options.hookFile, hooks.error);
    if (auto fault = writeNewFile(joinPath(folder, kHookFile), *hooks.value))
        return faultIn(std::string(kHookFile), std::move(*fault));
    return std::nullopt;
}

/// How the images are used while the database is filled: no server has them yet.
MediaKind kindToFill(MediaKind kind) {
    return kind == MediaKind::message ? MediaKind::memory : kind;
}

Status writeMediaFile(const std::string &folder, MediaKind kind) {
    unlink(joinPath(folder, kMediaFile).c_str());
    auto fault = writeNewFile(joinPath(folder, kMediaFile), formatMediaFile(kind));
    return fault ? faultIn(std::string(kMediaFile), std::move(*fault)) : Status{};
}

Status buildInside(const Model &model, const std::string &folder, const BuildOptions &options, ComponentKeys &keys) {
    const auto sizes = imageBytes(contentBytes(model), options.slackPercent);
    if (!sizes)
        return sizes.error;
    if (auto fault = writeEmptyImages(folder, *sizes.value))
        return fault;
    if (auto fault = writeMediaFile(folder, kindToFill(options.media)))
        return fault;
    if (auto fault = fillDatabase(model, folder, options, keys))
        return fault;
    if (auto fault = finishImages(folder, options.order))
        return fault;
    if (auto fault = writeMediaFile(folder, options.media))
        return fault;
    return writeTexts(model, folder, options);
}

uint64_t countImageBytes(const std::string &folder) {
    uint64_t bytes = 0;
    struct stat status = {};
    for (const auto &medium : kMediumNames)
        if (stat(joinPath(folder, medium.file).c_str(), &status) == 0)
            bytes += static_cast<uint64_t>(status.st_size);
    return bytes;
}

}  // namespace

Result<BuildSummary> buildDatabase(const Model &model, const std::string &path, const BuildOptions &options) {
    using Built = Result<BuildSummary>;
    const auto target = findTarget(path, options.replace);
    if (!target)
        return Built::bad(target.error);
    auto folder = BuildFolder::make(*target.value);
    if (!folder)
        return Built::bad(folder.error);
    BuildSummary summary{target.value->path, countComponents(model), 0, {}};
    HeaderFile header(options.headerFile);
    auto fault = buildInside(model, folder.value->path(), options, summary.keys);
    if (!fault)
        fault = header.write(model, summary.keys);
    if (!fault && options.interrupted())
        fault = Fault{FaultKind::failed, "interrupted"};
    if (!fault)
        fault = folder.value->publish(*target.value);
    // An old database that could not be removed does not keep the new one from being there.
    if (folder.value->isInPlace())
        if (auto other = header.publish(); other && !fault)
            fault = std::move(other);
    if (fault)
        return Built::bad(std::move(*fault));
    summary.imageBytes = countImageBytes(summary.path);
    return Built::good(std::move(summary));
}

}  // namespace tavdb::image
