// SPDX-License-Identifier: Apache-2.0
// The one door to a medium: open, one transfer, close. OpenMedium does the three
// steps; readRecord and writeRecord add what every record has in common: finding
// the medium through the session's database, and reporting failures with the
// codes of the record's module.
#pragma once

#include <errno.h>
#include <unistd.h>

#include <cstdint>

#include "control/db_trace.h"
#include "tavdb_modules.h"

namespace tavdb {

/// A medium opened for one transfer and closed at the end of its scope.
class OpenMedium {
public:
    explicit OpenMedium(const tavDBMMediaEntry &entry)
        : entry_(entry),
          fd_(call([&](uint32_t *error) { return entry.open(entry.hint, entry.openArg, error); })),
          isOpen_(fd_ >= 0) {}
    ~OpenMedium() {
        close();
    }
    OpenMedium(const OpenMedium &) = delete;
    OpenMedium &operator=(const OpenMedium &) = delete;

    bool failed() const {
        return fd_ < 0;
    }
    int32_t descriptor() const {
        return fd_;
    }
    uint32_t error() const {
        return error_;
    }

    /// @return the bytes read, -1 when the transfer failed; a count that cannot be true is a failure
    int32_t read(void *buffer, int32_t length, uint32_t offset) {
        if (length < 0 || buffer == nullptr)
            return refuse(length < 0 ? EINVAL : EFAULT);
        return plausible(call([&](uint32_t *error) { return entry_.read(fd_, buffer, length, offset, error); }),
                         length);
    }
    /// @return the bytes written, -1 as for read
    int32_t write(const void *data, int32_t length, uint32_t offset) {
        if (length < 0 || data == nullptr)
            return refuse(length < 0 ? EINVAL : EFAULT);
        return plausible(call([&](uint32_t *error) { return entry_.write(fd_, data, length, offset, error); }), length);
    }
    /// A transfer that must not reach the medium. @return -1
    int32_t refuse(uint32_t error) {
        error_ = error;
        return -1;
    }
    /// @return the medium's length in bytes, or -1
    int32_t seekEnd() {
        isOpen_ = true;
        return call([&](uint32_t *error) { return entry_.lseek(fd_, 0, SEEK_END, error); });
    }
    /// @return the close's result; 0 when there is nothing to close
    int32_t close() {
        if (!isOpen_)
            return 0;
        isOpen_ = false;
        return call([&](uint32_t *error) { return entry_.close(fd_, error); });
    }

private:
    /// The medium gets the address of a copy of the error word: the object itself can then stay in registers.
    template <typename Function>
    int32_t call(Function function) {
        uint32_t error = error_;
        const int32_t result = function(&error);
        error_ = error;
        return result;
    }
    static int32_t plausible(int32_t count, int32_t length) {
        return count <= length ? count : -1;
    }

    const tavDBMMediaEntry &entry_;
    uint32_t error_ = 0;
    int32_t fd_;
    bool isOpen_;
};

/// What the fields of a record kind's trace lines are.
enum class TraceFields : uint8_t {
    keys,   ///< key, lengths and counts, error number
    errors  ///< error number and count only
};

/// How the records of one module are reached and how their failures are named.
struct RecordKind {
    uint32_t tavDBMDescription::*media;  ///< which medium holds them
    int32_t openCode;
    int32_t readCode;
    int32_t writeCode;
    TraceFields traceFields;
    bool acceptsShortRead;  ///< only a negative count is a failure
    bool clearsError;       ///< a full write clears the session's error
    bool tracesMedium;      ///< a medium that cannot be had is traced here as well
    bool tracesHint;        ///< a failed write names the medium in a second line
    bool detailIsErrno;     ///< of a short write; else the medium's error word
};

/// The sites of an access follow each other, in this order.
enum AccessStep : int32_t { kNoDatabase, kNoMedium, kNoKey, kNotOpened, kTransfer, kHint, kAccessSteps };

/// Behind them, where a slot is reserved.
enum ReserveStep : int32_t { kNoSlot = kAccessSteps, kNoBuffer };

/// The id of the medium that holds a session's records. @return false with NOT_OPEN recorded
bool findMediaId(tavDBMSession *session, const RecordKind &kind, uint32_t key, Site site, int32_t &mediaId);

/// A medium and its id.
struct FoundMedium {
    const tavDBMMediaEntry *entry;  ///< null when it cannot be had
    int32_t id;
};

/// The medium that holds a session's records; without one the failure is recorded.
FoundMedium findMedium(tavDBMSession *session, const RecordKind &kind, uint32_t key, Site site);

/// Reports a medium that did not open, by what its open function gave. @return the kind's code
[[gnu::cold]] int32_t failOpen(tavDBMSession *session, const RecordKind &kind, uint32_t key, int32_t descriptor,
                               uint32_t error, Site site);
inline int32_t failOpen(tavDBMSession *session, const RecordKind &kind, uint32_t key, const OpenMedium &medium,
                        Site site) {
    return failOpen(session, kind, key, medium.descriptor(), medium.error(), site);
}

/// How one function reads or writes its records. A constant for each, so that a call hands over one address.
struct RecordAccess {
    const RecordKind &kind;
    int32_t sizeBytes;
    Site site;
    /// In reads, records key 0 as a failure before the medium is opened; null: what stands there is read.
    void (*refuseKey0)(tavDBMSession *session, Site site) = nullptr;
};

/// Reads the record at key. @return buffer, or null with the failure recorded
void *readRecord(tavDBMSession *session, const RecordAccess &access, uint32_t key, void *buffer);

/// Whether flst_m_get gave a slot: offset 0 is the medium's header and never one.
inline bool isSlot(uint32_t key) {
    return key != 0 && key != UINT32_MAX;
}

/// Whether a caller's buffer is there; without one NULL_ARGUMENT is recorded.
bool hasBuffer(tavDBMSession *session, const void *buffer, Site site);

/// What became of a write.
struct Written {
    int32_t code;    ///< 0, or the code in the session
    int32_t closed;  ///< the close's result, or code when the medium was not opened
};

/// The key of a record: the first word of every kind; 0 without a record.
inline uint32_t recordKey(const void *record) {
    return record != nullptr ? *static_cast<const uint32_t *>(record) : 0;
}

/// Writes a record at its own key.
Written writeRecord(tavDBMSession *session, const RecordAccess &access, const void *record);

/// Writes sizeBytes at key.
Written writeAt(tavDBMSession *session, const RecordKind &kind, uint32_t key, const void *data, int32_t sizeBytes,
                Site site);

/// Writes on a medium that is open already. @return 0, or the kind's code recorded
int32_t writeTo(OpenMedium &medium, const tavDBMMediaEntry &entry, tavDBMSession *session, const RecordKind &kind,
                uint32_t key, const void *record, int32_t sizeBytes, Site site);

}  // namespace tavdb
