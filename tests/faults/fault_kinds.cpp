// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_kinds.h"

#include <bit>

#include "rounds.h"

namespace tavdb_test {

namespace {

using Choice = std::optional<Fault>;

Choice transferring(Operation operation, const Fault &fault) {
    return isTransfer(operation) ? Choice(fault) : std::nullopt;
}

bool isMedium(Operation operation) {
    return traitsOf(operation).category == Category::media && operation != Operation::mediaInit;
}

bool answersZero(Operation operation) {
    return operation == Operation::mediaClose || operation == Operation::mediaSync;
}

Choice silently(Operation operation) {
    Fault fault = standardFault(operation);
    fault.error = 0;
    return fault;
}

/// Eight bytes of a free list that come but for the last one are accepted. On a big-endian machine that is the low
/// byte of a size, and the list hands out another free place: the call without a fault is nothing to compare with then.
Choice shortOfOne(Operation operation) {
    const bool isRead = operation == Operation::mediaRead || operation == Operation::sysRead;
    if (isRead && std::endian::native == std::endian::big)
        return std::nullopt;
    return transferring(operation, shortBy(1, EIO));
}

constexpr FaultKind kKinds[] = {
    {"fails", [](Operation operation) -> Choice { return standardFault(operation); }},
    {"fails without an error number", silently},
    {"moves nothing", [](Operation operation) { return transferring(operation, returning(0)); }},
    {"moves one byte", [](Operation operation) { return transferring(operation, returning(1)); }},
    {"stops one byte short", shortOfOne},
    {"claims one byte more", [](Operation operation) { return transferring(operation, moreBy(1)); }},
    {"answers -2", [](Operation operation) { return isMedium(operation) ? Choice(returning(-2, EIO)) : std::nullopt; }},
    {"answers 1", [](Operation operation) { return answersZero(operation) ? Choice(returning(1)) : std::nullopt; }},
};

}  // namespace

std::span<const FaultKind> faultKinds() {
    return kKinds;
}

bool lastsHere(const FaultKind &kind) {
    return !kSlow || &kind == kKinds;
}

}  // namespace tavdb_test
