// SPDX-License-Identifier: Apache-2.0
#include "image/directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <sstream>

#include "image/files.h"

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
    std::istringstream text(content);
    for (std::string line; std::getline(text, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::vector<std::string> tokens;
        for (std::string word; words >> word;)
            tokens.push_back(word);
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
            return {FaultKind::damaged, "the database is incomplete: media.conf is missing", 0, 0};
    return {FaultKind::notFound, "is not a database directory: it has no media.conf", 0, 0};
}

Result<std::vector<MediaLine>> readMediaFile(const std::string &folder) {
    using Lines = Result<std::vector<MediaLine>>;
    struct stat status = {};
    if (stat(folder.c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
        return Lines::bad({FaultKind::notFound, "is not a database directory: it is a file", 0, 0});
    const auto path = joinPath(folder, kMediaFile);
    const auto content = readFile(path, kMediaFileBytesMax);
    if (!content && content.error.kind == FaultKind::notFound)
        return Lines::bad(missingMediaFile(folder));
    if (!content)
        return Lines::bad(faultIn(std::string(kMediaFile), content.error));
    auto lines = parseMediaFile(*content.value);
    if (lines.size() < kMediumNames.size())
        return Lines::bad({FaultKind::damaged,
                           "media.conf names " + std::to_string(lines.size()) + " media, a database has " +
                               std::to_string(kMediumNames.size()),
                           0, 0});
    return Lines::good(std::move(lines));
}

uint32_t reversed(uint32_t word) {
    return __builtin_bswap32(word);
}

const char *byteOrderName(bool isLittle) {
    return isLittle ? "little-endian" : "big-endian";
}

Status checkRole(const tavDBMMediumHeader &header, int32_t medium) {
    const uint32_t format = header.preparer[1] >> 16;
    const uint32_t role = header.preparer[1] & 0xFFFF;
    if (format != kFormatVersion)
        return Fault{
            FaultKind::mismatch,
            "is of format " + std::to_string(format) + ", this program knows format " + std::to_string(kFormatVersion),
            0, 0};
    if (role != static_cast<uint32_t>(medium))
        return Fault{FaultKind::damaged,
                     "the header is damaged: it says medium " + std::to_string(role) + ", this is medium " +
                         std::to_string(medium),
                     0, 0};
    return std::nullopt;
}

Status checkHeader(const tavDBMMediumHeader &header, uint64_t sizeBytes, const MediumName &medium) {
    constexpr bool isLittle = std::endian::native == std::endian::little;
    if (header.preparer[0] == reversed(kMagic))
        return Fault{FaultKind::mismatch,
                     std::string("was made for a ") + byteOrderName(!isLittle) + " machine, this one is " +
                         byteOrderName(isLittle),
                     0, 0};
    if (header.preparer[0] != kMagic)
        return Fault{FaultKind::damaged, "the header is damaged: it does not begin with TAVD", 0, 0};
    if (auto fault = checkRole(header, medium.id))
        return fault;
    const bool isInside = header.root >= sizeof header && header.root + sizeof(tavDBMNode) <= sizeBytes;
    if (medium.id == kComponentMedium && !isInside)
        return Fault{FaultKind::damaged, "the header is damaged: there is no root at " + std::to_string(header.root), 0,
                     0};
    if (medium.holdsRecords && header.firstFree != 0 && header.firstFree >= sizeBytes)
        return Fault{FaultKind::damaged,
                     "the header is damaged: the first free block lies outside at " + std::to_string(header.firstFree),
                     0, 0};
    return std::nullopt;
}

Status checkImage(const std::string &path, const MediumName &medium) {
    const auto file = openFile(path, O_RDONLY | O_NONBLOCK);
    if (!file.isOpen() && errno == ENOENT)
        return Fault{FaultKind::damaged, "the database is incomplete: this image is missing", 0, 0};
    struct stat status = {};
    if (!file.isOpen() || fstat(file.get(), &status) != 0)
        return faultOfError(errno, "cannot be opened");
    tavDBMMediumHeader header = {};
    const auto bytes = readPart(file.get(), sizeof header, 0);
    if (!bytes)
        return bytes.error;
    if (bytes.value->size() < sizeof header)
        return Fault{FaultKind::damaged, "the header is damaged: the image is shorter than its header", 0, 0};
    std::memcpy(&header, bytes.value->data(), sizeof header);
    return checkHeader(header, static_cast<uint64_t>(status.st_size), medium);
}

Status checkImages(const DatabaseDirectory &directory) {
    for (const auto &medium : kMediumNames) {
        const auto path = directory.imagePath(medium.id);
        auto fault = path ? checkImage(*path, medium) : Status{};
        if (fault)
            return faultIn(directory.media[static_cast<size_t>(medium.id) - 1].hint, std::move(*fault));
    }
    return std::nullopt;
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
    const auto &line = media[static_cast<size_t>(medium) - 1];
    const auto *function = findOpenFunction(line);
    if (function == nullptr || !function->isFile)
        return std::nullopt;
    return line.hint.starts_with('/') ? line.hint : joinPath(path, line.hint);
}

Result<tavDBMDescription> describeDirectory(const std::string &path) {
    tavDBMDescription description = {};
    const bool fits = put(description.sessionPath, path, kSessionTable) &&
                      put(description.lockPath, path, kLockTable) && put(description.mediaPath, path, kMediaFile) &&
                      put(description.hookPath, path, kHookFile);
    if (!fits)
        return Result<tavDBMDescription>::bad({FaultKind::failed, "the path is too long for the library", 0, 0});
    description.componentMedia = kComponentMedium;
    description.valueMedia = kValueMedium;
    description.constraintMedia = kConstraintMedium;
    description.stringMedia = kStringMedium;
    return Result<tavDBMDescription>::good(description);
}

Result<DatabaseDirectory> openDirectory(const std::string &path) {
    using Opened = Result<DatabaseDirectory>;
    const auto real = realPath(path);
    if (!real && real.error.kind == FaultKind::notFound)
        return Opened::bad({FaultKind::notFound, "there is no such directory", 0, 0});
    if (!real)
        return Opened::bad(real.error);
    auto media = readMediaFile(*real.value);
    if (!media)
        return Opened::bad(media.error);
    auto description = describeDirectory(*real.value);
    if (!description)
        return Opened::bad(description.error);
    DatabaseDirectory directory{*real.value, *description.value, std::move(*media.value)};
    auto fault = checkImages(directory);
    if (!fault)
        fault = checkTables(directory);
    return fault ? Opened::bad(std::move(*fault)) : Opened::good(std::move(directory));
}

bool isDatabaseFile(std::string_view name) {
    constexpr std::array others = {kMediaFile, kHookFile, kSchemaName};
    if (std::find(others.begin(), others.end(), name) != others.end())
        return true;
    if (name.ends_with(kSemaphoreSuffix))
        name.remove_suffix(kSemaphoreSuffix.size());
    else if (std::any_of(kMediumNames.begin(), kMediumNames.end(), [&](const auto &each) { return each.file == name; }))
        return true;
    return name == kSessionTable || name == kLockTable;
}

}  // namespace tavdb::image
