// SPDX-License-Identifier: Apache-2.0
#include "image/build_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include "image/directory.h"
#include "image/files.h"
#include "image/text_util.h"

namespace tavdb::image {

namespace {

Fault failed(std::string sentence) {
    return {FaultKind::failed, std::move(sentence)};
}

std::string parentOf(const std::string &path) {
    const auto slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string baseOf(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

struct CloseFolder {
    void operator()(DIR *folder) const {
        closedir(folder);
    }
};

/// The absolute path of something that is not there yet.
Result<std::string> newPath(std::string path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    const auto base = path.find('/') == std::string::npos ? path : baseOf(path);
    if (base.empty() || base == "." || base == "..")
        return Result<std::string>::bad(failed("is no name for a new directory"));
    auto parent = realPath(path.find('/') == std::string::npos ? "." : parentOf(path));
    if (!parent)
        return Result<std::string>::bad(faultIn("its parent directory", std::move(parent.error)));
    return Result<std::string>::good(joinPath(*parent.value, base));
}

/// A folder whose component image begins with the mark, in whatever byte order.
bool looksLikeDatabase(const std::string &path) {
    const auto file = openFile(joinPath(path, kMediumNames[0].file), O_RDONLY | O_NONBLOCK);
    const auto start = file.isOpen() ? readPart(file.get(), sizeof kMagic, 0) : Result<std::string>{};
    const bool isMarked = start && (*start.value == "TAVD" || *start.value == "DVAT");
    return isMarked && access(joinPath(path, kMediaFile).c_str(), F_OK) == 0;
}

Status checkReplaceable(const std::string &path) {
    if (!looksLikeDatabase(path))
        return failed("exists and is no database directory, so it is not replaced");
    const auto names = listFolder(path);
    if (!names)
        return names.error;
    for (const auto &name : *names.value)
        if (!isDatabaseFile(name))
            return failed("is not replaced, because it holds " + quote(name) + ", which is no part of a database");
    return std::nullopt;
}

/// A database directory has no folders in it.
Status removeFolder(const std::string &path) {
    const auto names = listFolder(path);
    if (!names)
        return names.error;
    for (const auto &name : *names.value)
        if (unlink(joinPath(path, name).c_str()) != 0)
            return faultOfError(errno, name + " cannot be removed");
    return rmdir(path.c_str()) == 0 ? Status{} : faultOfError(errno, "cannot be removed");
}

Status syncFolder(const std::string &path) {
    const auto names = listFolder(path);
    if (!names)
        return names.error;
    for (const auto &name : *names.value)
        if (auto fault = syncPath(joinPath(path, name)))
            return faultIn(name, std::move(*fault));
    return syncPath(path);
}

/// File systems that do not know the flags of renameat2.
bool isUnknown(int error) {
    return error == EINVAL || error == ENOSYS || error == ENOTSUP;
}

int renameWithFlags(const std::string &from, const std::string &to, unsigned flags) {
    return renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0 ? 0 : errno;
}

int moveToNewPlace(const std::string &from, const std::string &to) {
    const int error = renameWithFlags(from, to, RENAME_NOREPLACE);
    if (!isUnknown(error))
        return error;
    // Without the flag an empty folder that came up meanwhile would be replaced, and nothing else.
    return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

/// Where the file system cannot exchange two folders, the old one steps aside first.
int exchangeInTwoSteps(const std::string &fresh, const std::string &old) {
    const auto aside = fresh + ".old";
    if (rename(old.c_str(), aside.c_str()) != 0)
        return errno;
    if (rename(fresh.c_str(), old.c_str()) == 0)
        return rename(aside.c_str(), fresh.c_str()) == 0 ? 0 : errno;
    const int error = errno;
    rename(aside.c_str(), old.c_str());
    return error;
}

int exchangeFolders(const std::string &fresh, const std::string &old) {
    const int error = renameWithFlags(fresh, old, RENAME_EXCHANGE);
    return isUnknown(error) ? exchangeInTwoSteps(fresh, old) : error;
}

/// What a new folder has by itself.
mode_t usualRights() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0777 & ~mask;
}

}  // namespace

Result<std::vector<std::string>> listFolder(const std::string &path) {
    using Names = Result<std::vector<std::string>>;
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(path.c_str()));
    if (!folder)
        return Names::bad(faultOfError(errno, "cannot be listed"));
    std::vector<std::string> names;
    errno = 0;
    while (const auto *entry = readdir(folder.get()))
        if (const std::string name = entry->d_name; name != "." && name != "..")
            names.push_back(name);
    if (errno != 0)
        return Names::bad(faultOfError(errno, "cannot be listed"));
    std::sort(names.begin(), names.end());
    return Names::good(std::move(names));
}

Result<BuildTarget> findTarget(const std::string &path, bool replace) {
    using Target = Result<BuildTarget>;
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno != ENOENT)
            return Target::bad(faultOfError(errno, "cannot be reached"));
        auto fresh = newPath(path);
        return fresh ? Target::good({std::move(*fresh.value), false, {}}) : Target::bad(std::move(fresh.error));
    }
    if (!replace)
        return Target::bad(failed("exists already; --replace puts a new database in its place"));
    auto real = realPath(path);
    if (!real)
        return Target::bad(std::move(real.error));
    if (auto fault = checkReplaceable(*real.value))
        return Target::bad(std::move(*fault));
    return Target::good({std::move(*real.value), true, {}});
}

Result<BuildFolder> BuildFolder::make(const BuildTarget &target) {
    auto path = joinPath(parentOf(target.path), "." + baseOf(target.path) + ".tavdb-XXXXXX");
    if (baseOf(target.path).size() > NAME_MAX - 24)
        path = joinPath(parentOf(target.path), ".tavdb-XXXXXX");
    if (mkdtemp(path.data()) == nullptr)
        return Result<BuildFolder>::bad(faultOfError(errno, "a directory beside it cannot be made"));
    return Result<BuildFolder>::good(BuildFolder(path));
}

BuildFolder::BuildFolder(BuildFolder &&other) noexcept : folder(std::exchange(other.folder, {})) {}

BuildFolder::~BuildFolder() {
    if (!folder.empty())
        removeFolder(folder);
}

Status BuildFolder::publish(const BuildTarget &target) {
    // mkdtemp() makes a folder for its owner alone.
    if (chmod(folder.c_str(), target.rights.value_or(usualRights())) != 0)
        return faultOfError(errno, "cannot be given its permissions");
    if (auto fault = syncFolder(folder))
        return fault;
    const int error = target.replaces ? exchangeFolders(folder, target.path) : moveToNewPlace(folder, target.path);
    if (error == EEXIST || error == ENOTEMPTY)
        return failed("exists already, since a moment");
    if (error != 0)
        return faultOfError(error, "cannot be put in its place");
    const auto old = std::exchange(folder, {});
    auto fault = target.replaces ? removeFolder(old) : Status{};
    if (fault)
        return faultIn("the new database is in place, the old one " + old, std::move(*fault));
    return syncPath(parentOf(target.path));
}

}  // namespace tavdb::image
