// SPDX-License-Identifier: Apache-2.0
// A database directory: the names of its files, the header that its images begin
// with, and the way from its path to the description that the library attaches
// by. Looks at files only; nothing is attached here.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "image/byte_order.h"
#include "image/fault.h"
#include "tavdb_modules.h"

namespace tavdb::image {

inline constexpr std::string_view kMediaFile = "media.conf";
inline constexpr std::string_view kSessionTable = "session.tbl";
inline constexpr std::string_view kLockTable = "lock.tbl";
inline constexpr std::string_view kHookFile = "hooks.conf";
inline constexpr std::string_view kSchemaName = "schema.json";
/// Is there while repaired images take the place of the damaged ones.
inline constexpr std::string_view kRepairJournal = "repair.journal";
/// What the platform adds to the name of a table.
inline constexpr std::string_view kSemaphoreSuffix = ".sem";

/// The media of a directory by their ids.
enum MediumId : int32_t {
    kComponentMedium = 1,
    kValueMedium,
    kConstraintMedium,
    kStringMedium,
    kDataMedium,
    kTextMedium,
    kMediumEnd
};

struct MediumName {
    int32_t id;
    std::string_view kind;
    std::string_view file;
    bool holdsRecords;  ///< else data are appended to it
};

inline constexpr std::array kMediumNames = {
    MediumName{kComponentMedium, "component", "component.med", true},
    MediumName{kValueMedium, "value", "value.med", true},
    MediumName{kConstraintMedium, "constraint", "constraint.med", true},
    MediumName{kStringMedium, "string", "string.med", true},
    MediumName{kDataMedium, "data", "data.med", false},
    MediumName{kTextMedium, "text", "text.med", false},
};

/// The socket at which a media server offers a medium.
inline std::string socketName(const MediumName &medium) {
    return std::string(medium.kind) + ".sock";
}

/// What is in front of every image.
inline constexpr uint32_t kHeaderBytes = sizeof(tavDBMMediumHeader);
/// "TAVD" as a word of the machine.
inline constexpr uint32_t kMagic = 0x54415644;
inline constexpr uint32_t kFormatVersion = 1;
/// The second word of an image.
constexpr uint32_t roleWord(int32_t medium) {
    return kFormatVersion << 16 | static_cast<uint32_t>(medium);
}

/// One line of the media configuration.
struct MediaLine {
    std::string library;
    std::string open;  ///< name of the open function
    std::string hint;

    /// "memory", "file", "read-only file", "message", or "plug-in".
    std::string_view kind() const;
};

struct DatabaseDirectory {
    std::string path;                                      ///< absolute, without symbolic links
    std::unique_ptr<const tavDBMDescription> description;  ///< of 16 KiB: not to be copied about
    std::vector<MediaLine> media;                          ///< in the order of their ids, from 1
    ByteOrder order = nativeOrder();

    const MediaLine &lineOf(int32_t medium) const {
        return media[static_cast<size_t>(medium) - 1];
    }
    const std::string &hintOf(int32_t medium) const {
        return lineOf(medium).hint;
    }
    /// The image of a medium, when it is a file of this machine.
    std::optional<std::string> imagePath(int32_t medium) const;
};

/// What a directory is opened for. To attach, its tables must be writable; to attach
/// and to serve its media, its numbers must be in the order of this machine. Images
/// behind message media are looked at by those who own them: to serve and to read. To
/// repair, nothing is expected of the images.
enum class DirectoryUse { attach, serve, readFiles, repair };

/// Checks that a directory holds a database that this program can use, as far as
/// its files show it: all there, permitted, sound headers, a known format.
Result<DatabaseDirectory> openDirectory(const std::string &path, DirectoryUse use = DirectoryUse::attach);

/// The description of a directory's database. Equal directories give equal
/// descriptions, so that all programs that use this share locks and sessions.
/// @param path absolute; what is too long gives a fault
Result<std::unique_ptr<const tavDBMDescription>> describeDirectory(const std::string &path);

/// Refuses a directory whose media configuration names anything but its own six images,
/// or sockets that they are served on.
Status checkOwnImages(const DatabaseDirectory &directory);

/// Of a database whose numbers are stored in the order that is not this machine's.
Fault otherOrder();

/// Whether `name` belongs to a database directory.
bool isDatabaseFile(std::string_view name);

}  // namespace tavdb::image
