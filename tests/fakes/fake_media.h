// SPDX-License-Identifier: Apache-2.0
// Media in a test: byte images in memory, named by their hints and made by the
// test. All built-in media functions work on them in the same way. Notices the
// use of a closed descriptor and arguments that no medium should be given.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "fakes/byte_text.h"
#include "fakes/event_log.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {

/// The bytes of all media, by hint.
using MediaImage = std::map<std::string, Bytes>;

class FakeMedia {
public:
    /// A medium without a limit of its own ends here, so that a wild offset fills no memory.
    static constexpr uint64_t kLargestMedium = 16U << 20;
    static constexpr uint32_t kHeaderSize = 16;
    /// The words that belong to the preparer of a medium of records.
    static constexpr uint32_t kPreparer[2] = {0xA1B2C3D4, 0x5E6F7081};

    /// @name What a test does; an unknown hint fails the test
    /// @{
    void create(const std::string &hint, Bytes content = {}, uint64_t capacity = kLargestMedium);
    /// An empty medium of records: its header, and one free block that covers the rest. It cannot grow.
    void createForRecords(const std::string &hint, uint32_t size);
    void remove(const std::string &hint);
    void setCapacity(const std::string &hint, uint64_t capacity);
    Bytes snapshot(const std::string &hint) const;
    /// Puts a snapshot back.
    void restore(const std::string &hint, Bytes content);
    MediaImage snapshotAll() const;
    /// Puts back all media of the image; those made since are removed.
    void restoreAll(const MediaImage &image);
    /// What differs from the image, as "value.med 24: 00 01 -> ff fe".
    std::vector<std::string> changesSince(const MediaImage &image) const;
    size_t sizeOf(const std::string &hint) const;
    Bytes bytesAt(const std::string &hint, size_t offset, size_t length) const;
    void setBytesAt(const std::string &hint, size_t offset, const Bytes &bytes);

    template <typename Record>
    Record recordAt(const std::string &hint, size_t offset) const {
        static_assert(std::is_trivially_copyable_v<Record>);
        Record record{};
        const Bytes bytes = bytesAt(hint, offset, sizeof(record));
        memcpy(&record, bytes.data(), bytes.size());
        return record;
    }
    template <typename Record>
    void setRecordAt(const std::string &hint, size_t offset, const Record &record) {
        setBytesAt(hint, offset, bytesOf(record));
    }
    uint32_t wordAt(const std::string &hint, size_t offset) const {
        return recordAt<uint32_t>(hint, offset);
    }
    void setWordAt(const std::string &hint, size_t offset, uint32_t word) {
        setRecordAt(hint, offset, word);
    }

    /// Hints of the descriptors that are open now.
    std::vector<std::string> openDescriptors() const;
    /// Forgets everything between two tests.
    void reset();
    /// @}

    /// @name The media functions, told by the name under which they were called
    /// @{
    int32_t init(const char *path, uint32_t arg);
    int32_t open(const char *function, const char *hint, uint32_t openArg, uint32_t *err);
    int32_t openReadOnly(const char *function, const char *hint, uint32_t openArg, uint32_t *err);
    int32_t close(const char *function, int32_t fd, uint32_t *err);
    int32_t read(const char *function, int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err);
    int32_t write(const char *function, int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err);
    int32_t seek(const char *function, int32_t fd, int32_t offset, int32_t whence, uint32_t *err);
    int32_t sync(const char *function, int32_t fd, uint32_t *err, uint32_t arg);
    /// @}

private:
    struct Medium {
        Bytes bytes;
        uint64_t capacity;
    };
    struct Descriptor {
        std::string hint;
        bool readOnly;
        int64_t position = 0;
    };

    const Medium *mediumOf(const std::string &hint) const;
    Medium *mediumOf(const std::string &hint);
    int32_t openAs(bool readOnly, const char *function, const char *hint, uint32_t openArg, uint32_t *err);
    Descriptor *find(Event &event);
    void performRead(Event &event, void *buffer);
    void performWrite(Event &event, const void *buffer);
    void performSeek(Event &event, int32_t offset);

    mutable std::mutex mutex_;
    std::map<std::string, Medium> media_;
    std::map<int32_t, Descriptor> open_;
    std::set<int32_t> injected_;  ///< results of open that a fault plan gave
    int32_t nextDescriptor_ = 0;  ///< never used twice, so that a closed one is known
};

/// The media of this process.
FakeMedia &fakeMedia();

}  // namespace tavdb_test
