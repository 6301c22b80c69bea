// SPDX-License-Identifier: Apache-2.0
#include "image/tree_edit.h"

#include "image/library_call.h"

namespace tavdb::image {

namespace {

/// Sets the link that leads to a place.
Status linkAt(Database &database, const Place &place, uint32_t component) {
    return place.previous != 0 ? callLibrary(database, comp_setNextSibling, place.previous, component)
                               : callLibrary(database, comp_setFirstChild, place.parent, component);
}

Status writeHeader(Database &database, const tavDBMComponent &header) {
    return callLibrary(database, comp_setComponent, static_cast<const void *>(&header));
}

/// The fault of a write, or of taking back those before it, which is worse.
Fault afterUndoing(Fault fault, const Status &undoing) {
    if (undoing)
        fault = {FaultKind::damaged, fault.sentence + "; the component could not be put back: " + undoing->sentence,
                 fault.code, fault.detail};
    return fault;
}

}  // namespace

Result<Place> placeOf(Database &database, const Located &component) {
    const auto parentBytes = component.path.size() - component.component.name.size() - 1;
    const auto parent = locate(database, parentBytes == 0 ? "/" : component.path.substr(0, parentBytes));
    if (!parent)
        return Result<Place>::bad(parent.error);
    Place place{parent.value->component.key, 0, 0};
    bool isFound = false;
    Visited visited;
    const auto fault = forEachChild(database, parent.value->component, visited, [&](const StoredComponent &at) {
        isFound = at.key == component.component.key;
        (isFound ? place.next : place.previous) = isFound ? at.next : at.key;
        return !isFound;
    });
    if (isFound)
        return Result<Place>::good(place);
    return Result<Place>::bad(fault.value_or(damaged("another component of the same name hides its parent")));
}

Status unlinkAt(Database &database, const Place &place) {
    return linkAt(database, place, place.next);
}

Status moveComponent(Database &database, const Move &move) {
    tavDBMComponent before = {};
    if (comp_getComponent(database.cleared(), move.component, &before) == nullptr)
        return database.knownFault();
    auto after = before;
    after.parent = move.to.parent;
    after.next = move.to.next;
    after.name = move.nameKey;
    if (auto fault = unlinkAt(database, move.from))
        return fault;
    // The record says all before a link leads to it.
    if (auto fault = writeHeader(database, after))
        return afterUndoing(std::move(*fault), linkAt(database, move.from, move.component));
    auto fault = linkAt(database, move.to, move.component);
    if (!fault)
        return std::nullopt;
    auto undoing = writeHeader(database, before);
    if (!undoing)
        undoing = linkAt(database, move.from, move.component);
    return afterUndoing(std::move(*fault), undoing);
}

}  // namespace tavdb::image
