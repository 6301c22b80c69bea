// SPDX-License-Identifier: Apache-2.0
#include "storage/db_medium_access.h"

#include "control/db_control.h"

namespace tavdb {

namespace {

void traceTransfer(const RecordKind &kind, uint32_t key, int32_t sizeBytes, int32_t count, uint32_t error, Site site) {
    if (kind.traceFields == TraceFields::errors)
        traceError(site + kTransfer, error, count);
    else
        traceError(site + kTransfer, key, sizeBytes, count, error);
}

void traceMedium(const RecordKind &kind, uint32_t key, Site site) {
    if (kind.traceFields == TraceFields::errors)
        traceError(site + kNoMedium);
    else
        traceError(site + kNoMedium, key);
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
    if (kind.traceFields == TraceFields::errors)
        traceError(site + kNoDatabase);
    else
        traceError(site + kNoDatabase, key, session != nullptr ? session->dbId : 0);
    session_setError(session, TAVDB_ERR_NOT_OPEN, 0);
    return false;
}

FoundMedium findMedium(tavDBMSession *session, const RecordKind &kind, uint32_t key, Site site) {
    FoundMedium found = {nullptr, 0};
    if (!findMediaId(session, kind, key, site, found.id))
        return found;
    found.entry = getMedia(session, found.id);
    if (found.entry == nullptr && kind.tracesMedium)
        traceMedium(kind, key, site);
    return found;
}

int32_t failOpen(tavDBMSession *session, const RecordKind &kind, uint32_t key, const OpenMedium &medium, Site site) {
    if (kind.traceFields == TraceFields::errors)
        traceError(site + kNotOpened, medium.error(), medium.descriptor());
    else
        traceError(site + kNotOpened, key, medium.descriptor(), medium.error());
    return session_setError(session, kind.openCode, medium.error());
}

void *readFrom(const tavDBMMediaEntry &entry, tavDBMSession *session, const RecordKind &kind, uint32_t key,
               void *buffer, int32_t sizeBytes, Site site) {
    OpenMedium medium(entry);
    if (medium.failed()) {
        failOpen(session, kind, key, medium, site);
        return nullptr;
    }
    const int32_t count = medium.read(buffer, sizeBytes, key);
    if (count == sizeBytes || (count >= 0 && kind.acceptsShortRead))
        return buffer;
    traceTransfer(kind, key, sizeBytes, count, medium.error(), site);
    session_setError(session, kind.readCode, medium.error());
    return nullptr;
}

void *readRecord(tavDBMSession *session, const RecordKind &kind, uint32_t key, void *buffer, int32_t sizeBytes,
                 Site site) {
    const tavDBMMediaEntry *const entry = findMedium(session, kind, key, site).entry;
    return entry != nullptr ? readFrom(*entry, session, kind, key, buffer, sizeBytes, site) : nullptr;
}

Written writeRecord(tavDBMSession *session, const RecordKind &kind, const void *record, int32_t sizeBytes, Site site) {
    return writeAt(session, kind, recordKey(record), record, sizeBytes, site);
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
