// SPDX-License-Identifier: Apache-2.0
// What a check of a database finds: where, what is wrong, how grave it is, and what
// a repair does about it. How findings are printed is not known here.
#pragma once

#include <cstdint>
#include <string>

namespace tavdb::image {

/// Oddities are what the library's own stated behaviour, or a process that died,
/// leaves behind: nothing reads something wrong because of them.
enum class Gravity : uint8_t { oddity, damage };

struct Finding {
    Gravity gravity = Gravity::damage;
    std::string file;         ///< "value.med", "lock.tbl"
    std::string record;       ///< "the value at 44", "slot 3"; empty: the file as a whole
    uint32_t offset = 0;      ///< of the record in the file
    uint32_t component = 0;   ///< that the record belongs to; 0: none, or it is not known
    std::string path = {};    ///< of the component as it is after a repair; may be empty
    std::string what = {};    ///< "its name, at 8, is no record: it does not name itself"
    std::string remedy = {};  ///< what repair does, "it gets the name recovered-84"
    std::string lost = {};    ///< what cannot be had back; empty: nothing
};

}  // namespace tavdb::image
