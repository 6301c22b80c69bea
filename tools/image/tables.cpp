// SPDX-License-Identifier: Apache-2.0
#include "image/tables.h"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "image/files.h"

namespace tavdb::image {

namespace {

/// The table in a file; null when there is no such file.
template <typename Table>
Result<std::unique_ptr<Table>> readTable(const std::string &path) {
    using Read = Result<std::unique_ptr<Table>>;
    const auto content = readRegularFile(path, sizeof(Table));
    if (!content && content.error.kind == FaultKind::notFound)
        return Read::good(nullptr);
    if (!content)
        return Read::bad(faultIn(path, content.error));
    if (content.value->size() != sizeof(Table))
        return Read::bad(damaged(path + " has " + std::to_string(content.value->size()) +
                                 " bytes, a table of its kind has " + std::to_string(sizeof(Table))));
    auto table = std::make_unique<Table>();
    std::memcpy(table.get(), content.value->data(), sizeof(Table));
    return Read::good(std::move(table));
}

/// Calls visit(record) along the links from `head`; 0 and what lies outside end the list.
template <typename Record, size_t Slots, typename Visit>
void walk(const Record (&records)[Slots], uint32_t head, Visit visit) {
    size_t steps = 0;
    for (uint32_t index = head; index != 0 && index < Slots && steps < Slots; steps++) {
        visit(records[index]);
        index = records[index].next;
    }
}

bool isSame(const tavDBMDescription &a, const tavDBMDescription &b) {
    return std::strncmp(a.sessionPath, b.sessionPath, sizeof a.sessionPath) == 0 &&
           std::strncmp(a.lockPath, b.lockPath, sizeof a.lockPath) == 0 &&
           std::strncmp(a.mediaPath, b.mediaPath, sizeof a.mediaPath) == 0 &&
           std::strncmp(a.hookPath, b.hookPath, sizeof a.hookPath) == 0 && a.componentMedia == b.componentMedia &&
           a.valueMedia == b.valueMedia && a.constraintMedia == b.constraintMedia && a.stringMedia == b.stringMedia &&
           a.fifthWord == b.fifthWord;
}

}  // namespace

bool isAlive(int32_t process) {
    return process > 0 && (kill(process, 0) == 0 || errno == EPERM);
}

Result<std::vector<OpenSession>> readSessions(const std::string &path) {
    using Sessions = Result<std::vector<OpenSession>>;
    const auto table = readTable<tavDBMSessionTable>(path);
    if (!table)
        return Sessions::bad(table.error);
    std::vector<OpenSession> sessions;
    if (*table.value)
        walk((*table.value)->slot, (*table.value)->sessionHead, [&](const tavDBMSessionSlot &slot) {
            sessions.push_back({slot.sessionId, slot.processId, slot.dbId, isAlive(slot.processId)});
        });
    return Sessions::good(std::move(sessions));
}

Result<std::vector<HeldLock>> readLocks(const std::string &path) {
    using Locks = Result<std::vector<HeldLock>>;
    constexpr uint32_t kKindMask = 0xFF00;
    const auto table = readTable<tavDBMLockTable>(path);
    if (!table)
        return Locks::bad(table.error);
    std::vector<HeldLock> locks;
    if (*table.value)
        walk((*table.value)->entry, (*table.value)->first, [&](const tavDBMLockEntry &entry) {
            locks.push_back({entry.dbId, entry.component, entry.owner, (entry.mode & kKindMask) == TAVDB_LOCK_SHARED});
        });
    return Locks::good(std::move(locks));
}

Result<std::optional<Registration>> findRegistration(const std::string &controlTable,
                                                     const tavDBMDescription &description) {
    using Found = Result<std::optional<Registration>>;
    const auto table = readTable<tavDBMControlTable>(controlTable);
    if (!table)
        return Found::bad(table.error);
    std::optional<Registration> found;
    if (*table.value)
        walk((*table.value)->entry, (*table.value)->usedHead, [&](const tavDBMControlEntry &entry) {
            if (!found && isSame(entry.description, description))
                found = Registration{entry.dbId, entry.refCount};
        });
    return Found::good(found);
}

std::string holderName(const std::vector<OpenSession> &sessions, uint32_t session) {
    const auto found =
        std::find_if(sessions.begin(), sessions.end(), [&](const OpenSession &open) { return open.id == session; });
    const auto name = "session " + std::to_string(session);
    if (found == sessions.end())
        return name + ", which is closed";
    return name + " (process " + std::to_string(found->process) + (found->isAlive ? ")" : ", which is gone)");
}

}  // namespace tavdb::image
