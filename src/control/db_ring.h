// SPDX-License-Identifier: Apache-2.0
// Diagnostic rings: the last failures of one kind, kept for the dump. A record
// is a row of words that begins with a sequence number and a kind; a kind of 0
// marks an empty record.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavdb {

/// Words of the longest record.
inline constexpr uint32_t kRingWordsMax = 11;

void traceRingRecord(int32_t level, const uint32_t *words, uint32_t count);

/// Where a ring writes next; only the first 64 slots are ever used.
struct RingPosition {
    uint32_t index;
    uint32_t sequence;

    void advance() {
        index = index + 1 > 63 ? 0 : index + 1;
        sequence = sequence + 1 > 999 ? 1 : sequence + 1;
    }
};

/// @tparam Words of a record, sequence number and kind included
template <uint32_t Words, uint32_t Slots>
struct DiagnosticRing {
    static_assert(Words <= kRingWordsMax && Slots >= 64);

    RingPosition position;
    uint32_t record[Slots][Words];

    template <typename... Fields>
    [[gnu::cold, gnu::noinline]] void put(uint32_t kind, Fields... fields) {
        static_assert(sizeof...(fields) == Words - 2);
        position.advance();
        const uint32_t words[Words] = {position.sequence, kind, static_cast<uint32_t>(fields)...};
        for (uint32_t i = 0; i < Words; i++)
            record[position.index][i] = words[i];
    }

    void dump(int32_t level) const {
        for (const auto &words : record)
            if (words[1] != 0)
                traceRingRecord(level, words, Words);
    }
};

}  // namespace tavdb
