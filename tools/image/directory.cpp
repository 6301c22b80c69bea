// SPDX-License-Identifier: Apache-2.0
#include "image/directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "image/files.h"
#include "image/text_util.h"

namespace tavdb::image {

namespace {

/// The library that stands for the built-in media.
constexpr std::string_view kBuiltIn = "libtavdbfile.so";
constexpr size_t kMediaFileBytesMax = 1 << 20;
constexpr size_t kMediaTokens = 8;

struct OpenFunction {
    std::string_view name;
    std::string_view kind;
    bool isFile;
};

constexpr std::array kOpenFunctions = {
    OpenFunction{"tavdbMemOpen", "memory", true},
    OpenFunction{"tavdbFileOpenHD", "file", true},
    OpenFunction{"tavdbFileOpenRom", "read-only file", true},
    OpenFunction{"tavdbMsgOpen", "message", false},
};

const OpenFunction *findOpenFunction(const MediaLine &line) {
    const auto found = std::find_if(kOpenFunctions.begin(), kOpenFunctions.end(),
                                    [&](const OpenFunction &function) { return function.name == line.open; });
    return found == kOpenFunctions.end() || line.library != kBuiltIn ? nullptr : &*found;
}

std::vector<MediaLine> parseMediaFile(const std::string &content) {
    std::vector<MediaLine> lines;
    for (const auto &line : splitAt(content, '\n')) {
        const auto tokens = splitWords(std::string_view(line).substr(0, line.find('#')));
        if (tokens.size() >= kMediaTokens)
            lines.push_back({tokens[0], tokens[1], tokens[kMediaTokens - 1]});
    }
    return lines;
}

bool exists(const std::string &path) {
    return faccessat(AT_FDCWD, path.c_str(), F_OK, AT_EACCESS) == 0;
}

/// A folder without a media configuration and with no image is something else altogether.
Fault missingMediaFile(const std::string &folder) {
    for (const auto &medium : kMediumNames)
        if (exists(joinPath(folder, medium.file)))
            return {FaultKind::damaged, "the database is incomplete: media.conf is missing"};
    return {FaultKind::notFound, "is not a database directory: it has no media.conf"};
}

Result<std::vector<MediaLine>> readMediaFile(const std::string &folder) {
    using Lines = Result<std::vector<MediaLine>>;
    struct stat status = {};
    if (stat(folder.c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
        return Lines::bad({FaultKind::notFound, "is not a database directory: it is a file"});
    const auto path = joinPath(folder, kMediaFile);
    const auto content = readRegularFile(path, kMediaFileBytesMax);
    if (!content && content.error.kind == FaultKind::notFound)
        return Lines::bad(missingMediaFile(folder));
    if (!content)
        return Lines::bad(faultIn(std::string(kMediaFile), content.error));
    auto lines = parseMediaFile(*content.value);
    if (lines.size() < kMediumNames.size())
        return Lines::bad(damaged("media.conf names " + std::to_string(lines.size()) + " media, a database has " +
                                  std::to_string(kMediumNames.size())));
    return Lines::good(std::move(lines));
}

Fault damagedHeader(const std::string &sentence) {
    return damaged("the header is damaged: " + sentence);
}

/// An image as far as it is looked at: its first words as this machine has them.
struct ImageStart {
    std::string file;  ///< as it is named to people
    tavDBMMediumHeader header;
    ByteOrder order;
    uint64_t sizeBytes;
};

Status checkRole(const tavDBMMediumHeader &header, int32_t medium) {
    const uint32_t format = header.preparer[1] >> 16;
    const uint32_t role = header.preparer[1] & 0xFFFF;
    if (format != kFormatVersion)
        return Fault{FaultKind::mismatch, "is of format " + std::to_string(format) + ", this program knows format " +
                                              std::to_string(kFormatVersion)};
    if (role != static_cast<uint32_t>(medium))
        return damagedHeader("it says medium " + std::to_string(role) + ", this is medium " + std::to_string(medium));
    return std::nullopt;
}

Status checkHeader(const ImageStart &image, const MediumName &medium) {
    const auto &header = image.header;
    if (auto fault = checkRole(header, medium.id))
        return fault;
    const bool isInside = header.root >= sizeof header && uint64_t{header.root} + sizeof(tavDBMNode) <= image.sizeBytes;
    if (medium.id == kComponentMedium && !isInside)
        return damagedHeader("there is no root at " + std::to_string(header.root));
    if (medium.holdsRecords && header.firstFree != 0 && header.firstFree >= image.sizeBytes)
        return damagedHeader("the first free block lies outside at " + std::to_string(header.firstFree));
    return std::nullopt;
}

/// The mark tells the order; without it nothing does.
Result<ImageStart> parseStart(std::string bytes, uint64_t sizeBytes) {
    ImageStart image{{}, {}, nativeOrder(), sizeBytes};
    if (bytes.size() < sizeof image.header)
        return Result<ImageStart>::bad(damagedHeader("the image is shorter than its header"));
    std::memcpy(&image.header, bytes.data(), sizeof image.header);
    if (image.header.preparer[0] == kMagic)
        return Result<ImageStart>::good(image);
    reverseNumbers(bytes, sizeof(uint32_t));
    std::memcpy(&image.header, bytes.data(), sizeof image.header);
    image.order = opposite(nativeOrder());
    if (image.header.preparer[0] != kMagic)
        return Result<ImageStart>::bad(damagedHeader("it does not begin with TAVD"));
    return Result<ImageStart>::good(image);
}

Result<ImageStart> readStart(const std::string &path) {
    using Start = Result<ImageStart>;
    const auto file = openFile(path, O_RDONLY | O_NONBLOCK);
    if (!file.isOpen() && errno == ENOENT)
        return Start::bad(damaged("the database is incomplete: this image is missing"));
    struct stat status = {};
    if (!file.isOpen() || fstat(file.get(), &status) != 0)
        return Start::bad(faultOfError(errno, "cannot be opened"));
    auto bytes = readPart(file.get(), sizeof(tavDBMMediumHeader), 0);
    return bytes ? parseStart(std::move(*bytes.value), static_cast<uint64_t>(status.st_size)) : Start::bad(bytes.error);
}

/// The name of an image that may be looked at: where it is a file of this machine, and
/// under its usual name where it is served to others.
std::optional<std::string> imageName(const DatabaseDirectory &directory, const MediumName &medium, DirectoryUse use) {
    if (directory.imagePath(medium.id))
        return directory.hintOf(medium.id);
    const bool isOwned = use != DirectoryUse::attach && directory.lineOf(medium.id).kind() == "message";
    return isOwned ? std::optional(std::string(medium.file)) : std::nullopt;
}

/// Sound headers each.
Result<std::vector<ImageStart>> readStarts(const DatabaseDirectory &directory, DirectoryUse use) {
    using Starts = Result<std::vector<ImageStart>>;
    std::vector<ImageStart> starts;
    for (const auto &medium : kMediumNames) {
        const auto name = imageName(directory, medium, use);
        if (!name)
            continue;
        auto start = readStart(name->starts_with('/') ? *name : joinPath(directory.path, *name));
        auto fault = start ? checkHeader(*start.value, medium) : start.error;
        if (fault)
            return Starts::bad(faultIn(*name, std::move(*fault)));
        start.value->file = *name;
        starts.push_back(std::move(*start.value));
    }
    return Starts::good(std::move(starts));
}

/// Sets the directory's order.
Status checkOrder(DatabaseDirectory &directory, const std::vector<ImageStart> &starts, DirectoryUse use) {
    for (const auto &start : starts)
        if (start.order != starts[0].order)
            return faultIn(start.file, damagedHeader(std::string("its numbers are stored ") + nameOf(start.order) +
                                                     ", those of " + starts[0].file + " " + nameOf(starts[0].order)));
    directory.order = starts.empty() ? nativeOrder() : starts[0].order;
    return use != DirectoryUse::readFiles && directory.order != nativeOrder() ? otherOrder() : Status{};
}

Status checkImages(DatabaseDirectory &directory, DirectoryUse use) {
    const auto starts = readStarts(directory, use);
    if (!starts)
        return starts.error;
    return checkOrder(directory, *starts.value, use);
}

/// Every process that attaches writes into the tables; one that is missing is made.
Status checkTables(const DatabaseDirectory &directory) {
    for (const auto table : {kSessionTable, kLockTable}) {
        const auto path = joinPath(directory.path, table);
        const bool isThere = exists(path);
        const auto &asked = isThere ? path : directory.path;
        if (faccessat(AT_FDCWD, asked.c_str(), R_OK | W_OK, AT_EACCESS) != 0)
            return faultIn(std::string(table), faultOfError(errno, isThere ? "cannot be written" : "cannot be made"));
    }
    return std::nullopt;
}

Fault unfit(const std::string &sentence) {
    return faultIn(std::string(kMediaFile), {FaultKind::failed, sentence});
}

bool put(char (&field)[TAVDB_PATH_SIZE], const std::string &folder, std::string_view name) {
    const auto path = joinPath(folder, name);
    if (path.size() + kSemaphoreSuffix.size() >= sizeof field)
        return false;
    std::memcpy(field, path.c_str(), path.size() + 1);
    return true;
}

}  // namespace

std::string_view MediaLine::kind() const {
    const auto *function = findOpenFunction(*this);
    return function == nullptr ? "plug-in" : function->kind;
}

std::optional<std::string> DatabaseDirectory::imagePath(int32_t medium) const {
    const auto &line = lineOf(medium);
    const auto *function = findOpenFunction(line);
    if (function == nullptr || !function->isFile)
        return std::nullopt;
    return line.hint.starts_with('/') ? line.hint : joinPath(path, line.hint);
}

Result<std::unique_ptr<const tavDBMDescription>> describeDirectory(const std::string &path) {
    using Described = Result<std::unique_ptr<const tavDBMDescription>>;
    auto description = std::make_unique<tavDBMDescription>();
    const bool fits = put(description->sessionPath, path, kSessionTable) &&
                      put(description->lockPath, path, kLockTable) && put(description->mediaPath, path, kMediaFile) &&
                      put(description->hookPath, path, kHookFile);
    if (!fits)
        return Described::bad({FaultKind::failed, "the path is too long for the library"});
    description->componentMedia = kComponentMedium;
    description->valueMedia = kValueMedium;
    description->constraintMedia = kConstraintMedium;
    description->stringMedia = kStringMedium;
    return Described::good(std::move(description));
}

Fault otherOrder() {
    return {FaultKind::mismatch, std::string("its numbers are stored ") + nameOf(opposite(nativeOrder())) +
                                     " and this machine is " + nameOf(nativeOrder()) +
                                     "; 'tavdb convert' makes a copy for this machine"};
}

Result<DatabaseDirectory> openDirectory(const std::string &path, DirectoryUse use) {
    using Opened = Result<DatabaseDirectory>;
    const auto real = realPath(path);
    if (!real && real.error.kind == FaultKind::notFound)
        return Opened::bad({FaultKind::notFound, "there is no such directory"});
    if (!real)
        return Opened::bad(real.error);
    auto media = readMediaFile(*real.value);
    if (!media)
        return Opened::bad(media.error);
    auto description = describeDirectory(*real.value);
    if (!description)
        return Opened::bad(description.error);
    DatabaseDirectory directory{*real.value, std::move(*description.value), std::move(*media.value), nativeOrder()};
    if (use == DirectoryUse::repair)
        return Opened::good(std::move(directory));
    if (exists(joinPath(directory.path, kRepairJournal)))
        return Opened::bad(damaged("a repair was cut short; 'tavdb repair' finishes it"));
    auto fault = checkImages(directory, use);
    if (!fault && use == DirectoryUse::attach)
        fault = checkTables(directory);
    return fault ? Opened::bad(std::move(*fault)) : Opened::good(std::move(directory));
}

Status checkOwnImages(const DatabaseDirectory &directory) {
    for (const auto &medium : kMediumNames) {
        const auto start = "the " + std::string(medium.kind) + " medium is ";
        const auto &hint = directory.hintOf(medium.id);
        // What is served to others lies under its usual name.
        if (directory.lineOf(medium.id).kind() == "message")
            continue;
        if (!directory.imagePath(medium.id))
            return unfit(start + "no file that can be copied");
        if (hint != medium.file)
            return unfit(start + hint + ", not the directory's own " + std::string(medium.file));
    }
    if (directory.media.size() == kMediumNames.size())
        return std::nullopt;
    return unfit("it names more than the six media of a database directory");
}

bool isDatabaseFile(std::string_view name) {
    constexpr std::array others = {kMediaFile, kHookFile, kSchemaName};
    if (std::find(others.begin(), others.end(), name) != others.end())
        return true;
    if (name.ends_with(kSemaphoreSuffix))
        name.remove_suffix(kSemaphoreSuffix.size());
    else if (std::any_of(kMediumNames.begin(), kMediumNames.end(),
                         [&](const auto &each) { return each.file == name || socketName(each) == name; }))
        return true;
    return name == kSessionTable || name == kLockTable;
}

}  // namespace tavdb::image
