// SPDX-License-Identifier: Apache-2.0
#include "image/repair.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>

#include "image/bench.h"
#include "image/build_folder.h"
#include "image/files.h"
#include "image/media_image.h"
#include "image/schema_edit.h"
#include "image/schema_file.h"
#include "image/text_util.h"

namespace tavdb::image {

namespace {

constexpr std::string_view kRepaired = ".repaired";
constexpr std::string_view kPart = ".part";
constexpr std::string_view kDamaged = "damaged-";
constexpr size_t kJournalBytesMax = 4096;
constexpr mode_t kUsualRights = 0664;

bool exists(const std::string &path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

std::string repairedName(std::string_view name) {
    return std::string(name).append(kRepaired);
}

/// Files that a repair replaces.
bool isReplaceable(const std::string &name) {
    return name == kSchemaName || std::any_of(kMediumNames.begin(), kMediumNames.end(),
                                              [&](const MediumName &medium) { return medium.file == name; });
}

/// The names that the journal of a repair that was cut short holds; none without one.
Result<std::vector<std::string>> readJournal(const std::string &folder) {
    using Names = Result<std::vector<std::string>>;
    const auto content = readRegularFile(joinPath(folder, kRepairJournal), kJournalBytesMax);
    if (!content && content.error.kind == FaultKind::notFound)
        return Names::good({});
    if (!content)
        return Names::bad(faultIn(std::string(kRepairJournal), content.error));
    std::vector<std::string> names;
    for (const auto &name : splitAt(*content.value, '\n'))
        if (isReplaceable(name))
            names.push_back(name);
        else
            return Names::bad(faultIn(std::string(kRepairJournal), damaged("is no journal")));
    return Names::good(std::move(names));
}

/// What was written before a journal, by runs that were cut.
std::vector<std::string> uselessNames(const std::string &folder, bool isUnfinished) {
    std::vector<std::string> names;
    const auto all = listFolder(folder);
    for (const auto &name : all.value.value_or(std::vector<std::string>{})) {
        const bool isPart = name.ends_with(kPart) && (name.starts_with(kDamaged) || name.starts_with(kRepairJournal));
        const bool isRepaired =
            name.ends_with(kRepaired) && isReplaceable(name.substr(0, name.size() - kRepaired.size()));
        if (isPart || (isRepaired && !isUnfinished))
            names.push_back(name);
    }
    return names;
}

/// The first two words of an image, in an order.
std::array<uint32_t, 2> marksOf(const std::string &content, ByteOrder order) {
    RawImages::Contents start;
    start[kComponentMedium] = content.substr(0, sizeof(tavDBMMediumHeader));
    const auto header = RawImages(order, std::move(start)).read<tavDBMMediumHeader>(kComponentMedium, 0);
    return header ? std::array{header->preparer[0], header->preparer[1]} : std::array<uint32_t, 2>{};
}

/// The order and the format that most of the images tell.
Status checkMarks(const RawImages::Contents &contents) {
    size_t here = 0;
    size_t there = 0;
    size_t strange = 0;
    uint32_t format = kFormatVersion;
    for (const auto &medium : kMediumNames) {
        const auto &content = contents[static_cast<size_t>(medium.id)];
        const auto [mark, role] = marksOf(content, nativeOrder());
        here += mark == kMagic ? 1U : 0U;
        there += marksOf(content, opposite(nativeOrder()))[0] == kMagic ? 1U : 0U;
        const bool isOfOwnMedium = (role & 0xFFFF) == static_cast<uint32_t>(medium.id);
        if (mark == kMagic && role >> 16 != kFormatVersion && isOfOwnMedium) {
            strange++;
            format = role >> 16;
        }
    }
    if (there > here)
        return otherOrder();
    if (here != 0 && strange == here)
        return Fault{FaultKind::mismatch, "is of format " + std::to_string(format) + ", this program knows format " +
                                              std::to_string(kFormatVersion)};
    return std::nullopt;
}

/// Images that say of themselves that they belong in each other's place would be taken for rubble.
Status checkPlaces(const RawImages::Contents &contents) {
    const auto roleOf = [&](const MediumName &medium) {
        const auto [mark, role] = marksOf(contents[static_cast<size_t>(medium.id)], nativeOrder());
        return mark == kMagic && role >> 16 == kFormatVersion ? static_cast<int32_t>(role & 0xFFFF) : 0;
    };
    std::vector<std::string> strangers;
    for (const auto &medium : kMediumNames)
        if (const auto role = roleOf(medium); RawImages::isMedium(role) && role != medium.id)
            strangers.emplace_back(medium.file);
    if (strangers.size() < 2)
        return std::nullopt;
    return damaged(strangers[0] + " and " + strangers[1] + " are images of other media: exchanged?");
}

/// The images, those that a journal names in their repaired form. One that is missing is empty.
Result<RawImages::Contents> readContents(const std::string &folder, const std::vector<std::string> &journal) {
    using Contents = Result<RawImages::Contents>;
    RawImages::Contents contents;
    size_t missing = 0;
    for (const auto &medium : kMediumNames) {
        const std::string name(medium.file);
        const bool isListed = std::find(journal.begin(), journal.end(), name) != journal.end();
        const auto repaired = joinPath(folder, repairedName(name));
        auto content =
            readRegularFile(isListed && exists(repaired) ? repaired : joinPath(folder, name), kMediumBytesMax);
        if (!content && content.error.kind != FaultKind::notFound)
            return Contents::bad(faultIn(name, std::move(content.error)));
        missing += content ? 0U : 1U;
        contents[static_cast<size_t>(medium.id)] = content ? std::move(*content.value) : std::string();
    }
    if (missing == kMediumNames.size())
        return Contents::bad(damaged("the database is incomplete: all images are missing"));
    return Contents::good(std::move(contents));
}

/// While these are open nobody else repairs the directory, and no server owns an image.
Status takeLocks(const std::string &folder, std::vector<Descriptor> &locks) {
    locks.push_back(openFile(folder, O_RDONLY | O_DIRECTORY));
    if (!locks[0].isOpen())
        return faultOfError(errno, "cannot be opened");
    if (flock(locks[0].get(), LOCK_EX | LOCK_NB) != 0)
        return Fault{FaultKind::locked, "is being repaired by another process"};
    for (const auto &medium : kMediumNames) {
        auto image = openFile(joinPath(folder, medium.file), O_RDONLY | O_NONBLOCK);
        if (!image.isOpen())
            continue;
        if (flock(image.get(), LOCK_EX | LOCK_NB) != 0)
            return faultIn(std::string(medium.file), {FaultKind::locked, "is owned by a media server"});
        locks.push_back(std::move(image));
    }
    return std::nullopt;
}

Status removePart(const std::string &path) {
    if (unlink(path.c_str()) == 0 || errno == ENOENT)
        return std::nullopt;
    const auto names = listFolder(path);
    for (const auto &name : names.value.value_or(std::vector<std::string>{}))
        unlink(joinPath(path, name).c_str());
    return rmdir(path.c_str()) == 0 ? Status{} : faultOfError(errno, "cannot be removed");
}

class Repair {
public:
    Repair(DatabaseCheck given, const RepairStep &callback)
        : check(std::move(given)), folder(check.directory.path), before(callback) {}

    Result<Repaired> run() {
        Status fault;
        for (const auto action :
             {&Repair::finishFormer, &Repair::removeLeft, &Repair::decide, &Repair::keepOriginal, &Repair::writeBeside,
              &Repair::writeJournal, &Repair::putInPlace, &Repair::writeTables})
            if (!fault)
                fault = (this->*action)();
        if (fault && !isJournalWritten)
            undo();
        if (fault)
            return Result<Repaired>::bad(std::move(*fault));
        return Result<Repaired>::good({std::move(check), std::move(original)});
    }

private:
    /// Nothing was changed: what stands beside the files is of no use.
    void undo() const {
        for (const auto &name : uselessNames(folder, false))
            removePart(joinPath(folder, name));
        if (!original.empty())
            removePart(joinPath(folder, original));
    }

    void announce(const std::string &name) const {
        if (before)
            before(name);
    }

    Status finishFormer() {
        if (!check.isUnfinished)
            return std::nullopt;
        const auto names = readJournal(folder);
        if (!names)
            return names.error;
        changedNames = *names.value;
        isJournalWritten = true;
        auto fault = putInPlace();
        changedNames.clear();
        isJournalWritten = false;
        return fault;
    }

    Status removeLeft() {
        for (const auto &name : check.left) {
            announce("remove " + name);
            if (auto fault = removePart(joinPath(folder, name)))
                return faultIn(name, std::move(*fault));
        }
        return std::nullopt;
    }

    /// What has changed, by name.
    Status decide() {
        for (const auto &medium : kMediumNames) {
            const auto &content = check.examination.images.content(medium.id);
            const bool isThere = exists(joinPath(folder, medium.file));
            if (!isThere || content != check.contents[static_cast<size_t>(medium.id)])
                changed.emplace(medium.file, content);
        }
        return markSecrets();
    }

    /// A leaf that came to another path has left its secret mark behind. It gets one when
    /// it could be a secret whose own path leads nowhere now.
    Status markSecrets() {
        const auto &examination = check.examination;
        if (examination.displaced.empty())
            return std::nullopt;
        const auto file = SchemaFile::open(joinPath(folder, kSchemaName));
        const auto read = file ? file.value->readAll() : Result<Schema>::bad(file.error);
        if (!read)
            return faultIn(std::string(kSchemaName), read.error);
        std::vector<std::string> missing;
        for (const auto &[path, entry] : read.value->components)
            if (entry.secret && !examination.settled.contains(path))
                missing.push_back(path);
        auto schema = *read.value;
        bool isChanged = false;
        for (const auto &path : examination.displaced)
            if (std::any_of(missing.begin(), missing.end(),
                            [&](const std::string &secret) { return couldBe(path, secret); })) {
                isChanged = isChanged || !schema.components[path].secret;
                schema.components[path].secret = true;
            }
        if (isChanged)
            changed.emplace(kSchemaName, formatSchema(schema));
        return std::nullopt;
    }

    /// By its last name, which may have been lost, or have got its key behind it.
    static bool couldBe(const std::string &path, const std::string &former) {
        const auto name = path.substr(path.rfind('/') + 1);
        const auto formerName = former.substr(former.rfind('/') + 1);
        return name == formerName || name.starts_with(formerName + "-") || name.starts_with(kRecovered) ||
               name.starts_with('@');
    }

    std::string freeName() const {
        for (uint32_t number = 1;; number++)
            if (auto name = std::string(kDamaged) + std::to_string(number); !exists(joinPath(folder, name)))
                return name;
    }

    Status keepOriginal() {
        if (changed.empty())
            return std::nullopt;
        original = freeName();
        const auto part = joinPath(folder, original + std::string(kPart));
        announce("make " + original);
        if (mkdir(part.c_str(), 0700) != 0)
            return faultIn(original, faultOfError(errno, "cannot be made"));
        for (const auto &name : copiedNames())
            if (auto fault = copyInto(part, name))
                return faultIn(name, std::move(*fault));
        announce("name " + original);
        if (auto fault = syncPath(part))
            return fault;
        if (rename(part.c_str(), joinPath(folder, original).c_str()) != 0)
            return faultIn(original, faultOfError(errno, "cannot be made"));
        return syncPath(folder);
    }

    std::vector<std::string> copiedNames() const {
        std::vector<std::string> names;
        for (const auto name : {kMediaFile, kHookFile, kSchemaName})
            names.emplace_back(name);
        for (const auto &medium : kMediumNames)
            names.emplace_back(medium.file);
        std::erase_if(names, [&](const std::string &name) { return !exists(joinPath(folder, name)); });
        return names;
    }

    Status copyInto(const std::string &part, const std::string &name) const {
        announce("copy " + name);
        const auto content = readRegularFile(joinPath(folder, name), kMediumBytesMax);
        if (!content)
            return content.error;
        return writeFlushed(joinPath(part, name), *content.value, joinPath(folder, name));
    }

    /// @param like a file whose rights the new one gets, if it is there
    static Status writeFlushed(const std::string &path, const std::string &content, const std::string &like) {
        const bool hasModel = exists(like);
        auto fault = writeNewFile(path, content, hasModel ? 0600 : kUsualRights);
        if (!fault && hasModel)
            fault = takeRights(like, path);
        return fault ? fault : syncPath(path);
    }

    Status writeBeside() {
        for (const auto &[name, content] : changed) {
            announce("write " + name);
            if (auto fault = writeFlushed(joinPath(folder, repairedName(name)), content, joinPath(folder, name)))
                return faultIn(name, std::move(*fault));
            changedNames.push_back(name);
        }
        return std::nullopt;
    }

    Status writeJournal() {
        if (changed.empty())
            return std::nullopt;
        std::string text;
        for (const auto &name : changedNames)
            text += name + "\n";
        const auto path = joinPath(folder, kRepairJournal);
        const auto part = path + std::string(kPart);
        announce("write the journal");
        if (auto fault = writeFlushed(part, text, joinPath(folder, kMediaFile)))
            return faultIn(std::string(kRepairJournal), std::move(*fault));
        // The repaired files are known under their names before the journal is.
        if (auto fault = syncPath(folder))
            return fault;
        announce("name the journal");
        if (rename(part.c_str(), path.c_str()) != 0)
            return faultIn(std::string(kRepairJournal), faultOfError(errno, "cannot be made"));
        isJournalWritten = true;
        return syncPath(folder);
    }

    Status putInPlace() {
        if (!isJournalWritten)
            return std::nullopt;
        for (const auto &name : changedNames) {
            announce("replace " + name);
            const auto repaired = joinPath(folder, repairedName(name));
            if (rename(repaired.c_str(), joinPath(folder, name).c_str()) != 0 && errno != ENOENT)
                return faultIn(name, faultOfError(errno, "cannot be replaced"));
        }
        if (auto fault = syncPath(folder))
            return fault;
        announce("remove the journal");
        if (unlink(joinPath(folder, kRepairJournal).c_str()) != 0)
            return faultIn(std::string(kRepairJournal), faultOfError(errno, "cannot be removed"));
        return syncPath(folder);
    }

    Status writeTables() {
        for (const auto &table : check.tables.anew) {
            announce("write " + table.name);
            if (auto fault = overwrite(joinPath(folder, table.name), table.content))
                return faultIn(table.name, std::move(*fault));
        }
        return giveReferencesBack();
    }

    /// In place: whoever has mapped the table must go on seeing it.
    static Status overwrite(const std::string &path, const std::string &content) {
        const auto file = openFile(path, O_RDWR);
        if (!file.isOpen())
            return faultOfError(errno, "cannot be opened");
        if (flock(file.get(), LOCK_EX | LOCK_NB) != 0)
            return Fault{FaultKind::locked, "is in use"};
        if (auto fault = writeAll(file.get(), content))
            return fault;
        if (ftruncate(file.get(), static_cast<off_t>(content.size())) != 0 || fsync(file.get()) != 0)
            return faultOfError(errno, "cannot be written");
        return std::nullopt;
    }

    /// One for each session of a dead process, as the library itself does when it needs a slot.
    Status giveReferencesBack() {
        if (check.tables.deadReferences == 0 || dbs_me_db_control_init_table() != 0)
            return std::nullopt;
        announce("give references back");
        for (uint32_t count = check.tables.deadReferences; count > 0; count--)
            if (dbs_me_db_control_term_table_entry(check.tables.databaseId) != 0)
                break;
        return std::nullopt;
    }

    DatabaseCheck check;
    const std::string folder;
    const RepairStep &before;
    std::map<std::string, std::string> changed;
    std::vector<std::string> changedNames;
    std::string original;
    bool isJournalWritten = false;
};

}  // namespace

std::vector<Finding> DatabaseCheck::findings() const {
    std::vector<Finding> all;
    if (isUnfinished)
        all.push_back({Gravity::damage,
                       std::string(kRepairJournal),
                       "",
                       0,
                       0,
                       {},
                       "a repair was cut short",
                       "it is finished",
                       {}});
    for (const auto &name : left)
        all.push_back(
            {Gravity::oddity, name, "", 0, 0, {}, "was left by a repair that was cut short", "it is removed", {}});
    all.insert(all.end(), examination.findings.begin(), examination.findings.end());
    all.insert(all.end(), tables.findings.begin(), tables.findings.end());
    return all;
}

bool DatabaseCheck::isDamaged() const {
    const auto all = findings();
    return std::any_of(all.begin(), all.end(), [](const Finding &each) { return each.gravity == Gravity::damage; });
}

Result<DatabaseCheck> checkDatabase(const std::string &path) {
    using Checked = Result<DatabaseCheck>;
    auto directory = openDirectory(path, DirectoryUse::repair);
    if (!directory)
        return Checked::bad(std::move(directory.error));
    if (auto fault = checkOwnImages(*directory.value))
        return Checked::bad(std::move(*fault));
    const auto &folder = directory.value->path;
    const auto journal = readJournal(folder);
    if (!journal)
        return Checked::bad(journal.error);
    auto contents = readContents(folder, *journal.value);
    if (!contents)
        return Checked::bad(std::move(contents.error));
    for (const auto look : {checkMarks, checkPlaces})
        if (auto fault = look(*contents.value))
            return Checked::bad(std::move(*fault));
    auto tables = checkTables(*directory.value);
    if (!tables)
        return Checked::bad(std::move(tables.error));
    const bool isUnfinished = exists(joinPath(folder, kRepairJournal));
    auto left = uselessNames(folder, isUnfinished);
    return Checked::good({std::move(*directory.value), examine({nativeOrder(), *contents.value}),
                          std::move(*contents.value), std::move(*tables.value), isUnfinished, std::move(left)});
}

Result<Repaired> repairDatabase(const std::string &path, const RepairStep &step) {
    using Done = Result<Repaired>;
    const auto directory = openDirectory(path, DirectoryUse::repair);
    if (!directory)
        return Done::bad(directory.error);
    std::vector<Descriptor> locks;
    if (auto fault = takeLocks(directory.value->path, locks))
        return Done::bad(std::move(*fault));
    auto check = checkDatabase(directory.value->path);
    if (!check)
        return Done::bad(std::move(check.error));
    if (const auto &living = check.value->tables.living; !living.empty())
        return Done::bad({FaultKind::locked, "is in use by process " + std::to_string(living[0])});
    return Repair(std::move(*check.value), step).run();
}

}  // namespace tavdb::image
