// SPDX-License-Identifier: Apache-2.0
#include "mediafile/hint_text.h"

#include <errno.h>

#include "tavdb_platform.h"

namespace tavdb {

int HintText::keep(const char *text) {
    const size_t length = strlen(text);
    const size_t wordsBefore = length / sizeof(Word);
    const size_t sizeBytes = (wordsBefore + 1) * sizeof(Word);
    auto *const words = static_cast<Word *>(tavOSWSubAllocMem(static_cast<uint32_t>(sizeBytes)));
    if (words == nullptr)
        return ENOMEM;
    memset(words, 0, sizeBytes);
    memcpy(words, text, length);
    words_ = words;
    last_ = words + wordsBefore;
    lastMask_ = 0;
    memset(&lastMask_, 0xff, length % sizeof(Word) + 1);
    return 0;
}

void HintText::forget() {
    if (words_ != nullptr)
        tavOSWOrgFreeMemPart(0, words_);
    words_ = nullptr;
}

}  // namespace tavdb
