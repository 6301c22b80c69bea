// SPDX-License-Identifier: Apache-2.0
#include "image/check_tables.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <set>

#include "image/files.h"
#include "image/tables.h"

namespace tavdb::image {

namespace {

constexpr uint32_t kSessions = 1023;
constexpr uint32_t kLocks = 1023;
constexpr uint32_t kDatabases = 31;
constexpr int kLockTries = 100;
constexpr useconds_t kLockPauseUs = 10000;
constexpr const char *kMadeAnew = "the table is made anew";

/// Nobody changes the table while it is read: its mutex is a lock of the file. A
/// holder that does not let go is not waited for.
void waitForMutex(int fd) {
    for (int tries = 0; tries < kLockTries && flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK; tries++)
        usleep(kLockPauseUs);
}

/// The bytes of a table; nothing when there is no such file.
Result<std::optional<std::string>> readTableFile(const std::string &path, size_t sizeBytes) {
    using Read = Result<std::optional<std::string>>;
    const auto file = openFile(path, O_RDONLY | O_NONBLOCK);
    if (!file.isOpen() && errno == ENOENT)
        return Read::good(std::nullopt);
    if (!file.isOpen())
        return Read::bad(faultOfError(errno, "cannot be opened"));
    if (auto fault = checkRegular(file.get()))
        return Read::bad(std::move(*fault));
    waitForMutex(file.get());
    // One byte more shows a file that is too long.
    auto content = readPart(file.get(), sizeBytes + 1, 0);
    return content ? Read::good(std::move(*content.value)) : Read::bad(std::move(content.error));
}

/// A table that the first process to attach will fill.
bool isUnbuilt(const std::string &content) {
    return content.find_first_not_of('\0') == std::string::npos;
}

/// What the three tables have in common: records in a free and a used list.
template <typename Table>
class ListCheck {
public:
    ListCheck(std::vector<Finding> &place, std::string name, std::string remedyText)
        : findings(place), file(std::move(name)), remedy(std::move(remedyText)) {}

    /// @return whether there is a table whose lists can be walked
    bool load(const std::optional<std::string> &content) {
        if (!content || (content->size() == sizeof(Table) && isUnbuilt(*content)))
            return false;
        if (content->size() != sizeof(Table)) {
            report(Gravity::damage, "", 0,
                   "has " + std::string(content->size() > sizeof(Table) ? "more than " : "") +
                       std::to_string(std::min(content->size(), sizeof(Table))) + " bytes, a table of its kind has " +
                       std::to_string(sizeof(Table)));
            return false;
        }
        table = std::make_unique<Table>();
        std::memcpy(table.get(), content->data(), sizeof(Table));
        return true;
    }

    /// Walks both lists. @return the indices of the used one
    template <typename Record, size_t Slots>
    std::vector<uint32_t> walk(const Record (&records)[Slots], uint32_t capacity, uint32_t usedHead,
                               uint32_t freeHead) {
        seen.assign(Slots, false);
        const auto used = walkList(records, capacity, usedHead, "the list of those in use");
        const auto unused = walkList(records, capacity, freeHead, "the free list");
        lastFree = unused.empty() ? 0 : unused.back();
        if (isSound && used.size() + unused.size() < capacity)
            report(
                Gravity::damage, "", 0,
                std::to_string(capacity - used.size() - unused.size()) + " of its records are in neither of its lists");
        return used;
    }

    void report(Gravity gravity, const std::string &record, uint32_t offset, const std::string &what) {
        findings.push_back({gravity, file, record, offset, 0, {}, what, remedy, {}});
        isSound = isSound && gravity != Gravity::damage;
        isClean = false;
    }

    template <typename Record>
    uint32_t offsetOf(const Record &record) const {
        return static_cast<uint32_t>(reinterpret_cast<const char *>(&record) -
                                     reinterpret_cast<const char *>(table.get()));
    }

    std::unique_ptr<Table> table;
    uint32_t lastFree = 0;
    bool isSound = true;  ///< no damage
    bool isClean = true;  ///< nothing found at all

private:
    template <typename Record, size_t Slots>
    std::vector<uint32_t> walkList(const Record (&records)[Slots], uint32_t capacity, uint32_t head,
                                   const std::string &name) {
        std::vector<uint32_t> list;
        for (uint32_t index = head; index != 0; index = records[index].next) {
            const bool isInside = index <= capacity;
            if (!isInside || seen[index]) {
                report(Gravity::damage, "", 0,
                       name + " leads to record " + std::to_string(index) +
                           (isInside ? ", which it or the other list holds already" : ", which there is not"));
                break;
            }
            seen[index] = true;
            list.push_back(index);
        }
        return list;
    }

    std::vector<Finding> &findings;
    std::string file;
    std::string remedy;
    std::vector<bool> seen;
};

template <typename Table>
std::string bytesOf(const Table &table) {
    return {reinterpret_cast<const char *>(&table), sizeof table};
}

std::string newSessionTable() {
    const auto table = std::make_unique<tavDBMSessionTable>();
    dbs_me_db_session_init_table(table.get(), kSessions + 1);
    return bytesOf(*table);
}

std::string newLockTable() {
    const auto table = std::make_unique<tavDBMLockTable>();
    table->freeHead = 1;
    for (uint32_t index = 1; index <= kLocks; index++) {
        table->entry[index].next = index < kLocks ? index + 1 : 0;
        table->entry[index].prev = index - 1;
    }
    return bytesOf(*table);
}

class Tables {
public:
    explicit Tables(const DatabaseDirectory &given) : directory(given) {}

