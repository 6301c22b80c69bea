// SPDX-License-Identifier: Apache-2.0
// How constraint records are reached: the codes of their accesses, and the
// reserving and writing of a new one.
#pragma once

#include "storage/db_medium_access.h"

namespace tavdb {

/// The 8-byte header and the element arrays.
inline constexpr RecordKind kConstraintHeader = {
    .media = &tavDBMDescription::constraintMedia,
    .openCode = TAVDB_ERR_CONSTRAINT_OPEN,
    .readCode = TAVDB_ERR_CONSTRAINT_READ,
    .writeCode = TAVDB_ERR_CONSTRAINT_WRITE,
    .traceFields = TraceFields::keys,
    .acceptsShortRead = false,
    .clearsError = true,
    .tracesMedium = false,
    .tracesHint = false,
    .detailIsErrno = false,
};

/// A whole range or enumeration record: as the header, but a short write is explained by errno.
inline constexpr RecordKind kTypedConstraint = [] {
    RecordKind kind = kConstraintHeader;
    kind.detailIsErrno = true;
    return kind;
}();

/// A record that is written for the first time: the session's error stays as it is.
inline constexpr RecordKind kNewConstraint = [] {
    RecordKind kind = kTypedConstraint;
    kind.clearsError = false;
    return kind;
}();

/// Reserves sizeBytes on the constraint medium for the caller's `record` and runs `use(medium, entry, key)`,
/// which gives the result, while the medium is still open. @return null with the failure recorded
template <typename Use>
void *reserveConstraint(tavDBMSession *session, const void *record, uint32_t sizeBytes, Site site, Use use) {
    if (!hasBuffer(session, record, site))
        return nullptr;
    const FoundMedium found = findMedium(session, kConstraintHeader, 0, site);
    if (found.entry == nullptr)
        return nullptr;
    OpenMedium medium(*found.entry);
    if (medium.failed()) {
        failOpen(session, kConstraintHeader, 0, medium, site);
        return nullptr;
    }
    const uint32_t key = flst_m_get(session, found.id, sizeBytes);
    if (isSlot(key))
        return use(medium, *found.entry, key);
    medium.close();
    const int error = errno;
    fail(session, TAVDB_ERR_CONSTRAINT_SLOT, static_cast<uint32_t>(error), site + kNoSlot, sizeBytes, error);
    return nullptr;
}

/// Reserves a slot for a whole record, stores the key as its first word and writes it.
/// @return the record, or null with the failure recorded
void *newConstraint(tavDBMSession *session, void *record, int32_t sizeBytes, Site site);

}  // namespace tavdb
