// SPDX-License-Identifier: Apache-2.0
// The text of a hint, kept so that another one is compared with it a word at a
// time: every open of a memory medium compares one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tavdb {

class HintText {
public:
    /// Keeps a copy of a text. @return 0 or an error number
    int keep(const char *text);
    void forget();
    const char *text() const {
        return reinterpret_cast<const char *>(words_);
    }

    /// Whether a text stands where its words can be compared, as allocated memory does.
    static bool isComparable(const char *other) {
        return reinterpret_cast<uintptr_t>(other) % sizeof(Word) == 0;
    }
    /// Whether both texts are the same; the other one is comparable. Reads its words up to that with its end: it lies
    /// on one page with the end, so that the bytes behind the end can be read, and they are ignored.
    [[gnu::no_sanitize_address]] bool equals(const char *other) const {
        const auto *theirs = reinterpret_cast<const Word *>(other);
        const Word *ours = words_;
        for (; ours != last_; ours++, theirs++)
            if (*theirs != *ours)  // also where the other text ends
                return false;
        return (*theirs & lastMask_) == *ours;
    }

private:
    typedef size_t Word __attribute__((may_alias));

    Word *words_ = nullptr;  ///< zeroes behind the text
    Word *last_ = nullptr;   ///< the word with its end
    Word lastMask_ = 0;      ///< ones over the bytes of the last word that belong to the text, its end among them
};

}  // namespace tavdb
