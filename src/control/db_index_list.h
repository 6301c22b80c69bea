// SPDX-License-Identifier: Apache-2.0
// Lists inside a table that processes share: records linked by their index, 0
// ends a list. An index read from the table is never trusted: one outside the
// capacity ends a list, and no walk is longer than the capacity.
//
// Every change is ordered so that a process that dies between two stores leaves
// each list well-formed; only a record that was on its way from one list to the
// other is then in none, which mend() repairs. The caller holds the table's mutex.
#pragma once

#include <cstdint>

namespace tavdb {

/// A store that must not move in front of the stores before it.
inline void publish(uint32_t &word, uint32_t value) {
    __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

/// The records 1 to Capacity of an array, linked through their member `next`.
template <typename Record, uint32_t Capacity>
class IndexList {
public:
    IndexList(Record *records, uint32_t &head) : records_(records), head_(head) {}

    static bool valid(uint32_t index) {
        return index >= 1 && index <= Capacity;
    }

    Record *first() const {
        return at(head_);
    }
    Record *at(uint32_t index) const {
        return valid(index) ? &records_[index] : nullptr;
    }

    /// The first record that matches, with the index in front of it (0 for the first one), or null.
    template <typename Match>
    Record *find(Match match, uint32_t *predecessor = nullptr) const {
        uint32_t before = 0;
        uint32_t index = head_;
        for (uint32_t steps = 0; valid(index) && steps < Capacity; steps++) {
            if (match(records_[index])) {
                if (predecessor != nullptr)
                    *predecessor = before;
                return &records_[index];
            }
            before = index;
            index = records_[index].next;
        }
        return nullptr;
    }

    void pushFront(uint32_t index) {
        if (!valid(index))
            return;
        records_[index].next = head_;
        publish(head_, index);
    }

    /// Takes a record out, given the one in front of it (0 for the first one).
    Record *remove(uint32_t index, uint32_t predecessor) {
        Record *const record = at(index);
        if (record == nullptr)
            return nullptr;
        Record *const before = at(predecessor);
        publish(before != nullptr ? before->next : head_, record->next);
        return record;
    }

    uint32_t indexOf(const Record *record) const {
        return static_cast<uint32_t>(record - records_);
    }

protected:
    Record *records_;
    uint32_t &head_;
};

/// A list that records leave at its head and join at its tail.
template <typename Record, uint32_t Capacity>
class IndexQueue : public IndexList<Record, Capacity> {
    using List = IndexList<Record, Capacity>;

public:
    IndexQueue(Record *records, uint32_t &head, uint32_t &tail) : List(records, head), tail_(tail) {}

    Record *popFront() {
        Record *const record = this->first();
        if (record == nullptr)
            return nullptr;
        const bool wasLast = this->head_ == tail_;
        publish(this->head_, record->next);
        if (wasLast)
            tail_ = 0;
        return record;
    }

    void pushBack(uint32_t index) {
        Record *const record = this->at(index);
        if (record == nullptr)
            return;
        record->next = 0;
        Record *const last = this->at(tail_);
        publish(last != nullptr ? last->next : this->head_, index);
        tail_ = index;
    }

    /// Chains the records 1 to count - 1 in ascending order and makes them the queue.
    void fill(uint32_t count) {
        const uint32_t last = count > Capacity ? Capacity : count - 1;
        if (count < 2)
            return;
        for (uint32_t index = 1; index <= last; index++)
            this->records_[index].next = index < last ? index + 1 : 0;
        tail_ = last;
        publish(this->head_, 1);
    }

private:
    uint32_t &tail_;
};

/// Mends both lists of a table whose mutex holder died: the used list keeps the
/// records that it reaches and that `inUse` confirms, all others become free.
template <typename Record, uint32_t Capacity, typename InUse>
void mend(Record *records, uint32_t &usedHead, uint32_t &freeHead, uint32_t &freeTail, InUse inUse) {
    using List = IndexList<Record, Capacity>;
    uint32_t kept[Capacity / 32 + 1] = {};
    uint32_t *link = &usedHead;
    uint32_t index = usedHead;
    for (uint32_t steps = 0; List::valid(index) && steps < Capacity; steps++) {
        if ((kept[index / 32] >> (index % 32) & 1) != 0)
            break;
        if (inUse(records[index])) {
            kept[index / 32] |= 1u << (index % 32);
            *link = index;
            link = &records[index].next;
        }
        index = records[index].next;
    }
    *link = 0;

    uint32_t first = 0;
    uint32_t last = 0;
    for (uint32_t i = Capacity; i >= 1; i--) {
        if ((kept[i / 32] >> (i % 32) & 1) != 0)
            continue;
        records[i].next = first;
        first = i;
        last = last == 0 ? i : last;
    }
    freeTail = last;
    publish(freeHead, first);
}

}  // namespace tavdb
