// SPDX-License-Identifier: Apache-2.0
// An open-addressing table, at most half full, of slots that never move inside
// one table. Writers change slots in place and publish each word with release
// order; growing makes a new table and leaves the old one to its readers.
#include "hook/hook_table.h"

#include <cstring>

#include "tavdb_platform.h"

namespace tavdb {
namespace {

constexpr uint32_t kFirstCapacity = 16;

/// A record that the program gave an id at some time.
struct Version {
    tavDBMHook hook;
    Version *older;
};

struct Slot {
    uint32_t id;                   ///< 0: empty
    const tavDBMHook *registered;  ///< the program's
    const tavDBMHook *fromFile;    ///< a file's
    Version *versions;             ///< writers only: all records of this id that readers may hold
    const FileHook *claimedBy;     ///< writers only: the file's line that gives this id
};

struct Table {
    Table *older;
    uint32_t capacity;  ///< slots, a power of two
    uint32_t used;      ///< slots with an id
};
static_assert(sizeof(Table) % alignof(Slot) == 0, "the slots follow the table");

Table *s_table;

template <typename T>
T acquire(const T &word) {
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

template <typename T>
void publish(T &word, T value) {
    __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

Slot *slotsOf(Table *table) {
    return reinterpret_cast<Slot *>(table + 1);
}

uint32_t sizeOf(uint32_t capacity) {
    return static_cast<uint32_t>(sizeof(Table) + capacity * sizeof(Slot));
}

/// The slot with that id, or the empty one where it would stand.
Slot *probe(Table *table, uint32_t id) {
    const uint32_t mask = table->capacity - 1;
    const uint32_t mixed = id * 0x9E3779B9U;
    for (uint32_t at = mixed ^ (mixed >> 16);; at++) {
        Slot *const slot = slotsOf(table) + (at & mask);
        const uint32_t found = acquire(slot->id);
        if (found == id || found == 0)
            return slot;
    }
}

bool isUnused(const Slot &slot) {
    return slot.registered == nullptr && slot.fromFile == nullptr && slot.versions == nullptr &&
           slot.claimedBy == nullptr;
}

/// Ids that nothing holds any more are left behind.
void copySlots(Table *from, Table *to) {
    for (uint32_t i = 0; i < from->capacity; i++) {
        const Slot &slot = slotsOf(from)[i];
        if (slot.id == 0 || isUnused(slot))
            continue;
        *probe(to, slot.id) = slot;
        to->used++;
    }
}

bool grow(uint32_t capacity) {
    auto *const table = static_cast<Table *>(tavOSWSubAllocMem(sizeOf(capacity)));
    if (table == nullptr)
        return false;
    memset(static_cast<void *>(table), 0, sizeOf(capacity));
    table->capacity = capacity;
    table->older = s_table;
    if (s_table != nullptr)
        copySlots(s_table, table);
    publish(s_table, table);
    return true;
}

uint32_t countLiveIds() {
    uint32_t count = 0;
    for (uint32_t i = 0; s_table != nullptr && i < s_table->capacity; i++)
        if (slotsOf(s_table)[i].id != 0 && !isUnused(slotsOf(s_table)[i]))
            count++;
    return count;
}

/// Makes sure that `count` further ids fit.
bool reserve(uint32_t count) {
    const bool fits = s_table != nullptr && s_table->used + static_cast<uint64_t>(count) <= s_table->capacity / 2;
    if (count == 0 || fits)
        return true;
    const uint64_t wanted = (static_cast<uint64_t>(countLiveIds()) + count) * 3;
    uint64_t capacity = kFirstCapacity;
    while (capacity < wanted)
        capacity *= 2;
    return capacity <= (UINT32_MAX / 2) / sizeof(Slot) && grow(static_cast<uint32_t>(capacity));
}

/// The slot of an id for which there is room.
Slot *slotFor(uint32_t id) {
    Slot *const slot = probe(s_table, id);
    if (slot->id == 0) {
        s_table->used++;
        publish(slot->id, id);
    }
    return slot;
}

const Version *versionOf(Slot *slot, const tavDBMHook &hook) {
    for (const Version *version = slot->versions; version != nullptr; version = version->older)
        if (memcmp(&version->hook, &hook, sizeof hook) == 0)
            return version;
    auto *const version = static_cast<Version *>(tavOSWSubAllocMem(sizeof(Version)));
    if (version == nullptr)
        return nullptr;
    *version = {hook, slot->versions};
    slot->versions = version;
    return version;
}

/// Keeps the record that is in use.
void forgetVersions(Slot *slot) {
    Version *kept = nullptr;
    for (Version *version = slot->versions; version != nullptr;) {
        Version *const older = version->older;
        if (&version->hook == slot->registered) {
            kept = version;
            kept->older = nullptr;
        } else {
            tavOSWOrgFreeMemPart(0, version);
        }
        version = older;
    }
    slot->versions = kept;
}

/// Takes back the claims of the hooks before `end`.
void unclaim(const HookFile *file, const FileHook *end) {
    for (const FileHook *hook = file->first; hook != end; hook = hook->next) {
        Slot *const slot = probe(s_table, hook->id);
        publish(slot->fromFile, static_cast<const tavDBMHook *>(nullptr));
        slot->claimedBy = nullptr;
    }
}

/// A table and all that it has replaced.
void freeTables(Table *table) {
    while (table != nullptr) {
        Table *const older = table->older;
        tavOSWOrgFreeMemPart(0, table);
        table = older;
    }
}

bool isOfFile(const HookFile *file, const FileHook *wanted) {
    for (const FileHook *hook = file->first; hook != nullptr; hook = hook->next)
        if (hook == wanted)
            return true;
    return false;
}

const tavDBMHook *hookOf(const Slot &slot) {
    const tavDBMHook *const registered = acquire(slot.registered);
    return registered != nullptr ? registered : acquire(slot.fromFile);
}

}  // namespace

const tavDBMHook *lookUpHook(uint32_t id) {
    Table *const table = acquire(s_table);
    if (table == nullptr || id == 0)
        return nullptr;
    return hookOf(*probe(table, id));
}

bool registerHook(uint32_t id, const tavDBMHook *hook) {
    if (hook == nullptr) {
        if (s_table != nullptr && probe(s_table, id)->id == id)
            publish(probe(s_table, id)->registered, static_cast<const tavDBMHook *>(nullptr));
        return true;
    }
    if (!reserve(1))
        return false;
    Slot *const slot = slotFor(id);
    const Version *const version = versionOf(slot, *hook);
    if (version == nullptr)
        return false;
    publish(slot->registered, &version->hook);
    return true;
}

Claim claimIds(const HookFile *file, const FileHook **refused) {
    if (!reserve(file->hookCount))
        return Claim::noMemory;
    for (const FileHook *hook = file->first; hook != nullptr; hook = hook->next) {
        Slot *const slot = slotFor(hook->id);
        if (slot->claimedBy != nullptr) {
            const Claim reason = isOfFile(file, slot->claimedBy) ? Claim::twiceInFile : Claim::otherFile;
            unclaim(file, hook);
            *refused = hook;
            return reason;
        }
        slot->claimedBy = hook;
    }
    return Claim::granted;
}

void publishHooks(const HookFile *file) {
    for (const FileHook *hook = file->first; hook != nullptr; hook = hook->next)
        publish(probe(s_table, hook->id)->fromFile, &hook->hook);
}

void withdrawHooks(const HookFile *file) {
    unclaim(file, nullptr);
}

void forgetReplaced() {
    if (s_table == nullptr)
        return;
    for (uint32_t i = 0; i < s_table->capacity; i++)
        forgetVersions(slotsOf(s_table) + i);
    freeTables(s_table->older);
    s_table->older = nullptr;
    if (countLiveIds() == 0) {
        freeTables(s_table);
        publish(s_table, static_cast<Table *>(nullptr));
    }
}

uint32_t visitHooks(void (*visit)(uint32_t id, const tavDBMHook *hook, void *visitor), void *visitor) {
    if (s_table == nullptr)
        return 0;
    for (uint32_t i = 0; i < s_table->capacity; i++) {
        const Slot &slot = slotsOf(s_table)[i];
        if (slot.id != 0 && hookOf(slot) != nullptr)
            visit(slot.id, hookOf(slot), visitor);
    }
    return sizeOf(s_table->capacity);
}

}  // namespace tavdb
