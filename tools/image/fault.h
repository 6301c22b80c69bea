// SPDX-License-Identifier: Apache-2.0
// Why something could not be done: what kind of fault it is, and one sentence
// for people. Codes of the library and error numbers of the system become such a
// fault here and nowhere else.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "image/outcome.h"

namespace tavdb::image {

/// The numbers are the exit codes of the command.
enum class FaultKind {
    failed = 1,
    usage = 2,
    notFound = 3,
    refused = 4,  ///< a value that its leaf does not admit
    locked = 5,
    permission = 6,
    medium = 7,
    damaged = 8,
    mismatch = 9,  ///< made for another format or byte order
    hook = 10,
};

struct Fault {
    FaultKind kind = FaultKind::failed;
    std::string sentence;
    uint32_t code = 0;  ///< the library's, 0 when it had no part in it
    uint32_t detail = 0;
};

/// The fault of a database that does not hold what it should.
inline Fault damaged(std::string sentence) {
    return {FaultKind::damaged, std::move(sentence)};
}

template <typename T>
using Result = Outcome<T, Fault>;

/// Nothing when all went well.
using Status = std::optional<Fault>;

/// The fault that the library reported with a code and its detail.
Fault faultOfCode(uint32_t code, uint32_t detail);

/// The fault of a system call: "cannot be opened: Permission denied".
/// @param what the start of the sentence; the detail is the error number
Fault faultOfError(int error, const std::string &what);

/// The same fault with its place in front: "value.med: ...".
Fault faultIn(const std::string &place, Fault fault);

}  // namespace tavdb::image
