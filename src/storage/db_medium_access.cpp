// SPDX-License-Identifier: Apache-2.0
#include "storage/db_medium_access.h"

#include "control/db_control.h"
#include "storage/db_media.h"

namespace tavdb {

namespace {

void traceTransfer(const RecordKind &kind, uint32_t key, int32_t sizeBytes, int32_t count, uint32_t error, Site site) {
    if (kind.traceFields == TraceFields::errors)
        traceError(site + kTransfer, error, count);
    else
        traceError(site + kTransfer, key, sizeBytes, count, error);
}

[[gnu::cold]] void traceMedium(const RecordKind &kind, uint32_t key, Site site) {
    if (!kind.tracesMedium)
        return;
    if (kind.traceFields == TraceFields::errors)
        traceError(site + kNoMedium);
    else
        traceError(site + kNoMedium, key);
}

[[gnu::cold]] void failDatabase(tavDBMSession *session, const RecordKind &kind, uint32_t key, Site site) {
    if (kind.traceFields == TraceFields::errors)
        traceError(site + kNoDatabase);
    else
        traceError(site + kNoDatabase, key, session != nullptr ? session->dbId : 0);
    session_setError(session, TAVDB_ERR_NOT_OPEN, 0);
}

[[gnu::cold]] void *failRead(tavDBMSession *session, const RecordAccess &access, uint32_t key, int32_t count,
                             uint32_t error) {
    traceTransfer(access.kind, key, access.sizeBytes, count, error, access.site);
    session_setError(session, access.kind.readCode, error);
    return nullptr;
}

}  // namespace

bool hasBuffer(tavDBMSession *session, const void *buffer, Site site) {
    if (buffer == nullptr)
        fail(session, TAVDB_ERR_NULL_ARGUMENT, 0, site + kNoBuffer);
    return buffer != nullptr;
}

bool findMediaId(tavDBMSession *session, const RecordKind &kind, uint32_t key, Site site, int32_t &mediaId) {
    const tavDBMDescription *const description = databaseOf(session);
    if (description != nullptr) {
        mediaId = static_cast<int32_t>(description->*kind.media);
        return true;
    }
    failDatabase(session, kind, key, site);
    return false;
}

FoundMedium findMedium(tavDBMSession *session, const RecordKind &kind, uint32_t key, Site site) {
    FoundMedium found = {nullptr, 0};
    if (!findMediaId(session, kind, key, site, found.id))
        return found;
    found.entry = getMedia(session, found.id);
    if (found.entry == nullptr)
        traceMedium(kind, key, site);
    return found;
}

int32_t failOpen(tavDBMSession *session, const RecordKind &kind, uint32_t key, int32_t descriptor, uint32_t error,
                 Site site) {
    if (kind.traceFields == TraceFields::errors)
        traceError(site + kNotOpened, error, descriptor);
    else
        traceError(site + kNotOpened, key, descriptor, error);
    return session_setError(session, kind.openCode, error);
}

void *readRecord(tavDBMSession *session, const RecordAccess &access, uint32_t key, void *buffer) {
    const RecordKind &kind = access.kind;
    const tavDBMDescription *const description = databaseOf(session);
    if (description == nullptr) {
        failDatabase(session, kind, key, access.site);
        return nullptr;
    }
    const tavDBMMediaEntry *const entry = mediumOf(session, static_cast<int32_t>(description->*kind.media));
    if (entry == nullptr) {
        traceMedium(kind, key, access.site);
        return nullptr;
    }
    if (key == 0 && access.refuseKey0 != nullptr) {
        access.refuseKey0(session, access.site + kNoKey);
        return nullptr;
    }
    OpenMedium medium(*entry);
    if (medium.failed()) {
        failOpen(session, kind, key, medium, access.site);
        return nullptr;
    }
    const int32_t count = medium.read(buffer, access.sizeBytes, key);
    if (count == access.sizeBytes || (count >= 0 && kind.acceptsShortRead))
        return buffer;
    return failRead(session, access, key, count, medium.error());
}

Written writeRecord(tavDBMSession *session, const RecordAccess &access, const void *record) {
    return writeAt(session, access.kind, recordKey(record), record, access.sizeBytes, access.site);
}

Written writeAt(tavDBMSession *session, const RecordKind &kind, uint32_t key, const void *data, int32_t sizeBytes,
                Site site) {
    const tavDBMMediaEntry *const entry = findMedium(session, kind, key, site).entry;
    if (entry == nullptr)
        return {lastError(session), lastError(session)};
    OpenMedium medium(*entry);
    if (medium.failed()) {
        const int32_t code = failOpen(session, kind, key, medium, site);
        return {code, code};
    }
    const int32_t code = writeTo(medium, *entry, session, kind, key, data, sizeBytes, site);
    return {code, medium.close()};
}

int32_t writeTo(OpenMedium &medium, const tavDBMMediaEntry &entry, tavDBMSession *session, const RecordKind &kind,
                uint32_t key, const void *record, int32_t sizeBytes, Site site) {
    // the medium's header stands at offset 0 and is never overwritten by a record
    const int32_t count = key != 0 || record == nullptr ? medium.write(record, sizeBytes, key) : medium.refuse(EINVAL);
    const uint32_t detail = kind.detailIsErrno ? static_cast<uint32_t>(errno) : medium.error();
    if (count >= 0 && count == sizeBytes)
        return kind.clearsError ? session_setError(session, 0, 0) : 0;
    traceTransfer(kind, key, sizeBytes, count, detail, site);
    if (kind.tracesHint)
        traceErrorText(site + kHint, entry.hint);
    return session_setError(session, kind.writeCode, detail);
}

}  // namespace tavdb
