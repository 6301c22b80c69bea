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

    /// Whether both texts are the same. Reads whole aligned words of the other one, up to that with its end:
    /// such a word lies on one page with the end, so that the bytes behind it can be read, and they are ignored.
    [[gnu::no_sanitize_address]] bool equals(const char *other) const {
        if (reinterpret_cast<uintptr_t>(other) % sizeof(Word) != 0)
            return strcmp(text(), other) == 0;
        const auto *const theirs = reinterpret_cast<const Word *>(other);
        for (size_t i = 0; i < fullWords_; i++)
            if (theirs[i] != words_[i])  // also where the other text ends
                return false;
        return (theirs[fullWords_] & lastMask_) == words_[fullWords_];
    }

private:
    typedef size_t Word __attribute__((may_alias));

    Word *words_ = nullptr;  ///< zeroes behind the text
    size_t fullWords_ = 0;   ///< without a byte of its end
    Word lastMask_ = 0;      ///< ones over the bytes of the text in the next word, its end among them
};

}  // namespace tavdb
