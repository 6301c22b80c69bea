// SPDX-License-Identifier: Apache-2.0
#include "image/convert.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "image/build_folder.h"
#include "image/files.h"
#include "image/media_image.h"
#include "image/tables.h"
#include "image/value_type.h"

namespace tavdb::image {

namespace {

/// What a copy holds besides the images. The tables belong to processes.
constexpr std::array kCopiedNames = {kMediaFile, kHookFile, kSchemaName};

void reverseRecord(RawImages &images, const MappedRecord &record) {
    const auto &layout = layoutOf(record.kind);
    const auto bytes = images.bytes(record.medium, record.range);
    const size_t wordBytes = layout.words * sizeof(uint32_t);
    reverseNumbers(bytes.first(wordBytes), sizeof(uint32_t));
    const size_t width = numberBytes(record.type);
    if (layout.numbers == 0 || width == 0)
        return;
    const auto room = (bytes.size() - wordBytes) / width;
    reverseNumbers(bytes.subspan(wordBytes, std::min<size_t>(layout.numbers, room) * width), width);
}

/// "1 byte that nothing refers to was", "3 bytes that nothing refers to were".
std::string counted(uint64_t count, const std::string &one, const std::string &many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

uint64_t sumOf(const std::vector<ByteRange> &gaps, uint32_t leastBytes) {
    uint64_t sum = 0;
    for (const auto &gap : gaps)
        sum += gap.sizeBytes >= leastBytes ? gap.sizeBytes : 0;
    return sum;
}

/// Where nothing is known of the bytes. What is left of a split on a medium that
/// holds records is too short for a record, and no loss.
void noteUnclaimed(const RawImages &images, const RecordMap &map, std::vector<std::string> &remarks) {
    for (const auto &medium : kMediumNames) {
        const uint32_t least = medium.holdsRecords ? sizeof(tavDBMFreeBlock) : 1;
        const uint64_t bytes = sumOf(unclaimedRanges(images, map, medium.id), least);
        if (bytes != 0)
            remarks.push_back(std::string(medium.file) + ": " +
                              counted(bytes, "byte that nothing refers to was", "bytes that nothing refers to were") +
                              " copied as they are");
    }
}

bool isUnknown(const MappedRecord &record) {
    return record.kind == RecordKind::data && findType(record.type) == nullptr;
}

/// Whether bytes are left over behind the last number.
bool isRagged(const MappedRecord &record) {
    const uint32_t width = numberBytes(record.type);
    return layoutOf(record.kind).numbers == kAllNumbers && width != 0 && record.range.sizeBytes % width != 0;
}

void noteUnknownData(const RecordMap &map, std::vector<std::string> &remarks) {
    const auto count = [&](bool (*is)(const MappedRecord &)) {
        return static_cast<uint64_t>(std::count_if(map.records.begin(), map.records.end(), is));
    };
    const uint64_t unknown = count(isUnknown);
    const uint64_t ragged = count(isRagged);
    if (unknown != 0)
        remarks.push_back(counted(unknown, "value", "values") + " of no known type: copied byte by byte");
    if (ragged != 0)
        remarks.push_back(counted(ragged, "value", "values") +
                          " of a length that its type does not divide: the bytes left over are copied as they are");
}

/// The tables are in the order of the machine that made them, and those of a copied
/// directory name processes of elsewhere.
bool isAttachedHere(const DatabaseDirectory &directory) {
    if (directory.order != nativeOrder())
        return false;
    const auto registration = findRegistration(dbs_me_db_control_get_file_name(), *directory.description);
    return !registration || registration.value->has_value();
}

Status checkUnused(const DatabaseDirectory &directory) {
    if (!isAttachedHere(directory))
        return std::nullopt;
    const auto sessions = readSessions(directory.description->sessionPath);
    if (!sessions)
        return sessions.error;
    for (const auto &session : *sessions.value)
        if (session.isAlive)
            return Fault{FaultKind::locked,
                         "is in use by process " + std::to_string(session.process) + ", which could write meanwhile"};
    return std::nullopt;
}

Result<mode_t> rightsOf(const std::string &path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return Result<mode_t>::bad(faultOfError(errno, "cannot be reached"));
    return Result<mode_t>::good(status.st_mode & 0777);
}

}  // namespace

void reverseRecords(RawImages &images, const RecordMap &map) {
    for (const auto &record : map.records)
        reverseRecord(images, record);
    images.setOrder(opposite(images.order()));
}

Status convertImages(const std::string &folder, ByteOrder order) {
    auto images = RawImages::load(folder, opposite(order));
    if (!images)
        return images.error;
    const auto map = mapRecords(*images.value);
    if (!map.faults.empty())
        return faultOf(map.faults[0]);
    reverseRecords(*images.value, map);
    for (const auto &medium : kMediumNames) {
        const auto path = joinPath(folder, medium.file);
        if (unlink(path.c_str()) != 0)
            return faultIn(std::string(medium.file), faultOfError(errno, "cannot be replaced"));
        if (auto fault = writeNewFile(path, images.value->content(medium.id)))
            return faultIn(std::string(medium.file), std::move(*fault));
    }
    return std::nullopt;
}

Result<DatabaseCopy> DatabaseCopy::read(const std::string &path) {
    using Read = Result<DatabaseCopy>;
    const auto directory = openDirectory(path, DirectoryUse::readFiles);
    if (!directory)
        return Read::bad(directory.error);
    for (const auto check : {checkOwnImages, checkUnused})
        if (auto fault = check(*directory.value))
            return Read::bad(std::move(*fault));
    auto images = RawImages::load(directory.value->path, directory.value->order);
    if (!images)
        return Read::bad(std::move(images.error));
    DatabaseCopy copy(std::move(*images.value));
    if (!copy.map.faults.empty())
        return Read::bad(faultOf(copy.map.faults[0]));
    if (auto fault = copy.readFiles(directory.value->path))
        return Read::bad(std::move(*fault));
    return Read::good(std::move(copy));
}

Status DatabaseCopy::readFiles(const std::string &folder) {
    const auto names = listFolder(folder);
    const auto rights = rightsOf(folder);
    if (!names || !rights)
        return names ? rights.error : names.error;
    folderRights = *rights.value | 0700;
    for (const auto &name : *names.value) {
        const auto path = joinPath(folder, name);
        const auto medium = std::find_if(kMediumNames.begin(), kMediumNames.end(),
                                         [&](const MediumName &each) { return each.file == name; });
        const bool isImage = medium != kMediumNames.end();
        const bool isText = std::find(kCopiedNames.begin(), kCopiedNames.end(), name) != kCopiedNames.end();
        if (!isDatabaseFile(name))
            strangers.push_back(name);
        if (!isImage && !isText)
            continue;
        const auto fileRights = rightsOf(path);
        auto content = isText ? readRegularFile(path, kMediumBytesMax) : Result<std::string>::good({});
        if (!fileRights || !content)
            return faultIn(name, fileRights ? content.error : fileRights.error);
        files.push_back({name, std::move(*content.value), isImage ? medium->id : 0, *fileRights.value | 0600});
    }
    return std::nullopt;
}

std::vector<std::string> DatabaseCopy::convert(ByteOrder order) {
    std::vector<std::string> remarks;
    if (order == images.order())
        return remarks;
    reverseRecords(images, map);
    noteUnclaimed(images, map, remarks);
    noteUnknownData(map, remarks);
    return remarks;
}

Result<std::string> DatabaseCopy::write(const std::string &path, bool replace,
                                        const std::function<bool()> &interrupted) const {
    using Written = Result<std::string>;
    auto target = findTarget(path, replace);
    if (!target)
        return Written::bad(std::move(target.error));
    target.value->rights = folderRights;
    auto folder = BuildFolder::make(*target.value);
    if (!folder)
        return Written::bad(std::move(folder.error));
    auto fault = writeFiles(folder.value->path(), interrupted);
    if (!fault)
        fault = folder.value->publish(*target.value);
    return fault ? Written::bad(std::move(*fault)) : Written::good(std::move(target.value->path));
}

Status DatabaseCopy::writeFiles(const std::string &folder, const std::function<bool()> &interrupted) const {
    for (const auto &file : files) {
        const auto &content = file.medium != 0 ? images.content(file.medium) : file.content;
        if (auto fault = writeNewFile(joinPath(folder, file.name), content, file.rights))
            return faultIn(file.name, std::move(*fault));
        if (interrupted())
            return Fault{FaultKind::failed, "interrupted"};
    }
    return std::nullopt;
}

Counts DatabaseCopy::counts() const {
    Counts counts;
    for (const auto &record : map.records) {
        counts.nodes += record.kind == RecordKind::node ? 1 : 0;
        counts.leaves += record.kind == RecordKind::leaf ? 1 : 0;
    }
    // The root is not counted, whatever it is.
    (counts.nodes != 0 ? counts.nodes : counts.leaves)--;
    return counts;
}

uint64_t DatabaseCopy::imageBytes() const {
    uint64_t bytes = 0;
    for (const auto &medium : kMediumNames)
        bytes += images.content(medium.id).size();
    return bytes;
}

}  // namespace tavdb::image
