// SPDX-License-Identifier: Apache-2.0
// The byte-order setting and the reversal of 32-bit words. Stored words are
// memory images of this machine; only the writer of free blocks asks.
#include <stdlib.h>
#include <string.h>

#include <cstdint>

#include "tavdb_modules.h"

namespace {

uint32_t reversedWord(const void *bytes) {
    uint32_t word = 0;
    memcpy(&word, bytes, sizeof word);
    return __builtin_bswap32(word);
}

}  // namespace

int32_t boadj_judge() {
    return 0;
}

int32_t boadj_type() {
    const char *const setting = getenv("SIM_BYTE_ORDER");
    if (setting == nullptr)
        return boadj_judge() != 0 ? 1 : 0;
    return strcmp(setting, "LITTLE_ENDIAN") == 0 ? 1 : 0;
}

void boadj_word(void *word, int32_t keep) {
    const uint32_t reversed = reversedWord(word);
    if (keep == 0)
        memcpy(word, &reversed, sizeof reversed);
}

void boadj_wordx2(void *source, int32_t keep, void *destination) {
    if (destination == nullptr)
        __builtin_trap();  // deliberate: the little-endian setting ends the process here, before anything is written
    const uint32_t reversed[2] = {reversedWord(source), reversedWord(static_cast<uint8_t *>(source) + 4)};
    if (keep == 0)
        memcpy(source, reversed, sizeof reversed);
    memcpy(destination, reversed, sizeof reversed);
}
