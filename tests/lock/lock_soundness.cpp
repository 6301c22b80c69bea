// SPDX-License-Identifier: Apache-2.0
#include "lock/lock_soundness.h"

#include <set>

namespace tavdb_test {

namespace {

testing::AssertionResult notSound(const std::string &what, uint32_t index) {
    return testing::AssertionFailure() << what << " at entry " << index;
}

bool isBehind(const tavDBMLockEntry &entry, const tavDBMLockEntry &previous) {
    if (entry.dbId != previous.dbId)
        return entry.dbId > previous.dbId;
    return entry.component >= previous.component;
}

/// Follows the list of locks and notes its entries.
testing::AssertionResult walkLocks(const tavDBMLockTable &table, std::set<uint32_t> &seen) {
    uint32_t previous = 0;
    for (uint32_t index = table.first; index != 0; index = table.entry[index].next) {
        if (index > kLockCapacity || !seen.insert(index).second)
            return notSound("the lock list leaves the table or loops", index);
        if (table.entry[index].prev != previous)
            return notSound("a wrong prev", index);
        if (previous != 0 && !isBehind(table.entry[index], table.entry[previous]))
            return notSound("the lock list is not sorted", index);
        previous = index;
    }
    if (table.last != previous)
        return notSound("the list's last is not its last", table.last);
    return testing::AssertionSuccess();
}

}  // namespace

testing::AssertionResult isSound(const tavDBMLockTable &table) {
    std::set<uint32_t> seen;
    if (const testing::AssertionResult walked = walkLocks(table, seen); !walked)
        return walked;
    for (uint32_t index = table.freeHead; index != 0; index = table.entry[index].next) {
        if (index > kLockCapacity || !seen.insert(index).second)
            return notSound("the free list leaves the table, loops, or holds a lock", index);
    }
    if (seen.size() != kLockCapacity)
        return testing::AssertionFailure() << seen.size() << " entries are in a list";
    return testing::AssertionSuccess();
}

}  // namespace tavdb_test
