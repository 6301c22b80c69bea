// SPDX-License-Identifier: Apache-2.0
// The names of components: their entries and what these say about their texts.
// Where the texts overlap something is looked at elsewhere.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "image/bench.h"
#include "image/check_tree.h"

namespace tavdb::image {

class NameCheck {
public:
    explicit NameCheck(Bench &place) : bench(place) {}

    void run(const TreeCheck &tree);

private:
    bool accept(const FoundAt &owner, uint32_t key);
    bool acceptEntry(const FoundAt &owner, uint32_t key, const tavDBMString &entry);
    bool lose(const FoundAt &owner, uint32_t key, const std::string &what, Gravity gravity = Gravity::damage);
    void keep(const FoundAt &at, tavDBMString entry);
    std::optional<std::string> faultOf(const tavDBMString &entry) const;
    std::optional<tavDBMString> mended(const tavDBMString &entry) const;

    Bench &bench;
    std::map<uint32_t, bool> judged;  ///< entries by key: components may share one
};

/// The text that an entry refers to, up to its first NUL; the entry is sound.
std::string textOf(const RawImages &images, uint32_t stringKey);

}  // namespace tavdb::image
