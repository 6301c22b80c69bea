// SPDX-License-Identifier: Apache-2.0
// What the files of the component module share: how component records are
// reached, and the walk along a chain of siblings.
#pragma once

#include "storage/db_cycle.h"
#include "storage/db_medium_access.h"
#include "tavdb_modules.h"

namespace tavdb {

inline constexpr RecordKind kComponentRecord = {
    .media = &tavDBMDescription::componentMedia,
    .openCode = TAVDB_ERR_COMPONENT_OPEN,
    .readCode = TAVDB_ERR_COMPONENT_READ,
    .writeCode = TAVDB_ERR_COMPONENT_WRITE,
    .traceFields = TraceFields::keys,
    .acceptsShortRead = false,
    .clearsError = false,
    .tracesMedium = true,
    .tracesHint = true,
    .detailIsErrno = false,
};

/// Fails with "neither node nor leaf".
inline int32_t failKind(tavDBMSession *session, const tavDBMComponent &component, Site site) {
    return fail(session, TAVDB_ERR_KIND, 0, site, component.key, component.kind);
}

/// Comes by the components of a chain in order, until `visit` returns true or the chain ends.
/// @return the component that `visit` stopped at, or 0
template <typename Visit>
uint32_t walkSiblings(tavDBMSession *session, uint32_t first, Site circle, Visit visit) {
    CycleGuard guard(circle);
    uint32_t key = first;
    while (key != 0 && !guard.meetsAgain(key)) {
        if (visit(key))
            return key;
        key = comp_getNextSibling(session, key);
    }
    return 0;
}

}  // namespace tavdb
