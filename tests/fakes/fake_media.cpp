// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_media.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "fakes/errno_keeper.h"
#include "fakes/home_folder.h"
#include "fakes/misuse.h"

namespace tavdb_test {

namespace {

constexpr char kMedia[] = "media";

void refuse(Event &event, int32_t error, int64_t result = -1) {
    event.result = result;
    event.error = error;
    event.failed = true;
}

void applyFault(Event &event, const Fault &fault) {
    refuse(event, fault.error, fault.resultFor(event.length));
}

/// The end of every media function: an error number goes to the caller's word, the event to the log.
int32_t finish(Event &event, uint32_t *err) {
    if (err == nullptr)
        reportMisuse(kMedia, textOf(event) + ": there is no word for an error number");
    else if (event.failed && event.error != 0)
        *err = static_cast<uint32_t>(event.error);
    eventLog().add(event);
    return static_cast<int32_t>(event.result);
}

bool isSoundTransfer(Event &event, const void *buffer) {
    if (event.length >= 0 && (buffer != nullptr || event.length == 0))
        return true;
    reportMisuse(kMedia, textOf(event) + (event.length < 0 ? ": a negative length" : ": no buffer"));
    refuse(event, EINVAL);
    return false;
}

}  // namespace

void FakeMedia::create(const std::string &hint, Bytes content, uint64_t capacity) {
    const std::lock_guard guard(mutex_);
    media_[hint] = {std::move(content), capacity};
}

void FakeMedia::createForRecords(const std::string &hint, uint32_t size) {
    constexpr uint32_t kNoRoot = 0;
    constexpr uint32_t kNoNextBlock = 0;
    Bytes content =
        bytesOf(kPreparer[0], kPreparer[1], kNoRoot, kHeaderSize, kNoNextBlock, uint32_t(size - kHeaderSize));
    if (size < content.size())
        return reportMisuse(kMedia, "a medium of records needs " + std::to_string(content.size()) + " bytes");
    content.resize(size);
    create(hint, std::move(content), size);
}

void FakeMedia::remove(const std::string &hint) {
    const std::lock_guard guard(mutex_);
    media_.erase(hint);
}

void FakeMedia::setCapacity(const std::string &hint, uint64_t capacity) {
    const std::lock_guard guard(mutex_);
    if (Medium *const medium = mediumOf(hint))
        medium->capacity = capacity;
}

Bytes FakeMedia::snapshot(const std::string &hint) const {
    const std::lock_guard guard(mutex_);
    const Medium *const medium = mediumOf(hint);
    return medium != nullptr ? medium->bytes : Bytes{};
}

void FakeMedia::restore(const std::string &hint, Bytes content) {
    const std::lock_guard guard(mutex_);
    if (Medium *const medium = mediumOf(hint))
        medium->bytes = std::move(content);
}

MediaImage FakeMedia::snapshotAll() const {
    const std::lock_guard guard(mutex_);
    MediaImage image;
    for (const auto &[hint, medium] : media_)
        image[hint] = medium.bytes;
    return image;
}

void FakeMedia::restoreAll(const MediaImage &image) {
    const std::lock_guard guard(mutex_);
    std::erase_if(media_, [&](const auto &entry) { return !image.contains(entry.first); });
    for (const auto &[hint, content] : image) {
        media_.try_emplace(hint, Medium{{}, kLargestMedium});
        media_[hint].bytes = content;
    }
}

std::vector<std::string> FakeMedia::changesSince(const MediaImage &image) const {
    MediaImage before = image;
    MediaImage after = snapshotAll();
    for (const auto &[hint, content] : image)
        after.try_emplace(hint);
    std::vector<std::string> lines;
    for (const auto &[hint, content] : after) {
        for (const std::string &line : differences(before[hint], content))
            lines.push_back(hint + ' ' + line);
    }
    return lines;
}

size_t FakeMedia::sizeOf(const std::string &hint) const {
    const std::lock_guard guard(mutex_);
    const Medium *const medium = mediumOf(hint);
    return medium != nullptr ? medium->bytes.size() : 0;
}

Bytes FakeMedia::bytesAt(const std::string &hint, size_t offset, size_t length) const {
    const Bytes all = snapshot(hint);
    if (offset > all.size() || length > all.size() - offset) {
        reportMisuse(kMedia, "the test looks beyond the end of " + hint);
        return Bytes(length);
    }
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(offset);
    return {first, first + static_cast<std::ptrdiff_t>(length)};
}

void FakeMedia::setBytesAt(const std::string &hint, size_t offset, const Bytes &bytes) {
    const std::lock_guard guard(mutex_);
    Medium *const medium = mediumOf(hint);
    if (medium == nullptr)
        return;
    if (offset + bytes.size() > kLargestMedium)
        return reportMisuse(kMedia, "the test writes far beyond the end of " + hint);
    if (medium->bytes.size() < offset + bytes.size())
        medium->bytes.resize(offset + bytes.size());
    std::copy(bytes.begin(), bytes.end(), medium->bytes.begin() + static_cast<std::ptrdiff_t>(offset));
}

std::vector<std::string> FakeMedia::openDescriptors() const {
    const std::lock_guard guard(mutex_);
    std::vector<std::string> hints;
    for (const auto &[fd, descriptor] : open_)
        hints.push_back(descriptor.hint);
    return hints;
}

void FakeMedia::reset() {
    const std::lock_guard guard(mutex_);
    media_.clear();
    open_.clear();
    injected_.clear();
    nextDescriptor_ = 0;
}

const FakeMedia::Medium *FakeMedia::mediumOf(const std::string &hint) const {
    const auto found = media_.find(hint);
    if (found != media_.end())
        return &found->second;
    reportMisuse(kMedia, "the test names a medium that it did not create: " + hint);
    return nullptr;
}

FakeMedia::Medium *FakeMedia::mediumOf(const std::string &hint) {
    return const_cast<Medium *>(std::as_const(*this).mediumOf(hint));
}

int32_t FakeMedia::init(const char *path, uint32_t arg) {
    ErrnoKeeper keeper;
    Event event{.operation = Operation::mediaInit, .subject = nameInHome(path), .argument = arg};
    if (const auto fault = faultPlan().next(event.operation, event.subject))
        applyFault(event, *fault);
    keeper.set(event.error);
    eventLog().add(event);
    return static_cast<int32_t>(event.result);
}

int32_t FakeMedia::open(const char *function, const char *hint, uint32_t openArg, uint32_t *err) {
    return openAs(false, function, hint, openArg, err);
}

int32_t FakeMedia::openReadOnly(const char *function, const char *hint, uint32_t openArg, uint32_t *err) {
    return openAs(true, function, hint, openArg, err);
}

int32_t FakeMedia::openAs(bool readOnly, const char *function, const char *hint, uint32_t openArg, uint32_t *err) {
    const ErrnoKeeper keeper;
    const std::lock_guard guard(mutex_);
    const std::string name = hint != nullptr ? hint : "(null)";
    Event event{.operation = Operation::mediaOpen, .subject = name, .function = function, .argument = openArg};
    if (const auto fault = faultPlan().next(event.operation, event.subject)) {
        applyFault(event, *fault);
        injected_.insert(static_cast<int32_t>(event.result));
    } else if (!media_.contains(name)) {
        refuse(event, ENOENT);
    } else {
        event.result = nextDescriptor_++;
        open_[static_cast<int32_t>(event.result)] = {name, readOnly};
    }
    event.fd = static_cast<int32_t>(event.result);
    return finish(event, err);
}

/// The descriptor of the event; none refuses the operation.
FakeMedia::Descriptor *FakeMedia::find(Event &event) {
    const auto found = open_.find(event.fd);
    if (found != open_.end()) {
        event.subject = found->second.hint;
        return &found->second;
    }
    if (!injected_.contains(event.fd)) {
        const bool closed = event.fd >= 0 && event.fd < nextDescriptor_;
        reportMisuse(kMedia, textOf(event) + " on descriptor " + std::to_string(event.fd) +
                                 (closed ? ", which is closed" : ", which was never open"));
    }
    refuse(event, EBADF);
    return nullptr;
}

int32_t FakeMedia::close(const char *function, int32_t fd, uint32_t *err) {
    const ErrnoKeeper keeper;
    const std::lock_guard guard(mutex_);
    Event event{.operation = Operation::mediaClose, .function = function, .fd = fd};
    if (find(event) != nullptr) {
        open_.erase(fd);  // a close that fails has closed all the same
        if (const auto fault = faultPlan().next(event.operation, event.subject))
            applyFault(event, *fault);
    }
    return finish(event, err);
}

int32_t FakeMedia::read(const char *function, int32_t fd, void *buffer, int32_t length, uint32_t offset,
                        uint32_t *err) {
    const ErrnoKeeper keeper;
    const std::lock_guard guard(mutex_);
    Event event{.operation = Operation::mediaRead,
                .details = transferText(length, offset),
                .function = function,
                .fd = fd,
                .length = length,
                .offset = offset};
    if (isSoundTransfer(event, buffer) && find(event) != nullptr)
        performRead(event, buffer);
    return finish(event, err);
}

void FakeMedia::performRead(Event &event, void *buffer) {
    const Medium *const medium = mediumOf(event.subject);
    if (medium == nullptr)
        return refuse(event, EIO);
    const auto fault = faultPlan().next(event.operation, event.subject);
    const size_t wanted = static_cast<size_t>(fault ? fault->movedOf(event.length) : event.length);
    const size_t from = static_cast<size_t>(std::min<uint64_t>(event.offset, medium->bytes.size()));
    const size_t moved = std::min(wanted, medium->bytes.size() - from);
    if (moved > 0)
        memcpy(buffer, medium->bytes.data() + from, moved);
    event.result = static_cast<int64_t>(moved);
    event.failed = event.result != event.length;
    if (fault)
        applyFault(event, *fault);
}

int32_t FakeMedia::write(const char *function, int32_t fd, const void *buffer, int32_t length, uint32_t offset,
                         uint32_t *err) {
    const ErrnoKeeper keeper;
    const std::lock_guard guard(mutex_);
    Event event{.operation = Operation::mediaWrite,
                .details = transferText(length, offset),
                .function = function,
                .fd = fd,
                .length = length,
                .offset = offset};
    if (isSoundTransfer(event, buffer)) {
        const Descriptor *const descriptor = find(event);
        if (descriptor != nullptr && descriptor->readOnly)
            refuse(event, EBADF);
        else if (descriptor != nullptr)
            performWrite(event, buffer);
    }
    return finish(event, err);
}

void FakeMedia::performWrite(Event &event, const void *buffer) {
    Medium *const medium = mediumOf(event.subject);
    if (medium == nullptr)
        return refuse(event, EIO);
    const auto fault = faultPlan().next(event.operation, event.subject);
    const size_t moved = static_cast<size_t>(fault ? fault->movedOf(event.length) : event.length);
    if (moved > 0 && event.offset + moved > std::min(medium->capacity, kLargestMedium))
        return refuse(event, ENOSPC);
    if (moved > 0) {
        const uint8_t *const bytes = static_cast<const uint8_t *>(buffer);
        const size_t from = static_cast<size_t>(event.offset);
        event.data.assign(bytes, bytes + moved);
        medium->bytes.resize(std::max(medium->bytes.size(), from + moved));
        memcpy(medium->bytes.data() + from, bytes, moved);
    }
    event.result = event.length;
    if (fault)
        applyFault(event, *fault);
}

int32_t FakeMedia::seek(const char *function, int32_t fd, int32_t offset, int32_t whence, uint32_t *err) {
    const ErrnoKeeper keeper;
    const std::lock_guard guard(mutex_);
    Event event{.operation = Operation::mediaSeek,
                .details = seekText(offset, whence),
                .function = function,
                .fd = fd,
                .argument = whence};
    if (find(event) != nullptr)
        performSeek(event, offset);
    return finish(event, err);
}

void FakeMedia::performSeek(Event &event, int32_t offset) {
    const Medium *const medium = mediumOf(event.subject);
    if (medium == nullptr)
        return refuse(event, EIO);
    if (const auto fault = faultPlan().next(event.operation, event.subject))
        return applyFault(event, *fault);
    Descriptor &descriptor = open_[event.fd];
    int64_t position = offset;
    if (event.argument == SEEK_CUR)
        position += descriptor.position;
    else if (event.argument == SEEK_END)
        position += static_cast<int64_t>(medium->bytes.size());
    else if (event.argument != SEEK_SET)
        position = -1;
    if (position < 0 || position > std::numeric_limits<int32_t>::max())
        return refuse(event, EINVAL);
    descriptor.position = position;
    event.result = position;
}

int32_t FakeMedia::sync(const char *function, int32_t fd, uint32_t *err, uint32_t arg) {
    const ErrnoKeeper keeper;
    const std::lock_guard guard(mutex_);
    Event event{.operation = Operation::mediaSync,
                .details = std::to_string(arg),
                .function = function,
                .fd = fd,
                .argument = arg};
    if (find(event) != nullptr) {
        if (const auto fault = faultPlan().next(event.operation, event.subject))
            applyFault(event, *fault);
    }
    return finish(event, err);
}

FakeMedia &fakeMedia() {
    static auto *const media = new FakeMedia;
    return *media;
}

}  // namespace tavdb_test