    Result<TableCheck> run() {
        for (const auto step : {&Tables::checkControl, &Tables::checkSessions, &Tables::checkLocks})
            if (auto fault = (this->*step)())
                return Result<TableCheck>::bad(std::move(*fault));
        if (!check.living.empty())
            check.anew.clear();
        return Result<TableCheck>::good(std::move(check));
    }

private:
    template <typename Table>
    Status load(ListCheck<Table> &list, const std::string &path, const std::string &name, bool &isThere) {
        const auto content = readTableFile(path, sizeof(Table));
        if (!content)
            return faultIn(name, content.error);
        isThere = list.load(*content.value);
        return std::nullopt;
    }

    /// The machine's own table, which other databases use too: it is looked at, and left alone.
    Status checkControl() {
        const std::string path = dbs_me_db_control_get_file_name();
        ListCheck<tavDBMControlTable> list(
            check.findings, path, "nothing: it is the machine's; it can be deleted when no database is in use");
        bool isThere = false;
        if (auto fault = load(list, path, path, isThere); fault || !isThere)
            return fault;
        const auto &table = *list.table;
        const auto used = list.walk(table.entry, kDatabases, table.usedHead, table.freeHead);
        if (list.isSound && table.freeTail != list.lastFree)
            list.report(Gravity::damage, "", 4, "its last free entry is not the last one");
        for (uint32_t index = 1; index <= kDatabases; index++)
            if (table.entry[index].dbId != index)
                list.report(Gravity::damage, "entry " + std::to_string(index), list.offsetOf(table.entry[index]),
                            "it says that it is database " + std::to_string(table.entry[index].dbId));
        if (!list.isSound)
            return std::nullopt;
        const auto found = findRegistration(path, *directory.description);
        if (found && *found.value)
            check.databaseId = (*found.value)->id;
        return std::nullopt;
    }

    Status checkSessions() {
        const std::string name(kSessionTable);
        ListCheck<tavDBMSessionTable> list(check.findings, name, kMadeAnew);
        bool isThere = false;
        if (auto fault = load(list, joinPath(directory.path, name), name, isThere))
            return fault;
        if (isThere)
            checkSlots(list);
        if (!list.isClean)
            check.anew.push_back({name, newSessionTable()});
        return std::nullopt;
    }

    void checkSlots(ListCheck<tavDBMSessionTable> &list) {
        const auto &table = *list.table;
        const auto used = list.walk(table.slot, kSessions, table.sessionHead, table.freeHead);
        if (list.isSound && table.freeTail != list.lastFree)
            list.report(Gravity::damage, "", 4, "its last free slot is not the last one");
        for (uint32_t index = 1; index <= kSessions; index++)
            if (table.slot[index].sessionId != index)
                list.report(Gravity::damage, "slot " + std::to_string(index), list.offsetOf(table.slot[index]),
                            "it says that it is session " + std::to_string(table.slot[index].sessionId));
        for (const uint32_t index : used) {
            const auto &slot = table.slot[index];
            if (isAlive(slot.processId)) {
                check.living.push_back(slot.processId);
                open.insert(index);
                continue;
            }
            list.report(Gravity::oddity, "slot " + std::to_string(index), list.offsetOf(slot),
                        "process " + std::to_string(slot.processId) + ", which has this session, is gone");
            check.deadReferences += check.databaseId != 0 && slot.dbId == check.databaseId ? 1 : 0;
        }
    }

    Status checkLocks() {
        const std::string name(kLockTable);
        ListCheck<tavDBMLockTable> list(check.findings, name, kMadeAnew);
        bool isThere = false;
        if (auto fault = load(list, joinPath(directory.path, name), name, isThere))
            return fault;
        if (isThere)
            checkEntries(list);
        if (!list.isClean)
            check.anew.push_back({name, newLockTable()});
        return std::nullopt;
    }

    void checkEntries(ListCheck<tavDBMLockTable> &list) {
        const auto &table = *list.table;
        const auto used = list.walk(table.entry, kLocks, table.first, table.freeHead);
        if (list.isSound && table.last != (used.empty() ? 0 : used.back()))
            list.report(Gravity::damage, "", 8, "its last lock is not the last one");
        uint32_t before = 0;
        for (const uint32_t index : used) {
            const auto &entry = table.entry[index];
            const auto where = "lock " + std::to_string(index);
            if (list.isSound && entry.prev != before)
                list.report(Gravity::damage, where, list.offsetOf(entry), "it does not name the lock in front of it");
            if (list.isSound && before != 0 && isBehind(table.entry[before], entry))
                list.report(Gravity::damage, where, list.offsetOf(entry), "it stands behind one that comes later");
            if (!open.contains(entry.owner))
                list.report(Gravity::oddity, where, list.offsetOf(entry),
                            "session " + std::to_string(entry.owner) + ", which locked component " +
                                std::to_string(entry.component) + ", is gone");
            before = index;
        }
    }

    static bool isBehind(const tavDBMLockEntry &a, const tavDBMLockEntry &b) {
        return a.dbId > b.dbId || (a.dbId == b.dbId && a.component > b.component);
    }

    const DatabaseDirectory &directory;
    TableCheck check;
    std::set<uint32_t> open;  ///< sessions of living processes
};

}  // namespace

Result<TableCheck> checkTables(const DatabaseDirectory &directory) {
    return Tables(directory).run();
}

}  // namespace tavdb::image
